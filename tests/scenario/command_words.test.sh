# Every command word of the help list reaches its own handler: no word is an invalid command,
# and none runs another word's handler. Words that take options show their own help; that the
# retired handler words say their own message is the handler commands scenario's. The legacy
# service words take no options and act at once: that the words of a help row share one
# function is unit_front's check, what each does the services scenario's, against a real Postfix
# and Courier-IMAP. Words outside the list are invalid commands.
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

LEGACY='^(-[a-z]|--(start|stop|restart|status)-(smtpd|qmail-send|maild|milter)|--(en|dis)able-message-submission)$'

# --- every row -------------------------------------------------------------------------------

usage=$(cat "$MAILRIG_TESTS/scenario/golden/usage-short.txt"; echo x); usage=${usage%x}
legacy=0 options=0
while read -r word long; do
  for w in $word $long; do
    case $w in
      -h|--help) run "$w"; expect_status 0 "$w"; expect_stdout "$usage" "$w" ;;
      --help-commands|--help-legacy)
        run "$w"; expect_same_file "$OUT" "$MAILRIG_TESTS/scenario/golden/${w#--}.txt" "$w"
        expect_stderr "" "$w stderr" ;;
      --update-handler|--check-handler) ;;  # retired: their own messages are handler-command rows
      *)
        if [[ $w =~ $LEGACY ]]; then
          legacy=$((legacy + 1))
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

# --- no word, or one not in the list ----------------------------------------------------------

run
expect_status 1 "no argument"
expect_stderr "Error: no command specified
$usage" "no argument"
expect_stdout "" "no argument stdout"
# Unknown words, short options not in the table, a value glued to a command word, an option
# before the command and an abbreviation are all invalid commands.
for word in --bogus -x --help-commands=yes --help-comm; do
  run "$word" --help-commands
  expect_status 1 "$word"
  expect_stderr "Error: invalid command $word
$usage" "$word"
  expect_stdout "" "$word stdout"
done

finish
