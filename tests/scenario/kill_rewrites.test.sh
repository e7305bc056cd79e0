# kill -9 of the whole process group at random moments of a mailname rename (a rewrite of the
# whole vmailbox and virtual tables) and of the domain additions and removals, mailname removals,
# domain switches and domain alias rename beside it, on a 50,000-record virtual table: every table afterwards holds exactly the records it
# held before or the ones the uninterrupted command leaves, and the next command works.
. "$MAILRIG_TESTS/scenario/rows.sh"

big_state() {
  mailrig_ok --add-domain --domain-name=base.test
  panel "INSERT INTO domains (id, name) VALUES (1, 'base.test'); INSERT INTO mail (id, mail_name, dom_id, mbox_quota) VALUES (10, 'info', 1, -1);"
  mailrig_ok --add-mailname --domain-name=base.test --mailname=info
  ZVT_PASSWORD=secret mailrig_ok --add-mailbox --domain-name=base.test --mailname=info
  mailrig_ok --add-alias --domain-name=base.test --mailname=info --alias=sales
  mailrig_ok --add-redirect --domain-name=base.test --mailname=info --redirect-email=out@x.example
  awk 'BEGIN { for (i = 0; i < 50000; i++) printf "u%d@big.test a%d@x.example\n", i, i }' |
    postmap -i "hash:$Q/virtual"
}
fixture big big_state
fixture other 'mailrig_ok --add-domain --domain-name=other.test'
fixture off 'mailrig_ok --turn-off-domain --domain-name=base.test'
fixture da "panel \"INSERT INTO domainaliases (name, dom_id) VALUES ('alias1.test', 1), ('alias2.test', 1)\"
  mailrig_ok --add-domain-alias --domain-name=base.test --domain-alias-name=alias1.test --set-catchall --email=info@base.test"

W=$MAILRIG_SANDBOX_ROOT/killw
mkdir -p "$W"
tabs() { local t; for t in "${TABLES[@]}"; do snapshot "$t" > "$W/$t.$1"; done; }
cases=(
  'big|--add-domain --domain-name=other.test'
  'big+other|--remove-domain --domain-name=other.test'
  'big|--rename-mailname --domain-name=base.test --old-mailname=info --new-mailname=office'
  'big|--remove-mailname --domain-name=base.test --mailname=info'
  'big|--remove-alias --domain-name=base.test --mailname=info --alias=sales'
  'big|--remove-redirect --domain-name=base.test --mailname=info --redirect-email=out@x.example'
  'big|--turn-off-domain --domain-name=base.test'
  'big+off|--turn-on-domain --domain-name=base.test'
  'big+da|--rename-domain-alias --domain-name=base.test --old-domain-alias-name=alias1.test --new-domain-alias-name=alias2.test --set-catchall --email=info@base.test'
)
kills=0 trials=0
for c in "${cases[@]}"; do
  fix=${c%%|*}; read -ra args <<< "${c#*|}"
  use_fixture "$fix"; tabs old
  start=$(date +%s%N)
  run "${args[@]}"; expect_status 0 "${args[*]} uninterrupted"
  took=$(( ($(date +%s%N) - start) / 1000000 + 1 ))
  tabs new
  for ((k = 0; k < 10 && trials < 200; trials++)); do
    use_fixture "$fix"
    setsid "$MAILRIG" "${args[@]}" >/dev/null 2>&1 &
    pid=$!
    delay=$((RANDOM % (took * 3 / 4 + 1)))
    sleep "$((delay / 1000)).$(printf '%03d' $((delay % 1000)))"
    kill -9 -- "-$pid" 2>/dev/null
    status=0; wait "$pid" 2>/dev/null || status=$?
    [ "$status" -ne 137 ] || { k=$((k + 1)); kills=$((kills + 1)); }
    for t in "${TABLES[@]}"; do
      snapshot "$t" > "$W/$t.now"
      cmp -s "$W/$t.now" "$W/$t.old" || cmp -s "$W/$t.now" "$W/$t.new" ||
        fail "${args[*]} killed after ${delay} ms: $t holds neither its old nor its new records"
    done
    run --add-mailname --domain-name=base.test --mailname=next
    expect_status 0 "the command after ${args[*]} killed after ${delay} ms"
  done
done
echo "$kills kills in $trials trials"
expect_eq "$([ "$kills" -ge 50 ] && echo enough)" enough "kills that hit a running command ($kills)"
# A killed rewrite's text stays until the next rewrite of its table clears it.
run --rename-mailname --domain-name=base.test --old-mailname=next --new-mailname=next2
expect_status 0 "a rewrite after the last kill"
# A killed password-database change leaves its journal, which the next opening rolls back.
expect_eq "$(passwd_sql 'PRAGMA integrity_check')" ok "the password database after the kills"
expect_eq "$(ls -A $Q | grep -v -e '\.db$' -e '^passwd_db_key$')" "" "files left beside the tables"
finish
