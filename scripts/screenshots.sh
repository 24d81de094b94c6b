#!/usr/bin/env bash
# Draws the README's pictures of the demo list into docs/, the last one as a Linux phone shows
# it: on Phosh's compositor at scale 2, read back from the compositor.
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
children=("$pulse")
trap 'kill "${children[@]}" 2>/dev/null || true; rm -rf "$runtime"' EXIT
export PULSE_SERVER="unix:$runtime/native"
for _ in $(seq 50); do pactl info >/dev/null 2>&1 && break; sleep 0.1; done
QT_QPA_PLATFORM=offscreen TZ=America/New_York LANG=en_US.UTF-8 LC_ALL=en_US.UTF-8 \
    dbus-run-session -- ./build/tools/make_screenshots docs

phone=$runtime/phone
mkdir -m 700 "$phone"
printf '[core]\nxwayland = false\n[output:HEADLESS-1]\nmode = 720x1440\nscale = 2\n' >"$phone/phoc.ini"
XDG_RUNTIME_DIR=$phone WLR_BACKENDS=headless WLR_RENDERER=pixman GSETTINGS_BACKEND=memory \
    phoc -C "$phone/phoc.ini" >/dev/null 2>&1 &
children+=($!)
for _ in $(seq 100); do [[ -S $phone/wayland-0 ]] && break; sleep 0.1; done
export XDG_RUNTIME_DIR=$phone WAYLAND_DISPLAY=wayland-0
QT_QPA_PLATFORM=wayland TZ=America/New_York LANG=en_US.UTF-8 LC_ALL=en_US.UTF-8 \
    dbus-run-session -- ./build/vantrel --demo >/dev/null 2>&1 &
children+=($!)
for _ in $(seq 100); do
    /usr/lib/wlroots/foreign-toplevel 2>/dev/null | grep -q 'app_id=net.zorvath.vantrel' && break
    sleep 0.1
done
sleep 1 # its first frame
grim docs/phone.png
