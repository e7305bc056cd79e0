# The domain alias, unknown-recipient policy and DomainKey commands end to end: every record a
# domain alias carries (addresses, password rows, handlers, key) for a domain with mailnames,
# mail aliases and two domain aliases; the policy options and their precedence; failed postmap
# runs; hostile names and texts.
. "$MAILRIG_TESTS/scenario/rows.sh"
D=example.com
HASH='$1$salt$hashedpanelvalue'
KEYS=/etc/domainkeys
BOUNCE=/usr/lib/quelt-9.0/bouncemessage

# Every postmap run mailrig makes is logged; `spy FIXTURE K` fails the K-th.
postmap_spy

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

# records SIGN ALIAS: what example.com's alias ALIAS is in virtual, its policy aside.
records() {
  std "$1" "$2"
  echo "virtual $1$2${T}1"
  echo "virtual $1info@$2${T}info@$D"
  echo "virtual $1sales@$2${T}info@$D"
  echo "virtual $1boss@$2${T}boss@$D"
}
KEYSUM=$(echo 'example key' | sha1sum | cut -d' ' -f1)
# carried SIGN ALIAS DOMAIN-ROW USER-ROW: all that example.com's alias ALIAS carries, its policy
# aside: its records, the password rows of sales and info (those with a password) from USER-ROW
# on under its domain row, the handlers of the domain and of its addresses, and the key.
carried() {
  records "$1" "$2"
  echo "passwd $1domains|$3|$2|0"
  echo "passwd $1users|$4|$3|sales||$HASH|0"
  echo "passwd $1users|$(($4 + 1))|$3|info||$HASH|0"
  echo "handlers $1handlers|2|1|1|10|spam|info@$2|/bin/spam|none"
  echo "handlers $1handlers|2|3|1|30|dom|$2|/bin/dom|none"
  echo "other $1$KEYS/$2/default $KEYSUM"
}

# --- --add-domain-alias ----------------------------------------------------------------------

# Addresses of every mailname and mail alias, the password rows of those with a password, the
# handlers of the domain and its addresses, and the key; the policy comes last.
added3=$(carried + alias3.example 2 3)
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
alias1="$(carried - alias1.example 2 3)
virtual -@alias1.example${T}boss@$D"
row dom+a1+a2 0 "$alias1
$quiet" --del-domain-alias --domain-name=$D --domain-alias-name=alias1.example

# Renamed: each record of alias1.example now of alias3.example, the password rows under a new
# domain row, and the new name's own policy.
renamed="$alias1
$(carried + alias3.example 4 7)"
row dom+a1+a2 0 "$renamed
$bounce3
$quiet" --rename-domain-alias --domain-name=$D --old-domain-alias-name=alias1.example \
  --new-domain-alias-name=alias3.example --set-bounce '--phrase=Gone away'
row dom+a1+a2 0 "$renamed
virtual +@alias3.example${T}boss@$D" --rename-domain-alias --domain-name=$D --old-domain-alias-name=alias1.example \
  --new-domain-alias-name=alias3.example --set-reject

# Renaming onto the host's own name drops the host entry first; a failed rewrite puts it back,
# and the tables are as they were.
hostname alias3.example
host_entry() {
  { echo 'alias3.example 1'; std '' alias3.example | sed 's/^virtual //'; } | postmap -i hash:$Q/virtual
}
fixture host host_entry
for k in 2 4; do
  spy dom+a1+a2+host $k
  row dom+a1+a2+host 1 'stderr ~ injected failure' --rename-domain-alias --domain-name=$D \
    --old-domain-alias-name=alias1.example --new-domain-alias-name=alias3.example --set-reject
done
expect_eq "$(cut -d' ' -f1-2 "$SPY/log" | sed 's/tmp\.[A-Za-z0-9]*$/tmp/' | tr '\n' ' ')" \
  "-d alias3.example -d - -s hash:$Q/virtual hash:$Q/.virtual.tmp -r -i -r -i " \
  "postmap runs of the failed rename: host entry out, rewrite failed, host entry back"
rm -f "$SPY/fail"
# Done: the host entry and its standard addresses become the alias's own.
row dom+a1+a2+host 0 "$(records - alias1.example)
virtual -@alias1.example${T}boss@$D
virtual +info@alias3.example${T}info@$D
virtual +sales@alias3.example${T}info@$D
virtual +boss@alias3.example${T}boss@$D
virtual +@alias3.example${T}boss@$D
passwd *
handlers *
other *" --rename-domain-alias --domain-name=$D --old-domain-alias-name=alias1.example \
  --new-domain-alias-name=alias3.example --set-reject

# Renaming away from the host's own name gives the host entry back whole once the rewrite is
# done. A failed run before the rewrite changes nothing; one after it leaves the renamed records
# without the entry, and nothing else renamed.
hostname alias1.example
spy dom+a1+a2
away=$(grep -v -e "^virtual -alias1.example${T}1\$" -e "^virtual -[a-z-]*@alias1.example${T}[a-z-]*@localhost" <<< "$renamed")
row dom+a1+a2 0 "$away
virtual +@alias3.example${T}boss@$D" --rename-domain-alias --domain-name=$D --old-domain-alias-name=alias1.example \
  --new-domain-alias-name=alias3.example --set-reject
expect_eq "$(wc -l < "$SPY/log")" 4 "postmap runs of a rename away from the host name"
moved="$(records - alias1.example)
$(records + alias3.example)
virtual -@alias1.example${T}boss@$D
virtual +@alias3.example${T}boss@$D"
for k in 1 2 3 4; do
  spy dom+a1+a2 $k
  row dom+a1+a2 1 "stderr ~ injected failure
$([ $k -le 2 ] || echo "$moved")" --rename-domain-alias --domain-name=$D \
    --old-domain-alias-name=alias1.example --new-domain-alias-name=alias3.example --set-reject
done
spy_off
hostname mail.sandbox.test


# --- the policy commands over the domain and both its aliases --------------------------------

catchall_to() { # SIGN TARGET: the catch-all records of the domain and its two aliases
  local d
  for d in $D alias1.example alias2.example; do echo "virtual $1@$d$T$2"; done
}
bounce_of() { # SIGN COMMAND: the bounce records of the domain and its two aliases
  local d
  for d in $D alias1.example alias2.example; do
    echo "aliases $1_quelt_bounce_$d$T$2"
    echo "virtual $1@$d${T}_quelt_bounce_$d@localhost.localdomain"
  done
}
spy dom+a1+a2
row dom+a1+a2 0 "$(catchall_to - boss@$D)
$(bounce_of + "\"|$BOUNCE Sorry,\\\\\\ no\"")
$quiet" --set-bounce --domain-name=$D '--phrase=Sorry, no'
expect_eq "$(cut -d' ' -f3 "$SPY/log" | tr '\n' ' ')" \
  "hash:$Q/aliases hash:$Q/aliases hash:$Q/aliases hash:$Q/virtual " "a bounce through two aliases: three aliases runs, one virtual run"
row dom+a1+a2 0 "$(catchall_to - boss@$D)
$(bounce_of + "\"|$BOUNCE\"")" --set-bounce --domain-name=$D
# A phrase is one argument of the bounce program, whatever it holds: its line breaks become
# blanks, and quoting for Postfix and for the shell keeps the rest as written.
HOSTILE='a
b"; rm -rf / $(id)'
BOUNCE_HOSTILE='"|/usr/lib/quelt-9.0/bouncemessage a\\\ b\\\"\\\;\\\ rm\\\ -rf\\\ /\\\ \\\$\\\(id\\\)"'
row dom+a1+a2 0 "$(catchall_to - boss@$D)
$(bounce_of + "$BOUNCE_HOSTILE")" --set-bounce --domain-name=$D "--phrase=$HOSTILE"
# What Postfix's local delivery makes of it: one level of quoting off inside the double quotes,
# then the shell; a stand-in of the bounce program (outside /usr/lib, which is the host's) shows
# its arguments.
STANDIN_BOUNCE=$MAILRIG_SANDBOX_ROOT/bouncemessage
printf '#!/bin/sh\necho "$#:$1"\n' > "$STANDIN_BOUNCE" && chmod 755 "$STANDIN_BOUNCE"
command=$(postmap -q _quelt_bounce_$D hash:$Q/aliases | sed 's/^"|//; s/"$//; s/\\\(.\)/\1/g')
command=$STANDIN_BOUNCE${command#"$BOUNCE"}
expect_eq "$(sh -c "$command")" "1:a b\"; rm -rf / \$(id)" "the bounce program's arguments"
row dom+a1+a2 0 "$(catchall_to - boss@$D)
$(catchall_to + info@$D)
$quiet" --set-catchall --domain-name=$D --email=INFO@Example.com
for reject in --set-reject --unset-reject; do
  row dom+a1+a2 0 "$(catchall_to - boss@$D)
$quiet" $reject --domain-name=$D
done
row dom+a1+a2 1 "stderr = mandatory option \"--email\" is not specified" --set-catchall --domain-name=$D

# --- hostile names: refused before any store is touched --------------------------------------

for name in $'alias3.example\nx' 'alias3.example x' '../alias3.example' 'alias3.example/..' 'a..b' $'alias3.example\t1'; do
  row dom+new3 1 'stderr ~ invalid domain name|IdnaError' --add-domain-alias --domain-name=$D --domain-alias-name="$name" --set-reject
  row dom+a1+a2 1 'stderr ~ invalid domain name|IdnaError' --rename-domain-alias --domain-name=$D \
    --old-domain-alias-name=alias1.example --new-domain-alias-name="$name" --set-reject
  row dom+a1+a2 1 'stderr ~ invalid domain name|IdnaError' --del-domain-alias --domain-name=$D --domain-alias-name="$name"
  row dom+a1+a2 1 'stderr ~ invalid domain name|IdnaError' --set-bounce --domain-name="$name" --phrase=x
done
# A catch-all address that could carry a second record, or no address at all.
for email in $'boss@example.com\n@evil.test' 'boss@example.com evil@evil.test' 'boss' '@example.com' 'a@b@example.com'; do
  row dom+a1+a2 1 'stderr ~ invalid mail address' --set-catchall --domain-name=$D --email="$email"
  row dom+new3 1 'stderr ~ invalid mail address' --add-domain-alias --domain-name=$D \
    --domain-alias-name=alias3.example --set-catchall --email="$email"
done
# ... unless the bounce wins and the address is never used.
row dom+new3 0 "$added3
$bounce3" --add-domain-alias --domain-name=$D --domain-alias-name=alias3.example --set-catchall \
  --email=$'x\ny' --set-bounce '--phrase=Gone away'

# --- DomainKeys ------------------------------------------------------------------------------

# The panel's upload, where a reset puts it back.
UPLOAD=/usr/local/zvt/upload.key
NEWSUM=$(echo 'new key' | sha1sum | cut -d' ' -f1)
fixture upload "mkdir -p /usr/local/zvt && echo 'new key' > $UPLOAD"
row dom+upload 0 "other -$UPLOAD $NEWSUM
other -$KEYS/$D/default $KEYSUM
other +$KEYS/$D/default $NEWSUM
other +$KEYS/b.example/default $NEWSUM
$quiet" --set-domain-key --domain-name=Example.COM,b.example --file-name=$UPLOAD
expect_eq "$(stat -c '%U:%G %a' $KEYS/b.example/default $KEYS/b.example)" "root:popuser 440
root:root 755" "a new key's owner and mode, and its folder's"
row dom+upload 1 'stderr ~ No source file' --set-domain-key --domain-name=$D --file-name=/tmp/absent.key
for list in "$D,../etc" "$D,a b" $'b.example\nc.example' "$D/x"; do
  row dom+upload 1 'stderr ~ invalid domain name|IdnaError' --set-domain-key --domain-name="$list" --file-name=$UPLOAD
  row dom+upload 1 'stderr ~ invalid domain name|IdnaError' --remove-domain-key --domain-name="$list"
done
row dom+a1 0 "other -$KEYS/$D/default $KEYSUM
other -$KEYS/alias1.example/default $KEYSUM
$quiet" --remove-domain-key --domain-name=$D,alias1.example
row dom 0 "$quiet" --remove-domain-key --domain-name=b.example

finish
