#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Puts a generated 300 MB, 5,000-file bundle into place the installer's way
# (staging copy and exchange over an old copy) and copies the same tree with
# `cp -a` in the same run; prints the ratio (at most 1: as fast as cp).
#   bench/installer/copy-bundle.sh [build-dir] [runs]
set -euo pipefail
build="${1:-build-bench}"
runs="${2:-3}"
worker="$build/tests/helpers/copyworker"
[ -x "$worker" ] || { echo "build $worker first (tests on, any build type)" >&2; exit 2; }
work=$(mktemp -d "${TMPDIR:-/tmp}/quillet-bench.XXXXXX")
trap 'rm -rf "$work"' EXIT
export HOME="$work/home" XDG_DATA_HOME="$work/home/.local/share"
mkdir -p "$HOME"

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
mkdir -p "$work/Applications" "$work/cp"
sync
ms() { date +%s%N; }
ours=0 theirs=0
for _ in $(seq "$runs"); do
  rm -rf "$work/Applications/Big.app" "$work/cp/Big.app" "$work/home/.local/share/Trash"
  mkdir -p "$work/Applications/Big.app/Contents"   # an old copy to replace
  start=$(ms); "$worker" "$work/Volume/Big.app" "$work/Applications/Big.app"; ours=$((ours + $(ms) - start))
  start=$(ms); cp -a "$work/Volume/Big.app" "$work/cp/Big.app"; theirs=$((theirs + $(ms) - start))
done
awk -v o="$ours" -v t="$theirs" -v r="$runs" 'BEGIN {
  printf "bundle: 5000 files, 300 MB; runs: %d\n", r
  printf "installProductCopy: %.0f ms\n", o / r / 1e6
  printf "cp -a:              %.0f ms\n", t / r / 1e6
  printf "ratio (ours / cp -a): %.2f\n", o / t
}'
