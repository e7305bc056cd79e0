#!/usr/bin/env bash
# Whole-table rewrite of a `virtual` table through DatabaseHelper::filterRecords against the
# same dump/filter/rebuild done by a shell pipeline (postmap -s | awk > file; postmap), and one
# incremental addRecord against a bare `postmap -r -i`. Runs itself inside the test sandbox.
#   bench/tables_bench.sh [records...]   (default 1000000; expects a build in ./build)
#   ROUNDS=3 ADDS=21 to change the repetitions; TABLES_BENCH=path to time another build.
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/timing.sh"
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
if [ -z "${MAILRIG_SANDBOX_INSIDE:-}" ]; then
  exec "$top/sandbox/sandbox.sh" bash "${BASH_SOURCE[0]}" "$@"
fi
sizes=${*:-1000000}
rounds=${ROUNDS:-3}
adds=${ADDS:-21}
bench=${TABLES_BENCH:-$top/build/bench/tables_bench}
dir=/var/spool/postfix/quelt
table=hash:$dir/virtual
work=$(mktemp -d)
# Postfix tools wait while main.cf looks freshly written; the sandbox has just copied it.
touch -d '-1 min' /etc/postfix/main.cf


restore() { cp "$work/virtual.db" "$dir/virtual.db"; sync; }
dumpsum() { postmap -s "$table" | LC_ALL=C sort | md5sum | cut -c1-32; }

for n in $sizes; do
  # Records spread over 1000 domains; the filtered domain holds about 0.1% of keys and of
  # value elements, so nearly every record is rewritten and kept.
  awk -v n="$n" 'BEGIN { for (i = 0; i < n; i++)
      printf "u%d@d%d.example a%d@x.example,b%d@d%d.example  c%d@y.example\n", i, i % 1000, i, i, (i + 7) % 1000, i }' > "$dir/virtual"
  postmap "$table"
  rm "$dir/virtual"
  cp "$dir/virtual.db" "$work/virtual.db"
  size=$(du -m "$work/virtual.db" | cut -f1)

  ours=() shell=() mshell=() rss=() awkrss=()
  for ((r = 0; r < rounds; r++)); do
    restore
    out=$(/usr/bin/time -f '%e' "$bench" filter "$table" d7.example 2>&1)
    ours+=("$(echo "$out" | tail -1)")
    rss+=("$(echo "$out" | sed -n 's/.*maxrss_kb \([0-9]*\).*/\1/p')")
    oursum=$(dumpsum)

    for tool in awk mawk; do
      restore
      start=$(date +%s%N)
      postmap -s "$table" | /usr/bin/time -o "$work/awk.time" -f '%M' "$tool" -v D=d7.example -f "$top/bench/remove_domain.awk" > "$dir/virtual"
      postmap "$table"
      rm -f "$dir/virtual"
      end=$(date +%s%N)
      wall=$(awk -v ns=$((end - start)) 'BEGIN { printf "%.2f", ns / 1e9 }')
      if [ "$tool" = awk ]; then shell+=("$wall"); awkrss+=("$(cat "$work/awk.time")"); else mshell+=("$wall"); fi
      shellsum=$(dumpsum)
      [ "$oursum" = "$shellsum" ] || { echo "results differ ($tool): $oursum vs $shellsum" >&2; exit 1; }
    done
  done
  [ ! -e "$dir/virtual" ] || { echo "text file left behind" >&2; exit 1; }

  restore
  tadd=() tin=() tbare=() tstart=()
  for ((i = 0; i < adds; i++)); do
    start=$(date +%s%N); "$bench" add "$table" "new$i@d1.example" "x$i@y.example" 2>"$work/add.err"; end=$(date +%s%N)
    tadd+=($(( (end - start) / 1000 )))
    tin+=("$(awk '{ printf "%d", $2 * 1e6 }' "$work/add.err")")
    start=$(date +%s%N); "$bench" none "$table" - 2>/dev/null || true; end=$(date +%s%N)
    tstart+=($(( (end - start) / 1000 )))
    start=$(date +%s%N); printf 'bare%d@d1.example x%d@y.example\n' "$i" "$i" | postmap -r -i "$table"; end=$(date +%s%N)
    tbare+=($(( (end - start) / 1000 )))
  done

  echo "records: $n (table ${size} MB), rounds: $rounds, identical results: yes"
  echo "filterRecords wall s: ${ours[*]} (median $(median "${ours[@]}")); own peak RSS KB: ${rss[*]}"
  echo "shell pipeline, awk ($(readlink -f "$(command -v awk)")) wall s: ${shell[*]} (median $(median "${shell[@]}")); awk peak RSS KB: ${awkrss[*]}"
  echo "shell pipeline, mawk wall s: ${mshell[*]} (median $(median "${mshell[@]}"))"
  echo "addRecord: whole process median $(median "${tadd[@]}") us, of which the call itself $(median "${tin[@]}") us;" \
       "the driver's start-up alone $(median "${tstart[@]}") us"
  echo "bare printf | postmap -r -i: median $(median "${tbare[@]}") us ($adds runs each, interleaved)"
done
rm -rf "$work"
