#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Installs what is needed, builds, and starts the sample product the way a
# user would: from a folder outside the Applications folders, where it hands
# itself to the installer it carries. Without a display, the run happens on a
# private X server and a screenshot of the installer is saved.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
bash scripts/build.sh

# A copy of the product where a downloaded one would be.
volume="${TMPDIR:-/tmp}/Sample-1.0"
rm -rf "$volume"
mkdir -p "$volume"
cp -a build/examples/Sample.app "$volume/"
product="$volume/Sample.app/Contents/Linux/Sample"

if [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
  "$product"
  echo "The installer is open. Its log: ~/Library/Logs/QuilletInstaller.log"
else
  echo "No display: running on a private X server."
  exec tests/session-run.sh --wm --dbus -- bash -c '
    "$1"
    sleep 3
    # Press Return twice, as a user would: "Continue" on the read-me page,
    # then "Install".
    window=$(timeout 20 xdotool search --sync --name "Sample Installer" | head -n 1)
    xdotool windowactivate --sync "$window"
    sleep 0.5
    xdotool key --clearmodifiers Return
    sleep 1
    xdotool key --clearmodifiers Return
    sleep 8
    mkdir -p build/screenshots
    if command -v xwd >/dev/null && command -v convert >/dev/null; then
      xwd -root -silent | convert xwd:- build/screenshots/try-sample.png 2>/dev/null || true
    fi
    if pgrep -f QuilletInstaller >/dev/null; then
      echo "The installer is running; its log:"
    fi
    [ -f build/screenshots/try-sample.png ] && echo "Screenshot: build/screenshots/try-sample.png"
    cat "$HOME/Library/Logs/QuilletInstaller.log"
  ' _ "$product"
fi
