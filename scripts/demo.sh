#!/usr/bin/env bash
# The main job from a fresh machine: install, build, then provision a mail domain for real on
# this machine's Postfix, inside the project's sandbox (a private namespace in which /etc, /var
# and /usr/local are memory-backed overlays), so the host itself is never changed.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
echo "== installing dependencies and building (scripts/build.sh)"
bash "$top/scripts/build.sh" >/dev/null
exec "$top/sandbox/sandbox.sh" "$top/sandbox/mariadb.sh" run bash "$top/scripts/demo-inside.sh" "$top/build"
