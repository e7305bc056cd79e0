# The man pages and the bash completion that the build generated agree with what the built
# programs say about themselves: every command word of --help-commands and --help-legacy, each
# row's description, and every option of each handler that answers --help.
. "$MAILRIG_TESTS/scenario/lib.sh"
docs=$MAILRIG_BUILD/packaging
setup=$MAILRIG_BUILD/src/front/setup/mailrig-setup

# The command words as --help-commands prints them, one per line, "-p, --x" split in two
# (that --help-legacy names the same words is the command-words scenario's check).
"$MAILRIG" --help-commands | sed -n 's/^\(-[^ ,]*\)\(, \(-[^ ]*\)\)\{0,1\}  .*/\1\n\3/p' | sed '/^$/d' > /tmp/words.commands
[ "$(wc -l < /tmp/words.commands)" -gt 80 ] || fail "too few command words read from --help-commands"

# complete WORD...: the completions bash offers for the command line "WORD... <TAB>".
complete_line() {
  bash -c '. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _mailrig; printf "%s\n" "${COMPREPLY[@]}"' \
    _ "$docs/mailrig.bash" "$@"
}
complete_line mailrig "" > /tmp/offered
missing=$(sort -u /tmp/words.commands | comm -23 - <(sort -u /tmp/offered))
expect_eq "$missing" "" "command words completion does not offer"
expect_eq "$(complete_line mailrig --turn-o | sort | paste -sd' ')" "--turn-off-domain --turn-on-domain" "completion of a prefix"

# The man page as an admin reads it, one long line per paragraph.
LC_ALL=C MANWIDTH=1000 man -l "$docs/mailrig.8" > /tmp/man.txt 2>/tmp/man.err || fail "man cannot render mailrig.8"
expect_eq "$(groff -man -ww -z "$docs/mailrig.8" 2>&1; groff -man -ww -z "$docs/mailrig-setup.8" 2>&1)" "" "groff warnings"
# man_entry WORDS: the text of the command entry whose heading line is WORDS.
man_entry() {
  awk -v head="       $1" '$0 == head { on = 1; next } on && /^       [^ ]/ { exit } on' /tmp/man.txt
}

built=0
while IFS= read -r row; do
  words=${row%%  *}
  entry=$(man_entry "$words")
  [ -n "$entry" ] || { fail "man page has no entry for $words"; continue; }
  # The description: the row's text with the help's line breaks turned into blanks.
  text=$("$MAILRIG" --help-legacy | awk -v head="  $words " 'index($0, head) == 1 { on = 1; next }
         on && /^        / { sub(/^ +/, ""); printf "%s%s", sep, $0; sep = " "; next } on { exit }')
  checks=$((checks + 1))
  grep -qF -- "$text" <<<"$entry" || fail "man entry of $words lacks its description '$text'"

  long=${words##* }
  synopsis=$("$MAILRIG" --help-legacy | sed -n "s/^  $words \(.*\)/\1/p")
  [ -n "$synopsis" ] || continue        # no options; legacy words would act instead of helping
  STATUS=0
  "$MAILRIG" "$long" --help > /tmp/help 2>/dev/null || STATUS=$?
  [ "$STATUS" -eq 0 ] || continue       # not built: the help row is all there is
  built=$((built + 1))
  options=$(sed -n 's/^  \(-. \[ \)\{0,1\}\(--[a-z0-9-]*\).*/\2/p' /tmp/help)
  offered=$(complete_line mailrig "$long" "")
  for option in $options; do
    checks=$((checks + 2))
    grep -qE -- "^$option=?\$" <<<"$offered" || fail "completion of $long lacks $option"
    grep -qF -- "$option" <<<"$(sed -n '/^ *Options (usage/,$p' <<<"$entry")" || fail "man entry of $long lacks $option"
  done
done < <("$MAILRIG" --help-commands | sed 1d | grep '^-')
[ "$built" -gt 0 ] || fail "no built command answered --help"

# Values a help row lists complete after the option's "=".
expect_eq "$(complete_line mailrig --start-service --mail-component = sm | paste -sd' ')" "smtp smtps" "values of an option"

# Every command an example runs is one the help rows name.
while read -r word; do
  grep -qxF -- "$word" /tmp/words.commands || fail "an example runs '$word', which no help row names"
done < <(sed -n '/^EXAMPLES/,/^SEE ALSO/s/^ *\(ZVT_[A-Z_]*=[^ ]* \)\{0,1\}mailrig \(-[^ ]*\).*/\2/p' /tmp/man.txt)

# mailrig-setup: its options in its page and its completion.
LC_ALL=C MANWIDTH=1000 man -l "$docs/mailrig-setup.8" > /tmp/setup-man.txt 2>/dev/null || fail "man cannot render mailrig-setup.8"
offered=$(bash -c '. "$1"; COMP_WORDS=(mailrig-setup ""); COMP_CWORD=1; _mailrig_setup; printf "%s\n" "${COMPREPLY[@]}"' _ "$docs/mailrig.bash")
for option in $("$setup" --help | sed -n 's/^  \(-. \[ \)\{0,1\}\(--[a-z0-9-]*\).*/\2/p'); do
  grep -qx -- "$option" <<<"$offered" || fail "mailrig-setup completion lacks $option"
  grep -q -- "^       .*$option" /tmp/setup-man.txt || fail "mailrig-setup.8 lacks $option"
done

finish
