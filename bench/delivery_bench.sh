#!/usr/bin/env bash
# Messages per second delivered by a running Postfix into one mailbox: through mailrig's delivery
# agent (virtual_transport = mailrig) against Postfix's own virtual delivery, on the same
# machine, alternated round by round; then the agent's own cost per message, run by hand.
# Inside the test sandbox with a private loopback. Appends the tables to bench/RESULTS.md.
#   bench/delivery_bench.sh [messages] [rounds]
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
build=${MAILRIG_BUILD:-$here/../build}
messages=${1:-1000}
rounds=${2:-3}

if [ "${DELIVERY_BENCH_INSIDE:-}" != 1 ]; then
  cmake --build "$build" -j2 --target mailrig mailrig-setup mailrig-deliver >/dev/null
  out=$(mktemp)
  DELIVERY_BENCH_INSIDE=1 MAILRIG_BUILD=$build "$here/../sandbox/sandbox.sh" unshare --net \
    "$here/../sandbox/mariadb.sh" run bash "$0" "$messages" "$rounds" | tee "$out"
  { echo; cat "$out"; } >> "$here/RESULTS.md"
  rm -f "$out"
  exit 0
fi

. "$here/timing.sh"
ROOT=/var/qmail/mailnames
HOME_DIR=$ROOT/example.com/info
ip link set lo up
agent=$("$here/../sandbox/agent.sh" "$build")
printf 'QUELT_MAILNAMES_D %s\n' "$ROOT" > /etc/zvt/zvt.conf
"$build/src/front/setup/mailrig-setup" >/dev/null
newaliases
mariadb --no-defaults --protocol=socket --socket=/run/mysqld/mysqld.sock -uroot zvt \
  -e "INSERT INTO domains (name) VALUES ('example.com')"
"$build/src/front/dispatch/mailrig" --add-domain --domain-name=example.com
"$build/src/front/dispatch/mailrig" --add-mailname --domain-name=example.com --mailname=info
ZVT_PASSWORD=x "$build/src/front/dispatch/mailrig" --add-mailbox --domain-name=example.com --mailname=info
# Every accepted message waits on hold, so that the clock runs for delivery alone.
postconf -e 'smtpd_client_restrictions = check_client_access static:HOLD'
trap '/usr/sbin/postfix stop >/dev/null 2>&1 || true' EXIT

delivered() { find "$HOME_DIR/Maildir/new" -type f | wc -l; }
submit() { # N: N small messages over one SMTP session
  python3 - "$1" <<'PY'
import smtplib, sys
with smtplib.SMTP("127.0.0.1", 25) as s:
    for i in range(int(sys.argv[1])):
        s.sendmail("bench@example.com", ["info@example.com"],
                   f"From: bench@example.com\r\nSubject: bench {i}\r\n\r\nsmall body {i}\r\n")
PY
}
# One round: N messages on hold, released at once; wall time until all are in the Maildir.
round_ms() { # TRANSPORT
  postconf -e "virtual_transport = $1"
  /usr/sbin/postfix stop >/dev/null 2>&1 || true
  /etc/init.d/postfix start >/dev/null 2>&1
  rm -f "$HOME_DIR"/Maildir/new/* "$HOME_DIR"/Maildir/maildirsize
  submit "$messages"
  local start end
  start=$(date +%s%N)
  # Released mail goes to the deferred queue; the flush hands it to the queue manager now.
  postsuper -H ALL 2>/dev/null
  postqueue -f
  while [ "$(delivered)" -lt "$messages" ]; do sleep 0.02; done
  end=$(date +%s%N)
  echo $(( (end - start) / 1000000 ))
}

declare -a agent=() virtual=()
for r in $(seq "$rounds"); do
  agent+=("$(round_ms mailrig)")
  virtual+=("$(round_ms virtual)")
done
a=$(median "${agent[@]}") v=$(median "${virtual[@]}")
/usr/sbin/postfix stop >/dev/null 2>&1

# The agent by hand, one run after the other, against the program it runs for a mailbox.
msg=$(mktemp); printf 'From: bench@example.com\nSubject: by hand\n\nsmall body\n' > "$msg"
chmod 644 "$msg"
runs=300
agent_loop() { for _ in $(seq $runs); do "$agent" bench@example.com info@example.com < "$msg"; done; }
# The program alone, started by the shell in the home (as root: a measuring run, not a delivery
# anyone reads; setpriv to popuser would cost more than the program itself).
dq_loop() { cd "$HOME_DIR" && for _ in $(seq $runs); do /usr/bin/deliverquota ./Maildir < "$msg"; done; }
true_loop() { for _ in $(seq $runs); do /bin/true; done; }
declare -a ag=() dq=() tr=()
for _ in 1 2 3; do
  ag+=("$(time_us agent_loop)"); dq+=("$(time_us dq_loop)"); tr+=("$(time_us true_loop)")
done
ag_us=$(( $(median "${ag[@]}") / runs )) dq_us=$(( $(median "${dq[@]}") / runs )) tr_us=$(( $(median "${tr[@]}") / runs ))

cat <<EOF2
## Delivery through the agent against Postfix's virtual, $(date -u +%Y-%m-%d) ($(nproc) cores)

\`bench/delivery_bench.sh $messages $rounds\`: $messages small messages to one mailbox, held in the queue and
released at once; wall time from the release until all are in \`Maildir/new\` (median of $rounds
rounds, the two transports alternated; Postfix's default concurrency for both).

| transport | median wall | messages/s | rounds (ms) |
|---|---|---|---|
| \`mailrig\` (pipe + mailrig-deliver + deliverquota) | $a ms | $(( messages * 1000 / a )) | ${agent[*]} |
| \`virtual\` (Postfix's own Maildir delivery) | $v ms | $(( messages * 1000 / v )) | ${virtual[*]} |

By hand, $runs runs one after the other (median of 3 loops), per message:

| run | per message |
|---|---|
| \`mailrig-deliver\` (becomes popuser, reads .qmail, sh -c deliverquota) | $ag_us us |
| \`deliverquota ./Maildir\` alone | $dq_us us |
| \`/bin/true\` (the cost of one program start) | $tr_us us |
| the agent's own share (agent minus deliverquota) | $(( ag_us - dq_us )) us |

Load average while measuring: $(cut -d' ' -f1-3 /proc/loadavg) (the machine is shared).
EOF2
