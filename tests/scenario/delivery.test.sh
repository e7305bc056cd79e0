# Real mail end to end: a Postfix master started through its init script in a private network
# namespace (loopback only) delivers what mailrig configured. Everything is provisioned with the
# mailrig binary; every check reads a delivered file, a bounce, Postfix's queue or the SMTP
# reply, never mailrig's own tables. Outside clients connect from 127.0.0.2.
if [ "${DELIVERY_NETNS:-}" != 1 ]; then
  DELIVERY_NETNS=1 exec unshare --net bash "$0" "$@"
fi
ip link set lo up
. "$MAILRIG_TESTS/scenario/lib.sh"
export LC_ALL=C

ROOT=/var/qmail/mailnames
SETUP=$MAILRIG_BUILD/src/front/setup/mailrig-setup
SEND=$MAILRIG_TESTS/scenario/smtp_send.py
mdb=$MAILRIG_SANDBOX_DIR/mariadb.sh
SENDER=sender@example.com

# Postfix runs the agent from the place mailrig-setup names.
AGENT=$("$MAILRIG_SANDBOX_DIR/agent.sh" "$MAILRIG_BUILD")
"$mdb" start >/dev/null || { echo "the panel database did not start" >&2; exit 1; }
trap '/usr/sbin/postfix stop >/dev/null 2>&1; "$mdb" stop >/dev/null' EXIT
printf 'QUELT_MAILNAMES_D %s\n' "$ROOT" > /etc/zvt/zvt.conf
"$SETUP" >"$OUT" 2>&1 || { cat "$OUT" >&2; exit 1; }
# Only the server itself is a trusted client, so that relaying is refused to the others.
postconf -e 'mynetworks = 127.0.0.1/32' 'maillog_file = /var/log/postfix.log'
newaliases
expect_eq "$(postfix check 2>&1)" "" "postfix check after mailrig-setup"

home() { echo "$ROOT/$1/$2"; }

# --- what Postfix did ---------------------------------------------------------------------------

# Sends one message; REPLY is the server's answer, TOKEN the message's mark.
n=0
send() { # RCPT [FROM]
  n=$((n + 1)); TOKEN="msg-$n-$RANDOM"
  REPLY=$(python3 "$SEND" "${2:-$SENDER}" "$1" "$TOKEN")
}
queue() { postqueue -j 2>/dev/null; }
# Waits (at most 60 s) until the queue is empty, or only holds deferred messages with a reason.
settle() {
  local tries=600 q
  while [ $((tries -= 1)) -gt 0 ]; do
    q=$(queue)
    [ -z "$q" ] && return 0
    if ! grep -qv '"queue_name": *"deferred"' <<< "$q" && ! grep -q '"delay_reason": *""' <<< "$q"; then
      grep -q delay_reason <<< "$q" && return 0
    fi
    sleep 0.1
  done
  fail "the queue did not settle: $q"
}
# The mailboxes (domain/mailname) whose delivered messages carry TOKEN, one line each.
landed() {
  grep -rl -- "${1:-$TOKEN}" "$ROOT"/*/*/Maildir/new "$ROOT"/*/*/Maildir/cur 2>/dev/null |
    sed "s|^$ROOT/||; s|/Maildir/.*||" | sort | tr '\n' ' ' | sed 's/ $//'
}
# The bounces about TOKEN in the sender's mailbox (it receives nothing else): their text.
bounce_text() { grep -l -- "$TOKEN" "$(home example.com sender)"/Maildir/new/* 2>/dev/null | xargs -r cat; }
deferred_reason() { queue | python3 -c '
import json, sys
for line in sys.stdin:
    for r in json.loads(line)["recipients"]:
        print(r.get("delay_reason", ""))'; }
expect_landed() { # WHAT MAILBOXES
  settle
  expect_eq "$(landed)" "$2" "$1: where $TOKEN landed"
}
# A message that landed was accepted: the reply is checked where nothing lands.
expect_reply() { # WHAT PATTERN
  checks=$((checks + 1))
  grep -Eq -- "$2" <<< "$REPLY" || fail "$1: SMTP reply '$REPLY' does not match $2"
}

# --- the hosted domain --------------------------------------------------------------------------

panel "INSERT INTO domains (id, name) VALUES (1, 'example.com'), (2, 'off.test')"
mailrig_ok --add-domain --domain-name=example.com
mailrig_ok --add-domain --domain-name=off.test
for m in sender info keep full gone; do
  mailrig_ok --add-mailname --domain-name=example.com --mailname=$m
  ZVT_PASSWORD=secret-$m mailrig_ok --add-mailbox --domain-name=example.com --mailname=$m
done
mailrig_ok --add-mailname --domain-name=example.com --mailname=away
mailrig_ok --add-mailname --domain-name=off.test --mailname=info
ZVT_PASSWORD=secret mailrig_ok --add-mailbox --domain-name=off.test --mailname=info
# A running Postfix sees a changed table only when its daemon starts anew or the file's time
# has moved a second past the daemon's opening of it; after a change that decides what the
# server accepts, the test restarts it instead of waiting.
stop_postfix() {
  /usr/sbin/postfix stop >/dev/null 2>&1
  for _ in $(seq 100); do /usr/sbin/postfix status >/dev/null 2>&1 || break; sleep 0.1; done
}
restart_postfix() { stop_postfix; /etc/init.d/postfix start >/dev/null 2>&1 || fail "Postfix did not start"; }
restart_postfix

# A mailbox: the message is in its Maildir as the mail user's file, with the envelope lines.
send info@example.com
expect_landed "mailbox" "example.com/info"
msg=$(grep -rl -- "$TOKEN" "$(home example.com info)/Maildir/new" | head -1)
expect_eq "$(stat -c %U "$msg")" "popuser" "a delivered message belongs to the mail user"
expect_eq "$(sed -n 1,2p "$msg")" $'Return-Path: <sender@example.com>\nDelivered-To: info@example.com' "envelope lines"

# A mail alias delivers to its mailname.
mailrig_ok --add-alias --domain-name=example.com --mailname=info --alias=sales
restart_postfix
send sales@example.com
expect_landed "mail alias" "example.com/info"

# A redirect beside the mailbox: the copy goes on and the original stays.
mailrig_ok --add-redirect --domain-name=example.com --mailname=keep --redirect-email=info@example.com
send keep@example.com
expect_landed "redirect keeping a copy" "example.com/info example.com/keep"

# A redirect of a mailname without a mailbox: only the copy.
mailrig_ok --add-redirect --domain-name=example.com --mailname=away --redirect-email=info@example.com
send away@example.com
expect_landed "redirect without a mailbox" "example.com/info"

# A bounce (null sender) forwarded keeps its null sender, so that it cannot bounce in turn.
send away@example.com '<>'
expect_landed "a forwarded bounce" "example.com/info"
expect_eq "$(grep -rl -- "$TOKEN" "$(home example.com info)/Maildir/new" | xargs -r sed -n 1p)" "Return-Path: <>" \
  "the forwarded bounce's sender"

# An over-quota mailbox refuses: the sender gets a bounce saying so, the mailbox stays empty.
mailrig_ok --set-mailbox-disk-quota --domain-name=example.com --mailname=full --disk-quota=1
send full@example.com
expect_landed "over quota" "example.com/sender"
checks=$((checks + 1))
bounce_text | grep -q '5.2.2' && bounce_text | grep -q 'over quota' ||
  fail "over-quota bounce lacks its reason: $(bounce_text | head -40)"

# A mailbox switched off: the mailname still takes mail and keeps none, as its file says.
mailrig_ok --remove-mailbox --domain-name=example.com --mailname=gone
send gone@example.com
expect_reply "removed mailbox" '^250$'
expect_landed "removed mailbox (and no bounce to the sender)" ""

# A removed mailname, an unknown recipient, a disabled domain: refused at SMTP time.
mailrig_ok --remove-mailname --domain-name=example.com --mailname=gone
restart_postfix
send gone@example.com
expect_reply "removed mailname" '^550 5\.1\.1 .*User unknown'
send nobody@example.com
expect_reply "unknown recipient" '^550 5\.1\.1 .*User unknown in virtual mailbox table'
send info@off.test
expect_landed "enabled second domain" "off.test/info"
mailrig_ok --turn-off-domain --domain-name=off.test
restart_postfix
send info@off.test
expect_reply "disabled domain" '^(454 4|554 5)\.7\.1 .*Relay access denied'

# A forwarding loop is bounced instead of going round.
mailrig_ok --add-mailname --domain-name=example.com --mailname=ping
mailrig_ok --add-mailname --domain-name=example.com --mailname=pong
mailrig_ok --add-redirect --domain-name=example.com --mailname=ping --redirect-email=pong@example.com
mailrig_ok --add-redirect --domain-name=example.com --mailname=pong --redirect-email=ping@example.com
send ping@example.com
expect_landed "forwarding loop" "example.com/sender"
checks=$((checks + 1))
bounce_text | grep -qi 'loop' || fail "loop bounce lacks its reason: $(bounce_text | head -30)"

# --- .qmail files written by hand ----------------------------------------------------------------

# The programs of a .qmail run as the mail user, with its groups, in the mailname's home.
mailrig_ok --add-mailname --domain-name=example.com --mailname=hand
ZVT_PASSWORD=secret mailrig_ok --add-mailbox --domain-name=example.com --mailname=hand
HAND=$(home example.com hand)
GOOD=$'| /usr/bin/deliverquota ./Maildir\n'
write_hand() { rm -f "$HAND/.qmail"; printf '%s' "$1" > "$HAND/.qmail"; chown popuser:popuser "$HAND/.qmail"; chmod 600 "$HAND/.qmail"; }
write_hand $'| { id -u; id -G; pwd; } > ./seen\n'"$GOOD"
send hand@example.com
expect_landed "programs as the mail user" "example.com/hand"
expect_eq "$(cat "$HAND/seen" 2>&1)" "$(id -u popuser)"$'\n'"$(id -G popuser)"$'\n'"$HAND" "a program's user, groups and folder"

# Started by hand as root, the agent still runs every program as the mail user; started as any
# other user it delivers nothing and asks for a retry.
write_hand $'| id -u > ./seen-by-hand\n'"$GOOD"
STATUS=0; printf 'Subject: by hand\n\nby-hand-body\n' | "$AGENT" "$SENDER" hand@example.com >"$OUT" 2>&1 || STATUS=$?
expect_status 0 "the agent run by root"
expect_eq "$(cat "$HAND/seen-by-hand" 2>&1)" "$(id -u popuser)" "a program of the agent run by root"
expect_eq "$(landed by-hand-body)" "example.com/hand" "the agent run by root delivers"
STATUS=0; printf 'Subject: by nobody\n\nby-nobody-body\n' |
  setpriv --reuid=nobody --regid=nogroup --clear-groups "$AGENT" "$SENDER" hand@example.com >"$OUT" 2>&1 || STATUS=$?
expect_status 75 "the agent run by nobody"
expect_eq "$(cat "$OUT")" "4.3.0 mailrig-deliver runs as uid $(id -u nobody), not as popuser" "the agent run by nobody"
expect_eq "$(landed by-nobody-body)" "" "the agent run by nobody delivers nothing"

# A program's exit status: 99 skips the programs after it; 100 bounces with its words; 111
# asks Postfix to try again.
write_hand $'&info@example.com\n| exit 99\n'"$GOOD"$'&keep@example.com\n'
send hand@example.com
expect_landed "exit 99 ends the file, the copy before it goes" "example.com/info"
expect_eq "$(bounce_text)$(queue)" "" "exit 99: no bounce, nothing queued"
write_hand $'| echo no thanks; exit 100\n'"$GOOD"
send hand@example.com
expect_landed "exit 100 bounces" "example.com/sender"
checks=$((checks + 1))
bounce_text | grep -q 'no thanks' || fail "exit 100: the program's words are not in the bounce"

# A file that cannot be trusted keeps the message queued with the reason, and delivers it once
# the file is right again: nothing is lost, nothing runs. (The agent's unit tests give the
# lines it refuses, forward lines that are no plain address among them.)
refused() { # WHAT REASON-ERE
  send hand@example.com
  settle
  checks=$((checks + 1))
  deferred_reason | grep -Eq -- "$2" || fail "$1: deferral reason '$(deferred_reason)' does not match $2"
  expect_eq "$(landed)" "" "$1: nothing delivered while refused"
  [ ! -e "$HAND/ran" ] || fail "$1: a command of the refused file ran"
  rm -f "$HAND/ran"
  write_hand "$GOOD"
  postqueue -f
  expect_landed "$1: delivered once the file is right" "example.com/hand"
}
write_hand "| touch ran; $(head -c 102400 /dev/zero | tr '\0' x)"$'\n'"$GOOD"
refused "a 100 KB line" 'hand/\.qmail: the file is longer than 65536 bytes'
write_hand $'| touch ran\n| /usr/bin/deliverquota ./Maildir'
refused "a line without its end" 'line 2: no line end'
write_hand $'| touch ran\n'"$GOOD"; chown root:root "$HAND/.qmail"; chmod 644 "$HAND/.qmail"
refused "a file of root's" 'hand/\.qmail does not belong to popuser'
write_hand $'| touch ran\n'"$GOOD"; chown root:root "$HAND/.qmail"
refused "a file of root's the mail user cannot read" 'cannot open .*hand/\.qmail: Permission denied'
write_hand $'| touch ran\n'"$GOOD"; chmod 620 "$HAND/.qmail"
refused "a group-writable file" 'hand/\.qmail is writable by others than popuser'
rm -f "$HAND/.qmail"; ln -s /etc/passwd "$HAND/.qmail"
refused "a link" 'cannot open .*hand/\.qmail'
write_hand $'# nothing but a comment\n'
refused "no instruction" 'no delivery instruction'
write_hand $'| exit 111\n'
refused "a program asking for a retry" '"exit 111" failed with status 111'
# No file at all: the mailbox, as Postfix's own delivery would do.
rm -f "$HAND/.qmail"
send hand@example.com
expect_landed "no .qmail" "example.com/hand"

# --- the unknown-recipient policies and domain aliases -----------------------------------------

# What the panel knows of the mailnames, for the commands that spread over domain aliases.
panel "INSERT INTO mail (id, mail_name, dom_id) VALUES (1, 'info', 1), (2, 'sender', 1), (3, 'keep', 1)"
panel "INSERT INTO mail_aliases (mn_id, alias) VALUES (1, 'sales')"
mailrig_ok --set-catchall --domain-name=example.com --email=info@example.com
restart_postfix
send whoever@example.com
expect_landed "catch-all" "example.com/info"

# The panel's bounce program is not part of this server: a stand-in that says the phrase and
# refuses, as the real one does, in the private layer over /usr/lib that the agent got.
[ -d "$MAILRIG_SANDBOX_ROOT/usr-lib" ] || fail "no private layer over /usr/lib"
mkdir -p /usr/lib/quelt-9.0
printf '#!/bin/sh\necho "$*"\nexit 67\n' > /usr/lib/quelt-9.0/bouncemessage
chmod 755 /usr/lib/quelt-9.0/bouncemessage
mailrig_ok --set-bounce --domain-name=example.com --phrase='No such mailbox here'
restart_postfix
send whoever@example.com
expect_landed "bounce policy" "example.com/sender"
checks=$((checks + 1))
bounce_text | grep -q 'No such mailbox here' || fail "bounce policy: the phrase is not in the bounce"

mailrig_ok --set-reject --domain-name=example.com
restart_postfix
send whoever@example.com
expect_reply "reject policy" '^550 5\.1\.1 '

panel "INSERT INTO domainaliases (name, dom_id) VALUES ('alias.test', 1)"
mailrig_ok --add-domain-alias --domain-name=example.com --domain-alias-name=alias.test --set-reject
restart_postfix
send info@alias.test
expect_landed "domain alias" "example.com/info"
send sales@alias.test
expect_landed "mail alias through a domain alias" "example.com/info"

stop_postfix
/usr/sbin/postfix status >/dev/null 2>&1 && fail "Postfix still runs after the stop"
finish
