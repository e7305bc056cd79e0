# The five domain commands as rows: each store a command touches, each failure, the signal.
. "$MAILRIG_TESTS/scenario/rows.sh"

# example.com: its domain alias alias.example (panel), a mailbox info, a bounce, handlers of the
# domain and of an address, password rows. other.test and sub.example.com are neighbours no
# example.com command may touch.
hosted() {
  mailrig_ok --add-domain --domain-name=example.com
  mailrig_ok --add-domain --domain-name=other.test
  panel "INSERT INTO domains (id, name) VALUES (1, 'example.com'), (2, 'other.test');
         INSERT INTO domainaliases (name, dom_id) VALUES ('alias.example', 1);"
  passwd_sql "INSERT INTO domains (name, status) VALUES ('example.com', 0), ('alias.example', 0), ('other.test', 0);
              INSERT INTO users (dom_id, name, status) VALUES (1, 'info', 0), (3, 'info', 0);"
  handlers_sql "INSERT INTO handlers VALUES (1, 1, 1, 10, 'h', 'info@example.com', '/bin/true', 'none');
                INSERT INTO handlers VALUES (1, 1, 1, 10, 'd', 'example.com', '/bin/true', 'none');
                INSERT INTO handlers VALUES (1, 1, 1, 10, 'h', 'info@other.test', '/bin/true', 'none');"
  postmap -i "hash:$Q/aliases" <<< '_quelt_bounce_example.com "|/usr/lib/quelt-9.0/bouncemessage"'
  printf '%s\n' '@example.com _quelt_bounce_example.com@localhost.localdomain' 'alias.example 1' \
    'info@alias.example info@example.com' 'info@sub.example.com info@other.test' | postmap -i "hash:$Q/virtual"
  printf '%s\n' 'info@example.com example.com/info/' 'info@other.test other.test/info/' | postmap -i "hash:$Q/vmailbox"
  mkdir -p "$ROOT/example.com/info/Maildir/"{cur,new,tmp} && chown -R popuser:popuser "$ROOT/example.com"
}
fixture hosted hosted
fixture off 'mailrig_ok --turn-off-domain --domain-name=example.com'
# Stores that cannot be used: the password database, the handler database, the panel account.
fixture nopasswd 'mv "$Q/passwd.db" "$Q/passwd.db.away" && mkdir "$Q/passwd.db"'
fixture nohandlers 'mv "$HANDLERS_DB" "$HANDLERS_DB.away" && mkdir "$HANDLERS_DB"'
fixture nopanel 'echo wrong > /etc/zvt/.zvt.shadow'
# quota.test: mailbox info has no quota of its own, sales has one.
fixture quota '
  panel "INSERT INTO domains (id, name) VALUES (5, '"'quota.test'"');
         INSERT INTO mail (id, mail_name, dom_id, mbox_quota) VALUES (10, '"'info'"', 5, -1), (11, '"'sales'"', 5, 5000);"
  mkdir -p "$ROOT/quota.test/"{info,sales}/Maildir/{cur,new,tmp} && chown -R popuser:popuser "$ROOT/quota.test"'


# --- the option path every command shares: the message on both streams ahead of the help
row fresh 1 'stderr = mandatory option "--disk-quota" is not specified
stdout ~ ^mandatory option "--disk-quota" is not specified$
stdout ~ ^Allowed options to set a domain disk quota:$' --set-domain-disk-quota
# (every command word answers --help: the command-words scenario)
row fresh 0 'stderr =
stdout ~ ^set a domain disk quota$
stdout ~ ^Usage: --set-domain-disk-quota --domain-name=<domain> --disk-quota=quota$
stdout ~ domain name \(mandatory\)
stdout ~ -h \[ --help \] +displays this help message' --set-domain-disk-quota --domain-name=example.com -h
row fresh 1 "stderr = unrecognised option '--domain=example.com'
stdout ~ ^Allowed options to remove a domain:" --remove-domain --domain=example.com
row fresh 1 "stderr = the required argument for option '--domain-name' is missing" --remove-domain --domain-name
row fresh 1 "stderr = the argument ('big') for option '--disk-quota' is invalid" \
  --set-domain-disk-quota --domain-name=example.com --disk-quota=big
row fresh 1 'stderr = too many positional options have been specified on the command line' \
  --remove-domain --domain-name=example.com stray
row fresh 0 'virtual_domains +example.com	example.com/
virtual *
tree *
signals *' --add-domain --domain-name example.com

# --- add (after a boot emptied /var/lock: the lock folder is made again)
rm -rf /var/lock/files
row fresh 0 "$quiet
$(domain_lines + example.com)
signals +trivial-rewrite INT" --add-domain --domain-name=example.com
expect_eq "$(stat -c %a /var/lock/files)" 755 "the lock folder made again"
# A name that was a domain alias loses the alias records before it becomes a domain.
row hosted 0 "$quiet
$(domain_lines + alias.example)
virtual -alias.example	1
virtual -info@alias.example	info@example.com
signals +trivial-rewrite INT" --add-domain --domain-name=alias.example
# Mailboxes without a quota of their own take the domain's.
row quota 0 "$quiet
$(domain_lines + quota.test)
tree -quota.test/ popuser:popuser 755
tree +quota.test/info/Maildir/maildirsize popuser:popuser 644
$(maildirsize + quota.test/info 7000S,0C)
signals +trivial-rewrite INT" --add-domain --domain-name=quota.test --disk-quota=7000
# (the five commands share their options; other spellings and hostile names: hostile inputs)
row fresh 1 'stderr ~ ^mandatory option "--domain-name" is not specified$' --add-domain
row fresh 1 'stderr = Fatal error: quelt::idn::IdnaError(Iconv error)' --add-domain $'--domain-name=\xff.example'

# A failing postmap is the fatal error of its store; the domain root made before it stays.
postmap_spy
spy fresh 1
row fresh 1 'stdout ~ ^Fatal error: quelt::mail::postfix::PostfixConfigurationError\(postmap: fatal: injected failure
stderr ~ ^Fatal error: quelt::mail::postfix::PostfixConfigurationError\(postmap: fatal: injected failure
tree +example.com/ popuser:popuser 750' --add-domain --domain-name=example.com
umount /usr/sbin/postmap

# --- remove: password rows first (a failure there changes nothing else), then the tables and
# the tree, then the handlers (a failure there only warns). The bounce record of aliases stays.
removed="$(domain_lines - example.com)
virtual -@example.com	_quelt_bounce_example.com@localhost.localdomain
virtual -info@alias.example	info@example.com
vmailbox -info@example.com	example.com/info/
tree -example.com/info/ popuser:popuser 755
tree -example.com/info/Maildir/ popuser:popuser 755
tree -example.com/info/Maildir/cur/ popuser:popuser 755
tree -example.com/info/Maildir/new/ popuser:popuser 755
tree -example.com/info/Maildir/tmp/ popuser:popuser 755
passwd -domains|1|example.com|0
passwd -domains|2|alias.example|0
passwd -users|1|1|info|||0"
row hosted 0 "$quiet
$removed
handlers -handlers|1|1|1|10|h|info@example.com|/bin/true|none
handlers -handlers|1|1|1|10|d|example.com|/bin/true|none" --remove-domain --domain-name=example.com
row hosted+nohandlers 0 "$removed
stdout = WARNING: unable to properly remove all mail handlers for example.com
stderr ~ ^WARNING: unable to properly remove all mail handlers for example.com$" --remove-domain --domain-name=example.com
row hosted+nopasswd 1 'stdout =
stderr ~ ^mailrig\[[0-9]+\]: Unable to remove auth record for domain example.com$' --remove-domain --domain-name=example.com
row hosted+nopanel 1 'passwd -domains|1|example.com|0
passwd -users|1|1|info|||0
stderr ~ Access denied' --remove-domain --domain-name=example.com
row fresh 0 "$quiet" --remove-domain --domain-name=example.com

# --- turn off / on: password status of the domain and its alias, records, handlers
switched="virtual_domains -example.com	example.com/
$(std - example.com)
passwd -domains|1|example.com|0
passwd -domains|2|alias.example|0
passwd +domains|1|example.com|1
passwd +domains|2|alias.example|1"
row hosted 0 "$quiet
$switched
handlers -handlers|1|1|1|10|h|info@example.com|/bin/true|none
handlers -handlers|1|1|1|10|d|example.com|/bin/true|none
handlers +handlers|1|1|0|10|h|info@example.com|/bin/true|none
handlers +handlers|1|1|0|10|d|example.com|/bin/true|none" --turn-off-domain --domain-name=example.com
row hosted+nohandlers 0 "$switched
stderr ~ Unable to open database $HANDLERS_DB" --turn-off-domain --domain-name=example.com
row hosted+nopasswd 1 'stderr ~ ^mailrig\[[0-9]+\]: Unable to disable auth records for domain example.com$' \
  --turn-off-domain --domain-name=example.com
row hosted+nopanel 1 'passwd -domains|1|example.com|0
passwd +domains|1|example.com|1
stderr ~ Access denied' --turn-off-domain --domain-name=example.com
row hosted+off 0 "$quiet
$(printf '%s\n' "$switched" | sed 's/^\([a-z_]*\) -/\1 =/; s/^\([a-z_]*\) +/\1 -/; s/^\([a-z_]*\) =/\1 +/')
handlers +handlers|1|1|1|10|h|info@example.com|/bin/true|none
handlers +handlers|1|1|1|10|d|example.com|/bin/true|none
handlers -handlers|1|1|0|10|h|info@example.com|/bin/true|none
handlers -handlers|1|1|0|10|d|example.com|/bin/true|none" --turn-on-domain --domain-name=example.com
# A lookup that cannot log in says so once, then why it stops.
use_fixture hosted+nopanel
run --turn-off-domain --domain-name=example.com
expect_eq "$(sed 's/^mailrig\[[0-9]*\]: //; s/^System error [0-9]*: .*/System error N/' "$ERR")" \
  "Unable to connect to Quelt Database: Access denied for user 'admin'@'localhost' (using password: YES)
System error N
Unable to connect to mysql database for query escape" "stderr of a lookup without the panel database"
row hosted+off+nopanel 1 'passwd -domains|1|example.com|1
passwd +domains|1|example.com|0
stderr ~ Access denied' --turn-on-domain --domain-name=example.com
row hosted+nopasswd 1 'stderr ~ ^mailrig\[[0-9]+\]: Unable to enable auth records for domain example.com$' \
  --turn-on-domain --domain-name=example.com

# --- the domain quota reaches the mailboxes without a quota of their own
row quota 0 "$quiet
tree +quota.test/info/Maildir/maildirsize popuser:popuser 644
$(maildirsize + quota.test/info 7000S,0C)" \
  --set-domain-disk-quota --domain-name=quota.test --disk-quota=7000
row quota 0 "$quiet
tree +quota.test/info/Maildir/maildirsize popuser:popuser 644
$(maildirsize + quota.test/info 0S,0C)" \
  --set-domain-disk-quota --domain-name=quota.test --disk-quota=-1

# --- a whole-table rewrite waits for the table's lock and changes nothing until it goes
use_fixture hosted
lock_held_run "$Q/virtual" virtual "$MAILRIG" --remove-domain --domain-name=example.com
expect_status 0 "remove-domain after the lock of virtual went"
expect_eq "$(snapshot virtual | grep -c @example.com)" 0 "virtual after the lock went"
# So does each incremental change: an addition, a removal, a removal of several keys.
use_fixture hosted+off
lock_held_run "$Q/virtual_domains" virtual_domains "$MAILRIG" --turn-on-domain --domain-name=example.com
expect_status 0 "turn-on-domain after the lock of virtual_domains went"
for table in virtual_domains virtual; do
  use_fixture hosted
  lock_held_run "$Q/$table" $table "$MAILRIG" --turn-off-domain --domain-name=example.com
  expect_status 0 "turn-off-domain after the lock of $table went"
done

finish
