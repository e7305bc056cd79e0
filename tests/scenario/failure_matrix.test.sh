# Every multi-step command with each run of postmap or postconf failing in turn (the k-th run,
# for every k), and once with that run and all later ones failing. A command that still
# succeeds (a failed lookup it retries) leaves every store as the whole command does; one that
# fails leaves every store as it was before or as the whole command leaves it, never a part,
# but for the steps that are not undone (a removal's earlier records, the keys through domain
# aliases of a renamed mailname). The critical-restore message appears exactly when an undo step
# fails: only when the later runs fail too, and then exactly when a store keeps a changed state.
. "$MAILRIG_TESTS/scenario/rows.sh"

# Every run of postmap and postconf mailrig makes is counted; `spy FIXTURE K [after]` fails the
# K-th (and with "after" every later one).
postmap_spy postmap postconf

hosted_state() {
  mailrig_ok --add-domain --domain-name=base.test
  panel "INSERT INTO domains (id, name) VALUES (1, 'base.test'); INSERT INTO domainaliases (name, dom_id) VALUES ('alias1.test', 1);
         INSERT INTO mail (id, mail_name, dom_id) VALUES (10, 'info', 1); INSERT INTO mail_aliases (mn_id, alias) VALUES (10, 'sales')"
  printf 'alias1.test 1\n' | postmap -i "hash:$Q/virtual"
  mailrig_ok --add-mailname --domain-name=base.test --mailname=info
  ZVT_PASSWORD=secret mailrig_ok --add-mailbox --domain-name=base.test --mailname=info
  mailrig_ok --add-alias --domain-name=base.test --mailname=info --alias=sales
  mailrig_ok --add-redirect --domain-name=base.test --mailname=info --redirect-email=out@x.example
  mailrig_ok --add-badmailfrom --domain-name=spam.test
  handlers_sql "INSERT INTO handlers VALUES (2, 1, 1, 10, 'h', 'info@base.test', '/bin/true', 'none');"
}
fixture hosted hosted_state
fixture off 'mailrig_ok --turn-off-domain --domain-name=base.test'
# A domain alias with all its records (addresses, catch-all, password rows, handlers), the panel
# row of the next alias, and a transport on two addresses with its map record.
fixture da "panel \"INSERT INTO domainaliases (name, dom_id) VALUES ('alias2.test', 1), ('alias3.test', 1), ('alias4.test', 1)\"
  mailrig_ok --add-domain-alias --domain-name=base.test --domain-alias-name=alias2.test --set-catchall --email=info@base.test"
fixture tr 'mailrig_ok --add-domain-to-sender-transport --domain-name=base.test --ip4-addr=192.0.2.7 --ip6-addr=2001:db8::1'
# The transport commands restart Postfix through its init script.
printf '#!/bin/sh\nexit 0\n' > /etc/init.d/postfix && chmod 755 /etc/init.d/postfix

# FIXTURE | ARGS | stores that may hold a state between before and after (a step that is not
# undone), as "k:store,store" for runs from k on | "undo" when the command undoes its steps.
matrix=(
  'hosted|--rename-mailname --domain-name=base.test --old-mailname=info --new-mailname=office|5:virtual|undo'
  'hosted|--remove-mailname --domain-name=base.test --mailname=info|2:virtual|'
  'hosted|--remove-mailbox --domain-name=base.test --mailname=info||'
  'hosted|--remove-alias --domain-name=base.test --mailname=info --alias=sales|2:virtual|'
  'hosted|--remove-redirect --domain-name=base.test --mailname=info --redirect-email=out@x.example||'
  'hosted|--remove-domain --domain-name=base.test||'
  'hosted|--turn-off-domain --domain-name=base.test||'
  'hosted+off|--turn-on-domain --domain-name=base.test||'
  'hosted|--add-badmailfrom --domain-name=junk.test||'
  'hosted|--remove-badmailfrom --domain-name=spam.test||'
  'hosted|--add-whitelist --ip-address=10.0.0.0 --netmask=8||'
  'hosted|--remove-whitelist --ip-address=127.0.0.0 --netmask=8||'
  'hosted|--set-maps-protection --maps-zones=rbl.example,rbl2.example||'
  'hosted+da|--add-domain-alias --domain-name=base.test --domain-alias-name=alias3.test --set-catchall --email=info@base.test|2:virtual|'
  'hosted+da|--rename-domain-alias --domain-name=base.test --old-domain-alias-name=alias2.test --new-domain-alias-name=alias4.test --set-catchall --email=info@base.test||'
  'hosted+da|--del-domain-alias --domain-name=base.test --domain-alias-name=alias2.test||'
  'hosted|--add-domain-to-sender-transport --domain-name=base.test --ip4-addr=192.0.2.7 --ip6-addr=2001:db8::1||'
  'hosted+tr|--remove-domain-from-sender-transport --domain-name=base.test||'
  'hosted+tr|--remove-sender-transport --ip-addr=192.0.2.7||'
)
STS=(${TABLES[*]} tree files passwd handlers panel maincf mastercf other)
W=$MAILRIG_SANDBOX_ROOT/matrix
mkdir -p "$W"
states() { local s; for s in "${STS[@]}"; do snapshot "$s" > "$W/$s.$1"; done; }
cases=0 halves=0 criticals=0
for m in "${matrix[@]}"; do
  IFS='|' read -r fix line half undo <<< "$m"
  read -ra args <<< "$line"
  spy "$fix"; states old
  run "${args[@]}"; expect_status 0 "${args[0]} without a failure"
  runs=$(wc -l < "$SPY/log"); states new
  for ((k = 1; k <= runs; k++)); do
    for mode in one after; do
      spy "$fix" "$k" "${mode#one}"
      run "${args[@]}"
      cases=$((cases + 1))
      what="${args[0]} with run $k ($(sed -n "${k}p" "$SPY/log" | cut -c1-40)) failing ($mode)"
      allowed=''
      if [ -n "$half" ] && [ "$k" -ge "${half%%:*}" ]; then allowed=",${half#*:},"; fi
      [ "$STATUS" -ne 0 ] || allowed=''
      changed=0
      for s in "${STS[@]}"; do
        snapshot "$s" > "$W/$s.now"
        cmp -s "$W/$s.now" "$W/$s.old" || changed=1
        { [ "$STATUS" -ne 0 ] && cmp -s "$W/$s.now" "$W/$s.old"; } || cmp -s "$W/$s.now" "$W/$s.new" ||
          [[ $allowed == *",$s,"* ]] ||
          { halves=$((halves + 1)); fail "$what: $s is left half changed (exit $STATUS)"; diff "$W/$s.old" "$W/$s.now" | head -5 >&2; }
      done
      critical=$(grep -c 'CRITICAL ERROR: Unable to properly restore' "$OUT" "$ERR" | awk -F: '{ s += $2 } END { print s }')
      if [ "$mode" = after ] && [ -n "$undo" ] && [ "$STATUS" -ne 0 ] && [ "$changed" = 1 ] && [ -z "$allowed" ]; then
        [ "$critical" -gt 0 ] || fail "$what: a store keeps a step that was to be undone, without the critical-restore message"
        criticals=$((criticals + 1))
      else
        [ "$critical" -eq 0 ] || fail "$what: the critical-restore message without a failed undo step"
      fi
    done
  done
done
spy_off

# postconf unable to tell config_directory: its compiled-in default is asked next; when that
# fails too, postconf's own words are the error; an empty answer is no folder.
whitelist=(--add-whitelist --ip-address=10.0.0.0 --netmask=8)
refused='stderr = Fatal error: quelt::mail::postfix::PostfixConfigurationError'
spy hosted 1
row hosted 0 'maincf -mynetworks = 127.0.0.0/8
maincf +mynetworks = 127.0.0.0/8, 10.0.0.0/8' "${whitelist[@]}"
expect_eq "$(head -2 "$SPY/log")" "-h config_directory
-h -d config_directory" "postconf runs of a lookup that falls back to the default"
spy hosted 1 after
row hosted 1 "$refused(postconf: fatal: injected failure\n)" "${whitelist[@]}"
spy_off
fixture nodir "echo 'config_directory =' >> /etc/postfix/main.cf"
row hosted+nodir 1 "$refused(unable to determine Postfix config_directory parameter)" "${whitelist[@]}"

# The other stores failing in turn: the Maildir rename (the target is taken), the password
# database, the handlers database and the panel database (a table gone). Each command either
# completes or fails; every store the break does not touch holds its state from before or after.
fixture taken "mkdir -p $ROOT/base.test/office/x"
fixture nopasswd "mv $Q/passwd.db $Q/passwd.db.saved && mkdir $Q/passwd.db"
fixture nohandlers "mv $HANDLERS_DB $HANDLERS_DB.saved && mkdir $HANDLERS_DB"
fixture nopanel 'panel "DROP TABLE mail_aliases; DROP TABLE domainaliases"'
declare -A broken=([taken]=tree [nopasswd]=passwd [nohandlers]=handlers [nopanel]=panel)
# Steps that complete before the broken store is reached and are not undone; a domain alias
# gets only the addresses the panel still lists, and its catch-all waits for its password rows.
declare -A kept=([--rename-mailname+nopanel]=virtual,passwd [--turn-on-domain+nopanel]=passwd
                 [--add-domain-alias+nopasswd]=virtual [--add-domain-alias+nopanel]=virtual)
for m in "${matrix[@]:0:8}" "${matrix[@]:13}"; do
  IFS='|' read -r fix line half undo <<< "$m"
  read -ra args <<< "$line"
  spy "$fix"; states old
  run "${args[@]}"; states new
  for b in taken nopasswd nohandlers nopanel; do
    [ "$b" != taken ] || [ "${args[0]}" = --rename-mailname ] || continue
    use_fixture "$fix+$b"
    run "${args[@]}"
    cases=$((cases + 1))
    what="${args[0]} with $b"
    [ "$b" != taken ] || [ "$STATUS" -ne 0 ] || fail "$what: exit status 0"
    for s in "${STS[@]}"; do
      # (the break itself shows in its store and among the other files)
      [ "$s" != "${broken[$b]}" ] && [ "$s" != files ] && [ "$s" != other ] || continue
      [[ ",${kept[${args[0]}+$b]:-}," != *",$s,"* ]] || continue
      snapshot "$s" > "$W/$s.now"
      # The Maildir rename comes last: when it fails, everything before it is undone.
      cmp -s "$W/$s.now" "$W/$s.old" || { [ "$b" != taken ] && cmp -s "$W/$s.now" "$W/$s.new"; } ||
        { halves=$((halves + 1)); fail "$what (exit $STATUS): $s is left half changed"; diff "$W/$s.old" "$W/$s.now" | head -5 >&2; }
    done
    [ "$(grep -c 'CRITICAL ERROR' "$OUT" "$ERR" | awk -F: '{ s += $2 } END { print s }')" -eq 0 ] ||
      fail "$what: the critical-restore message without a failed undo step"
  done
done
echo "failure cases: $cases; stores left half: $halves; critical-restore messages: $criticals"
expect_eq "$([ "$cases" -ge 40 ] && echo enough)" enough "failure cases ($cases)"
finish
