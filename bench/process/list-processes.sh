#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Lists all processes with name, signature and path through VXProcess, and
# with `ps -eo pid,comm,args`, over the same process table in the same run,
# each as a fresh process, and prints the ratio of their times (below 1:
# VXProcess is faster).
#   bench/process/list-processes.sh [build-dir] [runs]
set -euo pipefail
build="${1:-build-bench}"
runs="${2:-200}"
vxps="$build/bench/process/vxps"
[ -x "$vxps" ] || { echo "build with -DQUILLET_BUILD_BENCH=ON first: $vxps is missing" >&2; exit 2; }
processes=$(ps -e --no-headers | wc -l)
time_of() {
  local start end
  start=$(date +%s%N)
  for _ in $(seq "$runs"); do "$@" >/dev/null; done
  end=$(date +%s%N)
  echo $(( (end - start) / runs ))
}
# warm both up once (page cache, dynamic linking)
"$vxps" >/dev/null; ps -eo pid,comm,args >/dev/null
ours=$(time_of "$vxps")
theirs=$(time_of ps -eo pid,comm,args)
warm=$("$vxps" --repeat "$runs" 2>&1 >/dev/null)
awk -v o="$ours" -v t="$theirs" -v w="$warm" -v n="$processes" -v r="$runs" 'BEGIN {
  printf "processes: %d, runs: %d\n", n, r
  printf "vxps, a fresh program each time: %.2f ms per listing\n", o / 1e6
  printf "ps -eo pid,comm,args:            %.2f ms per listing\n", t / 1e6
  printf "VXProcess in a running program:  %.2f ms per listing\n", w
  printf "ratio, fresh program (vxps / ps):  %.2f\n", o / t
  printf "ratio, running program (VXProcess / ps): %.3f\n", w * 1e6 / t
}'
