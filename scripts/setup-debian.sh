#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Installs every Debian 12 package that building, running and testing Quillet
# needs. Idempotent: when everything is present it only checks and exits.
set -euo pipefail

packages=(
  # build
  build-essential cmake ninja-build pkg-config clang clang-format libclang-rt-14-dev
  # Qt 6 and the libraries the project links
  qt6-base-dev qt6-base-dev-tools qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools
  qt6-multimedia-dev qt6-image-formats-plugins qt6-svg-dev qt6-qpa-plugins
  libqt6svg6 libqt6uitools6 libqt6opengl6-dev libgl-dev libplist-dev libx11-dev libxss-dev libxkbcommon-dev libxkbcommon-x11-dev
  libatspi2.0-dev libpulse-dev libbenchmark-dev libglib2.0-dev libxfixes-dev
  libicu-dev libgumbo-dev
  # running: session bus, X server and window manager for tests, sound server,
  # privilege elevation, desktop database
  dbus dbus-x11 xvfb xauth openbox x11-utils xdotool pulseaudio pulseaudio-utils pkexec polkitd
  desktop-file-utils xdg-utils
  # the desktop's settings: GSettings with GNOME's schemas, read through dconf
  gsettings-desktop-schemas dconf-gsettings-backend dconf-service libglib2.0-bin
  # a Wayland session: compositor, Qt's platform plugin, accessibility bus
  weston qt6-wayland at-spi2-core
  # Debian packages: CPack's shared-library dependencies, their check
  dpkg-dev file lintian
  # data and peer tools used by tests and benchmarks
  unicode-data uchardet procps python3 python3-psutil libxcb-damage0-dev
)

missing=()
for p in "${packages[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#packages[@]} packages present"
  exit 0
fi

sudo=""
if [ "$(id -u)" -ne 0 ]; then sudo="sudo"; fi
echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
$sudo apt-get update -qq
$sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
