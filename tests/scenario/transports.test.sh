# The sender-transport commands end to end: services named from their address pair in
# master.cf beside the admin's own entries (kept byte for byte), the sdd_transport_maps records,
# the Postfix restart that follows, removal by address that spares look-alike names, and
# hostile addresses refused before anything changes.
. "$MAILRIG_TESTS/scenario/rows.sh"
D=example.com
MASTER=/etc/postfix/master.cf

# Postfix as the restart finds it: an init script that notes what it was asked and what the
# stores held then, and a master process whose child is a queue manager.
SERVICES=/usr/local/zvt/services.log
cat > /etc/init.d/postfix <<EOF
#!/bin/sh
echo "postfix \$1 \$(grep -c '^192\.0\.2\.7- ' $MASTER) \$(postmap -q @$D hash:$Q/sdd_transport_maps || echo none)" >> $SERVICES
EOF
chmod 755 /etc/init.d/postfix
cp /usr/bin/sleep "$MAILRIG_SANDBOX_ROOT/qmgr"
(trap 'kill $child; exit' TERM; "$MAILRIG_SANDBOX_ROOT/qmgr" infinity & child=$!; wait) &
mkdir -p /var/spool/postfix/pid && echo "$!" > /var/spool/postfix/pid/master.pid
# restarted STATE...: the services log line of a restart that saw STATE.
restarted() { echo "other +$SERVICES $(printf 'postfix restart %s\n' "$*" | sha1sum | cut -d' ' -f1)"; }

# --- fixtures --------------------------------------------------------------------------------

# The admin's own entries: a content filter with continuation lines and a comment between them,
# and a unix service whose name begins like a transport's.
ADMIN='# content filter, added by hand
127.0.0.1:10025 inet n  -       n       -       -       smtpd
  # no filtering of what comes back
  -o content_filter=
  -o receive_override_options=no_address_mappings
192.0.2.7-relay unix -  -       n       -       -       smtp
  -o smtp_helo_name=relay.example'
fixture admin 'printf "%s\n" "$ADMIN" >> $MASTER'
# Transports of 192.0.2.7, 2001:db8::1 and look-alikes, and the map records using them.
fixture transports '
  for pair in 192.0.2.7/ /2001:db8::1 192.0.2.7/2001:db8::1 192.0.2.70/ /1:2001:db8::1 /::ffff:192.0.2.7 192.0.2.17/; do
    IFS=/ read -r v4 v6 <<< "$pair"
    mailrig_ok --add-domain-to-sender-transport --domain-name=$D ${v4:+--ip4-addr=$v4} ${v6:+--ip6-addr=$v6}
  done
  printf "@a.example 192.0.2.7-:\n@b.example 192.0.2.70-:\n" | postmap -i hash:$Q/sdd_transport_maps
  rm $SERVICES'

# entry NAME IPV4 IPV6 PREFERENCE: the master.cf line of a transport.
entry() { echo "$1 unix - n n - - smtp -o smtp_bind_address=$2 -o smtp_bind_address6=$3 -o smtp_address_preference=$4"; }

# --- --add-domain-to-sender-transport --------------------------------------------------------

row admin 0 "mastercf +$(entry 192.0.2.7- 192.0.2.7 '' ipv4)
sdd_transport_maps +@$D${T}192.0.2.7-:
$(restarted 1 192.0.2.7-:)
$quiet" --add-domain-to-sender-transport --domain-name=Example.COM --ip4-addr=192.0.2.7
# The new line is appended and every other byte of the file stays.
expect_same_file $MASTER <(cat "$STATE/admin/root$MASTER"; entry 192.0.2.7- 192.0.2.7 '' ipv4) "master.cf after an added transport"
# Postfix itself reads the entry back as one service.
expect_eq "$(postconf -M 192.0.2.7-/unix | tr -s ' ')" "$(entry 192.0.2.7- 192.0.2.7 '' ipv4)" "postconf's view of the transport"

row admin 0 "mastercf +$(entry -2001-db8--1 '' 2001:db8::1 ipv6)
sdd_transport_maps +@$D$T-2001-db8--1:
$(restarted 0 -2001-db8--1:)" --add-domain-to-sender-transport --domain-name=$D --ip6-addr=2001:DB8::1
row admin 0 "mastercf +$(entry 192.0.2.7-2001-db8--1 192.0.2.7 2001:db8::1 any)
sdd_transport_maps +@$D${T}192.0.2.7-2001-db8--1:
$(restarted 0 192.0.2.7-2001-db8--1:)" --add-domain-to-sender-transport --domain-name=$D --ip4-addr=192.0.2.7 --ip6-addr=2001:db8::1
# A second domain on the same pair shares the service, rewritten in place; its record changes.
row admin+transports 0 "sdd_transport_maps -@$D${T}192.0.2.17-:
sdd_transport_maps +@$D${T}192.0.2.7-:
$(restarted 1 192.0.2.7-:)" --add-domain-to-sender-transport --domain-name=$D --ip4-addr=192.0.2.7
expect_same_file $MASTER "$STATE/admin+transports/root$MASTER" "master.cf after a transport was added again"

row admin 1 'stderr = Fatal error: quelt::mail::postfix::mailrig_commands::MissingMandatoryOption(mandatory option "--ip4-addr or ip6-addr" is not specified)' \
  --add-domain-to-sender-transport --domain-name=$D
row admin 1 'stderr ~ mandatory option "--domain-name" is not specified' --add-domain-to-sender-transport --ip4-addr=192.0.2.7
# Addresses that would name another service, carry a second master.cf line or word, or are no
# address of their family.
for v4 in 010.0.0.1 192.0.2.07 1.2.3 0x7f.0.0.1 $'192.0.2.7\nsmtp' '192.0.2.7 -o x=y' ' 192.0.2.7' 2001:db8::1 192.0.2.7/24; do
  row admin 1 "stderr ~ invalid IPv4 address" --add-domain-to-sender-transport --domain-name=$D "--ip4-addr=$v4"
done
for v6 in fe80::1%eth0 2001:db8::1/64 192.0.2.7 2001:db8:::1 $'2001:db8::1\n-o' '[2001:db8::1]'; do
  row admin 1 "stderr ~ invalid IPv6 address" --add-domain-to-sender-transport --domain-name=$D "--ip6-addr=$v6"
done
row admin 1 "stderr ~ invalid domain name" --add-domain-to-sender-transport $'--domain-name=example.com\n@evil.test' --ip4-addr=192.0.2.7
row admin 1 "stderr ~ invalid domain name|IdnaError" --add-domain-to-sender-transport --domain-name=../etc --ip4-addr=192.0.2.7

# --- --remove-domain-from-sender-transport: the record goes, the service stays ---------------

row admin+transports 0 "sdd_transport_maps -@$D${T}192.0.2.17-:
$(restarted 1 none)
$quiet" --remove-domain-from-sender-transport --domain-name=EXAMPLE.com
row admin+transports 1 "stderr ~ invalid domain name" --remove-domain-from-sender-transport $'--domain-name=a.example\nb.example'

# --- --remove-sender-transport: every service whose IPv4 or IPv6 part is the address; the rows
# fail on any other master.cf line gone (the look-alikes and the admin's entries stay) ---------

gone_v4="mastercf -$(entry 192.0.2.7- 192.0.2.7 '' ipv4)
mastercf -$(entry 192.0.2.7-2001-db8--1 192.0.2.7 2001:db8::1 any)"
row admin+transports 0 "$gone_v4
$(restarted 0 192.0.2.17-:)
$quiet" --remove-sender-transport --ip-addr=192.0.2.7
gone_v6="mastercf -$(entry -2001-db8--1 '' 2001:db8::1 ipv6)
mastercf -$(entry 192.0.2.7-2001-db8--1 192.0.2.7 2001:db8::1 any)"
for ip in 2001:db8::1 2001:DB8:0:0::1; do
  row admin+transports 0 "$gone_v6
$(restarted 1 192.0.2.17-:)" --remove-sender-transport --ip-addr=$ip
done
row admin+transports 0 "mastercf -$(entry ---ffff-192.0.2.7 '' ::ffff:192.0.2.7 ipv6)
$(restarted 1 192.0.2.17-:)" --remove-sender-transport --ip-addr=::ffff:192.0.2.7
# Added and removed again, master.cf is the admin's file byte for byte.
use_fixture admin
mailrig_ok --add-domain-to-sender-transport --domain-name=$D --ip4-addr=192.0.2.7 --ip6-addr=2001:db8::1
mailrig_ok --remove-sender-transport --ip-addr=2001:db8::1
expect_same_file $MASTER "$STATE/admin/root$MASTER" "master.cf after a transport came and went"

row admin+transports 1 'stderr = Fatal error: boost::wrapexcept<boost::bad_any_cast>(boost::bad_any_cast: failed conversion using boost::any_cast)' \
  --remove-sender-transport
for ip in 010.0.0.1 fe80::1%eth0 192.0.2.7- 192.0.2 '192.0.2.7 ' $'192.0.2.7\n'; do
  row admin+transports 1 "stderr ~ invalid IP address" --remove-sender-transport "--ip-addr=$ip"
done

# --- help: the usage line heads the option table ---------------------------------------------

row fresh 0 'stdout ~ ^Allowed options to --remove-sender-transport --ip-addr=<ip_address>:$
stdout ~ ^Usage: remove sender transport$' --remove-sender-transport --help

finish
