#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Start-up of the installer window against a bare Qt window showing one
# label (tests/helpers/windowapp), measured in the same run on a private X
# server and session bus: time from start to the window mapped and to its
# first drawing, and resident memory at each. Runs alternate (installer,
# bare window) so that a busy machine weighs on both alike; prints each
# pair's medians and ratios (target: at most 1.25 for the map and the
# memory then; the first drawing is reported beside it).
#   bench/installer/start-up.sh [build-dir] [runs]
set -euo pipefail
here="$(cd "$(dirname "$0")" && pwd)"
root="$(cd "$here/../.." && pwd)"
build="$(cd "${1:-$root/build}" && pwd)"
runs="${2:-15}"

if [ "${QUILLET_STARTUP_INSIDE:-}" != 1 ]; then
  export QUILLET_STARTUP_INSIDE=1
  exec "$root/tests/session-run.sh" --x11 --dbus -- "$0" "$build" "$runs"
fi

sample="$build/examples/Sample.app"
installer="$sample/Contents/Resources/QuilletInstaller.app/Contents/Linux/QuilletInstaller"
bare="$build/tests/helpers/windowapp"
for f in "$installer" "$bare"; do
  [ -x "$f" ] || { echo "build $f first (targets SampleBundle and windowapp)" >&2; exit 2; }
done
work=$(mktemp -d "${TMPDIR:-/tmp}/quillet-startup.XXXXXX")
trap 'rm -rf "$work"' EXIT
cc -O2 -o "$work/mapwait" "$here/mapwait.c" $(pkg-config --cflags --libs xcb xcb-damage)

# As the sample product starts it (examples/sample/main.cpp).
args=(-productName Sample -version 1.0 -sourcePath "$sample"
      -readMePath "$sample/Contents/Resources/ReadMe.rtf" -completionSound YES
      -documentationURL https://www.quillet.dev/sample/)

# One untimed start each fills the page cache.
"$work/mapwait" "$installer" "${args[@]}" >/dev/null
"$work/mapwait" "$bare" >/dev/null
for _ in $(seq 1 "$runs"); do
  echo "installer $("$work/mapwait" "$installer" "${args[@]}")" >>"$work/results"
  echo "bare $("$work/mapwait" "$bare")" >>"$work/results"
done

python3 - "$work/results" <<'PY'
import statistics, sys
rows = [line.split() for line in open(sys.argv[1])]
def median(kind, column):
    return statistics.median(float(r[column]) for r in rows if r[0] == kind)
n = sum(1 for r in rows if r[0] == "bare")
print(f"runs: {n} each, alternating; medians")
for label, ms, kib in (("mapped", 1, 2), ("first drawn", 3, 4)):
    ms_i, ms_b = median("installer", ms), median("bare", ms)
    kb_i, kb_b = median("installer", kib), median("bare", kib)
    print(f"{label + ':':13} installer {ms_i:5.1f} ms {kb_i / 1024:4.1f} MiB, "
          f"bare Qt window {ms_b:5.1f} ms {kb_b / 1024:4.1f} MiB, "
          f"ratios {ms_i / ms_b:.2f} (time) {kb_i / kb_b:.2f} (memory)")
PY
