#!/usr/bin/env bash
# Builds the master.cf parser's fuzz target with clang and runs it.
#
#   tests/fuzz/run.sh SECONDS [BUILD_DIR]
#
# BUILD_DIR (default build/fuzz) keeps the build and the corpus the fuzzer grows, so a longer
# run continues where the last one stopped. Seeds: Debian's master.cf from the sandbox and
# hand-edited variants. A crash or a failed round trip leaves its input in BUILD_DIR and exits
# non-zero; the last lines of the fuzzer's report say how many runs it made and what it covered.
set -euo pipefail

seconds=${1:?usage: run.sh SECONDS [BUILD_DIR]}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
top=$(cd "$here/../.." && pwd)
build=${2:-$top/build/fuzz}

command -v clang++ >/dev/null || { echo "run.sh: clang++ is not installed" >&2; exit 2; }
mkdir -p "$build"
if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
cmake --build "$build" -j2 >/dev/null

corpus=$build/corpus
seeds=$build/seeds
mkdir -p "$corpus" "$seeds"
cp "$top/sandbox/postfix/master.cf" "$seeds/debian"
printf 'relay unix - - y - - smtp\n# why\n\n  -o syslog_name=relay\n\t-o a=b\n' > "$seeds/continued"
printf 'smtp\tinet\tn\t-\ty\t-\t-\tsmtpd   \r\n   \n#c\npickup unix n - y 60? 1 pickup' > "$seeds/blanks"
printf 'postlog unix-dgram n - n - 1 postlogd\nsmtpd pass - - y - - smtpd\n' > "$seeds/types"

cd "$build"
"$build/master_cf_fuzz" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
  -dict="$here/master_cf.dict" -print_final_stats=1 "$corpus" "$seeds" 2>&1 |
  grep -E '^(#[0-9]+ +DONE|INFO: -max_total_time|stat::|==[0-9]+==|SUMMARY|master.cf fuzz|Done )' || true
exit "${PIPESTATUS[0]}"
