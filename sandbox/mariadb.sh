#!/usr/bin/env bash
# A private MariaDB server for tests that read the panel database. Runs only inside
# sandbox/sandbox.sh: its data lives on the sandbox's tmpfs, it listens on no TCP port
# (--skip-networking), and its socket is the client library's default path on a /run/mysqld
# that only this namespace sees.
#
#   mariadb.sh start        start the server and load the panel schema fixture
#   mariadb.sh stop         stop the server started here (by its pid) and wait for it
#   mariadb.sh run CMD...   start, run CMD, stop even when CMD fails; CMD's exit status
#
# The panel's account is `admin` on database `zvt`, with the password on the first line of
# /etc/zvt/.zvt.shadow (written here when missing); root connects through the socket.
set -euo pipefail

here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

if [ -z "${MAILRIG_SANDBOX_ROOT:-}" ]; then
  echo "mariadb.sh: run inside sandbox/sandbox.sh" >&2
  exit 2
fi

base=$MAILRIG_SANDBOX_ROOT/mariadb
data=$base/data
NAME=mariadb.sh STOP_TENTHS=300
. "$(dirname "${BASH_SOURCE[0]}")/daemon.sh"
PIDFILE=$base/server.pid
errlog=$base/server.err
socket=/run/mysqld/mysqld.sock
shadow=/etc/zvt/.zvt.shadow

client() {
  mariadb --no-defaults --protocol=socket --socket="$socket" -uroot "$@"
}

start() {
  not_running || return 1
  # /run is the host's: the socket folder must be private to this namespace.
  mountpoint -q /run/mysqld || mount -t tmpfs -o mode=0755 mailrig-mysqld /run/mysqld
  rm -rf "$base"
  mkdir -p "$data"
  if [ ! -s "$shadow" ]; then
    printf 'adm-%s\nthe panel keeps more here\n' "$(od -An -N8 -tx1 /dev/urandom | tr -d ' \n')" > "$shadow"
    chmod 600 "$shadow"
  fi

  mariadb-install-db --no-defaults --user=root --datadir="$data" --skip-test-db \
    --auth-root-authentication-method=socket >"$base/install.log" 2>&1 ||
    { echo "mariadb.sh: mariadb-install-db failed:" >&2; cat "$base/install.log" >&2; return 1; }

  mariadbd --no-defaults --user=root --datadir="$data" --socket="$socket" --skip-networking \
    --pid-file="$base/mariadbd.pid" --log-error="$errlog" --skip-log-bin \
    --innodb-buffer-pool-size=16M --innodb-log-file-size=8M --innodb-use-native-aio=0 \
    --innodb-flush-method=fsync --skip-name-resolve </dev/null >/dev/null 2>&1 &
  echo $! > "$PIDFILE"

  local pid
  pid=$(daemon_pid)
  for _ in $(seq 1 300); do
    if ! kill -0 "$pid" 2>/dev/null; then
      echo "mariadb.sh: server exited during start:" >&2
      tail -20 "$errlog" >&2
      rm -f "$PIDFILE"
      return 1
    fi
    if mariadb-admin --no-defaults --protocol=socket --socket="$socket" -uroot ping >/dev/null 2>&1; then
      break
    fi
    sleep 0.1
  done

  local password
  password=$(head -n 1 "$shadow")
  password=${password//\\/\\\\}
  password=${password//\'/\\\'}
  client <<SQL || { stop; return 1; }
CREATE DATABASE zvt;
CREATE USER 'admin'@'localhost' IDENTIFIED BY '$password';
GRANT ALL PRIVILEGES ON zvt.* TO 'admin'@'localhost';
SQL
  client zvt < "$here/panel-schema.sql" || { stop; return 1; }
}

daemon_main "mariadb.sh start | stop | run COMMAND [ARGS...]" "$@"
