#!/usr/bin/env bash
# Sets up what is missing, builds, and runs the whole test suite through CTest, headless:
# each test on a private session bus (dbus-run-session), all of them beside a PulseAudio
# server whose only outputs are the null sinks "speaker" and "earpiece".
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh
./scripts/build.sh

runtime=$(mktemp -d /tmp/vantrel-test-XXXXXX)
export XDG_RUNTIME_DIR="$runtime"
export PULSE_SERVER="unix:$runtime/pulse/native"
mkdir -p "$runtime/pulse"
pulseaudio --daemonize=no --exit-idle-time=-1 --disallow-exit -n \
    --load="module-native-protocol-unix socket=$runtime/pulse/native auth-anonymous=1" \
    --load="module-null-sink sink_name=speaker sink_properties=device.description=Speaker" \
    --load="module-null-sink sink_name=earpiece sink_properties=device.description=Earpiece" \
    --load="module-always-sink" >"$runtime/pulseaudio.log" 2>&1 &
pulse=$!
cleanup() {
    kill "$pulse" 2>/dev/null || true
    wait "$pulse" 2>/dev/null || true
    rm -rf "$runtime"
}
trap cleanup EXIT

for _ in $(seq 50); do
    pactl info >/dev/null 2>&1 && break
    sleep 0.1
done
if ! pactl info >/dev/null 2>&1; then
    echo "PulseAudio did not start:" >&2
    cat "$runtime/pulseaudio.log" >&2
    exit 1
fi

cd build
ctest --output-on-failure --parallel 2 "$@"
