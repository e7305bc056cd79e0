# mailrig-setup as rows: what it creates on a bare Postfix server, each main.cf item, that the
# admin's own list items survive, that a prepared server is left alone byte for byte.
# The delivery agent where the transport names it; a row below takes it away.
AGENT=$("$MAILRIG_SANDBOX_DIR/agent.sh" "$MAILRIG_BUILD")
ROWS_NO_PANEL=1  # no command here reads the panel database
. "$MAILRIG_TESTS/scenario/rows.sh"
TRANSPORT="mailrig unix - n n - - pipe flags=DRX user=popuser null_sender= argv=$AGENT \${sender} \${recipient}"

report() { local text; text=$(printf '%s\\n' "$@"); printf '%s' "${text%\\n}"; }
uid=$(id -u popuser) gid=$(id -g popuser)

# The admin's own items in list settings; mydestination lacks the item the setup adds.
fixture admin "postconf -e 'mynetworks = 127.0.0.0/8, 10.9.8.0/24' 'mydestination = localhost' \
  'smtpd_sender_restrictions = reject_non_fqdn_sender'"
MAILRIG=$SETUP row bare+admin 0 "$(for t in "${TABLES[@]}"; do printf '%s -<absent>\n' "$t"; done)
maincf +virtual_mailbox_domains = hash:$Q/virtual_domains
maincf +virtual_mailbox_maps = hash:$Q/vmailbox
maincf +virtual_alias_maps = hash:$Q/virtual
maincf +virtual_mailbox_base = $ROOT
maincf +virtual_uid_maps = static:$uid
maincf +virtual_gid_maps = static:$gid
maincf +sender_dependent_default_transport_maps = hash:$Q/sdd_transport_maps
maincf -alias_maps = hash:/etc/aliases
maincf +alias_maps = hash:/etc/aliases, hash:$Q/aliases
maincf -mydestination = localhost
maincf +mydestination = localhost, localhost.localdomain
maincf -smtpd_sender_restrictions = reject_non_fqdn_sender
maincf +smtpd_sender_restrictions = reject_non_fqdn_sender, check_sender_access hash:$Q/blacklists
maincf +virtual_transport = mailrig
maincf +mailrig_destination_recipient_limit = 1
mastercf +$TRANSPORT
tree -<absent>
tree +./ popuser:popuser 755
passwd -<absent>
handlers -<absent>
other *
stderr =
stdout = $(report "created $ROOT" "created /var/lib/quelt/mail/handlers" \
  "${TABLES[@]/#/created the empty table hash:$Q/}" \
  "created the password database $Q/passwd.db and its key" \
  "created the mail-handlers database $HANDLERS_DB" \
  "master.cf: set the delivery transport $TRANSPORT" \
  "main.cf: set virtual_mailbox_domains = hash:$Q/virtual_domains" \
  "main.cf: set virtual_mailbox_maps = hash:$Q/vmailbox" \
  "main.cf: set virtual_alias_maps = hash:$Q/virtual" \
  "main.cf: set virtual_mailbox_base = $ROOT" \
  "main.cf: set virtual_uid_maps = static:$uid" "main.cf: set virtual_gid_maps = static:$gid" \
  "main.cf: set sender_dependent_default_transport_maps = hash:$Q/sdd_transport_maps" \
  "main.cf: added hash:$Q/aliases to alias_maps" \
  "main.cf: added localhost.localdomain to mydestination" \
  "main.cf: added check_sender_access hash:$Q/blacklists to smtpd_sender_restrictions" \
  "main.cf: set virtual_transport = mailrig" "main.cf: set mailrig_destination_recipient_limit = 1" \
  "mailrig-setup: the server is ready")"
save_state ready
WHAT="password key, not empty" check [ -s "$Q/passwd_db_key" ]
expect_eq "$(stat -c '%U:%g %a' $Q $Q/passwd.db $Q/passwd_db_key)" "postfix:$(id -g postfix) 770
postfix:0 460
postfix:0 440" "owners and modes of the password database's folder, file and key"
expect_eq "$(postfix check 2>&1 || echo "exit status $?")" "" "postfix check after setup: silent, status 0"

# A prepared server: nothing to change, no byte changed. A partly prepared one: only what is
# missing or wrong, and a list that has the item is left as it is.
nothing='stdout = mailrig-setup: nothing to change, the server is ready
stderr ='
MAILRIG=$SETUP row ready 0 "$nothing"
fixture halfway "postconf -e virtual_mailbox_base=/elsewhere 'alias_maps = hash:$Q/aliases'; rm $Q/vmailbox.db"
MAILRIG=$SETUP row ready+halfway 0 "maincf -virtual_mailbox_base = /elsewhere
maincf +virtual_mailbox_base = $ROOT
vmailbox -<absent>
stdout = created the empty table hash:$Q/vmailbox\nmain.cf: set virtual_mailbox_base = $ROOT\nmailrig-setup: the server is ready"

# A transport entry the admin changed is put back in its place; without the agent installed the
# setup says so and changes nothing for it.
fixture transport_changed "sed -i 's|^mailrig unix.*|mailrig unix - n n - - pipe user=nobody argv=/bin/true|' /etc/postfix/master.cf"
MAILRIG=$SETUP row ready+transport_changed 0 "mastercf -mailrig unix - n n - - pipe user=nobody argv=/bin/true
mastercf +$TRANSPORT
stdout = master.cf: set the delivery transport $TRANSPORT\nmailrig-setup: the server is ready"
expect_eq "$(grep -n '^mailrig ' /etc/postfix/master.cf | cut -d: -f1)" \
  "$(grep -n '^mailrig ' "$STATE/ready+transport_changed/root/etc/postfix/master.cf" | cut -d: -f1)" "the transport entry's line"
mv "$AGENT" "$AGENT.away"
MAILRIG=$SETUP row ready 0 "stdout = warning: the delivery agent $AGENT is not installed; Postfix keeps mailbox mail queued until it is\nmailrig-setup: nothing to change, the server is ready
stderr ="
mv "$AGENT.away" "$AGENT"

# A main.cf change waits for main.cf's lock.
use_fixture ready+halfway
lock_held_run /etc/postfix/main.cf maincf "$SETUP"
expect_status 0 "setup after the lock of main.cf went"
expect_eq "$(postconf -h virtual_mailbox_base)" "$ROOT" "virtual_mailbox_base after the lock went"
# So does a master.cf change, for master.cf's lock: two writers must not interleave their stores.
use_fixture ready+transport_changed
lock_held_run /etc/postfix/master.cf mastercf "$SETUP"
expect_status 0 "setup after the lock of master.cf went"

# The password database is never wiped by a plain run, only on request.
fixture kept "passwd_sql \"INSERT INTO domains (name, status) VALUES ('kept.test', 0)\""
MAILRIG=$SETUP row ready+kept 0 "$nothing"
MAILRIG=$SETUP row ready+kept 0 "passwd -domains|1|kept.test|0
other *
stdout = re-created the password database $Q/passwd.db and its key\nmailrig-setup: the server is ready" --recreate-password-db
cmp -s $Q/passwd_db_key "$STATE/ready+kept/root$Q/passwd_db_key" && fail "the password key was not made anew"

# Without the mail user: refused with the way to create it, nothing made. Last: the user
# database is not among the stores a fixture puts back.
fixture nouser 'userdel popuser; groupdel popuser 2>/dev/null; true'
MAILRIG=$SETUP row bare+nouser 1 "stdout ~ ^Error: the mail user popuser does not exist
stderr = Error: the mail user popuser does not exist; create it with\n    groupadd --system popuser && useradd --system --gid popuser --home-dir $ROOT --no-create-home --shell /usr/sbin/nologin popuser\nor run mailrig-setup --create-user"
MAILRIG=$SETUP row ready+nouser 0 "maincf *
tree *
stdout ~ ^created the mail user popuser$" --create-user
WHAT="popuser created" check getent passwd popuser >/dev/null

# /var/lock is emptied at boot, so a server may have no folder for the lock files yet. Not a
# fixture: the folder is not among the stores a fixture puts back.
use_fixture ready && rm -rf /var/lock/files
MAILRIG=$SETUP row ready 0 'stdout = created /var/lock/files\nmailrig-setup: the server is ready'

finish
