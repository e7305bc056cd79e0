#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test (unit and scenario) through CTest; then
# builds everything again under AddressSanitizer and UndefinedBehaviorSanitizer in build-asan
# and runs the suite there, failing when any process of it left a sanitizer report.
#
#   scripts/test.sh [CTEST ARGS...]     MAILRIG_NO_SANITIZE=1 skips the second build.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bash "$top/scripts/build.sh"
cd "$top/build"
ctest --output-on-failure -j"$(nproc)" "$@"

[ -z "${MAILRIG_NO_SANITIZE:-}" ] || exit 0
asan=$top/build-asan
# -O1 and line tables only: reports keep their file and line, and the build takes half the time.
cmake -S "$top" -B "$asan" -DCMAKE_BUILD_TYPE=None -DCMAKE_CXX_FLAGS="-O1 -g1" -DCMAKE_C_FLAGS="-O1 -g1" \
  -DMAILRIG_SANITIZE=ON >/dev/null
cmake --build "$asan" -j"$(nproc)"
# Reports of an earlier run must not fail this one, nor hide that this one is clean.
find "$asan/sanitizer" -type f -delete 2>/dev/null || true
cd "$asan"
status=0
# Left to the first run: the kill and concurrency scenarios (timing properties that the
# sanitizers' slowdown only stretches, on code paths the other scenarios run), the package and
# the generated docs (an instrumented build is never shipped), the long table of refused
# values (each stops at the name checks, which the option-values fuzz target runs under the same
# sanitizers), and the fuzz targets (clang builds them instrumented already).
skip='^(scenario_(kill_rewrites|concurrency_mixed|package|help_docs|hostile_inputs)|fuzz_.*)$'
ctest --output-on-failure -j"$(nproc)" -E "$skip" "$@" || status=$?
reports=$(find "$asan/sanitizer" -type f 2>/dev/null | sort)
if [ -n "$reports" ]; then
  echo "sanitizer reports:" >&2
  for report in $reports; do
    echo "== $report" >&2
    head -40 "$report" >&2
  done
  status=1
fi
exit "$status"
