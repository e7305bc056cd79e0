# kill -9 of a command's whole process group at random moments of --add-domain and
# --remove-domain on a 100,000-record virtual table: every table afterwards holds exactly its
# old or its new records, and the same command run again completes.
. "$MAILRIG_TESTS/scenario/lib.sh"
mdb=$MAILRIG_SANDBOX_DIR/mariadb.sh
"$mdb" start >/dev/null
trap '"$mdb" stop >/dev/null' EXIT

Q=/var/spool/postfix/quelt
W=$(mktemp -d)
printf 'QUELT_MAILNAMES_D /var/qmail/mailnames\n' > /etc/zvt/zvt.conf
"$MAILRIG_BUILD/src/front/setup/mailrig-setup" >/dev/null 2>&1 || fail "mailrig-setup did not prepare the sandbox"
touch -d '-1 min' /etc/postfix/main.cf
tables=(virtual_domains virtual vmailbox)
dump() { postmap -s "hash:$Q/$1" | LC_ALL=C sort; }
std_records() {
  for w in postmaster mailer-daemon root anonymous drweb kluser; do
    printf '%s@%s\t%s@localhost.localdomain\n' "$w" "$1" "$w"
  done
}

awk 'BEGIN { for (i = 0; i < 100000; i++) printf "u%d@base.test a%d@x.example\n", i, i }' |
  postmap -r -i "hash:$Q/virtual"
printf 'box@base.test base.test/box/\n' | postmap -r -i "hash:$Q/vmailbox"
for t in "${tables[@]}"; do dump "$t" > "$W/$t.old"; done

# expected COMMAND DOMAIN: each table's records once the command has completed, in $W/<table>.new.
expected() {
  local d=$1 t
  for t in "${tables[@]}"; do cp "$W/$t.old" "$W/$t.new"; done
  if [ "$2" = --add-domain ]; then
    { cat "$W/virtual_domains.old"; printf '%s\t%s/\n' "$d" "$d"; } | LC_ALL=C sort -u > "$W/virtual_domains.new"
    { cat "$W/virtual.old"; std_records "$d"; } | LC_ALL=C sort -u > "$W/virtual.new"
  else
    grep -v "^$d	" "$W/virtual_domains.old" > "$W/virtual_domains.new"
    grep -v "@$d	" "$W/virtual.old" > "$W/virtual.new"
  fi
}

kills=0
# How long each command took when last run whole, in ms: the kill comes at a random moment of it.
declare -A took=([--add-domain]=300 [--remove-domain]=600)
trial=0
while [ "$kills" -lt 32 ] && [ "$trial" -lt 60 ]; do
  trial=$((trial + 1))
  if [ $((trial % 2)) -eq 1 ]; then cmd=--add-domain d=k$trial.test; else cmd=--remove-domain d=k$((trial - 1)).test; fi
  expected "$d" "$cmd"
  # Its own session and process group (setsid does not fork, not being a group leader here),
  # so that the kill reaches postmap too.
  setsid "$MAILRIG" "$cmd" --domain-name="$d" >/dev/null 2>&1 &
  pid=$!
  delay=$((RANDOM % (${took[$cmd]} * 3 / 4)))
  sleep "$((delay / 1000)).$(printf '%03d' $((delay % 1000)))"
  kill -9 -- "-$pid" 2>/dev/null
  status=0
  wait "$pid" 2>/dev/null || status=$?
  [ "$status" -eq 137 ] && kills=$((kills + 1))
  for t in "${tables[@]}"; do
    dump "$t" > "$W/$t.now"
    cmp -s "$W/$t.now" "$W/$t.old" || cmp -s "$W/$t.now" "$W/$t.new" ||
      fail "trial $trial ($cmd $d): $t holds neither its old nor its new records ($(wc -l < "$W/$t.now") lines)"
  done
  start=$(date +%s%N)
  run "$cmd" --domain-name="$d"
  took[$cmd]=$(( ($(date +%s%N) - start) / 1000000 + 1 ))
  expect_status 0 "trial $trial: $cmd $d after the kill"
  for t in "${tables[@]}"; do
    dump "$t" > "$W/$t.old"
    cmp -s "$W/$t.old" "$W/$t.new" || fail "trial $trial: $t after the command ran again"
  done
done
checks=$((checks + 1))
[ "$kills" -ge 30 ] || fail "only $kills of $trial commands died by the kill"
echo "$kills of $trial commands died by the kill"
expect_eq "$(ls -A $Q | grep -v -e '\.db$' -e '^passwd_db_key$')" "" "files left beside the tables"
rm -rf "$W"
finish
