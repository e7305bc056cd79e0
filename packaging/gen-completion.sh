#!/usr/bin/env bash
# Writes the bash completion of mailrig and mailrig-setup to OUTFILE, from the built programs'
# own help texts: every command word of the help rows, each command's options (its handler's
# option table once built, the options its help row names until then), and the values a help
# row lists as (a|b|c) or {a|b|c}.
#
#   gen-completion.sh MAILRIG MAILRIG_SETUP OUTFILE
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$here/catalogue.sh"

mailrig=$1 setup=$2 out=$3

# The file is sourced by root's shell: only plain option and value words may go into it.
check_words() {
  local word
  for word in "$@"; do
    [[ $word =~ ^-{0,2}[A-Za-z0-9][A-Za-z0-9_.-]*=?$ ]] ||
      { echo "gen-completion.sh: refusing the word '$word' from the help texts" >&2; exit 1; }
  done
}

# option_words: the option table on standard input as completion words, "--name=" for an
# option that takes a value.
option_words() {
  local long short arg text
  while IFS=$'\x1f' read -r long short arg text; do
    [ -n "$long" ] && printf '%s%s\n' "$long" "${arg:+=}"
  done
}

# synopsis_words I: the options row I's synopsis names, in order, each once.
synopsis_words() {
  { grep -oE -- '--[a-z0-9][a-z0-9-]*=?' <<<"${ROW_SYNOPSIS[$1]}" || true; } | awk '!seen[$0]++'
}

# synopsis_values I: "option value value..." for each option of row I's synopsis that lists
# its values, as in --hook=(before-queue|before-local) or --account-format=("compound" | "both").
synopsis_values() {
  { grep -oE -- '--[a-z0-9-]+=[({][^)}]*[)}]' <<<"${ROW_SYNOPSIS[$1]}" || true; } | awk '!seen[$0]++' |
    sed -E 's/["[:space:]]//g; s/=[({]/ /; s/[)}]$//; s/\|/ /g'
}

read_catalogue "$mailrig"
setup_help=$(handler_help "$setup" --help) || { echo "gen-completion.sh: $setup --help printed no option table" >&2; exit 1; }

words=() option_cases="" value_cases=""
for i in "${!ROW_WORDS[@]}"; do
  mapfile -t row < <(row_words "$i")
  words+=("${row[@]}")
  if [ -n "${ROW_OPTIONS[i]}" ]; then
    options=$(option_words <<<"${ROW_OPTIONS[i]}" | paste -sd' ')
  else
    options=$(synopsis_words "$i" | paste -sd' ')
  fi
  [ -n "$options" ] || continue
  check_words "${row[@]}" $options
  pattern=$(IFS='|'; echo "${row[*]}")
  option_cases+="    $pattern) echo '$options' ;;"$'\n'
  while read -r option values; do
    [ -n "$option" ] || continue
    check_words "$option" $values
    for word in "${row[@]}"; do
      value_cases+="    '$word $option') echo '$values' ;;"$'\n'
    done
  done < <(synopsis_values "$i")
done
check_words "${words[@]}"
setup_options=$(option_table <<<"$setup_help" | option_words | paste -sd' ')
check_words $setup_options

mkdir -p "$(dirname "$out")"
cat > "$out.tmp" <<EOF
# bash completion for mailrig and mailrig-setup                          -*- shell-script -*-
# Generated from the programs' own help texts; regenerate rather than edit.

_mailrig_words='${words[*]}'

# _mailrig_options COMMAND: the options COMMAND takes.
_mailrig_options() {
  case \$1 in
$option_cases  esac
}

# _mailrig_values COMMAND OPTION: the values an option takes, where its help lists them.
_mailrig_values() {
  case "\$1 \$2" in
$value_cases  esac
}

_mailrig() {
  local cur=\${COMP_WORDS[COMP_CWORD]} prev=\${COMP_WORDS[COMP_CWORD-1]} option=
  COMPREPLY=()
  if [ "\$COMP_CWORD" -eq 1 ]; then
    COMPREPLY=(\$(compgen -W "\$_mailrig_words" -- "\$cur"))
    return
  fi
  local command=\${COMP_WORDS[1]}
  # Bash splits "--name=value" at "=" when "=" is a word break, so the value being typed is the
  # word after a "=" word; otherwise it is the part of the word after "=".
  if [ "\$cur" = "=" ]; then
    option=\$prev cur=
  elif [ "\$prev" = "=" ] && [ "\$COMP_CWORD" -ge 3 ]; then
    option=\${COMP_WORDS[COMP_CWORD-2]}
  elif [[ \$cur == --*=* ]]; then
    option=\${cur%%=*}
    COMPREPLY=(\$(compgen -P "\$option=" -W "\$(_mailrig_values "\$command" "\$option")" -- "\${cur#*=}"))
    return
  fi
  if [ -n "\$option" ]; then
    COMPREPLY=(\$(compgen -W "\$(_mailrig_values "\$command" "\$option")" -- "\$cur"))
    return
  fi
  COMPREPLY=(\$(compgen -W "\$(_mailrig_options "\$command")" -- "\$cur"))
  # An option with a value completes up to its "=", so the value is typed right after it.
  if [ \${#COMPREPLY[@]} -eq 1 ] && [[ \${COMPREPLY[0]} == *= ]]; then
    compopt -o nospace 2>/dev/null
  fi
}
complete -F _mailrig mailrig

_mailrig_setup() {
  COMPREPLY=(\$(compgen -W '$(echo $setup_options)' -- "\${COMP_WORDS[COMP_CWORD]}"))
}
complete -F _mailrig_setup mailrig-setup
EOF
mv "$out.tmp" "$out"
