#!/usr/bin/env bash
# The packages in dist/ (from scripts/package.sh) as a user gets them: unpacked into a
# temporary root as dpkg would, and the program run from there. Its demo's first screen is the
# picture that the build tree's program draws (build/ from scripts/test.sh), and with the
# desktop's address-book server on the bus it loads the module of its own package.
# Runs on a private session bus of its own.
set -euo pipefail
cd "$(dirname "$0")/../.."
if [[ -z ${VANTREL_PRIVATE_BUS:-} ]]; then
    exec env VANTREL_PRIVATE_BUS=1 dbus-run-session -- "$0" "$@"
fi

work=$(mktemp -d /tmp/vantrel-installed-XXXXXX)
children=()
cleanup() {
    for child in "${children[@]}"; do
        kill "$child" 2>/dev/null || true
        wait "$child" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap cleanup EXIT
fail() {
    echo "installed.sh: $*" >&2
    exit 1
}

root=$work/root
for deb in dist/vantrel_*.deb dist/vantrel-evolution_*.deb; do
    [[ -f $deb ]] || fail "no $deb: build the packages first with scripts/package.sh"
    dpkg -x "$deb" "$root"
done
installed=$root/usr/bin/vantrel
module=$(find "$root/usr/lib" -name vantrel-evolution.so)
[[ -n $module ]] || fail "the module package holds no vantrel-evolution.so"
[[ -n $(find "$root/usr/lib" -name vantrel-tempo.so) ]] ||
    fail "the package holds no vantrel-tempo.so: recordings could not play faster"

export QT_QPA_PLATFORM=offscreen TZ=America/New_York LANG=C.UTF-8
export XDG_RUNTIME_DIR=$work/runtime XDG_CONFIG_HOME=$work/config XDG_DATA_HOME=$work/data
export XDG_CACHE_HOME=$work/cache GSETTINGS_BACKEND=memory
mkdir -m 700 "$XDG_RUNTIME_DIR"

# The demo, found beside the installed program, drawn as the built program draws it.
"$installed" --demo --screenshot "$work/installed.png"
build/vantrel --demo --screenshot "$work/built.png"
if ! cmp -s "$work/installed.png" "$work/built.png"; then
    mkdir -p build/installed
    cp "$work/installed.png" "$work/built.png" build/installed/
    fail "the installed program's first screen differs from the built one's (both in build/installed/)"
fi
echo "installed.sh: the installed program shows the demo as the built one does"

# The address-book server, with folders of its own, then the installed program beside it.
has_name() {
    dbus-send --session --print-reply --dest=org.freedesktop.DBus /org/freedesktop/DBus \
        org.freedesktop.DBus.NameHasOwner "string:$1" 2>/dev/null | grep -q 'boolean true'
}
for server in evolution-source-registry:org.gnome.evolution.dataserver.Sources5 \
    evolution-addressbook-factory:org.gnome.evolution.dataserver.AddressBook10; do
    "/usr/libexec/${server%%:*}" >"$work/${server%%:*}.log" 2>&1 &
    children+=($!)
    for _ in $(seq 200); do
        has_name "${server#*:}" && break
        sleep 0.1
    done
    has_name "${server#*:}" || fail "${server%%:*} did not take its name on the bus"
done
"$installed" --demo >"$work/vantrel.log" 2>&1 &
program=$!
children+=("$program")
for _ in $(seq 300); do
    grep -qF "$module" "/proc/$program/maps" 2>/dev/null && break
    kill -0 "$program" 2>/dev/null || fail "the installed program ended: $(cat "$work/vantrel.log")"
    sleep 0.1
done
grep -qF "$module" "/proc/$program/maps" ||
    fail "the installed program did not load $module: $(cat "$work/vantrel.log")"
if grep 'vantrel-evolution' "/proc/$program/maps" | grep -vqF "$module"; then
    fail "the installed program loaded another copy of its module"
fi
echo "installed.sh: the installed program loads its own address-book module"
