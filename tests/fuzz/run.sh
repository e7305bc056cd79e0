#!/usr/bin/env bash
# Builds the fuzz targets with clang and runs one of them.
#
#   tests/fuzz/run.sh SECONDS [BUILD_DIR] [TARGET]
#
# TARGET: master_cf (default), maildirsize, record_filters or option_values.
# SECONDS 0 only builds. BUILD_DIR (default build/fuzz) keeps the build and the corpus each
# fuzzer grows (corpus-TARGET), so a longer run continues where the last one stopped. A crash or
# a failed property leaves its input in BUILD_DIR and exits non-zero; the last lines of the
# fuzzer's report say how many runs it made and what it covered.
set -euo pipefail

seconds=${1:?usage: run.sh SECONDS [BUILD_DIR] [TARGET]}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
top=$(cd "$here/../.." && pwd)
build=${2:-$top/build/fuzz}
target=${3:-master_cf}

command -v clang++ >/dev/null || { echo "run.sh: clang++ is not installed" >&2; exit 2; }
mkdir -p "$build"
if [ ! -f "$build/CMakeCache.txt" ]; then
  CC=clang CXX=clang++ cmake -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
fi
if [ "$seconds" = 0 ]; then
  cmake --build "$build" -j2 >/dev/null
  exit 0
fi
cmake --build "$build" -j2 --target "${target}_fuzz" >/dev/null

corpus=$build/corpus-$target
seeds=$build/seeds-$target
[ "$target" != master_cf ] || { [ ! -d "$build/corpus" ] || corpus=$build/corpus; }
mkdir -p "$corpus" "$seeds"
options=()
case $target in
  master_cf)
    cp "$top/sandbox/postfix/master.cf" "$seeds/debian"
    printf 'relay unix - - y - - smtp\n# why\n\n  -o syslog_name=relay\n\t-o a=b\n' > "$seeds/continued"
    printf 'smtp\tinet\tn\t-\ty\t-\t-\tsmtpd   \r\n   \n#c\npickup unix n - y 60? 1 pickup' > "$seeds/blanks"
    printf 'postlog unix-dgram n - n - 1 postlogd\nsmtpd pass - - y - - smtpd\n' > "$seeds/types"
    printf 'smtps inet n - n\n    - - smtpd\nx inet - - - - -\nsmtp inet n - y - - smtpd\nsmtp inet n - y - - postscreen\n  ' > "$seeds/hand-edited"
    options=(-dict="$here/master_cf.dict") ;;
  maildirsize)
    printf '1048576S,100C\n        4096           2\n       -1024          -1\n' > "$seeds/quota"
    printf '0S\n  0 0\n' > "$seeds/bytes-only"
    printf '1623443.M1P2.host,S=2048:2,S' > "$seeds/name" ;;
  record_filters)
    printf '\005example.com\nexample.org\ninfo@example.com\tinfo@example.com, a@sub.example.com\nexample.com\tOK\nx@y.test example.com/info/\n' > "$seeds/dump" ;;
  option_values)
    for s in 24 +128 ' 7 ' compound both smtp all info@example.com xn--bcher-kva.example Info.Box "o'neil"; do
      printf '%s' "$s" > "$seeds/$(printf '%s' "$s" | sha1sum | cut -c1-8)"
    done ;;
  *) echo "run.sh: unknown target $target" >&2; exit 2 ;;
esac

cd "$build"
# The fuzzer's status is the run's (a report filtered to nothing is no failure).
status=0
"$build/${target}_fuzz" -max_total_time="$seconds" -max_len=4096 -timeout=10 "${options[@]}" \
  -print_final_stats=1 "$corpus" "$seeds" 2>&1 |
  { grep -E '^(#[0-9]+ +DONE|INFO: -max_total_time|stat::|==[0-9]+==|SUMMARY|.* fuzz: |Done )' || true; } ||
  status=$?
exit "$status"
