#!/usr/bin/env bash
# Sets up what is missing, builds, and opens Vantrel Plus on a fresh copy of the bundled demo
# recordings. Extra arguments go to vantrel (for example --size 720x1440).
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
./scripts/build.sh

if [[ -z "${DISPLAY:-}" && -z "${WAYLAND_DISPLAY:-}" && -z "${QT_QPA_PLATFORM:-}" ]]; then
    # No screen to open a window on: show what it would look like instead.
    QT_QPA_PLATFORM=offscreen ./build/vantrel --demo --screenshot build/demo.png "$@"
    echo "No display found; the demo list was drawn into build/demo.png"
    exit 0
fi
exec ./build/vantrel --demo "$@"
