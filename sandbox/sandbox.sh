#!/usr/bin/env bash
# Runs a command in a private mount and host-name namespace where every system path mailrig
# writes is fresh and lives only in memory: /etc, /var, /usr/local and /tmp are overlays whose
# writable layer is a tmpfs, and the mail system's own folders start empty. The host is never
# modified and the namespace dies with the command.
#
#   sandbox/sandbox.sh COMMAND [ARGS...]
#
# Inside: Postfix's config is the fixture in sandbox/postfix, the users popuser and
# postfix exist, and the host name is mail.sandbox.test. Helpers for what a test may add
# (a private MariaDB server, a private syslog daemon, stand-in programs) are in sandbox/*.sh.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

if [ "$(id -u)" -ne 0 ]; then
  echo "sandbox.sh: must run as root (it mounts file systems in a private namespace)" >&2
  exit 2
fi

if [ -z "${MAILRIG_SANDBOX_WORK:-}" ] || [ "${MAILRIG_SANDBOX_INSIDE:-}" != "$$" ]; then
  # The mount point is the one trace on the host, an empty folder removed when we are done.
  work=$(mktemp -d /tmp/mailrig-sandbox.XXXXXX)
  trap 'rmdir "$work" 2>/dev/null || true' EXIT
  status=0
  # --fork: the command runs as a child of unshare, so the namespace ends with it.
  # --pid: the command is the namespace's first process, so when it ends the kernel ends
  # every process it left behind (a test's database server included).
  MAILRIG_SANDBOX_WORK=$work unshare --mount --uts --pid --mount-proc --propagation private --fork \
    bash -c 'export MAILRIG_SANDBOX_INSIDE=$$; exec "$0" "$@"' "$0" "$@" || status=$?
  exit "$status"
fi

work=$MAILRIG_SANDBOX_WORK
mount -t tmpfs -o mode=0700 mailrig-sandbox "$work"
# /dev keeps the host's devices but gets a writable layer of its own, so /dev/log is the
# sandbox's: a syslog line a test provokes never reaches the host's log, and a test may listen
# there itself (sandbox/syslog.sh). The layers sit on the sandbox's tmpfs, so this comes before
# /tmp is overlaid; the submounts are carried over before the new /dev moves in.
mkdir -p "$work/_dev/upper" "$work/_dev/work" "$work/dev"
mount -t overlay overlay -o "lowerdir=/dev,upperdir=$work/_dev/upper,workdir=$work/_dev/work" "$work/dev"
for sub in pts shm mqueue hugepages; do
  if mountpoint -q "/dev/$sub"; then mount --rbind "/dev/$sub" "$work/dev/$sub"; fi
done
rm -f "$work/dev/log"
mount --move "$work/dev" /dev
for top in /etc /var /usr/local /tmp; do
  name=${top//\//_}
  mkdir -p "$work/$name/upper" "$work/$name/work"
  mount -t overlay overlay -o "lowerdir=$top,upperdir=$work/$name/upper,workdir=$work/$name/work" "$top"
done
# The sandbox's own folder stays reachable below the overlaid /tmp only through this path.
export MAILRIG_SANDBOX_ROOT=$work

# Fresh, empty folders for everything the mail system owns.
for dir in /var/spool/postfix /var/qmail /var/lib/quelt /etc/zvt /etc/zvt-spf /etc/domainkeys \
           /etc/sysconfig /usr/local/zvt /var/spool/cron; do
  rm -rf "$dir"
  mkdir -p "$dir"
done
# /run is the host's: hide its database socket folder so that no test can reach a server of the
# host; a test's own server (mariadb.sh) puts its socket there.
if [ -d /run/mysqld ]; then
  mount -t tmpfs -o mode=0755 mailrig-mysqld /run/mysqld
else
  mount -t tmpfs -o mode=0755 mailrig-run /run
  mkdir -p /run/lock /run/mysqld
fi
mount -t tmpfs -o mode=1777 mailrig-lock /run/lock
# Courier-IMAP keeps its pid files in /run/courier: a private one, so that a test's server is
# never seen from, nor left on, the host.
if [ -d /run/courier ]; then mount -t tmpfs -o mode=0775 mailrig-courier /run/courier; fi
mkdir -p /var/lock/files
mkdir -p /var/spool/postfix/quelt /var/spool/postfix/pid

cp "$here/postfix/main.cf" "$here/postfix/master.cf" /etc/postfix/
: > /etc/aliases

getent group popuser >/dev/null || groupadd --system popuser
getent passwd popuser >/dev/null ||
  useradd --system --gid popuser --home-dir /var/qmail --no-create-home --shell /usr/sbin/nologin popuser
getent passwd postfix >/dev/null ||
  { groupadd --system postfix; useradd --system --gid postfix --home-dir /var/spool/postfix \
      --no-create-home --shell /usr/sbin/nologin postfix; }

hostname mail.sandbox.test

status=0
"$@" || status=$?
exit "$status"
