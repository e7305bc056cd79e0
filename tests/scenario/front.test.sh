# The dispatcher as the panel sees it: help texts, usage reports and exit statuses.
. "$MAILRIG_TESTS/scenario/lib.sh"
golden=$MAILRIG_TESTS/scenario/golden
usage=$(cat "$golden/usage-short.txt"; echo x); usage=${usage%x}

run --help-commands
expect_status 0 "--help-commands"
expect_same_file "$OUT" "$golden/help-commands.txt" "--help-commands"
expect_stderr "" "--help-commands stderr"

run --help-legacy
expect_status 0 "--help-legacy"
expect_same_file "$OUT" "$golden/help-legacy.txt" "--help-legacy"

for word in -h --help; do
  run "$word"
  expect_status 0 "$word"
  expect_stdout "$usage" "$word"
done

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
