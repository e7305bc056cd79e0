#!/usr/bin/env bash
# get_mbox_size of a mailbox of 100,000 messages, alone and as `mailrig --get-mailbox-size`,
# against `du -sb` of the same tree, whole-process wall time, median of N runs each (interleaved), with the tree in the page cache. Three shapes:
#   file:  a trusted maildirsize (the usual case: read the file, no scan)
#   named: no maildirsize, every message name carries ",S=" (a scan without a stat per message)
#   plain: no maildirsize, names without sizes (a scan with one stat per message)
# Runs inside the test sandbox, so the tree lives in memory and the host is untouched.
#   bench/mbox_size_bench.sh [runs] [messages]   (expects a build in ./build)
set -euo pipefail
. "$(dirname "${BASH_SOURCE[0]}")/timing.sh"
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
runs=${1:-11}
messages=${2:-100000}
bench=$top/build/bench/mbox_size_bench
mailrig=$top/build/src/front/dispatch/mailrig
for program in "$bench" "$mailrig"; do
  [ -x "$program" ] || { echo "build first: $program is missing" >&2; exit 1; }
done

if [ -z "${MAILRIG_SANDBOX_INSIDE:-}" ]; then
  exec "$top/sandbox/sandbox.sh" bash "${BASH_SOURCE[0]}" "$runs" "$messages"
fi

# A panel installation names its mail root in its configuration file, which mailrig reads.
mkdir -p /etc/zvt && printf 'QUELT_MAILNAMES_D /var/qmail/mailnames\n' > /etc/zvt/zvt.conf
home=/var/qmail/mailnames/example.com/info
maildir=$home/Maildir

# Messages of 500 to 8499 bytes, a tenth of them in a folder, seeded for the same tree each run.
populate() {
  local named=$1
  rm -rf "$home"
  mkdir -p "$maildir"/{new,cur,tmp} "$maildir"/.Archive/{new,cur,tmp} "$home/@attachments"
  python3 - "$maildir" "$messages" "$named" <<'PY'
import os, random, sys
maildir, count, named = sys.argv[1], int(sys.argv[2]), sys.argv[3] == "1"
rng = random.Random(7)
blob = b"x" * 9000
for i in range(count):
    size = rng.randrange(500, 8500)
    folder = ".Archive/cur" if i % 10 == 0 else ("new" if i % 3 == 0 else "cur")
    name = "%d.M%dP%d.mail.sandbox.test" % (1700000000 + i, i, 4242)
    if named:
        name += ",S=%d" % size
    if folder.endswith("cur"):
        name += ":2,S"
    with open(os.path.join(maildir, folder, name), "wb") as f:
        f.write(blob[:size])
PY
}


size_command=("$mailrig" --get-mailbox-size --domain-name=example.com --mailname=info)
measure() {
  local shape=$1
  local -a bt=() mt=() dt=()
  "$bench" size info example.com >/dev/null; du -sb "$home" >/dev/null   # warm the cache
  for ((i = 0; i < runs; i++)); do
    bt+=("$(time_us "$bench" size info example.com)")
    mt+=("$(time_us "${size_command[@]}")")
    dt+=("$(time_us du -sb "$home")")
  done
  printf '| %s | %s | %s | %s | %s us | %s us | %s us |\n' "$shape" "$("$bench" size info example.com)" \
    "$("${size_command[@]}")" "$(du -sb "$home" | cut -f1)" \
    "$(median "${bt[@]}")" "$(median "${mt[@]}")" "$(median "${dt[@]}")"
}

echo "messages: $messages, runs: $runs each, interleaved"
echo "| shape | get_mbox_size bytes | mailrig bytes | du -sb bytes | get_mbox_size median | mailrig median | du -sb median |"
echo "|---|---|---|---|---|---|---|"
populate 1
measure named
"$bench" quota info example.com 10000000000 >/dev/null   # one scan, then a trusted file
measure file
populate 0
measure plain
