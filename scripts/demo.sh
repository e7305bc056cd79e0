#!/usr/bin/env bash
# The main job from a fresh machine: install, build, start a real Postfix prepared by
# mailrig-setup, provision a domain, a mailbox, an alias and redirects with mailrig, deliver
# messages over SMTP and show where each landed. Everything after the build runs inside the
# project's sandbox (a private namespace in which /etc, /var and /usr/local are memory-backed
# overlays, with a network of its own that has only a loopback), so the host is never changed.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
build=$top/build

echo "== [1/4] installing the dependencies that are missing (scripts/install-deps.sh)"
bash "$top/scripts/install-deps.sh"

echo "== [2/4] building mailrig, mailrig-setup and the delivery agent mailrig-deliver in $build"
cmake -S "$top" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo | sed -n 's/^-- \(Build files\)/   \1/p'
# Only the progress lines ("[ 42%] Building ...") and whatever goes wrong; a failed build
# still ends the script (pipefail).
cmake --build "$build" -j"$(nproc)" --target mailrig mailrig-setup mailrig-deliver 2>&1 |
  { grep --line-buffered -E '^\[ *[0-9]+%\] (Building|Linking)|error|warning' || true; } | sed -u 's/^/   /'
echo "   built: $(cd "$build" && ls src/front/dispatch/mailrig src/front/setup/mailrig-setup src/delivery/mailrig-deliver | tr '\n' ' ')"

echo "== [3/4] entering the sandbox: a private panel database, Postfix on a private loopback"
exec "$top/sandbox/sandbox.sh" unshare --net "$top/sandbox/mariadb.sh" run \
  bash "$top/scripts/demo-inside.sh" "$top" "$build"
