#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# The installer in a Wayland session (run by session-run.sh --wayland
# --dbus): started as the sample product starts it, with Qt's default
# choice of platform plugin, its buttons pressed through AT-SPI. Its window
# must reach the compositor and the run must end with the product launched.
# The X11 mechanisms (front process, activation) find no X server here and
# must answer as a failed platform call would, not end the installer.
#   tst_wayland.sh BUILD_DIR HELPERS_DIR
set -euo pipefail
build=$1 helpers=$2
fail() { echo "FAIL: $*" >&2; exit 1; }
[ -n "${WAYLAND_DISPLAY:-}" ] && [ -z "${DISPLAY:-}" ] || fail "not a Wayland-only session"

sample="$build/examples/Sample.app"
installer="$sample/Contents/Resources/QuilletInstaller.app/Contents/Linux/QuilletInstaller"
log="$HOME/Library/Logs/QuilletInstaller.log"
destination="$HOME/Applications/Sample.app"
mkdir -p "$HOME/Applications"

cleanup() {
  # The installer and the product it launched; nothing else.
  for exe in /proc/[0-9]*/exe; do
    case "$(readlink "$exe" 2>/dev/null)" in
      "$destination"/* | "$installer") pid=${exe#/proc/}; kill "${pid%/exe}" 2>/dev/null || true ;;
    esac
  done
}
trap cleanup EXIT

# As an assistive technology in the session would have it.
export QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
"$installer" -productName Sample -version 1.0 -sourcePath "$sample" \
  -readMePath "$sample/Contents/Resources/ReadMe.rtf" -destinationPath "$destination" \
  -completionSound YES &
pid=$!
"$helpers/atspipress" "$pid" Continue Install || fail "could not press the installer's buttons"
for _ in $(seq 1 1200); do
  grep -q "launched immediately\|ERROR --" "$log" 2>/dev/null && break
  kill -0 "$pid" 2>/dev/null || break
  sleep 0.1
done
kill -0 "$pid" 2>/dev/null || fail "the installer ended early:"$'\n'"$(cat "$log")"
for line in "successfully copied" "launched immediately: 1"; do
  grep -qF "$line" "$log" || fail "the log lacks \"$line\":"$'\n'"$(cat "$log")"
done
[ -x "$destination/Contents/Linux/Sample" ] || fail "nothing at $destination"
# The compositor's own record: the installer made a toplevel window with its
# title and put a buffer on a surface.
grep -q 'set_title("Sample Installer")' "$QUILLET_WESTON_LOG" || fail "no installer window in weston's log"
grep -q 'wl_surface@[0-9]*\.attach(wl_buffer@' "$QUILLET_WESTON_LOG" || fail "no buffer shown"
echo PASS
