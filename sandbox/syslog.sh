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
NAME=syslog.sh STOP_TENTHS=100
. "$(dirname "${BASH_SOURCE[0]}")/daemon.sh"
PIDFILE=$base/rsyslogd.pid
conf=$base/rsyslog.conf
log=/var/log/mail.log

start() {
  not_running || return 1
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
  echo $! > "$PIDFILE"
  local pid
  pid=$(daemon_pid)
  for _ in $(seq 1 100); do
    if ! kill -0 "$pid" 2>/dev/null; then
      echo "syslog.sh: rsyslogd exited during start:" >&2
      cat "$base/rsyslogd.out" >&2
      rm -f "$PIDFILE"
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
  wait) wait_for "${2:?syslog.sh wait PATTERN}" ;;
  *) daemon_main "syslog.sh start | stop | wait PATTERN | run COMMAND [ARGS...]" "$@" ;;
esac
