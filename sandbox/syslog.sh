#!/usr/bin/env bash
# A private syslog daemon for tests that check what reaches the mail log. Runs only inside
# sandbox/sandbox.sh: rsyslogd listens on the sandbox's own /dev/log and writes the mail
# facility to /var/log/mail.log in the traditional format, as a Debian server's rsyslog does.
#
#   syslog.sh start         start rsyslogd and wait until /dev/log accepts messages
#   syslog.sh stop          stop the daemon started here (by its pid) and wait for it
#   syslog.sh run CMD...    start, run CMD, stop even when CMD fails; CMD's exit status
#
# rsyslogd writes asynchronously: a test waits for its line with `syslog.sh wait PATTERN`,
# which polls the log for up to ten seconds and fails when the line never comes.
set -euo pipefail

if [ -z "${MAILRIG_SANDBOX_ROOT:-}" ]; then
  echo "syslog.sh: run inside sandbox/sandbox.sh" >&2
  exit 2
fi

base=$MAILRIG_SANDBOX_ROOT/syslog
pidfile=$base/rsyslogd.pid
conf=$base/rsyslog.conf
log=/var/log/mail.log

daemon_pid() {
  [ -s "$pidfile" ] && cat "$pidfile"
}

stop() {
  local pid
  pid=$(daemon_pid) || return 0
  if kill -0 "$pid" 2>/dev/null; then
    kill -TERM "$pid" 2>/dev/null || true
    for _ in $(seq 1 100); do
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    kill -KILL "$pid" 2>/dev/null || true
  fi
  rm -f "$pidfile"
}

start() {
  if pid=$(daemon_pid) && kill -0 "$pid" 2>/dev/null; then
    echo "syslog.sh: already running as $pid" >&2
    return 1
  fi
  mkdir -p "$base/work" /var/log
  cat > "$conf" <<EOF
global(workDirectory="$base/work")
module(load="imuxsock" SysSock.Name="/dev/log")
mail.* action(type="omfile" file="$log" template="RSYSLOG_TraditionalFileFormat")
EOF
  rm -f /dev/log
  # -n: stays in the foreground, so its pid is ours to stop; -i keeps the pid file off the
  # host's /run.
  rsyslogd -n -f "$conf" -i "$base/rsyslogd.own.pid" </dev/null >"$base/rsyslogd.out" 2>&1 &
  echo $! > "$pidfile"
  local pid
  pid=$(daemon_pid)
  for _ in $(seq 1 100); do
    if ! kill -0 "$pid" 2>/dev/null; then
      echo "syslog.sh: rsyslogd exited during start:" >&2
      cat "$base/rsyslogd.out" >&2
      rm -f "$pidfile"
      return 1
    fi
    [ -S /dev/log ] && return 0
    sleep 0.1
  done
  echo "syslog.sh: rsyslogd did not open /dev/log" >&2
  stop
  return 1
}

# wait PATTERN: succeeds as soon as a line of the mail log matches the extended regex.
wait_for() {
  for _ in $(seq 1 100); do
    grep -Eq -- "$1" "$log" 2>/dev/null && return 0
    sleep 0.1
  done
  return 1
}

case "${1:-}" in
  start) start ;;
  stop) stop ;;
  wait) wait_for "${2:?syslog.sh wait PATTERN}" ;;
  run)
    shift
    trap stop EXIT
    start
    status=0
    "$@" || status=$?
    exit "$status"
    ;;
  *)
    echo "usage: syslog.sh start | stop | wait PATTERN | run COMMAND [ARGS...]" >&2
    exit 2
    ;;
esac
