#!/usr/bin/env bash
# Draws the README's pictures of the demo list into docs/.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
./scripts/build.sh
QT_QPA_PLATFORM=offscreen TZ=America/New_York LANG=en_US.UTF-8 LC_ALL=en_US.UTF-8 \
    dbus-run-session -- ./build/tests/make_screenshots docs
