# mailrig-setup on a fresh Postfix configuration: what it creates, that mailrig works after it,
# that a second run changes no byte, and that the admin's own settings survive.
. "$MAILRIG_TESTS/scenario/lib.sh"
SETUP=$MAILRIG_BUILD/src/front/setup/mailrig-setup
Q=/var/spool/postfix/quelt

# Fingerprint of everything the setup may touch: file bytes, owners and modes.
fingerprint() {
  find /etc/postfix/main.cf /etc/postfix/master.cf $Q /var/qmail /var/lib/quelt -exec stat -c '%n %U:%G %a' {} + | sort
  find /etc/postfix/main.cf /etc/postfix/master.cf $Q /var/lib/quelt -type f -exec md5sum {} + | sort
}

# An admin's own items in list settings.
postconf -e 'mynetworks = 127.0.0.0/8, 10.9.8.0/24' 'smtpd_sender_restrictions = reject_non_fqdn_sender'

AGENT=/usr/local/libexec/mailrig-deliver
TRANSPORT="mailrig unix - n n - - pipe flags=DRX user=popuser null_sender= argv=$AGENT \${sender} \${recipient}"

# Without the mail user: refused with the way to create it, nothing made.
userdel popuser 2>/dev/null; groupdel popuser 2>/dev/null
STATUS=0; "$SETUP" >"$OUT" 2>"$ERR" || STATUS=$?
expect_status 1 "setup without popuser"
grep -q '^Error: the mail user popuser does not exist; create it with$' "$ERR" || fail "missing-user message: $(cat "$ERR")"
[ ! -e $Q/virtual.db ] || fail "tables created although the setup was refused"

# The delivery agent is not installed yet: the transport is written all the same, with a warning.
STATUS=0; "$SETUP" --create-user >"$OUT" 2>"$ERR" || STATUS=$?
expect_status 0 "setup with --create-user"
grep -qx "warning: the delivery agent $AGENT is not installed; Postfix keeps mailbox mail queued until it is" "$OUT" ||
  fail "no warning about the missing agent: $(cat "$OUT")"
install -D -m 0755 "$MAILRIG_BUILD/src/delivery/mailrig-deliver" "$AGENT"
expect_eq "$(grep -c '^mailrig ' /etc/postfix/master.cf)" "1" "one transport entry"
expect_eq "$(grep '^mailrig ' /etc/postfix/master.cf)" "$TRANSPORT" "the transport entry"
expect_eq "$(postconf -h virtual_transport mailrig_destination_recipient_limit | tr '\n' ' ')" "mailrig 1 " \
  "mailbox mail goes through the transport, one recipient per run"
getent passwd popuser >/dev/null || fail "popuser not created"
for t in virtual_domains virtual vmailbox aliases sdd_transport_maps blacklists; do
  [ -f $Q/$t.db ] || fail "table $t not created"
  expect_eq "$(postmap -s hash:$Q/$t | wc -l)" "0" "table $t is empty"
done
[ -f $Q/passwd.db ] && [ -f $Q/passwd_db_key ] || fail "password database or key missing"
[ -f /var/lib/quelt/mail/handlers/handlers.db ] || fail "handlers database missing"
expect_eq "$(stat -c '%U:%G' /var/qmail/mailnames)" "popuser:popuser" "mail root owner"
expect_eq "$(postconf -h virtual_uid_maps)" "static:$(id -u popuser)" "virtual_uid_maps"
expect_eq "$(postconf -h virtual_alias_maps)" "hash:$Q/virtual" "virtual_alias_maps"
expect_eq "$(postconf -h mynetworks)" "127.0.0.0/8, 10.9.8.0/24" "admin's mynetworks"
expect_eq "$(postconf -h smtpd_sender_restrictions)" \
  "reject_non_fqdn_sender, check_sender_access hash:$Q/blacklists" "admin's sender restrictions kept"
expect_eq "$(postconf -h alias_maps)" "hash:/etc/aliases, hash:$Q/aliases" "alias_maps gains the bounce table"
postfix check >"$OUT" 2>&1 || fail "postfix check after setup: $(cat "$OUT")"
expect_eq "$(cat "$OUT")" "" "postfix check is silent"

# A second run changes nothing and says so.
before=$(fingerprint)
STATUS=0; "$SETUP" >"$OUT" 2>"$ERR" || STATUS=$?
expect_status 0 "second setup"
expect_eq "$(cat "$OUT")" "mailrig-setup: nothing to change, the server is ready" "second setup output"
expect_eq "$(fingerprint)" "$before" "second setup changed something"

# An entry the admin changed by hand is put back, in its place.
sed -i 's|^mailrig unix.*|mailrig unix - n n - - pipe user=nobody argv=/bin/true|' /etc/postfix/master.cf
line_no=$(grep -n '^mailrig ' /etc/postfix/master.cf | cut -d: -f1)
STATUS=0; "$SETUP" >"$OUT" 2>"$ERR" || STATUS=$?
expect_eq "$(cat "$OUT")" "master.cf: set the delivery transport $TRANSPORT
mailrig-setup: the server is ready" "setup repairing the transport"
expect_eq "$(grep -n '^mailrig ' /etc/postfix/master.cf)" "$line_no:$TRANSPORT" "the transport repaired in place"

# mailrig works on the prepared server, and Postfix resolves through the tables.
run --add-domain --domain-name=example.com
expect_status 0 "add-domain after setup"
expect_eq "$(postmap -q example.com hash:$Q/virtual_domains)" "example.com/" "domain lookup"
expect_eq "$(postconf -x -h virtual_mailbox_domains)" "hash:$Q/virtual_domains" "Postfix reads the domain table"

# The password database is never wiped by a plain run, only on request.
sqlite3 $Q/passwd.db "INSERT INTO domains (name, status) VALUES ('kept.test', 0);"
"$SETUP" >/dev/null 2>&1
expect_eq "$(sqlite3 $Q/passwd.db "SELECT name FROM domains")" "kept.test" "password rows survive a plain run"
"$SETUP" --recreate-password-db >"$OUT" 2>&1
expect_eq "$(sqlite3 $Q/passwd.db "SELECT count(*) FROM domains")" "0" "--recreate-password-db empties it"

finish
