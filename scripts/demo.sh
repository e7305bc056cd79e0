#!/usr/bin/env bash
# The main job from a fresh machine: install, build, and show what mailrig offers.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bash "$top/scripts/build.sh" >/dev/null
"$top/build/src/front/dispatch/mailrig" --help-commands
