#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# The packages as a product developer and an administrator meet them: builds
# quillet-installer and libquillet-dev, checks them with lintian, installs
# them with dpkg, builds examples/sample out of tree against the installed
# CMake package (and a program against the pkg-config files), installs the
# product through the installer it carries, on the privileged path through
# the installed helper, then purges the packages.
#   tst_packages.sh SOURCE_DIR ATSPIPRESS
# Needs root; exits 77 (skipped) without it, or when the machine already has
# what the test would install. Everything it adds goes again, also when a
# step fails.
set -euo pipefail

src=$(cd "$1" && pwd)
atspipress=$2 # tests/helpers/atspipress: presses the installer's buttons
helper=/usr/libexec/quillet/train
action=/usr/share/polkit-1/actions/dev.quillet.installer.policy
product=/opt/Sample.app
entry=/usr/local/share/applications/quillet-app.dev.quillet.sample.desktop
icon=/usr/local/share/icons/hicolor/256x256/apps/quillet-app.dev.quillet.sample.png
packages=(libquillet-dev quillet-installer)

skip() { echo "SKIP: $*"; exit 77; }
fail() { echo "FAIL: $*" >&2; exit 1; }
check() { # check DESCRIPTION COMMAND...
  local what=$1; shift
  "$@" || fail "$what"
}

[ "$(id -u)" = 0 ] || skip "installing packages needs root"
for p in "${packages[@]}"; do
  state=$(dpkg-query -W -f='${db:Status-Status}' "$p" 2>/dev/null || true)
  [ -z "$state" ] || [ "$state" = not-installed ] || skip "$p is on this machine ($state)"
done
for f in "$helper" "$action" "$product" "$entry" "$icon"; do
  [ ! -e "$f" ] || skip "$f exists already"
done

work=$(mktemp -d "${TMPDIR:-/tmp}/quillet-packages.XXXXXX")
had_applications=0 had_icons=0
[ -d /usr/local/share/applications ] && had_applications=1
[ -d /usr/local/share/icons ] && had_icons=1
installed=0
cleanup() {
  # Our processes only: those running from the product we installed or from
  # the test's own folder.
  for exe in /proc/[0-9]*/exe; do
    target=$(readlink "$exe" 2>/dev/null) || continue
    case "$target" in
      "$product"/* | "$work"/*) pid=${exe#/proc/}; kill -9 "${pid%/exe}" 2>/dev/null || true ;;
    esac
  done
  [ "$installed" = 0 ] || dpkg --purge "${packages[@]}" >/dev/null || true
  rm -rf "$product" "$entry" "$icon"
  if [ "$had_applications" = 0 ]; then rm -rf /usr/local/share/applications
  else update-desktop-database -q /usr/local/share/applications 2>/dev/null || true; fi
  [ "$had_icons" = 1 ] || rm -rf /usr/local/share/icons
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

echo "== building the packages"
bash "$src/scripts/build-packages.sh" "$work/build" >/dev/null
debs=("$work"/build/*.deb)
check "two packages" [ ${#debs[@]} = 2 ]
echo "== lintian"
tags=$(lintian --fail-on warning,error "${debs[@]}" 2>&1) || fail "lintian: $tags"

echo "== installing them"
installed=1
dpkg -i "${debs[@]}" >/dev/null
check "the helper is root's, 0755" [ "$(stat -c '%U:%G %a' "$helper")" = "root:root 755" ]
check "the action points at the helper" \
  grep -q "org.freedesktop.policykit.exec.path\">$helper<" "$action"

echo "== building the sample product against them"
cmake -S "$src/examples/sample" -B "$work/sample" -G Ninja -DCMAKE_BUILD_TYPE=Release >/dev/null
cmake --build "$work/sample" >/dev/null
bundle="$work/sample/examples/Sample.app"
check "the product carries the installed installer" \
  cmp -s /usr/libexec/quillet/QuilletInstaller.app/Contents/Linux/QuilletInstaller \
  "$bundle/Contents/Resources/QuilletInstaller.app/Contents/Linux/QuilletInstaller"

echo "== a program built with pkg-config"
cat >"$work/code.cpp" <<'EOF'
#include <utilities/vxfourcharcode.h>
#include <cstdio>
int main() { std::printf("%u\n", VXFourCharCode::make("QSmp")); }
EOF
# shellcheck disable=SC2046
g++ -fPIC -o "$work/code" "$work/code.cpp" $(pkg-config --cflags --libs quillet-vxwidgets)
check "the pkg-config program runs" [ "$("$work/code")" = $((0x51536d70)) ]

echo "== installing the product through the installed installer"
# In pkexec's place: allows what an administrator's rule for the action
# allows, the helper the installed action names, and runs it as root.
cat >"$work/elevate.sh" <<EOF
#!/bin/sh
echo "\$1" >"$work/elevated"
[ "\$1" = "\$(sed -n 's|.*exec.path">\\([^<]*\\)<.*|\\1|p' $action)" ] || exit 127
exec env PKEXEC_UID=0 "\$@"
EOF
chmod 755 "$work/elevate.sh"
"$src/tests/session-run.sh" --wm --dbus -- bash -c '
  set -eu
  mkdir -p "$XDG_CONFIG_HOME/Quillet"
  printf "[General]\nelevationCommand=%s\n" "$2" >"$XDG_CONFIG_HOME/Quillet/QuilletInstaller.ini"
  log="$HOME/Library/Logs/QuilletInstaller.log"
  # The Alt (Option) key held while "Install" is pressed takes the
  # privileged path, although root may write to /opt.
  xdotool keydown alt
  export QT_LINUX_ACCESSIBILITY_ALWAYS_ON=1
  "$1"
  pid=
  for _ in $(seq 1 600); do
    for exe in /proc/[0-9]*/exe; do
      if [ "$(readlink "$exe" 2>/dev/null)" = "$3" ]; then pid=${exe#/proc/}; pid=${pid%/exe}; fi
    done
    [ -n "$pid" ] && break
    sleep 0.1
  done
  [ -n "$pid" ] || { echo "FAIL: the product did not start its installer" >&2; exit 1; }
  "$4" "$pid" Continue Install
  for _ in $(seq 1 1500); do
    grep -q "launched immediately\|ERROR --\|User canceled" "$log" && break
    sleep 0.2
  done
  xdotool keyup alt
  cp "$log" "$5"
' _ "$bundle/Contents/Linux/Sample" "$work/elevate.sh" \
  "$bundle/Contents/Resources/QuilletInstaller.app/Contents/Linux/QuilletInstaller" "$atspipress" \
  "$work/installer.log"
log=$(cat "$work/installer.log")
for line in "enforcing authorization" "successfully copied" "launched immediately: 1"; do
  grep -qF "$line" <<<"$log" || fail "the log lacks \"$line\":"$'\n'"$log"
done
check "the installed helper ran" [ "$(cat "$work/elevated")" = "$helper" ]
check "the product is in /opt, root's" [ "$(stat -c %U "$product/Contents/Linux/Sample")" = root ]
check "the helper registered it for all users" [ -f "$entry" ]

echo "== purging the packages"
dpkg --purge "${packages[@]}" >/dev/null
installed=0
check "the helper is gone" [ ! -e /usr/libexec/quillet ]
check "the action is gone" [ ! -e "$action" ]
if pkg-config --exists quillet-vxcore; then fail "the library is still there"; fi
echo "PASS"
