# Concurrent commands on one server lose no table record: eight processes add and remove domains
# of their own while another turns one shared domain off and on; afterwards every table holds
# exactly what the commands imply.
. "$MAILRIG_TESTS/scenario/lib.sh"
mdb=$MAILRIG_SANDBOX_DIR/mariadb.sh
"$mdb" start >/dev/null
trap '"$mdb" stop >/dev/null' EXIT

Q=/var/spool/postfix/quelt
printf 'QUELT_MAILNAMES_D /var/qmail/mailnames\n' > /etc/zvt/zvt.conf
"$MAILRIG_BUILD/src/front/setup/mailrig-setup" >/dev/null 2>&1 || fail "mailrig-setup did not prepare the sandbox"
touch -d '-1 min' /etc/postfix/main.cf
dump() { postmap -s "hash:$Q/$1" | LC_ALL=C sort; }
std_records() { # the standard addresses of each domain given, as postmap -s shows them
  for d in "$@"; do
    for w in postmaster mailer-daemon root anonymous drweb kluser; do
      printf '%s@%s\t%s@localhost.localdomain\n' "$w" "$d" "$w"
    done
  done
}

# Records no command touches, so that every rewrite has a table of some size to carry over.
awk 'BEGIN { for (i = 0; i < 3000; i++) printf "u%d@base.test a%d@x.example\n", i, i }' |
  postmap -r -i "hash:$Q/virtual"
"$MAILRIG" --add-domain --domain-name=shared.test >/dev/null 2>&1 || fail "add shared.test"
: > /tmp/failed

# Worker i: 30 additions and 20 removals of its own domains, the removal of d<i>-<n-1> right after
# the addition of d<i>-<n>; the domains whose number is a multiple of 3 stay.
worker() {
  local i=$1 n
  for n in $(seq 1 30); do
    "$MAILRIG" --add-domain --domain-name="d$i-$n.test" >/dev/null 2>&1 || echo "add d$i-$n" >> /tmp/failed
    if [ "$n" -gt 1 ] && [ $(((n - 1) % 3)) -ne 0 ]; then
      "$MAILRIG" --remove-domain --domain-name="d$i-$((n - 1)).test" >/dev/null 2>&1 ||
        echo "remove d$i-$((n - 1))" >> /tmp/failed
    fi
  done
}
onoff() {
  local n
  for n in $(seq 1 40); do
    "$MAILRIG" --turn-off-domain --domain-name=shared.test >/dev/null 2>&1 || echo "off $n" >> /tmp/failed
    "$MAILRIG" --turn-on-domain --domain-name=shared.test >/dev/null 2>&1 || echo "on $n" >> /tmp/failed
  done
}
pids=()
for i in $(seq 1 8); do worker "$i" & pids+=($!); done
onoff & pids+=($!)
for p in "${pids[@]}"; do wait "$p"; done
expect_eq "$(cat /tmp/failed)" "" "commands that failed"

kept=(shared.test)
for i in $(seq 1 8); do
  for n in $(seq 3 3 30); do kept+=("d$i-$n.test"); done
done
expect_eq "$(dump virtual_domains)" "$(for d in "${kept[@]}"; do printf '%s\t%s/\n' "$d" "$d"; done | LC_ALL=C sort)" \
  "virtual_domains"
expect_eq "$(dump virtual | grep -v '@base\.test	' | LC_ALL=C sort)" "$(std_records "${kept[@]}" | LC_ALL=C sort)" \
  "virtual: the standard addresses of exactly the remaining domains"
expect_eq "$(dump virtual | grep -c '@base\.test	')" "3000" "virtual: the records no command touched"
expect_eq "$(dump vmailbox)" "" "vmailbox"
expect_eq "$(ls -A $Q | grep -c '\.tmp\.')" "0" "files a rewrite left beside the tables"
finish
