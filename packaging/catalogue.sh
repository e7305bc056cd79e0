# The command catalogue of the built programs, read from their own help texts; sourced by the
# man page and completion generators, so both follow the binary as handlers are added.
#
# read_catalogue MAILRIG fills, one entry per help row of `mailrig --help-legacy`, in its order:
#   ROW_WORDS[i]     the command as help shows it: "--add-domain" or "-p, --start-smtpd"
#   ROW_SYNOPSIS[i]  the row's argument synopsis, may be empty
#   ROW_TEXT[i]      the row's description, continuation lines joined by newlines
#   ROW_USAGE[i]     the handler's own usage line, empty when it has none (not built yet)
#   ROW_OPTIONS[i]   the handler's option table, one "long<US>short<US>arg<US>text" per line
#                    (US: the unit separator \x1f, since any field may be empty)
#
# A handler is asked for its help only when its row lists options. The rows without any are the
# help words, the queries and the legacy service words, and the last ones take no options at
# all: given "--help" they would start or stop the mail service instead of printing help.

# option_table: reads a Boost option table (the help of a ProgramOptionsHelper) on standard
# input and prints one "long<US>short<US>arg<US>text" line per option.
option_table() {
  awk '
    function flush() {
      sub(/ +$/, "", text)
      if (spec != "") print long "\037" short "\037" arg "\037" text
      spec = ""
    }
    /^  -/ {
      flush()
      line = substr($0, 3)
      gap = index(line, "  ")
      if (gap) { spec = substr(line, 1, gap - 1); text = substr(line, gap); sub(/^ +/, "", text) }
      else { spec = line; text = "" }
      long = ""; short = ""; arg = ""
      if (match(spec, /^-[^ -] \[ --[^ ]+ \]/)) {
        short = substr(spec, 1, 2)
        long = substr(spec, 6, RLENGTH - 7)
        arg = substr(spec, RLENGTH + 2)
      } else if (match(spec, /^--[^ ]+/)) {
        long = substr(spec, 1, RLENGTH)
        arg = substr(spec, RLENGTH + 2)
      } else {
        short = substr(spec, 1, 2)
        arg = substr(spec, 4)
      }
      next
    }
    /^   +[^ ]/ && spec != "" {
      t = $0; sub(/^ +/, "", t); sub(/ +$/, "", text)
      text = text (text == "" ? "" : " ") t
      next
    }
    { flush() }
    END { flush() }
  '
}

# handler_help PROGRAM ARGS...: the program's help when it is a ProgramOptionsHelper's (a
# description, "Usage: ..." with its continuation lines, "Allowed options to ..."), otherwise
# nothing and status 1.
handler_help() {
  local help
  help=$("$@" 2>/dev/null) || return 1
  [[ $(sed -n 2p <<<"$help") == "Usage: "* ]] || return 1
  grep -q '^Allowed options' <<<"$help" || return 1
  printf '%s\n' "$help"
}

read_catalogue() {
  local mailrig=$1 line words rest n=-1 help
  ROW_WORDS=() ROW_SYNOPSIS=() ROW_TEXT=() ROW_USAGE=() ROW_OPTIONS=()
  while IFS= read -r line; do
    case $line in
      "Usage: "*) ;;
      "        "*) ROW_TEXT[n]+="${ROW_TEXT[n]:+$'\n'}${line#        }" ;;
      "  -"*)
        n=$((n + 1))
        line=${line#  }
        # "-p, --start-smtpd <synopsis>" or "--add-domain <synopsis>"; the synopsis may be empty.
        words=${line%% *}
        [[ $words == -?, ]] && { rest=${line#"$words "}; words+=" ${rest%% *}"; }
        rest=${line#"$words"}
        rest=${rest# }
        ROW_WORDS[n]=$words ROW_SYNOPSIS[n]=$rest ROW_TEXT[n]="" ROW_USAGE[n]="" ROW_OPTIONS[n]=""
        ;;
      *) echo "catalogue: unexpected line in --help-legacy: $line" >&2; return 1 ;;
    esac
  done < <("$mailrig" --help-legacy)
  [ "$n" -ge 0 ] || { echo "catalogue: $mailrig --help-legacy printed no rows" >&2; return 1; }

  local i
  for i in "${!ROW_WORDS[@]}"; do
    [ -n "${ROW_SYNOPSIS[i]}" ] || continue
    help=$(handler_help "$mailrig" "$(row_long_word "$i")" --help) || continue
    ROW_USAGE[i]=$(sed -n '2s/^Usage: //p' <<<"$help")
    ROW_OPTIONS[i]=$(option_table <<<"$help")
  done
}

# row_long_word I: the long command word of row I ("--start-smtpd" of "-p, --start-smtpd").
row_long_word() {
  printf '%s' "${ROW_WORDS[$1]##* }"
}

# row_words I: every command word of row I, one per line.
row_words() {
  local w=${ROW_WORDS[$1]}
  if [[ $w == *", "* ]]; then printf '%s\n%s\n' "${w%%, *}" "${w#*, }"; else printf '%s\n' "$w"; fi
}
