#!/usr/bin/env bash
# Builds the Debian packages (vantrel, vantrel-evolution) from the working tree into dist/,
# then checks them as a Debian maintainer would: lintian on the result, desktop-file-validate
# on the launcher entry, appstreamcli on the metainfo. Any finding fails the script.
set -euo pipefail
cd "$(dirname "$0")/.."
./scripts/setup.sh --packaging
# The build-dependencies, from debian/control, are what setup.sh installs for a build.
dpkg-checkbuilddeps

desktop-file-validate resources/net.zorvath.vantrel.desktop
appstreamcli validate --no-net --pedantic resources/net.zorvath.vantrel.metainfo.xml

# Built in a copy of the tracked and new files, so that no build folder of the working tree
# ends up in the package and dpkg-buildpackage's output stays out of the parent folder.
work=$(mktemp -d /tmp/vantrel-package-XXXXXX)
trap 'rm -rf "$work"' EXIT
version=$(dpkg-parsechangelog -S Version)
source="$work/vantrel-$version"
mkdir "$source"
git ls-files -z --cached --others --exclude-standard |
    grep -zv -e '^build' -e '^dist/' | xargs -0 cp --parents -t "$source"
(cd "$source" && dpkg-buildpackage -us -uc -b -j"$(nproc)")

mkdir -p dist
rm -f dist/*.deb dist/*.changes dist/*.buildinfo
cp "$work"/*.deb "$work"/*.changes "$work"/*.buildinfo dist/
lintian --fail-on error,warning --suppress-tags-from-file debian/lintian-kept dist/*.changes
ls dist/*.deb
