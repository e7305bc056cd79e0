#!/usr/bin/env bash
# Whole-process time of `mailrig --help` against a trivial C++ program that prints one line:
# what mailrig's start-up costs beyond exec'ing a C++ binary at all. Median of N runs each.
#   bench/startup.sh [runs]   (expects a build in ./build)
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/timing.sh"
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
runs=${1:-201}
mailrig=$top/build/src/front/dispatch/mailrig
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

printf '#include <iostream>\nint main() { std::cout << "Usage: trivial\\n"; return 0; }\n' > "$tmp/trivial.cc"
g++ -O2 -o "$tmp/trivial" "$tmp/trivial.cc"

# Alternate the two programs run by run so that load from anything else hits both alike.
declare -a mt=() tt=()
for ((i = 0; i < runs; i++)); do
  mt+=("$(time_us "$mailrig" --help)")
  tt+=("$(time_us "$tmp/trivial")")
done
m=$(median "${mt[@]}")
t=$(median "${tt[@]}")
echo "runs: $runs each, interleaved; load average: $(load_average)"
echo "mailrig --help: ms median (min-max) $(spread "${mt[@]}")"
echo "trivial C++:    ms median (min-max) $(spread "${tt[@]}")"
echo "difference:     $(( m - t )) us; ratio $(ratio "$m" "$t")x"
