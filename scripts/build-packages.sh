#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Builds the Debian packages quillet-installer and libquillet-dev into
# build-package/ (or the folder given): a release build for /usr with
# Debian's hardening flags, no tests, no examples, then CPack. Prints the
# paths of the two .deb files.
#   scripts/build-packages.sh [folder]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=$(mkdir -p "${1:-$root/build-package}" && cd "${1:-$root/build-package}" && pwd)

# The flags Debian builds its own packages with (hardening included).
export DEB_BUILD_MAINT_OPTIONS=hardening=+all
CFLAGS="$(dpkg-buildflags --get CFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
CXXFLAGS="$(dpkg-buildflags --get CXXFLAGS) $(dpkg-buildflags --get CPPFLAGS)"
LDFLAGS=$(dpkg-buildflags --get LDFLAGS)
export CFLAGS CXXFLAGS LDFLAGS

cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DQUILLET_BUILD_TESTS=OFF -DQUILLET_BUILD_EXAMPLES=OFF >/dev/null
cmake --build "$dir" -j "$(nproc)" >/dev/null
rm -f "$dir"/*.deb
(cd "$dir" && cpack -G DEB >/dev/null)
ls "$dir"/*.deb
