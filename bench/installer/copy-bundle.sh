#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Puts a generated 300 MB, 5,000-file bundle into place over an old copy,
# the plain way (the installer's copy step, as the user) and the privileged
# way (the helper, as root, into /opt; only when run as root), and copies
# the same tree with `cp -a` in the same run. Pairs are fair: every copy
# goes to a fresh name (earlier results are moved aside, not deleted, so
# that no copy reuses the inodes another just freed), and the order within
# a pair alternates. Prints the median of the per-pair ratios (ours / cp).
#   bench/installer/copy-bundle.sh [build-dir] [pairs]
set -euo pipefail
build="${1:-build-bench}"
pairs="${2:-5}"
worker="$build/tests/helpers/copyworker"
helper="$build/QuilletInstaller.app/Contents/Resources/train"
[ -x "$worker" ] || { echo "build $worker first (tests on, any build type)" >&2; exit 2; }
work=$(mktemp -d "${TMPDIR:-/tmp}/quillet-bench.XXXXXX")
chmod 755 "$work"
opt="/opt/QuilletBench-$$.app"
trap 'rm -rf "$work" "$opt" /opt/.QuilletBench-$$.app.* "$HOME/.local/share/Trash/files/QuilletBench-$$.app"*' EXIT
export HOME="$work/home" XDG_DATA_HOME="$work/home/.local/share"
mkdir -p "$HOME" "$work/aside"

# 5,000 files of 60 KiB in 50 folders: 300 MB.
python3 - "$work/Volume/Big.app" <<'PY'
import os, sys
root = sys.argv[1]
block = os.urandom(60 * 1024)
for d in range(50):
    folder = os.path.join(root, "Contents", "Resources", "d%02d" % d)
    os.makedirs(folder, exist_ok=True)
    for f in range(100):
        with open(os.path.join(folder, "f%03d.bin" % f), "wb") as out:
            out.write(block)
PY
chmod -R a+rX "$work/Volume"
sync
ns() { date +%s%N; }
aside() { for p in "$@"; do [ -e "$p" ] && mv "$p" "$(mktemp -d "$work/aside/XXXXXX")/"; done; return 0; }

# One timed pair; $1 says which side runs first (the second finds a warmer
# cache, so the order alternates). Answers "ours theirs" in nanoseconds.
pair() {
  local kind=$1 first=$2 a b
  aside "$work/Applications/Big.app" "$work/cp/Big.app"
  mkdir -p "$work/cp"
  if [ "$kind" = plain ]; then
    mkdir -p "$work/Applications/Big.app/Contents"   # an old copy to replace
  else
    mkdir -p "$opt/Contents"
  fi
  ours() {
    if [ "$kind" = plain ]; then
      "$worker" "$work/Volume/Big.app" "$work/Applications/Big.app"
    else
      PKEXEC_UID=0 "$helper" "$work/Volume/Big.app" "$opt" >/dev/null
    fi
  }
  theirs() { cp -a "$work/Volume/Big.app" "$work/cp/Big.app"; }
  if [ "$first" = ours ]; then
    a=$(ns); ours; a=$(($(ns) - a))
    b=$(ns); theirs; b=$(($(ns) - b))
  else
    b=$(ns); theirs; b=$(($(ns) - b))
    a=$(ns); ours; a=$(($(ns) - a))
  fi
  echo "$a $b"
}

measure() {
  local kind=$1 ratios=() i ours theirs
  for i in $(seq "$pairs"); do
    read -r ours theirs <<<"$(pair "$kind" "$([ $((i % 2)) = 1 ] && echo ours || echo cp)")"
    ratios+=("$(awk -v o="$ours" -v t="$theirs" 'BEGIN { printf "%.3f", o / t }')")
    printf '  %s pair %d: ours %d ms, cp -a %d ms\n' "$kind" "$i" $((ours / 1000000)) $((theirs / 1000000))
  done
  printf '%s\n' "${ratios[@]}" | sort -n | awk -v k="$kind" '{ r[NR] = $1 } END {
    printf "%s: median ratio (ours / cp -a) over %d pairs: %.2f\n", k, NR, r[int((NR + 1) / 2)] }'
}

echo "bundle: 5000 files, 300 MB"
measure plain
if [ "$(id -u)" = 0 ] && [ -x "$helper" ]; then
  measure privileged
else
  echo "privileged: skipped (needs root and $helper)"
fi
