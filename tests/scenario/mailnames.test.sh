# The mailname, mailbox, alias, redirect and autoresponder commands end to end: every store a
# command touches, for a domain without and with two domain aliases, and the failure paths.
. "$MAILRIG_TESTS/scenario/rows.sh"
D=example.com
HASH='$1$salt$hashedpanelvalue'

# The byte and block sizes of an empty folder on the mail root's file system: an empty
# @attachments folder counts against the quota and the mailbox size.
mkdir -p "$ROOT/.probe"
ATT=$(stat -c %s "$ROOT/.probe")
rmdir "$ROOT/.probe"

# Every postmap run mailrig makes is logged with the password variables it saw; `spy FIXTURE K`
# fails the K-th.
postmap_spy

# --- fixtures --------------------------------------------------------------------------------

fixture dom "mailrig_ok --add-domain --domain-name=$D
  panel \"INSERT INTO domains (id, name) VALUES (1, '$D')\""
fixture aliases "panel \"INSERT INTO domainaliases (name, dom_id) VALUES ('alias1.example', 1), ('alias2.example', 1)\"
  printf 'alias1.example 1\nalias2.example 1\n' | postmap -i hash:$Q/virtual"
# The mailname info with its mailbox, a panel-hashed password, the mail alias sales, a
# redirect and a spam filter; beside it boss, a mailname without mailbox or password.
fixture info "panel \"INSERT INTO mail (id, mail_name, dom_id) VALUES (10, 'info', 1), (11, 'boss', 1);
                     INSERT INTO mail_aliases (mn_id, alias) VALUES (10, 'sales')\"
  mailrig_ok --add-mailname --domain-name=$D --mailname=info
  mailrig_ok --add-mailname --domain-name=$D --mailname=boss
  ZVT_PASSWORD= ZVT_CRYPTED_PASSWORD='$HASH' mailrig_ok --add-mailbox --domain-name=$D --mailname=info
  handlers_sql \"INSERT INTO handlers VALUES (2, 1, 1, 10, 'spam', 'info@$D', '/bin/spam', 'none')\"
  mailrig_ok --add-alias --domain-name=$D --mailname=info --alias=sales
  mailrig_ok --add-redirect --domain-name=$D --mailname=info --redirect-email=chief@other.test"
# A password database that cannot be opened.
fixture nopasswd "mv $Q/passwd.db $Q/passwd.db.saved && mkdir $Q/passwd.db"
# A folder already holding the name a mailname is renamed to.
fixture taken "mkdir -p $ROOT/$D/office/x"
# The mailname info without mailbox or password.
fixture plain "mailrig_ok --add-mailname --domain-name=$D --mailname=info"
fixture responding "mailrig_ok --set-autoresponder --domain-name=$D --mailname=info"

# --- expected lines --------------------------------------------------------------------------

# home SIGN NAME: the tree lines of a new mailname home.
home() {
  local e
  for e in / .qmail @attachments/ Maildir/ Maildir/tmp/ Maildir/new/ Maildir/cur/ Maildir/.Spam/ \
           Maildir/.Spam/tmp/ Maildir/.Spam/new/ Maildir/.Spam/cur/; do
    [ "$e" = .qmail ] && echo "tree $1$D/$2/.qmail popuser:popuser 600" || echo "tree $1$D/$2/${e%/}/ popuser:popuser 700"
  done | sed 's#//#/#'
  echo "tree $1$D/$2/Maildir/maildirsize popuser:popuser 644"
}
# addresses SIGN LOCAL TARGET [ALIASES...]: virtual lines of LOCAL at the domain and the aliases.
addresses() {
  local sign=$1 local=$2 target=$3 d
  shift 3
  for d in "$D" "$@"; do echo "virtual $sign$local@$d$T$target"; done
}
# moved STORE FROM TO: every line of STORE in the current state that mentions FROM, gone, and
# back with TO in its place.
moved() {
  snapshot "$1" | grep -F -- "$2" | while IFS= read -r l; do
    echo "$1 -$l"; echo "$1 +${l//"$2"/"$3"}"
  done
}
A2=(alias1.example alias2.example)
qmail="files +$D/info/.qmail: "

# --- --add-mailname --------------------------------------------------------------------------

# Through two domain aliases: one vmailbox run and one virtual run of three records. A postmap
# run starts with the standard streams alone (and bash's own script, 255), whatever mailrig
# inherited or holds itself.
spy dom+aliases
exec 3</etc/hostname
row dom+aliases 0 "
vmailbox +info@$D$T$D/info/Maildir/
$(addresses + info info@$D "${A2[@]}")
$(home + info)
${qmail}| true
$(maildirsize + $D/info 0S,0C)
$quiet" --add-mailname --domain-name=$D --mailname=info
exec 3<&-
expect_eq "$(cat "$SPY/log")" "-r -i hash:$Q/vmailbox
-r -i hash:$Q/virtual" "postmap runs of a mailname with two domain aliases"
expect_eq "$(sort -n "$SPY/fds" | uniq -c | tr -s ' ' | paste -sd,)" " 2 0, 2 1, 2 2, 2 255" "descriptors of the postmap runs"

# Without domain aliases: the domain's records alone. The name is folded to lower case; the
# empty @attachments folder counts against the quota.
row dom 0 "
vmailbox +info@$D$T$D/info/Maildir/
$(addresses + info info@$D)
$(home + info)
${qmail}| true
$(maildirsize + $D/info $((1048576 - ATT))S,0C)" --add-mailname --domain-name=Example.COM --mailname=Info --disk-quota=1048576
# Without a quota the mailbox takes its domain's limit (of the webspace the domain is in, if
# any); a domain the panel does not know gets no records.
fixture limited "panel \"INSERT INTO Limits (id, limit_name, value)
                           VALUES (5, 'mbox_quota', '1048576'), (6, 'mbox_quota', '42');
                         UPDATE domains SET limits_id = 5 WHERE id = 1\""
fixture webspace "panel \"INSERT INTO domains (id, name, limits_id) VALUES (2, 'main.test', 5);
                          UPDATE domains SET webspace_id = 2, limits_id = 6 WHERE id = 1\""
fixture unlisted "panel \"DELETE FROM domains\""
info_added="vmailbox +info@$D$T$D/info/Maildir/
$(addresses + info info@$D)
$(home + info)
${qmail}| true"
limit_lines=$(maildirsize + $D/info $((1048576 - ATT))S,0C)
row dom+limited 0 "$info_added
$limit_lines" --add-mailname --domain-name=$D --mailname=info
row dom+limited+webspace 0 "$info_added
$limit_lines" --add-mailname --domain-name=$D --mailname=info
row dom+unlisted 1 "stderr ~ ^No such domain $D$
tree *
files *" --add-mailname --domain-name=$D --mailname=info
# Without the panel's configuration file the mail root is the default one.
fixture noconf "rm /etc/zvt/zvt.conf"
row dom+noconf 0 "$info_added
$(maildirsize + $D/info 0S,0C)" --add-mailname --domain-name=$D --mailname=info

# The apostrophe is a mailname character the panel uses.
row dom 0 "
vmailbox +o'neil@$D$T$D/o'neil/Maildir/
$(addresses + "o'neil" "o'neil@$D")
$(home + "o'neil")
files +$D/o'neil/.qmail: | true
$(maildirsize + "$D/o'neil" 0S,0C)" --add-mailname --domain-name=$D --mailname="o'neil"

# Invalid and hostile mailnames and domains, in every mailname command, are rows of the hostile
# inputs; the message names the refused mailname as given (see --rename-mailname below).
row dom 1 "stderr ~ ^mandatory option \"--mailname\" is not specified$" --add-mailname --domain-name=$D

# --- --remove-mailname -----------------------------------------------------------------------

# Password records of the mailname and its mail alias in the domain and both domain aliases
# go first; the alias's own table records stay.
use_fixture dom+aliases+info
info_rows=$(snapshot passwd | grep -E '^users\|[0-9]+\|[0-9]+\|(info|sales)\|' | sed 's/^/passwd -/')
row dom+aliases+info 0 "
vmailbox -info@$D$T$D/info/Maildir/
$(addresses - info info@$D "${A2[@]}")
$(snapshot tree | grep "^$D/info/" | sed 's/^/tree -/')
$(snapshot files | grep "^$D/info/" | sed 's/^/files -/')
$info_rows
handlers -handlers|2|1|1|10|spam|info@$D|/bin/spam|none" --remove-mailname --domain-name=$D --mailname=info
expect_eq "$(printf '%s\n' "$info_rows" | wc -l)" 4 "password records of info (three domains) and sales"
row dom+aliases+info+nopasswd 1 "stderr ~ Unable to open database" --remove-mailname --domain-name=$D --mailname=info

# --- --rename-mailname -----------------------------------------------------------------------

use_fixture dom+aliases+info
mailbox_moved="vmailbox -info@$D$T$D/info/Maildir/
vmailbox +office@$D$T$D/office/Maildir/"
renamed="$mailbox_moved
$(moved virtual info@ office@)
$(moved tree $D/info/ $D/office/)
$(moved files $D/info/ $D/office/)
$(moved handlers info@ office@)"
# Without a password: the old name's password records go, in the domain and its aliases.
row dom+aliases+info 0 "$renamed
$(snapshot passwd | grep '|info|' | sed 's/^/passwd -/')" --rename-mailname --domain-name=$D --old-mailname=info --new-mailname=office
# With one: the stored password follows the name in the domain; the given value is not stored.
spy dom+aliases+info
ZVT_PASSWORD=other row dom+aliases+info 0 "$renamed
passwd -users|1|1|info||$HASH|0
passwd +users|1|1|office||$HASH|0" --rename-mailname --domain-name=$D --old-mailname=info --new-mailname=office -D
expect_eq "$(sort -u "$SPY/env")" 0 "password variables in the environment of postmap"
expect_eq "$(wc -l < "$SPY/log")" 8 "postmap runs of a rename through two domain aliases"

row dom+aliases+info 1 "stderr = Fatal error: std::invalid_argument(office/x)" --rename-mailname --domain-name=$D --old-mailname=info --new-mailname=office/x
row dom+aliases+info 1 "stderr ~ ^mandatory option \"--new-mailname\" is not specified$" --rename-mailname --domain-name=$D

# A home that cannot be renamed leaves the tables as they were, down to the order of the dump.
use_fixture dom+aliases+info+taken
tables() { postmap -s hash:$Q/vmailbox; postmap -s hash:$Q/virtual; }
before=$(tables)
row dom+aliases+info+taken 1 "stderr ~ ^Fatal error: .*filesystem_error" --rename-mailname --domain-name=$D --old-mailname=info --new-mailname=office
expect_eq "$(tables)" "$before" "unsorted dumps of vmailbox and virtual after a failed home rename"
# An undo step that fails is reported with its table, and the other still runs.
critical() {
  printf 'CRITICAL ERROR: Unable to properly restore %s used by Quelt.\\nMail system may be not usable at the moment and it cannot be repaired automatically.\\nConstact Korvaneth support to resolve this issue.' "$1"
}
spy dom+aliases+info+taken 5
row dom+aliases+info+taken 1 "$(moved virtual info@$D office@$D)
stderr ~ ^Fatal error: .*filesystem_error
stdout ~ Virtual Aliases Database used by Quelt" --rename-mailname --domain-name=$D --old-mailname=info --new-mailname=office
grep -qF "$(critical 'Postfix Virtual Aliases Database' | sed 's/\\n.*//')" "$ERR" || fail "critical-restore message for virtual"
spy dom+aliases+info+taken 7
row dom+aliases+info+taken 1 "$mailbox_moved
stderr ~ ^Fatal error: .*filesystem_error" --rename-mailname --domain-name=$D --old-mailname=info --new-mailname=office
expect_eq "$(grep -A2 CRITICAL "$ERR")" "$(printf '%b' "$(critical 'Postfix Virtual Mailboxes Database')")" "critical-restore message for vmailbox"
spy_off

# --- --add-mailbox, --remove-mailbox, --set-password ------------------------------------------

# A panel-hashed password with -D: flags 5, the missing domain rows made disabled.
ZVT_CRYPTED_PASSWORD=$HASH row dom+aliases+plain 0 "
${qmail}| /usr/bin/deliverquota ./Maildir
passwd +domains|1|$D|1
passwd +domains|2|alias1.example|1
passwd +domains|3|alias2.example|1
passwd +users|1|1|info||$HASH|0
passwd +users|2|2|info||$HASH|0
passwd +users|3|3|info||$HASH|0
stderr =" --add-mailbox --domain-name=$D --mailname=info -D
# A plain password is stored encrypted, under the mailname only; it wins over a panel hash.
ZVT_PASSWORD=secret ZVT_CRYPTED_PASSWORD=ignored row dom+aliases+info 0 "passwd *
files +$D/boss/.qmail: | /usr/bin/deliverquota ./Maildir" --add-mailbox --domain-name=$D --mailname=boss
expect_eq "$(passwd_sql "SELECT d.name || ' ' || (u.userPassword LIKE '\$AES-256-CBC:PKCS\$%') || ' ' || ifnull(u.cmusaslsecretPLAIN, '-')
                         FROM users u JOIN domains d ON d.id = u.dom_id WHERE u.name = 'boss' ORDER BY d.name")" \
  "alias1.example 1 -
alias2.example 1 -
$D 1 -" "encrypted password of boss"
# The .qmail file is changed before the password store fails.
ZVT_PASSWORD=secret row dom+aliases+info+nopasswd 1 "
files +$D/boss/.qmail: | /usr/bin/deliverquota ./Maildir
stderr ~ Unable to open database" --add-mailbox --domain-name=$D --mailname=boss

row dom+aliases+info 0 "
files -$D/info/.qmail: | /usr/bin/deliverquota ./Maildir
$info_rows" --remove-mailbox --domain-name=$D --mailname=info
row dom+aliases+info+nopasswd 1 "
files -$D/info/.qmail: | /usr/bin/deliverquota ./Maildir
stderr ~ Unable to open database" --remove-mailbox --domain-name=$D --mailname=info

# No password handed over removes the records of the mailname and its mail aliases.
row dom+aliases+info 0 "$info_rows" --set-password --domain-name=$D --mailname=info
# A new one replaces them all (new rows), flags 5 with -D on a panel hash.
ZVT_CRYPTED_PASSWORD=newhash row dom+aliases+info 0 "$info_rows
passwd +users|5|1|info||newhash|0
passwd +users|6|2|info||newhash|0
passwd +users|7|3|info||newhash|0
passwd +users|8|1|sales||newhash|0
passwd +users|9|2|sales||newhash|0
passwd +users|10|3|sales||newhash|0" --set-password --domain-name=$D --mailname=info -D
row dom+aliases+info+nopasswd 1 "stderr ~ Unable to open database" --set-password --domain-name=$D --mailname=info

# --- quota and size --------------------------------------------------------------------------

row dom+aliases+info 0 "
$(maildirsize - $D/info 0S,0C | head -1)
$(maildirsize + $D/info $((5000 - ATT))S,0C | head -1)" --set-mailbox-disk-quota --domain-name=$D --mailname=info --disk-quota=5000
row dom+aliases+info 0 "" --set-mailbox-disk-quota --domain-name=$D --mailname=info --disk-quota=-1
# Attachments that fill the quota leave the smallest limit, 1 (0 would mean none); a warning
# only when they exceed it.
too_big='WARNING: @attachments directory is big enough to disable delivery!'
for quota in $ATT 0; do
  row dom+aliases+info 0 "
$(maildirsize - $D/info 0S,0C | head -1)
$(maildirsize + $D/info 1S,0C | head -1)
stderr = $([ $quota = 0 ] && echo "$too_big")" \
    --set-mailbox-disk-quota --domain-name=$D --mailname=info --disk-quota=$quota
done
row dom+aliases+info 1 "stderr ~ ^mandatory option \"--disk-quota\" is not specified$" --set-mailbox-disk-quota --domain-name=$D --mailname=info

# Two messages, one whose name gives its size; no maildirsize, so the Maildir is scanned. The
# attachments count whole, a link as itself and not as what it points at.
use_fixture dom+aliases+info
rm "$ROOT/$D/info/Maildir/maildirsize"
printf 'x%.0s' {1..100} > "$ROOT/$D/info/Maildir/cur/1.1.host:2,S"
printf 'y' > "$ROOT/$D/info/Maildir/new/2.2.host,S=2048"
mkdir "$ROOT/$D/info/@attachments/sub" && head -c 5000 /dev/zero > "$ROOT/$D/info/@attachments/sub/a"
ln -s /etc/services "$ROOT/$D/info/@attachments/l"
attachments() { find "$ROOT/$D/info/@attachments" -printf "$1\n" | awk -v m="$2" '{ s += $1 * m } END { print s }'; }
run --get-mailbox-size --domain-name=$D --mailname=info
expect_status 0 "mailbox size"
expect_stdout "$(($(attachments %s 1) + 2148))" "mailbox size: the number and no line end"
run --get-mailbox-size --in-blocks --domain-name=$D --mailname=info
expect_status 0 "mailbox size in blocks"
expect_stdout "$(($(attachments %b 512) + 2148))" "mailbox size in blocks"
run --get-mailbox-size --domain-name=$D --mailname=nobody
expect_status 1 "size of a mailbox that does not exist"

# --- aliases ---------------------------------------------------------------------------------

row dom+aliases+info 0 "
$(addresses + support info@$D "${A2[@]}")
passwd +users|5|1|support||$HASH|0
handlers +handlers|2|1|1|10|spam|support@$D|/bin/spam|none" --add-alias --domain-name=$D --mailname=info --alias=Support
# An alias of another mailname moves; boss has no password, so none is copied.
row dom+aliases+info 0 "
$(addresses - sales info@$D "${A2[@]}")
$(addresses + sales boss@$D "${A2[@]}")" --add-alias --domain-name=$D --mailname=boss --alias=sales
row dom+aliases+info 0 "
$(addresses - sales info@$D "${A2[@]}")
$(snapshot passwd | grep '|sales|' | sed 's/^/passwd -/')
handlers -handlers|2|1|1|10|spam|sales@$D|/bin/spam|none" --remove-alias --domain-name=$D --mailname=info --alias=sales
row dom+aliases+info 0 "" --remove-alias --domain-name=$D --mailname=info --alias=nosuch
# The records are gone before the password store fails; the handlers stay.
row dom+aliases+info+nopasswd 1 "
$(addresses - sales info@$D "${A2[@]}")
stderr ~ Unable to open database" --remove-alias --domain-name=$D --mailname=info --alias=sales

# --- redirects -------------------------------------------------------------------------------

row dom+aliases+info 0 "${qmail}&boss@xn--bcher-kva.example" --add-redirect --domain-name=$D --mailname=info --redirect-email=Boss@bücher.example
row dom+aliases+info 0 "files -$D/info/.qmail: &chief@other.test" --remove-redirect --domain-name=$D --mailname=info --redirect-email=chief@other.test

# --- autoresponder ---------------------------------------------------------------------------

responder() { echo "handlers $1handlers|2|1|1|90|autoresponder|$2@$D|/usr/local/zvt/handlers/hooks/autoresponder|responder"; }
row dom+aliases+info 0 "$(responder + info; responder + sales)" --set-autoresponder --domain-name=Example.com --mailname="info, sales"
row dom+aliases+info+responding 0 "$(responder - info)" --reset-autoresponder --domain-name=$D --mailname=info
# A refused name is the hook's failure, passed through as the status; a refused domain never
# reaches it.
row dom+aliases+info 255 "" --set-autoresponder --domain-name=$D --mailname="info,../x"
row dom+aliases+info 1 "stderr ~ invalid domain name" --set-autoresponder --domain-name="$D/x" --mailname=info

finish
