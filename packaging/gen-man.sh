#!/usr/bin/env bash
# Writes mailrig.8 and mailrig-setup.8 into OUTDIR: the pages in packaging/man with their
# command and option lists filled in from the built programs' own help texts.
#
#   gen-man.sh MAILRIG MAILRIG_SETUP VERSION OUTDIR
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
. "$here/catalogue.sh"

mailrig=$1 setup=$2 version=$3 out=$4

# roff: escapes a line of help text for the body of a page.
roff() {
  sed -e 's/\\/\\e/g' -e 's/-/\\-/g' -e "s/^\\([.']\\)/\\\\\\&\\1/"
}

# options_list: the option table on standard input as an indented .TP list.
options_list() {
  local long short arg text
  while IFS=$'\x1f' read -r long short arg text; do
    echo ".TP"
    [ -z "$short" ] || printf '\\fB%s\\fR, ' "$(roff <<<"$short")"
    [ -z "$long" ] || printf '\\fB%s\\fR' "$(roff <<<"$long")"
    [ -z "$arg" ] || printf ' \\fI%s\\fR' "$(roff <<<"$arg")"
    echo
    roff <<<"$text"
  done
}

commands_section() {
  local i
  # Long synopses read better ragged and unhyphenated.
  printf '.ad l\n.nh\n'
  for i in "${!ROW_WORDS[@]}"; do
    echo ".TP"
    printf '\\fB%s\\fR\n' "$(roff <<<"${ROW_WORDS[i]}")"
    if [ -n "${ROW_SYNOPSIS[i]}" ]; then
      printf '\\fBmailrig %s\\fR %s\n.br\n' "$(roff <<<"$(row_long_word "$i")")" "$(roff <<<"${ROW_SYNOPSIS[i]}")"
    fi
    # The help text breaks its long descriptions for the terminal; here they flow.
    roff <<<"${ROW_TEXT[i]}" | tr '\n' ' ' | sed 's/ $/\n/'
    if [ -n "${ROW_OPTIONS[i]}" ]; then
      printf '.RS\n.PP\nOptions (usage: \\fBmailrig\\fR %s):\n' "$(roff <<<"${ROW_USAGE[i]}")"
      options_list <<<"${ROW_OPTIONS[i]}"
      echo ".RE"
    fi
  done
  printf '.hy\n.ad b\n'
}

# fill TEMPLATE NAME CONTENT-FILE: the template with the line @NAME@ replaced by the file.
fill() {
  awk -v name="@$2@" -v file="$3" -v version="$version" '
    $0 == name { while ((getline line < file) > 0) print line; next }
    { gsub(/@VERSION@/, version); print }
  ' "$1"
}

tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

read_catalogue "$mailrig"
commands_section > "$tmp/commands"
fill "$here/man/mailrig.8.in" COMMANDS "$tmp/commands" > "$tmp/mailrig.8"

help=$(handler_help "$setup" --help) || { echo "gen-man.sh: $setup --help printed no option table" >&2; exit 1; }
printf '.B %s\n' "$(sed -n '2s/^Usage: //p' <<<"$help" | roff)" > "$tmp/usage"
option_table <<<"$help" | options_list > "$tmp/options"
fill "$here/man/mailrig-setup.8.in" USAGE "$tmp/usage" > "$tmp/mailrig-setup.8.usage"
fill "$tmp/mailrig-setup.8.usage" OPTIONS "$tmp/options" > "$tmp/mailrig-setup.8"

mkdir -p "$out"
for page in mailrig.8 mailrig-setup.8; do
  mv "$tmp/$page" "$out/$page"
  gzip -9n < "$out/$page" > "$out/$page.gz"
done
