# The server-wide mail settings commands and the feature report: main.cf through the real
# postconf, the blacklist table through postmap, the SPF files; an admin's own items survive.
ROWS_NO_PANEL=1  # no command here reads the panel database
. "$MAILRIG_TESTS/scenario/rows.sh"

sha() { printf '%s' "$1" | sha1sum | cut -d' ' -f1; }

# A server an admin has tuned by hand: a policy service among the recipient restrictions, an
# extra trusted network, client restrictions of their own beside an RBL check.
fixture admin '
postconf -e "smtpd_recipient_restrictions = permit_mynetworks, reject_rbl_client old.example, check_policy_service inet:127.0.0.1:10031, reject_unauth_destination"
postconf -e "mynetworks = 127.0.0.0/8, 192.0.2.0/24, [::1]/128"
postconf -e "smtpd_client_restrictions = permit_mynetworks, reject_unknown_client_hostname, reject_rbl_client old.example"
postconf -e "message_size_limit = 20480000"'
fixture blacklisted 'mailrig_ok --add-badmailfrom --domain-name=spam.example'
fixture spf 'printf %s neutral > /etc/zvt-spf/spfbehavior; printf %s "v=spf1 -all" > /etc/zvt-spf/spfrules'

MYNET='maincf -mynetworks = 127.0.0.0/8, 192.0.2.0/24, [::1]/128'
# --- white networks: added once, in Postfix's own notation, netmasks up to 128
row admin 0 "$MYNET
maincf +mynetworks = 127.0.0.0/8, 192.0.2.0/24, [::1]/128, 10.0.0.0/24" --add-whitelist --ip-address=10.0.0.0 --netmask=24
row admin 0 "$MYNET
maincf +mynetworks = 127.0.0.0/8, 192.0.2.0/24, [::1]/128, [2001:db8::1]/128" --add-whitelist --ip-address=2001:db8::1 --netmask=128
row admin 0 "$MYNET
maincf +mynetworks = 127.0.0.0/8, 192.0.2.0/24, [::1]/128, 0.0.0.0/0" --add-whitelist --ip-address=0.0.0.0 --netmask=0
row admin 0 '' --add-whitelist --ip-address=192.0.2.0 --netmask=24
row admin 1 "stderr ~ ^the argument \('129'\) for option '--netmask' is invalid" --add-whitelist --ip-address=10.0.0.0 --netmask=129
row admin 1 "stderr ~ invalid network '10.0.0.0/33'" --add-whitelist --ip-address=10.0.0.0 --netmask=33
row admin 1 "stderr ~ invalid network '10.0.0.1/24'" --add-whitelist --ip-address=10.0.0.1 --netmask=24
row admin 1 "stderr ~ invalid network '10.0.0.0\\\\x0a, 0.0.0.0/0/8'" --add-whitelist --ip-address=$'10.0.0.0\n, 0.0.0.0/0' --netmask=8
row admin 1 'stderr ~ mandatory option "--netmask" is not specified' --add-whitelist --ip-address=10.0.0.0

row admin 0 "$MYNET
maincf +mynetworks = 127.0.0.0/8, [::1]/128" --remove-whitelist --ip-address=192.0.2.0 --netmask=24
row admin 0 '' --remove-whitelist --ip-address=198.51.100.0 --netmask=24
# Loopback networks are never removed, whatever the form of the address.
row admin 0 '' --remove-whitelist --ip-address=127.0.0.0 --netmask=8
row admin 0 '' --remove-whitelist --ip-address=0:0:0:0:0:0:0:1 --netmask=128
row admin 1 "stderr ~ invalid IP address 'hash:/var/spool/postfix/quelt/poplock'" --remove-whitelist --ip-address=hash:/var/spool/postfix/quelt/poplock --netmask=0

# --- sender blacklist: ASCII, lower case, one REJECT record; hostile names change nothing (every
# class of them: hostile inputs)
row fresh 0 'blacklists +spam.example	REJECT' --add-badmailfrom --domain-name=Spam.Example
row blacklisted 0 'blacklists +xn--bcher-kva.example	REJECT' --add-badmailfrom --domain-name=bücher.example
row blacklisted 0 '' --add-badmailfrom --domain-name=spam.example
row blacklisted 1 "stderr ~ invalid domain name 'x.example\\\\x0aevil.example'" --add-badmailfrom --domain-name=$'x.example\nevil.example'
row blacklisted 1 "stderr ~ invalid domain name ''" --add-badmailfrom --domain-name ''
row blacklisted 0 'blacklists -spam.example	REJECT' --remove-badmailfrom --domain-name=SPAM.example
row blacklisted 0 '' --remove-badmailfrom --domain-name=other.example

# --- SPF files: each given value alone, byte for byte, without a newline
row fresh 0 "other +/etc/zvt-spf/spfbehavior $(sha 3)
other +/etc/zvt-spf/spfrules $(sha 'v=spf1 a mx ?all')
other +/etc/zvt-spf/spfguess $(sha 'v=spf1 a/24 mx/24 ptr ?all')
other +/etc/zvt-spf/spfexp $(sha 'Please see http://www.openspf.org/why.html?sender=%{S}&ip=%{I}')" \
  --update-spf --spf-behavior=3 '--spf-rules=v=spf1 a mx ?all' '--spf-guess=v=spf1 a/24 mx/24 ptr ?all' \
  '--spf-exp=Please see http://www.openspf.org/why.html?sender=%{S}&ip=%{I}'
row spf 0 "other -/etc/zvt-spf/spfrules $(sha 'v=spf1 -all')
other +/etc/zvt-spf/spfrules $(sha 'include:spf.example')" --update-spf --spf-rules=include:spf.example
row spf 0 "other -/etc/zvt-spf/spfbehavior $(sha neutral)
other +/etc/zvt-spf/spfbehavior $(sha '')" --update-spf --spf-behavior ''
row spf 0 '' --update-spf
row spf 1 "stderr ~ invalid spf-exp value 'a\\\\x0ab'" --update-spf --spf-rules=new --spf-exp=$'a\nb'
# A file that cannot be written stops the update there: the files before it stay written.
fixture spf-broken 'mkdir /etc/zvt-spf/spfrules'
row spf-broken 1 "other +/etc/zvt-spf/spfbehavior $(sha b)
stderr ~ ^Unable to open file /etc/zvt-spf/spfrules for writing
stderr ~ ^Unable to update 'spf_rules' parameter
stdout ~ ^Unable to update 'spf_rules' parameter" --update-spf --spf-behavior=b --spf-rules=x --spf-guess=y

# --- size queries print main.cf's numbers
row admin 0 'stdout = 20480000' --get-max-letter-size
row fresh 0 'stdout = 10240000' --get-max-letter-size
row fresh 0 'stdout = 51200000' --get-mailbox-size-limit
fixture unlimited 'postconf -e mailbox_size_limit=0'
row unlimited 0 'stdout = 0' --get-mailbox-size-limit
fixture bad-limit 'postconf -e mailbox_size_limit=lots'
row bad-limit 1 'stderr ~ ^Fatal error: boost::wrapexcept<boost::bad_lexical_cast>' --get-mailbox-size-limit

# --- the feature report: 59 lines in this order, text values quoted
features() {
  local name
  for name in MailName_SetName MailName_SetDomain MailName_Quota MailName_SetQuota MailName_Size \
      MailName_Password MailName_SetPassword MailName_Postbox MailName_SetPostbox MailName_Forward \
      MailName_MultiForward MailName_SetForward MailName_AutoResponder MailName_SetAutoResponder \
      MailName_Aliases Domain_SetName Domain_Enable Domain_SetEnable Domain_Quota Domain_SetQuota \
      Domain_Bounce Domain_SetBounce Domain_Catch Domain_SetCatch Domain_Reject Common_BadMail \
      Common_MaxLetterSize Common_SetMaxLetterSize Relay Relay_Set Relay_Open Relay_Closed \
      Relay_AuthorizationIsRequired Relay_AuthType_None Relay_AuthType_POP3_SMTP; do
    printf "\$features['%s'] = true;\\\\n" "$name"
  done
  printf "\$features['Relay_AuthType_POP3'] = false;\\\\n"
  for name in Relay_AuthType_SMTP Relay_POP3_LockTime Relay_WhiteList Relay_WhiteList_Mask \
      Relay_BlackList Relay_WhiteList_BlackList MapsProtection SetMapsProtection; do
    printf "\$features['%s'] = true;\\\\n" "$name"
  done
  printf "\$features['AccountsFormat_%s'] = %s;\\\\n" Simple false Compound true Both false
  for name in AccountsFormat_Set Mail_Send Mail_Attachments Mail_Forward; do
    printf "\$features['%s'] = true;\\\\n" "$name"
  done
  printf "\$features['%s'] = \"%s\";\\\\n" SMTP_Server Postfix IMAP_POP3_Server Courier-IMAP \
    SMTP_Server_package postfix IMAP_POP3_Server_package courier-imap
  printf "\$features['%s'] = %s;\\\\n" Message_Submission true Message_Submission_all_IP true \
    Message_Submission_Dedicated_IP false
  printf "\$features['SDD_Transport_Maps'] = %s;" "$1"
}
# The installed Postfix decides the last line: sender-dependent transports came after 2.7.
IFS=. read -r major minor _ <<< "$(postconf -d -h mail_version)"
sdd=false; { [ "$major" -gt 2 ] || { [ "$major" -eq 2 ] && [ "$minor" -gt 7 ]; }; } && sdd=true
row fresh 0 "stdout = $(features $sdd)" --features
expect_eq "$(features true | sed 's/\\n/\n/g' | grep -c features)" 59 "lines of the expected report"

# Versions the installed Postfix cannot show: a postconf that answers only mail_version.
fake=$MAILRIG_SANDBOX_ROOT/postconf-version
for version in 2.6.5 2.7 2.7.1 3.0; do
  printf '#!/bin/sh\n[ "$*" = "-d -h mail_version" ] && echo %s\n' "$version" > "$fake"
  chmod 755 "$fake"
  mount --bind "$fake" /usr/sbin/postconf
  run --features
  umount /usr/sbin/postconf
  want=true; [ "$version" = 2.6.5 ] && want=false
  expect_eq "$(tail -1 "$OUT")" "\$features['SDD_Transport_Maps'] = $want;" "feature report for Postfix $version"
done
printf '#!/bin/sh\necho "postconf: fatal: no version" >&2; exit 1\n' > "$fake"
mount --bind "$fake" /usr/sbin/postconf
run --features
umount /usr/sbin/postconf
expect_status 1 "feature report without postconf"
expect_eq "$(grep -c features "$OUT")" 0 "no half report when postconf fails"

# --- commands that hand over to the services. Stand-ins for the init scripts note, in order,
# which service was asked to do what.
SERVICES=/usr/local/zvt/services.log
for service in postfix pc-remote courier-imap; do
  printf '#!/bin/sh\necho "%s $1" >> %s\n' "$service" "$SERVICES" > "/etc/init.d/$service"
  chmod 755 "/etc/init.d/$service"
done
reloaded="other +$SERVICES $(sha $'postfix reload\n')"

row admin 0 "maincf -message_size_limit = 20480000
maincf +message_size_limit = 30000000
$reloaded" --set-max-letter-size --size=30000000
# 0 stands for the mailbox size limit.
row admin 0 "maincf -message_size_limit = 20480000
maincf +message_size_limit = 51200000
$reloaded" --set-max-letter-size --size=0
row admin 1 "stderr ~ invalid size '-1'" --set-max-letter-size --size=-1
row admin 1 'stderr ~ mandatory option "--size" is not specified' --set-max-letter-size

CLIENT='maincf -smtpd_client_restrictions = permit_mynetworks, reject_unknown_client_hostname, reject_rbl_client old.example'
row admin 0 "$CLIENT
maincf +smtpd_client_restrictions = permit_mynetworks, reject_unknown_client_hostname, reject_rbl_client zen.example, reject_rbl_client bl.example
$reloaded" --set-maps-protection '--maps-zones=zen.example, bl.example'
row admin 0 "$CLIENT
maincf +smtpd_client_restrictions = permit_mynetworks, reject_unknown_client_hostname
$reloaded" --set-maps-protection
# Restrictions separated by blanks alone lose only their RBL checks.
fixture blank-list 'postconf -e "smtpd_client_restrictions = permit_mynetworks reject_rbl_client old.example reject_unknown_client_hostname"'
row blank-list 0 "maincf -smtpd_client_restrictions = permit_mynetworks reject_rbl_client old.example reject_unknown_client_hostname
maincf +smtpd_client_restrictions = permit_mynetworks reject_unknown_client_hostname, reject_rbl_client zen.example
$reloaded" --set-maps-protection --maps-zones=zen.example
row admin 1 "stderr ~ invalid domain name 'zen.example\\\\x0areject'" --set-maps-protection --maps-zones=$'zen.example\nreject'
row admin 1 "stderr ~ invalid domain name 'zen.example=127.0.0.2;'" --set-maps-protection '--maps-zones=zen.example=127.0.0.2;'

# Courier-IMAP's own environment files, under the root the panel configures.
CDIR=/usr/local/zvt/courier/etc/courier-imap
fixture courier '
printf "COURIER_IMAP_ROOT_D /usr/local/zvt/courier\n" >> /etc/zvt/zvt.conf
mkdir -p '$CDIR' && cp /etc/courier/imapd /etc/courier/imapd-ssl /etc/courier/pop3d /etc/courier/pop3d-ssl '$CDIR'/
printf "POPAUTH=1\nRELAYCLIENT=\nSHORTNAMES=1\nPOPAUTH=1\n" >> '$CDIR'/imapd'
courier_sum() { { cat "/etc/courier/$1"; printf "$2"; } | sha1sum | cut -d' ' -f1; }
row courier 0 "other -$CDIR/imapd $(courier_sum imapd 'POPAUTH=1\nRELAYCLIENT=\nSHORTNAMES=1\nPOPAUTH=1\n')
other +$CDIR/imapd $(courier_sum imapd 'POPAUTH=1\nRELAYCLIENT=\nPOPAUTH=1\n')
other +$SERVICES $(sha $'courier-imap restart\n')" --set-accounts-format --account-format=compound
row courier 1 'stderr ~ ^Fatal error: quelt::NotSupportedError\(short account-format is not supported for Postfix\)$' --set-accounts-format --account-format=both
# Files the installation lacks are said and skipped.
row fresh 0 "other +$SERVICES $(sha $'courier-imap restart\n')
stdout ~ ^Unable to open //etc/courier-imap/imapd: No such file or directory" --set-accounts-format --account-format=compound

# --set-mail-params touches root's crontab, the Courier files, the milter's switch and main.cf,
# then restarts the milter and reloads Postfix. Root's crontab gains an installation stamp, so
# `other` is checked file by file after each row.
fixture cron '
mkdir -p /var/spool/cron/crontabs && chown root:crontab /var/spool/cron/crontabs && chmod 1730 /var/spool/cron/crontabs
printf "# nightly backup\n30 2 * * *\t/usr/local/bin/backup\n# 0 * * * * /usr/lib/quelt-9.0/postfix-poplockdb-clean\n" | crontab -u root -'
fixture milter 'printf "pc_milter_port=12345\npc_milter_pop_before_smtp=0\n" > /etc/sysconfig/zvt-pc-remote'
ADMIN_CRON=$'# nightly backup\n30 2 * * *\t/usr/local/bin/backup\n# 0 * * * * /usr/lib/quelt-9.0/postfix-poplockdb-clean'
RCPT='maincf -smtpd_recipient_restrictions = permit_mynetworks, reject_rbl_client old.example, check_policy_service inet:127.0.0.1:10031, reject_unauth_destination'
NO_RELAY='check_client_access pcre:/var/spool/postfix/quelt/no_relay.re'
imapd_now() { grep -E '^(POPAUTH|RELAYCLIENT|SHORTNAMES|POPLOCK_TIME)=' "$CDIR/imapd" | tr '\n' ' '; }

row admin+courier+cron+milter 0 "$RCPT
maincf +smtpd_recipient_restrictions = permit_mynetworks, $NO_RELAY, reject_unauth_destination, check_policy_service inet:127.0.0.1:10031
maincf +smtpd_sasl_auth_enable = no
other *" --set-mail-params
expect_eq "$(crontab -l -u root)" "$ADMIN_CRON" "crontab without the cleaner"
expect_eq "$(imapd_now)" "" "Courier settings all removed"
expect_eq "$(cmp "$CDIR/pop3d" /etc/courier/pop3d && echo same)" same "pop3d without the settings"
expect_eq "$(cat /etc/sysconfig/zvt-pc-remote)" "pc_milter_port=12345" "milter switch off"
expect_eq "$(cat $SERVICES)" $'courier-imap restart\npc-remote restart\npostfix reload' "service actions, in order"

row admin+courier+cron+milter 0 "$RCPT
maincf +smtpd_recipient_restrictions = permit_mynetworks, $NO_RELAY, permit_sasl_authenticated, reject_unauth_destination, check_policy_service inet:127.0.0.1:10031
maincf +smtpd_sasl_auth_enable = yes
maincf -mynetworks = 127.0.0.0/8, 192.0.2.0/24, [::1]/128
maincf +mynetworks = 127.0.0.0/8, 192.0.2.0/24, [::1]/128, hash:/var/spool/postfix/quelt/poplock
other *" --set-mail-params --smtpauth --popauth --poplock-time=25
cron=$(crontab -l -u root)
expect_eq "$(head -3 <<< "$cron")" "$ADMIN_CRON" "admin's crontab lines kept"
# The minutes start below the period and follow every 25 minutes to the end of the hour.
entry=$(sed -n 4p <<< "$cron")
checks=$((checks + 1))
if [[ $entry =~ ^([0-9,]+)$'\t*\t*\t*\t*\t/usr/lib/quelt-9.0/postfix-poplockdb-clean'$ ]]; then
  IFS=, read -ra minutes <<< "${BASH_REMATCH[1]}"
  last=${minutes[-1]}
  [ "${minutes[0]}" -lt 25 ] && [ "$last" -lt 60 ] && [ $((last + 25)) -ge 60 ] &&
    [ "$(seq -s, "${minutes[0]}" 25 59)" = "${BASH_REMATCH[1]}" ] ||
    fail "cleaner minutes every 25 from a start below 25: ${BASH_REMATCH[1]}"
else fail "cleaner entry: '$entry' in $(wc -l <<< "$cron") lines"; fi
expect_eq "$(imapd_now)" "POPAUTH=1 POPLOCK_TIME=25 " "Courier with POP before SMTP, without short names"
expect_eq "$(tail -2 "$CDIR/pop3d")" $'POPAUTH=1\nPOPLOCK_TIME=25' "pop3d gains the settings at its end"
expect_eq "$(cat /etc/sysconfig/zvt-pc-remote)" $'pc_milter_port=12345\npc_milter_pop_before_smtp=1' "milter switch on"
# Twice: one cleaner entry, one POP-before-SMTP table.
mailrig_ok --set-mail-params --smtpauth --popauth --poplock-time=90
expect_eq "$(crontab -l -u root | grep -c '^[0-9].*postfix-poplockdb-clean$')" 1 "one cleaner entry"
expect_eq "$(crontab -l -u root | grep -v '^#' | grep -cE '^[0-9]+'$'\t.*clean$')" 1 "hourly cleaner"
expect_eq "$(crontab -l -u root | grep -vc '^#')" 2 "the cleaner beside the backup"
expect_eq "$(postconf -h mynetworks)" "127.0.0.0/8, 192.0.2.0/24, [::1]/128, hash:/var/spool/postfix/quelt/poplock" "poplock table once"
expect_eq "$(cat /etc/sysconfig/zvt-pc-remote)" $'pc_milter_port=12345\npc_milter_pop_before_smtp=1' "one milter switch line"

row admin+courier+cron+milter 0 "$RCPT
maincf +smtpd_recipient_restrictions = permit, $NO_RELAY, reject, check_policy_service inet:127.0.0.1:10031
other *" --set-mail-params --relayclient
expect_eq "$(imapd_now)" "RELAYCLIENT= " "Courier lets clients relay"

row admin+courier+cron+milter 1 'stderr ~ ^Fatal error: quelt::NotSupportedError\(short account-format is not supported for Postfix\)$' --set-mail-params --smtpauth --shortnames
# A crontab that cannot be read is never replaced, and the command stops before any other change.
fixture broken-cron 'rm -rf /var/spool/cron && touch /var/spool/cron'
row admin+courier+milter+broken-cron 1 'stderr ~ Unable to execute: crontab -l -u root' --set-mail-params --smtpauth --popauth

# --- after all of it Postfix still reads main.cf without a word
use_fixture admin
for cmd in "--add-whitelist --ip-address=10.1.0.0 --netmask=16" "--add-whitelist --ip-address=2001:db8:: --netmask=32" \
           "--remove-whitelist --ip-address=192.0.2.0 --netmask=24" "--add-badmailfrom --domain-name=spam.example" \
           "--set-maps-protection --maps-zones=zen.example,bl.example" "--set-max-letter-size --size=0" \
           "--set-mail-params --smtpauth --popauth --poplock-time=30" "--set-mail-params --relayclient"; do
  # shellcheck disable=SC2086  # words of our own
  mailrig_ok $cmd
done
expect_eq "$(postfix check 2>&1)" "" "postfix check after the settings commands"

finish
