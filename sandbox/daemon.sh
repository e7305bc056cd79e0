# The life cycle the sandbox's private daemons share (MariaDB, rsyslogd). A daemon script sets
# NAME, PIDFILE and STOP_TENTHS, defines start(), sources this file and hands its arguments to
# daemon_main.

daemon_pid() {
  [ -s "$PIDFILE" ] && cat "$PIDFILE"
}

# SIGTERM, up to STOP_TENTHS tenths of a second for the daemon to go, then SIGKILL.
stop() {
  local pid
  pid=$(daemon_pid) || return 0
  if kill -0 "$pid" 2>/dev/null; then
    kill -TERM "$pid" 2>/dev/null || true
    for _ in $(seq 1 "$STOP_TENTHS"); do
      kill -0 "$pid" 2>/dev/null || break
      sleep 0.1
    done
    if kill -0 "$pid" 2>/dev/null; then
      echo "$NAME: $pid ignored SIGTERM, killing it" >&2
      kill -KILL "$pid" 2>/dev/null || true
    fi
  fi
  rm -f "$PIDFILE"
}

# Fails, saying so, when the daemon started here still runs.
not_running() {
  local pid
  if pid=$(daemon_pid) && kill -0 "$pid" 2>/dev/null; then
    echo "$NAME: already running as $pid" >&2
    return 1
  fi
}

# daemon_main USAGE ARGS...: start, stop, or run a command between the two.
daemon_main() {
  local usage=$1
  shift
  case "${1:-}" in
    start) start ;;
    stop) stop ;;
    run)
      shift
      trap stop EXIT
      start
      local status=0
      "$@" || status=$?
      exit "$status"
      ;;
    *)
      echo "usage: $usage" >&2
      exit 2
      ;;
  esac
}
