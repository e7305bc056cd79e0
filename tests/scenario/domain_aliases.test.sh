# The domain alias, unknown-recipient policy and DomainKey commands end to end: every record a
# domain alias carries (addresses, password rows, handlers, key) for a domain with mailnames,
# mail aliases and two domain aliases; the policy options and their precedence; failed postmap
# runs; hostile names and texts.
. "$MAILRIG_TESTS/scenario/rows.sh"
T=$'\t'
D=example.com
HASH='$1$salt$hashedpanelvalue'
KEYS=/etc/domainkeys
BOUNCE=/usr/lib/quelt-9.0/bouncemessage

# A stand-in over postmap that, for mailrig's own runs, logs the arguments and fails the run
# numbered in $SPY/fail.
SPY=$MAILRIG_SANDBOX_ROOT/spy
mkdir -p "$SPY" && cp /usr/sbin/postmap "$SPY/real"
cat > "$SPY/postmap" <<EOF
#!/bin/bash
if [ "\$(readlink /proc/\$PPID/exe)" = "$(readlink -f "$MAILRIG")" ]; then
  printf '%s\n' "\$*" >> $SPY/log
  if [ "\$(wc -l < $SPY/log)" = "\$(cat $SPY/fail 2>/dev/null)" ]; then
    case " \$* " in *' -i '*|*' -d - '*) cat > /dev/null ;; esac
    echo "postmap: fatal: injected failure" >&2
    exit 1
  fi
fi
exec $SPY/real "\$@"
EOF
chmod 755 "$SPY/postmap" && mount --bind "$SPY/postmap" /usr/sbin/postmap
spy() { use_fixture "$1"; rm -f "$SPY/log" "$SPY/fail"; [ -z "${2:-}" ] || echo "$2" > "$SPY/fail"; }

# --- fixtures --------------------------------------------------------------------------------

# example.com: mailnames info (mailbox, password, mail alias sales, a spam handler) and boss
# (no mailbox), a handler of the domain itself, a catch-all to boss and a DomainKey.
# other.test is a neighbour no example.com command may touch.
fixture dom "
  mailrig_ok --add-domain --domain-name=$D
  mailrig_ok --add-domain --domain-name=other.test
  panel \"INSERT INTO domains (id, name) VALUES (1, '$D'), (2, 'other.test');
         INSERT INTO mail (id, mail_name, dom_id) VALUES (10, 'info', 1), (11, 'boss', 1), (12, 'info', 2);
         INSERT INTO mail_aliases (mn_id, alias) VALUES (10, 'sales')\"
  mailrig_ok --add-mailname --domain-name=$D --mailname=info
  mailrig_ok --add-mailname --domain-name=$D --mailname=boss
  ZVT_PASSWORD= ZVT_CRYPTED_PASSWORD='$HASH' mailrig_ok --add-mailbox --domain-name=$D --mailname=info
  mailrig_ok --add-alias --domain-name=$D --mailname=info --alias=sales
  handlers_sql \"INSERT INTO handlers VALUES (2, 1, 1, 10, 'spam', 'info@$D', '/bin/spam', 'none');
                INSERT INTO handlers VALUES (2, 3, 1, 30, 'dom', '$D', '/bin/dom', 'none')\"
  postmap -i hash:$Q/virtual <<< '@$D boss@$D'
  mkdir -p $KEYS/$D && echo 'example key' > $KEYS/$D/default
  chgrp popuser $KEYS/$D/default && chmod 440 $KEYS/$D/default"
# The panel has recorded the alias the next command adds.
fixture new3 "panel \"INSERT INTO domainaliases (name, dom_id) VALUES ('alias3.example', 1)\""
fixture a1 "panel \"INSERT INTO domainaliases (name, dom_id) VALUES ('alias1.example', 1)\"
  mailrig_ok --add-domain-alias --domain-name=$D --domain-alias-name=alias1.example --set-catchall --email=boss@$D"
fixture a2 "panel \"INSERT INTO domainaliases (name, dom_id) VALUES ('alias2.example', 1)\"
  mailrig_ok --add-domain-alias --domain-name=$D --domain-alias-name=alias2.example --set-catchall --email=boss@$D"

# --- expected lines --------------------------------------------------------------------------

std() { # SIGN NAME: the six standard addresses of NAME
  local w
  for w in postmaster mailer-daemon root anonymous drweb kluser; do
    echo "virtual $1$w@$2$T$w@localhost.localdomain"
  done
}
# records SIGN ALIAS: what example.com's alias ALIAS is in virtual, its policy aside.
records() {
  std "$1" "$2"
  echo "virtual $1$2${T}1"
  echo "virtual $1info@$2${T}info@$D"
  echo "virtual $1sales@$2${T}info@$D"
  echo "virtual $1boss@$2${T}boss@$D"
}
KEYSUM=$(echo 'example key' | sha1sum | cut -d' ' -f1)
quiet='stdout =
stderr ='

# --- --add-domain-alias ----------------------------------------------------------------------

# Addresses of every mailname and mail alias, the password rows of those with a password, the
# handlers of the domain and its addresses, and the key; the policy comes last.
added3="$(records + alias3.example)
passwd +domains|2|alias3.example|0
passwd +users|3|2|sales||$HASH|0
passwd +users|4|2|info||$HASH|0
handlers +handlers|2|1|1|10|spam|info@alias3.example|/bin/spam|none
handlers +handlers|2|3|1|30|dom|alias3.example|/bin/dom|none
other +$KEYS/alias3.example/default $KEYSUM"
row dom+new3 0 "$added3
virtual +@alias3.example${T}boss@$D
$quiet" --add-domain-alias --domain-name=$D --domain-alias-name=Alias3.EXAMPLE --set-catchall --email=Boss@$D
expect_eq "$(stat -c '%U:%G %a' $KEYS/alias3.example/default)" "root:popuser 440" "the cloned key's owner and mode"

# The first policy option given wins: bounce, then catch-all, then reject.
bounce3="aliases +_quelt_bounce_alias3.example$T\"|$BOUNCE Gone\\\\\\ away\"
virtual +@alias3.example${T}_quelt_bounce_alias3.example@localhost.localdomain"
row dom+new3 0 "$added3
$bounce3" --add-domain-alias --domain-name=$D --domain-alias-name=alias3.example --set-reject \
  --set-catchall --email=boss@$D --set-bounce '--phrase=Gone away'
row dom+new3 0 "$added3
virtual +@alias3.example${T}info@$D" --add-domain-alias --domain-name=$D --domain-alias-name=alias3.example \
  --set-reject --set-catchall --email=info@$D
# Reject: no record for unknown mailnames at all.
row dom+new3 0 "$added3
$quiet" --add-domain-alias --domain-name=$D --domain-alias-name=alias3.example --set-reject
# Without a policy the alias is made all the same, and the caller is told.
row dom+new3 1 "$added3
stderr ~ Action for notexisting mail names is not specified \(--set-bounce/--set-catchall/--set-reject\)" \
  --add-domain-alias --domain-name=$D --domain-alias-name=alias3.example
row dom+new3 1 "$added3
stderr = Fatal error: quelt::mail::postfix::mailrig_commands::MissingMandatoryOption(mandatory option \"--email\" is not specified)" \
  --add-domain-alias --domain-name=$D --domain-alias-name=alias3.example --set-catchall
# A domain without a key gives its alias none; a domain the panel does not know has no
# mailnames to carry.
row dom+new3 0 "$(std + alias3.example)
virtual +alias3.example${T}1" --add-domain-alias --domain-name=unknown.test --domain-alias-name=alias3.example --set-reject

# A failed postmap run: the first (the standard addresses) leaves everything as it was; the
# second (the alias's own records) leaves the standard addresses, and nothing else is done.
spy dom+new3 1
row dom+new3 1 'stderr ~ ^Fatal error: quelt::mail::postfix::PostfixConfigurationError\(.*injected failure' \
  --add-domain-alias --domain-name=$D --domain-alias-name=alias3.example --set-reject
spy dom+new3 2
row dom+new3 1 "$(std + alias3.example)
stderr ~ injected failure" --add-domain-alias --domain-name=$D --domain-alias-name=alias3.example --set-reject
expect_eq "$(cat "$SPY/log")" "-r -i hash:$Q/virtual
-r -i hash:$Q/virtual" "postmap runs of an alias that failed at its own records"
rm -f "$SPY/fail"

# --- the two aliases, removed and renamed ----------------------------------------------------

# alias1.example as --add-domain-alias made it.
alias1="$(records - alias1.example)
virtual -@alias1.example${T}boss@$D
passwd -domains|2|alias1.example|0
passwd -users|3|2|sales||$HASH|0
passwd -users|4|2|info||$HASH|0
handlers -handlers|2|1|1|10|spam|info@alias1.example|/bin/spam|none
handlers -handlers|2|3|1|30|dom|alias1.example|/bin/dom|none
other -$KEYS/alias1.example/default $KEYSUM"
row dom+a1+a2 0 "$alias1
$quiet" --del-domain-alias --domain-name=$D --domain-alias-name=alias1.example

# Renamed: each record of alias1.example now of alias3.example, the password rows under a new
# domain row, and the new name's own policy.
renamed="$alias1
$(records + alias3.example)
passwd +domains|4|alias3.example|0
passwd +users|7|4|sales||$HASH|0
passwd +users|8|4|info||$HASH|0
handlers +handlers|2|1|1|10|spam|info@alias3.example|/bin/spam|none
handlers +handlers|2|3|1|30|dom|alias3.example|/bin/dom|none
other +$KEYS/alias3.example/default $KEYSUM"
row dom+a1+a2 0 "$renamed
$bounce3
$quiet" --rename-domain-alias --domain-name=$D --old-domain-alias-name=alias1.example \
  --new-domain-alias-name=alias3.example --set-bounce '--phrase=Gone away'
row dom+a1+a2 0 "$renamed
virtual +@alias3.example${T}boss@$D" --rename-domain-alias --domain-name=$D --old-domain-alias-name=alias1.example \
  --new-domain-alias-name=alias3.example --set-reject

finish
