#!/usr/bin/env bash
# Draws the README's pictures of the demo list into docs/.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
./scripts/build.sh
# The playing row needs an audio server: a private one with a silent sink.
runtime=$(mktemp -d /tmp/vantrel-shots-XXXXXX)
pulseaudio --daemonize=no --exit-idle-time=-1 -n --use-pid-file=no \
    --load="module-native-protocol-unix socket=$runtime/native auth-anonymous=1" \
    --load="module-null-sink sink_name=speaker" >/dev/null 2>&1 &
pulse=$!
trap 'kill $pulse 2>/dev/null || true; rm -rf "$runtime"' EXIT
export PULSE_SERVER="unix:$runtime/native"
for _ in $(seq 50); do pactl info >/dev/null 2>&1 && break; sleep 0.1; done
QT_QPA_PLATFORM=offscreen TZ=America/New_York LANG=en_US.UTF-8 LC_ALL=en_US.UTF-8 \
    dbus-run-session -- ./build/tests/make_screenshots docs
