#!/usr/bin/env bash
# Installs the Debian packages that building, running and testing Vantrel Plus need, when
# any of them is missing. Uses sudo when not run as root.
# With --packaging: also what building and checking the Debian package needs.
# With --pipewire: also PipeWire's sound server, for the playback tests' second run.
set -euo pipefail

packages=(
    # build
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-svg-dev qt6-sensors-dev
    libphonenumber-dev libpulse-dev libavformat-dev libavcodec-dev libswresample-dev libavutil-dev
    # playback speed without a change of pitch: FFmpeg's tempo filter
    libavfilter-dev
    libbenchmark-dev
    # the share sheet's preview lists archives with libzip
    libzip-dev
    # the applications for a file type come from GIO
    libglib2.0-dev
    # the desktop's address books (GNOME, Phosh): Evolution Data Server's client library
    libebook1.2-dev
    # run: display back ends (X11 comes with Qt; Wayland for phones), glyphs, fonts, helpers
    libqt6svg6 qt6-qpa-plugins qt6-wayland fonts-dejavu-core xdg-utils zip dbus dbus-bin dbus-daemon
    # test: a private session bus and an audio server with null sinks
    pulseaudio pulseaudio-utils
    # test: media keys are pressed by the real MPRIS client
    playerctl
    # test: a real Evolution Data Server on the test's own bus
    evolution-data-server
    # test: archives are read back as a user would list them
    unzip
    # test: the audio decoder's recordings are made fresh by the ffmpeg tool
    ffmpeg
    # test: the real window on a real X server, read as a window manager reads it
    xvfb x11-utils
    # test: the real window on Phosh's compositor, read back as a phone's shell reads it
    # (without recommends: phoc's would bring PipeWire's server in place of PulseAudio)
    phoc grim wlr-randr libwlroots-examples
    # test: call-back reaches the dialer that Linux phones run, with its stand-in modem
    gnome-calls
)
for group in "$@"; do
    case $group in
    --packaging)
        packages+=(dpkg-dev debhelper lintian desktop-file-utils appstream man-db)
        ;;
    --pipewire)
        packages+=(pipewire pipewire-pulse wireplumber)
        ;;
    *)
        echo "setup.sh: unknown option $group" >&2
        exit 2
        ;;
    esac
done

missing=()
for package in "${packages[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if ((${#missing[@]} == 0)); then
    exit 0
fi

echo "Installing: ${missing[*]}"
as_root=()
if [[ $(id -u) -ne 0 ]]; then
    as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -qq
"${as_root[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}"
