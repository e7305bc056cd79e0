# What an admin finds in the mail log: a real rsyslogd on the sandbox's /dev/log writes the mail
# facility to /var/log/mail.log; a failing password store must show up there once, under the
# identity mailrig and the pid of the run, with the same words the panel saw on standard error.
. "$MAILRIG_TESTS/scenario/lib.sh"
syslog=$MAILRIG_SANDBOX_DIR/syslog.sh
"$syslog" start
trap '"$syslog" stop' EXIT
Q=/var/spool/postfix/quelt
"$MAILRIG_BUILD/src/front/setup/mailrig-setup" >/dev/null 2>&1 || fail "mailrig-setup did not prepare the sandbox"

mv "$Q/passwd.db" /tmp/passwd.db.saved && mkdir "$Q/passwd.db"
run --turn-off-domain --domain-name=example.com
expect_status 1 "turn off without a password database"
pid=$(sed -n 's/^mailrig\[\([0-9]*\)\]: .*/\1/p' "$ERR" | head -1)
[ -n "$pid" ] || fail "no 'mailrig[pid]: ' line on standard error: $(cat "$ERR")"
wanted="mailrig[$pid]: Unable to open database $Q/passwd.db: unable to open database file
mailrig[$pid]: Unable to disable auth records for domain example.com"
expect_eq "$(cat "$ERR")" "$wanted" "standard error copy of the log lines"

"$syslog" wait "auth records for domain example.com" || fail "the line never reached the mail log"
# The traditional format: date, host name, then the same identity, pid and text.
expect_eq "$(grep -F "mailrig[" /var/log/mail.log | sed 's/^[A-Z][a-z]\{2\} [ 0-9][0-9] [0-9:]\{8\} [^ ]* //')" \
  "$wanted" "mail log lines"

# A help run adds nothing to the mail log.
rmdir "$Q/passwd.db" && mv /tmp/passwd.db.saved "$Q/passwd.db"
before=$(wc -l < /var/log/mail.log)
run --help-commands
logger -p mail.info -t probe "after help"
"$syslog" wait "probe: after help" || fail "the probe line never reached the mail log"
expect_eq "$(($(wc -l < /var/log/mail.log) - before))" "1" "lines added by a help run and the probe"

finish
