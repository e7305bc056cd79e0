#!/usr/bin/env bash
# The transcript of scripts/demo.sh inside the sandbox, beside its MariaDB, in a network
# namespace of its own: install, prepare Postfix, provision, deliver, show where mail landed.
set -euo pipefail
top=$1 build=$2
ROOT=/var/qmail/mailnames
export PATH=$build/src/front/dispatch:$build/src/front/setup:$PATH

say() { printf '\n$ %s\n' "$*"; }
show() { say "$@"; "$@"; }
step() { printf '\n== %s\n' "$*"; }

ip link set lo up
# The panel's configuration file names the mail root; the panel's database knows the domain.
printf 'QUELT_MAILNAMES_D %s\n' "$ROOT" > /etc/zvt/zvt.conf
mariadb --no-defaults --protocol=socket --socket=/run/mysqld/mysqld.sock -uroot zvt \
  -e "INSERT INTO domains (name) VALUES ('example.com')"
userdel popuser 2>/dev/null || true
newaliases

step "[3/4] the delivery agent put where Postfix will run it (a private layer over /usr/lib)"
say "install $build/src/delivery/mailrig-deliver $(cat "$build/mailrig-deliver.path")"
"$top/sandbox/agent.sh" "$build" >/dev/null

step "[3/4] a stock Postfix server made ready for mailrig"
show mailrig-setup --create-user
show postfix check

step "[3/4] the panel provisions a domain, a mailbox, an alias and two redirects"
show mailrig --add-domain --domain-name=example.com
for m in info boss team; do
  show mailrig --add-mailname --domain-name=example.com --mailname=$m
done
for m in info boss; do
  say "ZVT_PASSWORD=... mailrig --add-mailbox --domain-name=example.com --mailname=$m"
  ZVT_PASSWORD=secret-$m mailrig --add-mailbox --domain-name=example.com --mailname=$m
done
show mailrig --add-alias --domain-name=example.com --mailname=info --alias=sales
show mailrig --add-redirect --domain-name=example.com --mailname=boss --redirect-email=info@example.com
show mailrig --add-redirect --domain-name=example.com --mailname=team --redirect-email=info@example.com
for m in info boss team; do
  say cat "$ROOT/example.com/$m/.qmail"
  cat "$ROOT/example.com/$m/.qmail"
done

step "[4/4] Postfix started (after the provisioning, so it reads the tables fresh), one message to each address over SMTP"
say /etc/init.d/postfix start
/etc/init.d/postfix start
trap '/usr/sbin/postfix stop >/dev/null 2>&1 || true' EXIT
for rcpt in info sales boss team nobody; do
  printf '   %-22s -> SMTP reply: %s\n' "$rcpt@example.com" \
    "$(python3 "$top/tests/scenario/smtp_send.py" someone@remote.test "$rcpt@example.com" "demo-to-$rcpt")"
done
printf '   waiting for the queue to drain'
for _ in $(seq 300); do
  [ -z "$(postqueue -j)" ] && break
  printf .; sleep 0.1
done
echo
show postqueue -p

step "[4/4] where each message landed (each file under $ROOT holding its subject)"
for rcpt in info sales boss team nobody; do
  files=$(grep -rl "^Subject: demo-to-$rcpt\$" "$ROOT" | sed "s|^$ROOT/||" || true)
  printf '   to %s:\n' "$rcpt@example.com"
  printf '      %s\n' ${files:-"(nowhere: refused at SMTP time)"}
done
echo
echo "done: mail delivered through mailrig's tables and .qmail files; nothing outside the sandbox was changed"
