#!/usr/bin/env bash
# Installs everything mailrig needs to build and to run its tests on Debian.
# Idempotent and non-interactive: packages already present are not touched.
set -euo pipefail

export DEBIAN_FRONTEND=noninteractive

build_pkgs=(
  cmake g++ make pkg-config
  libboost-program-options-dev libboost-filesystem-dev libboost-regex-dev
  libboost-system-dev libboost-dev
  libidn-dev libsqlite3-dev libssl-dev libmariadb-dev
  googletest libgtest-dev
)
test_pkgs=(
  postfix postfix-pcre mariadb-server mariadb-client sqlite3 maildrop
  util-linux procps openssl cron iproute2 courier-imap courier-pop
  rsyslog man-db
  # SMTP clients of the delivery scenarios and the demo
  python3
  # the master.cf parser's fuzz target: clang with libFuzzer's runtime
  clang libclang-rt-dev
)
# Only scripts/package-check.sh needs it: a brand-new Debian root to install the package in.
check_pkgs=(debootstrap)

missing=()
for p in "${build_pkgs[@]}" "${test_pkgs[@]}" "${check_pkgs[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed'; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "install-deps: all $(( ${#build_pkgs[@]} + ${#test_pkgs[@]} )) packages are installed"
  exit 0
fi
echo "install-deps: installing ${#missing[@]} packages: ${missing[*]}"

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"

# Postfix asks how it should be configured; a mail server under test wants none.
echo "postfix postfix/main_mailer_type select No configuration" | $SUDO debconf-set-selections
echo "postfix postfix/mailname string localhost" | $SUDO debconf-set-selections

echo "install-deps: reading the package lists (apt-get update)"
$SUDO apt-get update -q
# Keep package scripts from starting daemons on the host: the tests start their own,
# privately, and nothing may be left running.
policy=/usr/sbin/policy-rc.d
created_policy=0
if [ ! -e "$policy" ]; then
  printf '#!/bin/sh\nexit 101\n' | $SUDO tee "$policy" >/dev/null
  $SUDO chmod 755 "$policy"
  created_policy=1
fi
# apt-get's own lines (Get:, Unpacking, Setting up) show how far it is.
$SUDO apt-get install -y -q --no-install-recommends "${missing[@]}"
echo "install-deps: done"
if [ "$created_policy" -eq 1 ]; then $SUDO rm -f "$policy"; fi
