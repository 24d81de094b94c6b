#!/usr/bin/env bash
# Sets up what is missing, builds, and runs the whole test suite through CTest, headless:
# each test on a private session bus (dbus-run-session), all of them beside a PulseAudio
# server whose only outputs are the null sinks "speaker" and "earpiece".
# With --sanitize first: the same suite built with AddressSanitizer and
# UndefinedBehaviorSanitizer in build-sanitize/, where any report fails its test.
# With --pipewire first: the tests that play sound, once more against what Linux phones run,
# PipeWire with its PulseAudio server, both for the shared server and the tests' own.
# Other arguments go to ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
build=build
build_options=()
setup_options=()
sound=pulseaudio
ctest_options=()
if [[ ${1:-} == --sanitize ]]; then
    shift
    build=build-sanitize
    build_options=(--sanitize)
    # Qt and the libraries under it keep memory until exit that only their own code could
    # free; the suppressions name their functions and nothing of ours. Allocations are traced
    # through every frame, also those of libraries built without frame pointers, so that a
    # suppression always sees the function it names.
    export ASAN_OPTIONS=halt_on_error=1:detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1:fast_unwind_on_malloc=0
    export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
    export LSAN_OPTIONS="suppressions=$PWD/tests/sanitizers/lsan.supp:print_suppressions=0"
elif [[ ${1:-} == --pipewire ]]; then
    shift
    setup_options=(--pipewire)
    sound=pipewire
    export VANTREL_SOUND_SERVER=pipewire
    ctest_options=(--tests-regex '^tst_(audioplayer|player|rows|touch|application|mpris|notifications)$')
fi
./scripts/setup.sh "${setup_options[@]}"
./scripts/build.sh "${build_options[@]}"

runtime=$(mktemp -d /tmp/vantrel-test-XXXXXX)
export XDG_RUNTIME_DIR="$runtime"
export PULSE_SERVER="unix:$runtime/pulse/native"
mkdir -p "$runtime/pulse"
servers=()
if [[ $sound == pipewire ]]; then
    # The session manager wants a session bus: the shared server has one of its own, apart
    # from each test's.
    bus=$(dbus-daemon --session --fork --print-address=1 --print-pid=1)
    servers+=("$(sed -n 2p <<<"$bus")")
    # The session manager and the PulseAudio server give up at once when PipeWire's socket is
    # not there yet, as on a loaded machine.
    for daemon in pipewire wireplumber pipewire-pulse; do
        DBUS_SESSION_BUS_ADDRESS=$(head -n1 <<<"$bus") PIPEWIRE_LOG_LEVEL=E WIREPLUMBER_DEBUG=E \
            "$daemon" >>"$runtime/$sound.log" 2>&1 &
        servers+=($!)
        for _ in $(seq 100); do
            [[ -S $runtime/pipewire-0 ]] && break
            sleep 0.1
        done
    done
else
    pulseaudio --daemonize=no --exit-idle-time=-1 --disallow-exit -n \
        --load="module-native-protocol-unix socket=$runtime/pulse/native auth-anonymous=1" \
        --load="module-null-sink sink_name=speaker sink_properties=device.description=Speaker" \
        --load="module-null-sink sink_name=earpiece sink_properties=device.description=Earpiece" \
        --load="module-always-sink" >"$runtime/$sound.log" 2>&1 &
    servers+=($!)
fi
cleanup() {
    for server in "${servers[@]}"; do
        kill "$server" 2>/dev/null || true
        wait "$server" 2>/dev/null || true
    done
    rm -rf "$runtime"
}
trap cleanup EXIT

for _ in $(seq 50); do
    pactl info >/dev/null 2>&1 && break
    sleep 0.1
done
if ! pactl info >/dev/null 2>&1; then
    echo "$sound did not start:" >&2
    cat "$runtime/$sound.log" >&2
    exit 1
fi
if [[ $sound == pipewire ]]; then
    # The sinks as a user makes them, through the PulseAudio server; the session manager takes
    # a moment to know a new sink before it can be the default.
    pactl load-module module-null-sink sink_name=speaker sink_properties=device.description=Speaker >/dev/null
    pactl load-module module-null-sink sink_name=earpiece sink_properties=device.description=Earpiece >/dev/null
    for _ in $(seq 50); do
        pactl set-default-sink speaker 2>/dev/null && break
        sleep 0.1
    done
    pactl set-default-sink speaker
fi

cd "$build"
ctest --output-on-failure --parallel 2 "${ctest_options[@]}" "$@"
