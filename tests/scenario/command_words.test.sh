# Every command word of the help list reaches its own handler: no word is an invalid command,
# and none runs another word's handler. Words that take options show their own help; the
# retired handler words say their own message; the legacy service words, which take no options
# and act at once, are run against stand-in init scripts and a stand-in Postfix master, and do
# what their help row says. (Which function each legacy word reaches is checked by unit_front.)
. "$MAILRIG_TESTS/scenario/lib.sh"

words_of() { # the command words of help lines, "-p, --start-smtpd" giving both, one row a line
  awk '{ if ($1 ~ /,$/) print substr($1, 1, length($1) - 1), $2; else print $1 }'
}
run --help-legacy
legacy_rows=$(grep '^  -' "$OUT" | words_of)
run --help-commands
command_rows=$(tail -n +2 "$OUT" | grep '^-' | words_of)
expect_eq "$command_rows" "$legacy_rows" "the rows of --help-commands and --help-legacy"
expect_eq "$(wc -l <<< "$legacy_rows")" 76 "help rows"
expect_eq "$(wc -w <<< "$legacy_rows")" 89 "command words"

# --- the legacy service words ----------------------------------------------------------------

LOG=$MAILRIG_SANDBOX_ROOT/init.log PID=/var/spool/postfix/pid/master.pid
QMGR=$MAILRIG_SANDBOX_ROOT/qmgr
cp /usr/bin/sleep "$QMGR"
for script in pc-remote courier-imap; do
  printf '#!/bin/sh\necho "%s $1" >> %s\n' "$script" "$LOG" > "/etc/init.d/$script"
  chmod 755 "/etc/init.d/$script"
done
# Postfix's stand-in starts and stops a master whose child is the queue manager.
cat > /etc/init.d/postfix <<EOF
#!/bin/bash
echo "postfix \$1" >> $LOG
case \$1 in
  start) (trap 'kill \$child; exit' TERM; $QMGR infinity & child=\$!; wait) </dev/null >/dev/null 2>&1 &
         echo \$! > $PID ;;
  stop) kill \$(cat $PID) && rm $PID ;;
esac
EOF
chmod 755 /etc/init.d/postfix
mkdir -p "${PID%/*}" /var/spool/postfix/quelt
MASTER=/etc/postfix/master.cf DISABLED=/var/spool/postfix/quelt/master.cf.disabled BASE=$MAILRIG_SANDBOX_ROOT/master.cf
cp "$MASTER" "$BASE"
SUBMISSION='submission inet n - n - - smtpd -o smtpd_enforce_tls=yes -o smtpd_tls_security_level=encrypt -o smtpd_sasl_auth_enable=yes -o smtpd_client_restrictions=permit_sasl_authenticated,reject -o smtpd_sender_restrictions='

# effect WORD: the status, output, init-script calls and master.cf changes of one run, on one
# line. Each word starts where its action has something to do: Postfix running (stopped for
# the word that starts it), the submission service present for the word that disables it.
effect() {
  [ ! -s "$PID" ] || /etc/init.d/postfix stop
  case $1 in -l|--start-qmail-send) ;; *) /etc/init.d/postfix start ;; esac
  cp "$BASE" "$MASTER"; rm -f "$DISABLED" "$LOG"
  case $1 in -b|--disable-message-submission) echo "$SUBMISSION" >> "$MASTER" ;; esac
  local before; before=$(cat "$MASTER")
  run "$1"
  printf 'status %s; out %s; init %s; master.cf %s; disabled %s\n' "$STATUS" "$(tr '\n' '/' < "$OUT")" \
    "$(tr '\n' '/' < "$LOG" 2>/dev/null)" \
    "$(diff <(echo "$before") "$MASTER" | grep '^[<>]' | tr -s ' ' | tr '\n' '/')" \
    "$( [ ! -e "$DISABLED" ] || tr -s ' ' < "$DISABLED" | tr '\n' '/')"
}
SMTPS='smtps inet n - n - - smtpd -o smtpd_tls_wrappermode=yes'
SMTP=$(grep '^smtp  *inet ' "$BASE" | tr -s ' ')
declare -A does=(
  [-p]="status 0; out ; init postfix reload/; master.cf > $SMTPS/; disabled "
  [-o]="status 0; out ; init postfix reload/; master.cf < $SMTP/; disabled $SMTP/"
  [-r]="status 0; out ; init postfix reload/; master.cf > $SMTPS/; disabled "
  [-s]="status 0; out is running/; init ; master.cf ; disabled "
  [-l]="status 0; out ; init postfix start/; master.cf ; disabled "
  [-m]="status 0; out ; init postfix stop/; master.cf ; disabled "
  [-i]="status 0; out ; init courier-imap start/; master.cf ; disabled "
  [-t]="status 0; out ; init courier-imap stop/; master.cf ; disabled "
  [-z]="status 0; out ; init courier-imap restart/; master.cf ; disabled "
  [-e]="status 0; out is running/; init courier-imap status/; master.cf ; disabled "
  [--start-milter]="status 0; out ; init pc-remote start/; master.cf ; disabled "
  [--stop-milter]="status 0; out ; init pc-remote stop/; master.cf ; disabled "
  [--restart-milter]="status 0; out ; init pc-remote restart/; master.cf ; disabled "
  [--status-milter]="status 0; out is running/; init pc-remote status/; master.cf ; disabled "
  [-a]="status 0; out ; init postfix reload/; master.cf > $SUBMISSION/; disabled "
  [-b]="status 0; out ; init postfix reload/; master.cf < $SUBMISSION/; disabled $SUBMISSION/"
)

# --- every row -------------------------------------------------------------------------------

usage=$(cat "$MAILRIG_TESTS/scenario/golden/usage-short.txt")
legacy=0 options=0
while read -r word long; do
  for w in $word $long; do
    case $w in
      -h|--help) run "$w"; expect_eq "$STATUS $(cat "$OUT")" "0 $usage" "$w" ;;
      --help-commands|--help-legacy)
        run "$w"; expect_same_file "$OUT" "$MAILRIG_TESTS/scenario/golden/${w#--}.txt" "$w" ;;
      --update-handler)
        run "$w" --help
        expect_eq "$STATUS $(cat "$ERR")" "1 ERROR: this action is deprecated. Please use the hookwarden utlitity" "$w" ;;
      --check-handler)
        run "$w" --help
        expect_eq "$STATUS $(cat "$ERR")" "1 ERROR: This action is deprecated. Please use the hookwarden utility" "$w" ;;
      *)
        if [ -n "${does[$word]+set}" ]; then
          legacy=$((legacy + 1))
          expect_eq "$(effect "$w")" "${does[$word]}" "what $w does"
        else
          # A handler's help names its own command word, in its usage line or (the sender
          # transports) at the head of its option table.
          options=$((options + 1))
          run "$w" --help
          checks=$((checks + 1))
          [ "$STATUS" -eq 0 ] && grep -Eq -- "^(Usage: |Allowed options to )$w( |:?$)" "$OUT" ||
            fail "$w --help: status $STATUS, $(head -c 300 "$OUT" "$ERR")"
        fi ;;
    esac
  done
done <<< "$legacy_rows"
expect_eq "$legacy $options" "28 55" "legacy service words and words with options"
[ ! -s "$PID" ] || /etc/init.d/postfix stop

finish
