#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test (unit and scenario) through CTest.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
bash "$top/scripts/build.sh"
cd "$top/build"
ctest --output-on-failure -j"$(nproc)" "$@"
