#!/usr/bin/env bash
# Measures the cost of starting /bin/true through Pipe::run and ExecCmd against posix_spawn,
# and appends the table to bench/RESULTS.md. Usage: bench/process_bench.sh [runs]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=${MAILRIG_BUILD:-$here/../build}
runs=${1:-2000}

cmake --build "$build" -j2 --target process_bench >/dev/null
table=$("$build/bench/process_bench" "$runs" /bin/true)
echo "$table"
{
  echo
  echo "## Process start cost, $(date -u +%Y-%m-%d) ($(nproc) cores, $runs interleaved runs of /bin/true)"
  echo
  echo "$table"
} >> "$here/RESULTS.md"
