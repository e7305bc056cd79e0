# The service commands against a real Postfix master and a real Courier-IMAP started through
# their Debian init scripts, and a stand-in of the milter's init script. Everything listens on
# the loopback of a private network namespace; nothing is left running.
if [ "${SERVICES_NETNS:-}" != 1 ]; then
  SERVICES_NETNS=1 exec unshare --net bash "$0" "$@"
fi
ip link set lo up
sed -i 's/^ADDRESS=.*/ADDRESS=127.0.0.1/' /etc/courier/imapd
cp "$MAILRIG_SANDBOX_DIR/pc-remote" /etc/init.d/pc-remote
# Courier writes its access table when it first starts; let that be part of the prepared server.
/etc/init.d/courier-imap start >/dev/null 2>&1 && /etc/init.d/courier-imap stop >/dev/null 2>&1

. "$MAILRIG_TESTS/scenario/rows.sh"
trap 'stop_everything; "$mdb" stop >/dev/null' EXIT

PIDFILE=/var/spool/postfix/pid/master.pid
SMTPS='smtps inet n - n - - smtpd -o smtpd_tls_wrappermode=yes'
SUBMISSION='submission inet n - n - - smtpd -o smtpd_enforce_tls=yes -o smtpd_tls_security_level=encrypt -o smtpd_sasl_auth_enable=yes -o smtpd_client_restrictions=permit_sasl_authenticated,reject -o smtpd_sender_restrictions='
STOCK_SMTP='smtp      inet  n       -       y       -       -       smtpd'
# A disabled entry in the stock layout, with a continuation line, and its way back.
SMTPS_STOCK='smtps     inet  n       -       y       -       -       smtpd'
SMTPS_MOVED_BACK="mastercf +$SMTPS_STOCK
mastercf +  -o smtpd_tls_wrappermode=yes
mastercf -disabled: $SMTPS_STOCK
mastercf -disabled:   -o smtpd_tls_wrappermode=yes"

# Independent views of the running system.
procs() { local n=0 c; for c in /proc/[0-9]*/comm; do [ "$(cat "$c" 2>/dev/null)" = "$1" ] && n=$((n + 1)); done; echo $n; }
listening() { awk -v p="$(printf ':%04X' "$1")" '$4 == "0A" && $2 ~ p "$" { f = 1 } END { exit !f }' /proc/net/tcp; }
not_listening() { ! listening "$1"; }
# A reload only signals the master, which then opens and closes its listeners on its own time.
eventually() { local i; for i in $(seq 50); do "$@" && return 0; sleep 0.1; done; return 1; }
postfix_up() { /usr/sbin/postfix status >/dev/null 2>&1; }
stop_everything() {
  postfix_up && /usr/sbin/postfix stop >/dev/null 2>&1
  /etc/init.d/courier-imap stop >/dev/null 2>&1
  /etc/init.d/pc-remote stop >/dev/null 2>&1
  true
}

fixture submission_on 'panel "INSERT INTO misc VALUES ('"'"'message_submission'"'"', '"'"'true'"'"')"'
fixture smtps_disabled 'printf "%s\n  -o smtpd_tls_wrappermode=yes\n" "$SMTPS_STOCK" > $Q/master.cf.disabled'
# Postfix's own postconf refuses some of these in master.cf before mailrig reads it; in
# master.cf.disabled only mailrig reads them.
fixture hostile_nul 'printf "relay unix - - y - - sm\0tp\n" >> /etc/postfix/master.cf'
fixture hostile_utf8 'printf "relay unix - - y - - smtp -o x=\xc3\x28\n" >> /etc/postfix/master.cf'
fixture hostile_line '{ echo "# a 1 MB line"; head -c 1048576 /dev/zero | tr "\0" a; echo; } > $Q/master.cf.disabled'
fixture hostile_continuation 'printf "smtp inet n - n - - smtpd\nsmtps inet n - n\n" > $Q/master.cf.disabled'
fixture hostile_case 'printf "Smtps inet n - n - - smtpd\n" > $Q/master.cf.disabled'
fixture postconf_refuses 'printf "smtps inet n - n\n" >> /etc/postfix/master.cf'
fixture no_restart 'echo "NO_RESTART_DAEMON 1" >> /etc/zvt/zvt.conf'

# --- Postfix stopped ----------------------------------------------------------------------
row fresh 0 'stdout = mta is stopped' --status-service --mail-component=mta
row fresh 0 'stdout = is stopped' -s
row fresh 0 'stdout =' -m                                 # stopping a stopped Postfix runs no script
row fresh 0 'stdout =' --reload-service --mail-component=milter

# A pid file naming a live process without a qmgr child is no running Postfix; a process named
# qmgr counts only as the child of that master.
cp /usr/bin/sleep "$MAILRIG_SANDBOX_ROOT/qmgr"
sleep 300 & other=$!
"$MAILRIG_SANDBOX_ROOT/qmgr" 300 & fake_qmgr=$!
echo "$other" > $PIDFILE
row fresh 0 'stdout = is stopped' -s
printf '%10d\n' $$ > $PIDFILE
row fresh 0 'stdout = is running' -s
kill $other $fake_qmgr; wait $other $fake_qmgr 2>/dev/null
rm -f $PIDFILE

# --- start, reload, restart and stop through the real init script -------------------------
row fresh 0 'stdout ~ .' -l
WHAT="started by -l" check eventually listening 25
row fresh 0 'stdout = mta is running' --status-service --mail-component=mta
row fresh 0 'stdout =' --start-service --mail-component=mta    # running: no script runs
master=$(cat $PIDFILE)
row fresh 0 'stdout =' --reload-service --mail-component=mta
WHAT="reload keeps the master" check [ "$(cat $PIDFILE)" = "$master" ]

# A new listener reaches the running master: the entry is written, then Postfix reloads.
WHAT="before smtps" check eventually not_listening 465
row fresh 0 "mastercf +$SMTPS" --start-service --mail-component=smtps
WHAT="smtps after --start-service" check eventually listening 465
row fresh 0 "mastercf +$SUBMISSION" -a
WHAT="submission after -a" check eventually listening 587
row smtps_disabled 0 "$SMTPS_MOVED_BACK" --restart-service --mail-component=smtps
row fresh 0 "mastercf -$STOCK_SMTP
mastercf +disabled: $STOCK_SMTP" --stop-service --mail-component=smtp
WHAT="smtp after --stop-service" check eventually not_listening 25
WHAT="smtps after the stop (master.cf of the fixture has none)" check eventually not_listening 465
row fresh 0 'stdout =' --stop-service --mail-component=smtps    # nothing to disable, no reload

row fresh 0 'stdout ~ .' --restart-service --mail-component=mta
WHAT="restart gives a new master" check [ "$(cat $PIDFILE)" != "$master" ]
WHAT="smtp listens again after restart" check eventually listening 25
row fresh 0 'stdout ~ .' --stop-service --mail-component=mta
WHAT="stopped" check [ "$(procs master)$(procs qmgr)" = 00 ]
row fresh 0 "mastercf +$SMTPS
stdout = ." --start-service --mail-component=mta --mail-component=smtps
WHAT="start with smtps" check eventually listening 465
row fresh 0 'stdout ~ .' -m
WHAT="stopped by -m" check [ "$(procs master)$(procs qmgr)" = 00 ]

# --- the legacy listener and submission commands --------------------------------------------
row fresh 0 "mastercf +$SMTPS" -p
row smtps_disabled 0 "$SMTPS_MOVED_BACK" --restart-smtpd
row fresh 0 "mastercf -$STOCK_SMTP
mastercf +disabled: $STOCK_SMTP" -o
row fresh 0 'stdout =' -b                                 # no entry: nothing written, no reload
row fresh 0 'stdout =' --start-service --mail-component=submission   # the panel has it off
row submission_on 0 "mastercf +$SUBMISSION" --start-service --mail-component=submission
use_fixture submission_on
mailrig_ok -a
fixture submission_both 'mailrig_ok -a'
row submission_on+submission_both 0 'stdout =' --stop-service --mail-component=submission
row submission_both 0 "mastercf -$SUBMISSION
mastercf +disabled: $SUBMISSION" --stop-service --mail-component=submission

# --- a master.cf that is no master.cf: the parse error, and nothing written ----------------
for fx in hostile_nul hostile_utf8; do
  row $fx 1 'stdout = Fatal error: quelt::mail::postfix::PostfixConfigurationError(unable to parse /etc/postfix/master.cf)' \
    --start-service --mail-component=smtps
done
for fx in hostile_line hostile_continuation hostile_case; do
  row $fx 1 "stdout = Fatal error: quelt::mail::postfix::PostfixConfigurationError(unable to parse $Q/master.cf.disabled)" -o
done
row postconf_refuses 1 'stdout ~ ^Fatal error: quelt::mail::postfix::PostfixConfigurationError\(.*bad field count' -p

# --- Courier-IMAP and the milter ----------------------------------------------------------
row fresh 0 'stdout = is stopped' -e
row fresh 0 'stdout =' -i
WHAT="imapd by -i" check eventually listening 143
row fresh 0 'stdout = pop3 is running\nimap is running' --status-service --mail-component=imap --mail-component=pop3
# Debian's courier-imap script knows no reload.
row fresh 1 'stdout = Service /etc/init.d/courier-imap failed to reload' --reload-service --mail-component=imaps
row fresh 0 'stdout =' -z
# Debian's restart may find the old imapd not yet gone and start none; what follows wants one.
for i in 1 2 3 4 5; do listening 143 && break; sleep 1; /etc/init.d/courier-imap start >/dev/null 2>&1; done
row fresh 0 'stdout =' --start-milter
row fresh 0 'stdout = is running' --status-milter
milter=$(cat /var/tmp/pc-remote.pid)
row fresh 0 'stdout =' --restart-milter
WHAT="restarted milter" check [ "$(cat /var/tmp/pc-remote.pid)" != "$milter" ]
row fresh 0 'stdout = .' -l
row fresh 0 'stdout = mta is running\npop3 is running\npop3s is running\nimap is running\nimaps is running\nmilter is running' --status-service
echo stop > /etc/pc-remote.fail
row fresh 1 'stdout = Service /etc/init.d/pc-remote failed to stop' --stop-service --mail-component=milter
row fresh 255 'stdout = Service /etc/init.d/pc-remote failed to stop' --stop-milter
row no_restart 0 'stdout =' --stop-service --mail-component=milter --mail-component=imap
WHAT="NO_RESTART_DAEMON leaves courier" check eventually listening 143
row fresh 0 'stdout =' -t
WHAT="imapd stopped by -t" check eventually not_listening 143
/etc/init.d/courier-imap start >/dev/null 2>&1
rm /etc/pc-remote.fail
mv /etc/init.d/pc-remote /etc/init.d/pc-remote.away
row fresh 255 "stdout = Unable to find start/stop script for 'pc-remote'" --start-milter
row fresh 0 "stdout = Unable to find start/stop script for 'pc-remote'\nmilter is stopped" --status-service --mail-component=milter
mv /etc/init.d/pc-remote.away /etc/init.d/pc-remote
: > /var/log/pc-remote.calls
fixture rc_log 'mkdir -p /usr/local/zvt/tmp'
row rc_log 0 "stdout = .
mastercf -$STOCK_SMTP
mastercf +disabled: $STOCK_SMTP
other *" --stop-service
WHAT="stopped by --stop-service" check [ "$(procs master)$(procs qmgr)$(procs couriertcpd)$(procs sleep)" = 0000 ]
WHAT="milter script run from its folder in a session of its own" check [ "$(cat /var/log/pc-remote.calls)" = "stop /etc/init.d leader" ]
WHAT="script output in rc_actions.log" check grep -q 'pc-remote stopped' /usr/local/zvt/tmp/rc_actions.log
row fresh 0 'stdout = mta is stopped\npop3 is stopped\npop3s is stopped\nimap is stopped\nimaps is stopped\nmilter is stopped' --status-service

# Nothing of ours runs any more (the panel database aside, stopped on exit).
for p in master qmgr pickup couriertcpd courierlogger; do
  WHAT="left running" check [ "$(procs $p)" = 0 ]
done
echo "$rows rows"
finish
