#!/usr/bin/env bash
# Puts the built delivery agent where mailrig-setup names it in master.cf (the build writes that
# path to BUILD/mailrig-deliver.path). Runs only inside sandbox/sandbox.sh: /usr/lib, which the
# sandbox leaves as the host's, gets a private writable layer first, so the host never changes
# (the panel's programs that a test stands in for live there too, whatever the build's prefix).
#
#   sandbox/agent.sh BUILD-DIR      prints the agent's path
set -euo pipefail

if [ -z "${MAILRIG_SANDBOX_ROOT:-}" ]; then
  echo "agent.sh: run inside sandbox/sandbox.sh" >&2
  exit 2
fi
build=$1
agent=$(cat "$build/mailrig-deliver.path")
layer=$MAILRIG_SANDBOX_ROOT/usr-lib
if [ ! -d "$layer" ]; then
  mkdir -p "$layer" && mount -t tmpfs -o mode=0755 mailrig-usr-lib "$layer"
  mkdir -p "$layer/upper" "$layer/work"
  mount -t overlay overlay -o "lowerdir=/usr/lib,upperdir=$layer/upper,workdir=$layer/work" /usr/lib
fi
case $agent in
  /usr/local/*|/usr/lib/*|/etc/*|/var/*|/tmp/*) ;;   # the sandbox's own overlays
  *) echo "agent.sh: $agent is outside what the sandbox can overlay" >&2; exit 2 ;;
esac
install -D -m 0755 "$build/src/delivery/mailrig-deliver" "$agent"
echo "$agent"
