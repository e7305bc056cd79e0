# The sandbox's private MariaDB server: it serves the panel account, opens no TCP port, passes
# the command's status through, and leaves no process behind, also when the command fails.
. "$MAILRIG_TESTS/scenario/lib.sh"
db=$MAILRIG_SANDBOX_DIR/mariadb.sh
pidfile=$MAILRIG_SANDBOX_ROOT/mariadb/server.pid

running() { kill -0 "$1" 2>/dev/null; }

# run: a failing command's status comes back and the server is gone afterwards.
status=0
"$db" run bash -c "cat '$pidfile' > /tmp/server.pid; exit 7" || status=$?
expect_eq "$status" 7 "status of the command under run"
pid=$(cat /tmp/server.pid)
checks=$((checks + 1))
! running "$pid" || fail "server $pid still running after run"

# start and stop by pid.
"$db" start
pid=$(cat "$pidfile")
checks=$((checks + 1))
running "$pid" || fail "server not running after start"
expect_eq "$(tr '\0' ' ' < "/proc/$pid/cmdline" | grep -o -- '--skip-networking')" "--skip-networking" "option"
listeners=$(ss -H -l -t -u -n -p | grep -c "pid=$pid," || true)
expect_eq "$listeners" 0 "TCP/UDP sockets of the server"
expect_eq "$(ss -H -l -x -p | grep "pid=$pid," | awk '{print $5}')" "/run/mysqld/mysqld.sock" "its socket"

answer=$(mariadb --no-defaults -uadmin -p"$(head -n 1 /etc/zvt/.zvt.shadow)" zvt -N -e \
  "SELECT COUNT(*) FROM information_schema.tables WHERE table_schema = 'zvt'")
expect_eq "$answer" 6 "panel tables seen by admin"

status=0
"$db" start 2>/dev/null || status=$?
expect_eq "$status" 1 "second start"

"$db" stop
checks=$((checks + 1))
! running "$pid" || fail "server $pid still running after stop"
checks=$((checks + 1))
[ ! -e /run/mysqld/mysqld.sock ] || fail "socket left behind"
expect_eq "$(pgrep -c mariadbd || true)" 0 "database servers in the sandbox"

status=0
env -u MAILRIG_SANDBOX_ROOT "$db" start 2>/dev/null || status=$?
expect_eq "$status" 2 "start outside the sandbox"

finish
