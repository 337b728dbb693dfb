#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Runs one test program in a session of its own:
#   session-run.sh [--x11] [--wm] [--dbus] [--audio] -- program [args...]
# Always: a private HOME and XDG folders, the C.UTF-8 locale, UTC.
# --x11: a private Xvfb display; --wm: openbox on it; --dbus: a private
# session bus (dbus-run-session); --audio: a private sound server with two
# silent outputs, "alert" (the default) and "speakers", whose monitors can be
# recorded. Everything started here ends with the test.
set -u
x11=0 wm=0 dbus=0 audio=0
while [ $# -gt 0 ]; do
  case "$1" in
    --x11) x11=1 ;;
    --wm) x11=1; wm=1 ;;
    --dbus) dbus=1 ;;
    --audio) audio=1 ;;
    --) shift; break ;;
    *) echo "session-run: unknown option $1" >&2; exit 2 ;;
  esac
  shift
done

home=$(mktemp -d "${TMPDIR:-/tmp}/quillet-test.XXXXXX")
pids=()
cleanup() {
  for p in "${pids[@]}"; do kill "$p" 2>/dev/null; done
  for p in "${pids[@]}"; do wait "$p" 2>/dev/null; done
  rm -rf "$home"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

export HOME="$home/home"
export XDG_CONFIG_HOME="$HOME/.config" XDG_DATA_HOME="$HOME/.local/share"
export XDG_CACHE_HOME="$HOME/.cache" XDG_RUNTIME_DIR="$home/run"
mkdir -p "$HOME" "$XDG_CONFIG_HOME" "$XDG_DATA_HOME" "$XDG_CACHE_HOME" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
export LANG=C.UTF-8 LC_ALL=C.UTF-8 LANGUAGE=en TZ=UTC
export QT_QPA_PLATFORM=offscreen
unset DBUS_SESSION_BUS_ADDRESS

if [ "$x11" = 1 ]; then
  # Xvfb picks a free display itself (-displayfd): choosing one by looking
  # for lock files races with tests that start at the same time.
  Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp -noreset \
    3>"$home/display" >"$home/xvfb.log" 2>&1 &
  pids+=($!)
  for _ in $(seq 1 200); do
    [ -s "$home/display" ] && break
    sleep 0.05
  done
  n=$(tr -dc 0-9 <"$home/display")
  [ -n "$n" ] || { echo "session-run: Xvfb did not start" >&2; cat "$home/xvfb.log" >&2; exit 1; }
  export DISPLAY=":$n" QT_QPA_PLATFORM=xcb
  if [ "$wm" = 1 ]; then
    openbox --sm-disable >"$home/openbox.log" 2>&1 &
    pids+=($!)
    # wait until the window manager has claimed the screen
    for _ in $(seq 1 100); do
      xprop -root _NET_SUPPORTING_WM_CHECK 2>/dev/null | grep -q 'window id' && break
      sleep 0.05
    done
  fi
fi

if [ "$audio" = 1 ]; then
  pulseaudio --daemonize=no --exit-idle-time=-1 --use-pid-file=no -n \
    --load=module-native-protocol-unix \
    --load="module-null-sink sink_name=alert sink_properties='device.description=Alert device.vendor.name=Quillet'" \
    --load="module-null-sink sink_name=speakers sink_properties=device.description=Speakers" \
    --load=module-stream-restore \
    >"$home/pulseaudio.log" 2>&1 &
  pids+=($!)
  for _ in $(seq 1 100); do
    pactl info >/dev/null 2>&1 && break
    sleep 0.05
  done
  pactl set-default-sink alert
fi

if [ "$dbus" = 1 ]; then
  dbus-run-session -- "$@"
else
  "$@"
fi
