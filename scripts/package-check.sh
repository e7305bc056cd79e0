#!/usr/bin/env bash
# The package on a brand-new Debian: builds the .deb, debootstraps a minimal bookworm root with
# nothing else in it, and there checks what an admin relies on:
#   - `apt-get install ./mailrig_*.deb` installs it with everything it depends on;
#   - `mailrig --help-commands` runs, `man mailrig` renders, bash completion offers every word;
#   - installing and removing the package leave the mail configuration as it was, before and
#     after mailrig-setup has prepared the server.
# Takes minutes and needs Debian's mirror; run as root, on demand (not part of CTest):
#
#   bash scripts/package-check.sh [--keep]      --keep leaves the root in place for a look
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
mirror=${MAILRIG_DEBIAN_MIRROR:-http://deb.debian.org/debian}
keep=0
[ "${1:-}" = "--keep" ] && keep=1

if [ -z "${MAILRIG_CHECK_INSIDE:-}" ]; then
  [ "$(id -u)" -eq 0 ] || { echo "package-check.sh: must run as root" >&2; exit 2; }
  bash "$top/scripts/build.sh"
  rm -rf "$top/build/package"
  (cd "$top/build" && cpack -G DEB -B "$top/build/package" >/dev/null)
  work=$(mktemp -d /var/tmp/mailrig-package-check.XXXXXX)
  status=0
  # Private mounts, and a PID namespace so that whatever a package script starts ends with us.
  MAILRIG_CHECK_INSIDE=1 MAILRIG_CHECK_WORK=$work \
    unshare --mount --pid --fork --mount-proc --propagation private bash "$0" "$@" || status=$?
  if [ "$keep" -eq 1 ]; then echo "root kept in $work/root"; else rm -rf "$work"; fi
  exit "$status"
fi

work=$MAILRIG_CHECK_WORK root=$MAILRIG_CHECK_WORK/root
deb=$(ls "$top"/build/package/mailrig_*.deb)
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }
pass() { echo "ok: $*"; }
step() { echo "== $* ($(date -u +%T))"; }
in_root() { chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
  DEBIAN_FRONTEND=noninteractive "$@"; }
# The mail configuration and state an install or removal must not touch.
snapshot() {
  in_root sh -c 'find /etc/postfix /etc/courier /etc/zvt /var/spool/postfix/quelt /var/lib/quelt \
    /var/qmail -type f 2>/dev/null | sort | xargs -r sha256sum'
}

start=$(date +%s)
step "debootstrap bookworm (minbase) from $mirror"
debootstrap --variant=minbase bookworm "$root" "$mirror" > "$work/debootstrap.log" 2>&1 ||
  { tail -20 "$work/debootstrap.log" >&2; exit 1; }
bootstrapped=$(date +%s)
mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
cp /etc/resolv.conf "$root/etc/resolv.conf"
# Package scripts may configure daemons but not start them.
printf '#!/bin/sh\nexit 101\n' > "$root/usr/sbin/policy-rc.d"
chmod 755 "$root/usr/sbin/policy-rc.d"
cp "$deb" "$root/tmp/"
name=$(basename "$deb")

step "apt-get install ./$name"
in_root apt-get update -q > "$work/apt.log" 2>&1
if in_root sh -c "cd /tmp && apt-get install -y -q ./$name" >> "$work/apt.log" 2>&1; then
  pass "installed with its dependencies: $(in_root dpkg-query -W -f='${Depends}' mailrig)"
else
  tail -30 "$work/apt.log" >&2
  exit 1
fi
installed=$(date +%s)
[ ! -e "$root/var/spool/postfix/quelt" ] && pass "the install did not prepare the mail stores" ||
  fail "the install created /var/spool/postfix/quelt"
before=$(snapshot)

step "the admin's view"
if in_root mailrig --help-commands > "$work/help-commands"; then
  pass "mailrig --help-commands: $(grep -c '^-' "$work/help-commands") rows"
else
  fail "mailrig --help-commands failed"
fi
cmp -s "$work/help-commands" <("$top/build/src/front/dispatch/mailrig" --help-commands) ||
  fail "the installed mailrig prints other help than the build's"
in_root apt-get install -y -q --no-install-recommends man-db >> "$work/apt.log" 2>&1
if in_root man -P cat mailrig > "$work/man.txt" 2>"$work/man.err" && grep -q -- '--add-domain' "$work/man.txt"; then
  pass "man mailrig renders ($(wc -l < "$work/man.txt") lines), man mailrig-setup too: $(in_root man -P cat mailrig-setup | grep -c .) lines"
else
  fail "man mailrig: $(head -3 "$work/man.err")"
fi
words=$(sed 1d "$work/help-commands" | sed -n 's/^\(-[^ ,]*\)\(, \(-[^ ]*\)\)\{0,1\}  .*/\1 \3/p' | wc -w)
offered=$(in_root bash -c '. /usr/share/bash-completion/bash_completion; __load_completion mailrig
  COMP_WORDS=(mailrig ""); COMP_CWORD=1; _mailrig; echo ${#COMPREPLY[@]}')
[ "$offered" = "$words" ] && pass "bash completion (loaded by bash-completion) offers all $words command words" ||
  fail "completion offers $offered words, help names $words"
options=$(in_root bash -c '. /usr/share/bash-completion/bash_completion; __load_completion mailrig
  COMP_WORDS=(mailrig --add-domain ""); COMP_CWORD=2; _mailrig; echo ${COMPREPLY[*]}')
pass "completion of 'mailrig --add-domain <TAB>': $options"

step "apt-get remove, install again"
in_root apt-get remove -y -q mailrig >> "$work/apt.log" 2>&1 || fail "apt-get remove failed"
[ "$(snapshot)" = "$before" ] && pass "remove left the mail configuration untouched" || fail "remove changed the mail configuration"
in_root sh -c "cd /tmp && apt-get install -y -q ./$name" >> "$work/apt.log" 2>&1 || fail "reinstall failed"
[ "$(snapshot)" = "$before" ] && pass "install left the mail configuration untouched" || fail "install changed the mail configuration"

step "mailrig-setup, then remove"
if in_root mailrig-setup --create-user > "$work/setup.out" 2>&1; then
  pass "mailrig-setup prepared the server: $(grep -c . "$work/setup.out") lines of changes"
else
  fail "mailrig-setup: $(tail -3 "$work/setup.out")"
fi
[ "$(snapshot)" != "$before" ] || fail "mailrig-setup changed nothing"
if in_root mailrig --add-domain --domain-name=example.com > "$work/add.out" 2>&1 &&
   [ "$(in_root postmap -q example.com hash:/var/spool/postfix/quelt/virtual_domains)" = "example.com/" ]; then
  pass "mailrig --add-domain: Postfix finds example.com in its virtual domains"
else
  fail "mailrig --add-domain: $(tail -3 "$work/add.out")"
fi
prepared=$(snapshot)
in_root apt-get remove -y -q mailrig >> "$work/apt.log" 2>&1 || fail "apt-get remove failed"
[ "$(snapshot)" = "$prepared" ] && pass "remove left the prepared server's tables, databases and main.cf untouched" ||
  fail "remove changed the prepared server"

echo "debootstrap $((bootstrapped - start)) s, install $((installed - bootstrapped)) s, total $(($(date +%s) - start)) s"
[ "$failures" -eq 0 ] && echo "package check passed" || { echo "package check: $failures failed"; exit 1; }
