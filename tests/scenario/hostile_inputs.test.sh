# Hostile values in every name, address, path, IP, number and free-text option of the domain,
# mailname, alias, redirect, attachment, handler, service and settings commands: each is refused
# with a clear error before any store changes (the row checks every store byte for byte), or acts
# on the one lower-case ASCII name it stands for.
. "$MAILRIG_TESTS/scenario/rows.sh"

hosted_state() {
  mailrig_ok --add-domain --domain-name=base.test
  mailrig_ok --add-badmailfrom --domain-name=spam.test
  panel "INSERT INTO domains (id, name) VALUES (1, 'base.test'); INSERT INTO mail (id, mail_name, dom_id, mbox_quota) VALUES (10, 'info', 1, -1);"
  passwd_sql "INSERT INTO domains (name, status) VALUES ('base.test', 0);
              INSERT INTO users (dom_id, name, status) SELECT id, 'info', 0 FROM domains WHERE name='base.test';"
  handlers_sql "INSERT INTO handlers VALUES (2, 1, 1, 10, 'h', 'info@base.test', '/bin/true', 'none');"
  mkdir -p /var/qmail/mailnames/base.test/info/Maildir/{cur,new,tmp}
  chown -R popuser:popuser /var/qmail/mailnames/base.test
  printf 'x' > /tmp/attached
}
fixture hosted hosted_state
export ZVT_PASSWORD=secret

long=$(printf 'a%.0s' {1..300})
# Never a mailname, an alias or the local part of an address ("'", "&", "+", "," and a leading
# "-" are allowed there, so they are not in this list).
bad_local=(
  $'in\nfo' $'info\n' $'\ninfo' $'in\rfo' ' info' 'info ' 'in fo' $'in\tfo' 'in"fo' 'in\fo'
  '$(id)' '`id`' 'a;b' 'a|b' 'a<b' 'a>b' 'a*b' 'a?b' '#a' 'a%b' 'a:b' 'a=b' 'a!b' 'a(b)'
  ../info ../../etc/passwd 'a/b' / . .. .info info. 'in..fo' 'a@b' '@' "$long"
  $'\xff' $'in\xc3' $'\xc0\xae\xc0\xae' 'іnfo' $'in\xc2\xadfo' 'ｉｎｆｏ' $'\x01a' $'a\x7f' $'a\x1b[31m'
)
# Never a domain part (the domain commands' own list is elsewhere; this is a sample for the
# commands that take a domain beside a mailname).
bad_domain=(
  $'base.test\nx.test' 'base.test ' 'a b.test' '../base.test' 'base.test/..' '$(id).test' 'a;b.test'
  'a_b.test' -x.test base..test "$long.test" $'\xff.test' '' 'a@base.test' 'base.test:25'
)
# Never an address.
bad_address=(
  $'x@y.test\nroot@base.test' 'x y@y.test' 'x@y.test ' ' x@y.test' '@y.test' 'x@' 'x@@y.test'
  'x@y@z.test' 'x@-y.test' 'x@y..test' '"x"@y.test' 'x@y.test;id' 'x@y.test,z@y.test' $'x\t@y.test'
  'x@../etc' 'x@y.test/x' '$(id)@y.test' $'x\xff@y.test' 'x@ｙ.test/' "$long@y.test" 'x@[127.0.0.1]'
)
# Never an attachment file name (a name in the mailname's attachment folder).
bad_file=(. .. ../x ../../../etc/passwd 'a/b' /etc/passwd $'a\nb' '' "$long$long")

n=0
try() { # try FIXTURE REGEX ARGS...: the command is refused as REGEX says; no store changes
  local fixture=$1 regex=$2; shift 2
  row "$fixture" 1 "stderr ~ $regex" "$@"
  n=$((n + 1))
}
NAMEERR='(^Fatal error: (std::invalid_argument|quelt::idn::IdnaError)|invalid|is not specified|for option|^Unable to)'

# Domains through the five domain commands: every value through the two that create and delete
# trees, every fourth through the others, which share the same parse.
refused=(
  "‥/‥/‥/etc/victim" "․․" . .. / /etc/victim ../../etc/victim base.test/info base.test/.. '~root'
  $'inj.test\nroot@base.test attacker@evil.example' $'base.test\n' $'a.test\rb.test' 'gmail.com hijack'
  ' base.test' $'base.test\t' '"q.test' "q'.test" '#x.test' '$(reboot).test' '`id`.test' 'a;b.test'
  'a|b.test' 'a*b.test' 'a_b.test' 'a@b.test' 'a:b.test' 'a,b.test' '[::1]' $'\x01a.test' $'a\x7f.test'
  $'a\x1b[31m.test' $'\xff.test' $'\xc0\xae\xc0\xae' -x.test x-.test base.test. .base.test base..test 'xn--.test'
  "$(printf 'a%.0s' {1..64}).test" "$(printf 'abcdefghi.%.0s' {1..25})test" -- --help
)
for cmd in --add-domain --remove-domain --turn-on-domain --turn-off-domain --set-domain-disk-quota; do
  extra=(); [ "$cmd" = --set-domain-disk-quota ] && extra=(--disk-quota=5)
  step=1; case $cmd in --turn-*|--set-*) step=4 ;; esac
  for ((i = 0; i < ${#refused[@]}; i += step)); do
    try hosted 'Fatal error: (std::invalid_argument\(invalid domain name|quelt::idn::IdnaError)' \
      "$cmd" "--domain-name=${refused[i]}" "${extra[@]}"
  done
  # An empty name given as a word of its own (attached to "=" it is an option error).
  try hosted "Fatal error: std::invalid_argument\\(invalid domain name ''\\)" "$cmd" --domain-name '' "${extra[@]}"
done

# Mailnames: every value through the commands that create or move trees, every fifth through
# the others, which share the same check.
for ((i = 0; i < ${#bad_local[@]}; i++)); do
  v=${bad_local[i]}
  try hosted "$NAMEERR" --add-mailname --domain-name=base.test --mailname="$v"
  try hosted "$NAMEERR" --rename-mailname --domain-name=base.test --old-mailname=info --new-mailname="$v"
  try hosted "$NAMEERR" --add-alias --domain-name=base.test --mailname=info --alias="$v"
  ((i % 5 == 0)) || continue
  try hosted "$NAMEERR" --remove-mailname --domain-name=base.test --mailname="$v"
  try hosted "$NAMEERR" --rename-mailname --domain-name=base.test --old-mailname="$v" --new-mailname=office
  try hosted "$NAMEERR" --remove-alias --domain-name=base.test --mailname=info --alias="$v"
  try hosted "$NAMEERR" --add-mailbox --domain-name=base.test --mailname="$v"
  try hosted "$NAMEERR" --remove-mailbox --domain-name=base.test --mailname="$v"
  try hosted "$NAMEERR" --set-password --domain-name=base.test --mailname="$v"
  try hosted "$NAMEERR" --set-mailbox-disk-quota --domain-name=base.test --mailname="$v" --disk-quota=5
  try hosted "$NAMEERR" --get-mailbox-size --domain-name=base.test --mailname="$v"
  try hosted "$NAMEERR" --add-redirect --domain-name=base.test --mailname="$v" --redirect-email=x@y.test
  try hosted "$NAMEERR" --add-attachment --domain-name=base.test --mailname="$v" --file-name=/tmp/attached --attachment-file-name=a
done
# Domains beside a mailname (add-redirect checks its domain in the parse it shares with add-alias).
for v in "${bad_domain[@]}"; do
  try hosted "$NAMEERR" --add-mailname --domain-name="$v" --mailname=info2
  try hosted "$NAMEERR" --rename-mailname --domain-name="$v" --old-mailname=info --new-mailname=office
  try hosted "$NAMEERR" --add-alias --domain-name="$v" --mailname=info --alias=a2
  try hosted "$NAMEERR" --add-badmailfrom --domain-name="$v"
  try hosted "$NAMEERR" --remove-badmailfrom --domain-name="$v"
done
# Addresses.
for v in "${bad_address[@]}"; do
  try hosted "$NAMEERR" --add-redirect --domain-name=base.test --mailname=info --redirect-email="$v"
  try hosted "$NAMEERR" --remove-redirect --domain-name=base.test --mailname=info --redirect-email="$v"
  try hosted "$NAMEERR" --add-handler --handler-name=f --priority=5 --executable=/bin/f --context=c \
    --handler-type=recipient --handler-type-name="$v" --hook=before-local
done
# Attachment names never leave the attachment folder.
for v in "${bad_file[@]}"; do
  try hosted "$NAMEERR" --add-attachment --domain-name=base.test --mailname=info --file-name=/tmp/attached --attachment-file-name="$v"
  # (a name too long for any file is simply not there to remove)
  [ "${#v}" -gt 255 ] ||
    try hosted "$NAMEERR" --remove-attachment --domain-name=base.test --mailname=info --attachment-file-name="$v"
done
# Handler names, executables and contexts reach the database only as data, and a line break
# never; types and hooks are one of their words.
for option in --handler-name --executable --context; do
  for v in $'a\nb' $'a\rb' ''; do
    args=(--handler-name=f --executable=/bin/f --context=c)
    args=("${args[@]/#$option=*/$option=$v}")
    try hosted "$NAMEERR" --add-handler --priority=5 "${args[@]}" --handler-type=global --hook=before-queue
  done
done
for v in Global 'global;' '' "$long"; do
  try hosted "for option '--handler-type'|invalid|is not specified" --add-handler --handler-name=f --priority=5 \
    --executable=/bin/f --context=c --handler-type="$v" --hook=before-queue
done
# A hook outside the list is stored as the unknown queue, only data in the database (a priority
# that is no number, and SQL text in the free-text options: rows of the handler commands).
for v in before-queue2 'before-local ' ../x $'x\ny'; do
  row hosted 0 'handlers +handlers|4|4|1|5|f|all|/bin/f|c' --add-handler --handler-name=f --priority=5 \
    --executable=/bin/f --context=c --handler-type=global --hook="$v"
  n=$((n + 1))
done
try hosted "for option '--hook'" --add-handler --handler-name=f --priority=5 --executable=/bin/f --context=c --handler-type=global --hook=
# Numbers outside their type, or not numbers (the domain commands share one --disk-quota).
for v in 9223372036854775808 -9223372036854775809 99999999999999999999 abc 1e5 '' ' 5' 5k 0x10; do
  try hosted "for option '--disk-quota'" --set-domain-disk-quota --domain-name=base.test --disk-quota="$v"
  try hosted "for option '--disk-quota'" --add-mailname --domain-name=base.test --mailname=info2 --disk-quota="$v"
  try hosted "for option '--disk-quota'" --set-mailbox-disk-quota --domain-name=base.test --mailname=info --disk-quota="$v"
  try hosted "for option '--size'" --set-max-letter-size --size="$v"
done
for v in 32768 -32769 99999 abc '' 1.5; do
  try hosted "for option '--poplock-time'" --set-mail-params --poplock-time="$v"
done
# Networks: not an address, a mask out of range, or something that would add to the list.
for ip in $'10.0.0.0\n0.0.0.0' '10.0.0.0 0.0.0.0' '10.0.0.0,0.0.0.0' 256.0.0.0 10.0.0 ::g '10.0.0.0/8' \
    '' -10.0.0.0 localhost '10.0.0.0 ' '[10.0.0.0]' 'hash:/etc/passwd' '$(id)'; do
  try hosted 'invalid (IP address|network)|for option' --add-whitelist --ip-address="$ip" --netmask=8
  try hosted 'invalid (IP address|network)|for option' --remove-whitelist --ip-address="$ip" --netmask=8
done
for mask in 129 -1 65536 abc '8 9' '' + 0x8 8.0 99999999999; do
  try hosted "for option '--netmask'" --add-whitelist --ip-address=10.0.0.0 --netmask="$mask"
done
# Words of a fixed set.
for v in Both short '' 'both ' $'both\n' '-both'; do
  try hosted "for option '--account-format'|not supported" --set-accounts-format --account-format="$v"
done
for v in MTA 'smtp;id' '' 'all ' $'smtp\nimap' ../mta; do
  try hosted "unknown component|for option '--mail-component'" --status-service --mail-component="$v"
  try hosted "unknown component|for option '--mail-component'" --stop-service --mail-component="$v"
done
# Free text that another program reads line by line.
for v in $'a\nb' $'a\rb'; do
  try hosted "invalid .*value" --update-spf --spf-behavior="$v"
  try hosted "invalid .*value" --update-spf --spf-rules="$v"
  try hosted "invalid|for option" --set-maps-protection --maps-zones="$v"
done
# Options this command does not take are refused before anything runs.
for v in --domain-name=x.test '--mailname=../x' --disk-quota=5 '--rm -rf /'; do
  try hosted "unrecognised option|unrecognized option|invalid|too many positional" --features "$v"
done

# Another spelling of a name acts on the one lower-case ASCII name it stands for.
added="$(domain_lines + new.test)
signals +trivial-rewrite INT"
for spelling in NEW.TEST New.Test "new｡test" "ｎｅｗ.test" "NEW．TEST" \
    $'ne\xc2\xadw.test'; do
  row hosted 0 "$added" --add-domain "--domain-name=$spelling"
done
# A slash look-alike is a letter to IDNA: the name becomes one harmless punycode label.
row hosted 0 "$(domain_lines + xn--basetest-h03d)
signals +trivial-rewrite INT" --add-domain "--domain-name=base⁄test"

removed="virtual_domains -base.test	base.test/
$(std - base.test)
tree *
passwd *
handlers -handlers|2|1|1|10|h|info@base.test|/bin/true|none"
for spelling in BASE.TEST Base.Test "ｂａｓｅ.test"; do
  row hosted 0 "$removed" --remove-domain "--domain-name=$spelling"
done

[ ! -e /etc/victim ] || fail "a hostile name reached /etc/victim"
[ -d /var/qmail/mailnames ] || fail "the mail root is gone"
echo "hostile inputs tried: $n"
[ "$n" -ge 600 ] || { echo "too few hostile inputs: $n" >&2; exit 1; }
finish
