# The five domain commands end to end: real postmap, SQLite password and handler databases,
# the panel database on a private MariaDB server, Maildir trees on disk.
. "$MAILRIG_TESTS/scenario/lib.sh"
mdb=$MAILRIG_SANDBOX_DIR/mariadb.sh
"$mdb" start >/dev/null
trap '"$mdb" stop >/dev/null' EXIT

Q=/var/spool/postfix/quelt
ROOT=/var/qmail/mailnames
panel() { mariadb --no-defaults --protocol=socket --socket=/run/mysqld/mysqld.sock -uroot zvt -e "$1"; }
dump() { postmap -s "hash:$Q/$1" | sort; }
std_records() { # the six standard addresses of $1, as postmap -s shows them, sorted
  for w in postmaster mailer-daemon root anonymous drweb kluser; do
    printf '%s@%s\t%s@localhost.localdomain\n' "$w" "$1" "$w"
  done | sort
}
passwd_sql() { sqlite3 "$Q/passwd.db" "$1"; }
handlers_sql() { sqlite3 /var/lib/quelt/mail/handlers/handlers.db "$1"; }

# A panel installation names its mail root in its configuration file.
printf 'QUELT_MAILNAMES_D %s\n' "$ROOT" > /etc/zvt/zvt.conf
"$MAILRIG_BUILD/src/front/setup/mailrig-setup" >/dev/null 2>&1 || fail "mailrig-setup did not prepare the sandbox"
panel "INSERT INTO domains (id, name) VALUES (1, 'example.com'), (2, 'quota.test'), (3, 'xn--bcher-kva.example');
       INSERT INTO domainaliases (name, dom_id) VALUES ('alias.example', 1);
       INSERT INTO mail (id, mail_name, dom_id, mbox_quota) VALUES (10, 'info', 2, -1), (11, 'sales', 2, 5000);"

# --- add: records, tree, owner and mode
run --add-domain --domain-name=example.com
expect_status 0 "add"
expect_eq "$(dump virtual_domains)" "example.com	example.com/" "virtual_domains after add"
expect_eq "$(dump virtual)" "$(std_records example.com)" "virtual after add"
expect_eq "$(stat -c '%U:%G %a' $ROOT/example.com)" "popuser:popuser 750" "domain root"

# --- IDN names reach every store in ASCII form
run --add-domain --domain-name=bücher.example
expect_status 0 "add IDN"
expect_eq "$(dump virtual_domains | grep bcher)" "xn--bcher-kva.example	xn--bcher-kva.example/" "IDN record"
[ -d "$ROOT/xn--bcher-kva.example" ] || fail "IDN domain root missing"

# --- add with a quota: mailboxes without a quota of their own get it in maildirsize
for m in info sales; do
  mkdir -p "$ROOT/quota.test/$m/Maildir/"{cur,new,tmp} && chown -R popuser:popuser "$ROOT/quota.test"
done
run --add-domain --domain-name=quota.test --disk-quota=7000
expect_status 0 "add with quota"
expect_eq "$(cat $ROOT/quota.test/info/Maildir/maildirsize)" "7000S,0C
           0           0" "maildirsize of a mailbox without its own quota"
[ ! -e "$ROOT/quota.test/sales/Maildir/maildirsize" ] || fail "a mailbox with its own quota got the domain's"
run --set-domain-disk-quota --domain-name=quota.test --disk-quota=-1
expect_status 0 "unlimited domain quota"
expect_eq "$(head -1 $ROOT/quota.test/info/Maildir/maildirsize)" "0S,0C" "unlimited quota line"
run --set-domain-disk-quota --domain-name=quota.test
expect_status 1 "quota command without a quota"
expect_eq "$(head -1 "$ERR")" 'mandatory option "--disk-quota" is not specified' "missing quota message"

# --- turn off / on: records, password status of the domain and its alias, handlers
passwd_sql "INSERT INTO domains (name, status) VALUES ('example.com', 0), ('alias.example', 0);"
handlers_sql "INSERT INTO handlers VALUES (1, 1, 1, 10, 'h', 'info@example.com', '/bin/true', 'none');
              INSERT INTO handlers VALUES (1, 1, 1, 10, 'h', 'info@other.test', '/bin/true', 'none');"
run --turn-off-domain --domain-name=example.com
expect_status 0 "turn off"
expect_eq "$(dump virtual_domains | grep -c example.com)" "0" "virtual_domains after turn off"
expect_eq "$(dump virtual | grep -c '@example.com')" "0" "standard addresses after turn off"
expect_eq "$(passwd_sql "SELECT name, status FROM domains ORDER BY name")" "alias.example|1
example.com|1" "password status after turn off"
expect_eq "$(handlers_sql "SELECT address, enabled FROM handlers ORDER BY address")" "info@example.com|0
info@other.test|1" "handlers after turn off"
run --turn-on-domain --domain-name=example.com
expect_status 0 "turn on"
expect_eq "$(dump virtual_domains | grep example.com)" "example.com	example.com/" "virtual_domains after turn on"
expect_eq "$(dump virtual | grep '@example.com$' -c)" "0" "no stray keys"
expect_eq "$(dump virtual | grep '^example.com	')" "" "no key equal to the domain"
expect_eq "$(dump virtual | grep '@example.com	')" "$(std_records example.com)" "standard addresses back"
expect_eq "$(passwd_sql "SELECT status FROM domains ORDER BY name" | tr '\n' ' ')" "0 0 " "password status after turn on"
expect_eq "$(handlers_sql "SELECT enabled FROM handlers WHERE address='info@example.com'")" "1" "handler after turn on"

# --- a password database that cannot be opened: exit 1, tables untouched
cp "$Q/virtual.db" /tmp/virtual.before; cp "$Q/virtual_domains.db" /tmp/virtual_domains.before
mv "$Q/passwd.db" /tmp/passwd.db.saved && mkdir "$Q/passwd.db"
run --turn-off-domain --domain-name=example.com
expect_status 1 "turn off without a password database"
cmp -s "$Q/virtual.db" /tmp/virtual.before || fail "virtual changed although the password store failed"
cmp -s "$Q/virtual_domains.db" /tmp/virtual_domains.before || fail "virtual_domains changed although the password store failed"
rmdir "$Q/passwd.db" && mv /tmp/passwd.db.saved "$Q/passwd.db"

# --- a failing postmap is reported as the fatal error of its table store
mkdir -p /tmp/pm && cp /usr/sbin/postmap /tmp/pm/real
printf '#!/bin/sh\ncase "$*" in *-i*) cat >/dev/null; echo "postmap: fatal: injected failure" >&2; exit 1;; esac\nexec /tmp/pm/real "$@"\n' > /tmp/pm/postmap
chmod 755 /tmp/pm/postmap && mount --bind /tmp/pm/postmap /usr/sbin/postmap
run --add-domain --domain-name=broken.test
umount /usr/sbin/postmap
expect_status 1 "add with a failing postmap"
expect_eq "$(head -1 "$ERR")" "Fatal error: quelt::mail::postfix::PostfixConfigurationError(postmap: fatal: injected failure" "fatal error report"
expect_eq "$(dump virtual_domains | grep -c broken.test)" "0" "no domain record after the failure"

# --- remove: records, tree, password rows (through the trigger), handlers; the bounce record of
# the aliases table stays
passwd_sql "INSERT INTO users (dom_id, name, status) SELECT id, 'info', 0 FROM domains WHERE name='example.com';"
postmap -r -i "hash:$Q/aliases" <<< "_quelt_bounce_example.com \"|/usr/lib/quelt-9.0/bouncemessage\""
postmap -r -i "hash:$Q/virtual" <<< "@example.com _quelt_bounce_example.com@localhost.localdomain"
run --remove-domain --domain-name=example.com
expect_status 0 "remove"
expect_stdout "" "remove prints nothing"
expect_eq "$(dump virtual_domains | grep -c example.com)" "0" "virtual_domains after remove"
expect_eq "$(dump virtual | grep -c example.com)" "0" "virtual after remove"
[ ! -e "$ROOT/example.com" ] || fail "domain root still there after remove"
expect_eq "$(passwd_sql "SELECT count(*) FROM users; SELECT name FROM domains ORDER BY name" | tr '\n' ' ')" "0 " "password rows after remove"
expect_eq "$(handlers_sql "SELECT address FROM handlers")" "info@other.test" "handlers after remove"
expect_eq "$(dump aliases)" '_quelt_bounce_example.com	"|/usr/lib/quelt-9.0/bouncemessage"' "bounce record stays"

# --- a handler store that cannot be opened only warns
run --add-domain --domain-name=warn.test
mv /var/lib/quelt/mail/handlers/handlers.db /tmp/handlers.saved && mkdir /var/lib/quelt/mail/handlers/handlers.db
run --remove-domain --domain-name=warn.test
expect_status 0 "remove with a broken handler store"
expect_eq "$(grep WARNING "$OUT")" "WARNING: unable to properly remove all mail handlers for warn.test" "warning line"
expect_eq "$(dump virtual_domains | grep -c warn.test)" "0" "records removed despite the warning"

finish
