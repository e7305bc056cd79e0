#!/usr/bin/env bash
# The provisioning transcript of scripts/demo.sh; runs inside the sandbox beside its MariaDB.
set -euo pipefail
build=$1
export PATH=$build/src/front/dispatch:$build/src/front/setup:$PATH
Q=/var/spool/postfix/quelt

say() { printf '\n$ %s\n' "$*"; }
show() { say "$@"; "$@"; }
tables() {
  for t in virtual_domains virtual; do
    say postmap -s "hash:$Q/$t"
    postmap -s "hash:$Q/$t" | sort
  done
}

# The panel's configuration file names the mail root; the panel's database knows the domain.
printf 'QUELT_MAILNAMES_D /var/qmail/mailnames\n' > /etc/zvt/zvt.conf
mariadb --no-defaults --protocol=socket --socket=/run/mysqld/mysqld.sock -uroot zvt \
  -e "INSERT INTO domains (name) VALUES ('example.com')"
userdel popuser 2>/dev/null || true

echo "== a stock Postfix server (the sandbox's copy of it) made ready for mailrig"
show mailrig-setup --create-user
echo
echo "== the panel adds a domain, switches it off and on again"
show mailrig --add-domain --domain-name=example.com
tables
show mailrig --turn-off-domain --domain-name=example.com
tables
show mailrig --turn-on-domain --domain-name=example.com
tables
echo
echo "== what Postfix now reads"
show postconf -n
say postmap -q postmaster@example.com "hash:$Q/virtual"
postmap -q postmaster@example.com "hash:$Q/virtual"
show postfix check
echo
echo "done: mailrig provisioned example.com; nothing outside the sandbox was changed"
