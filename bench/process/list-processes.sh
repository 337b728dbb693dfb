#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Lists processes through VXProcess (vxps: pid, name, signature, path), with
# `ps -eo pid,comm,args` and with psutil (pid, name, exe), each a fresh
# program, at the machine's own process count and with 1,000 and 5,000 extra
# sleeping processes of our own. Each round times the three side by side;
# the medians of the per-round ratios are printed (below 1: vxps is faster),
# and the time of one listing inside a running program (vxps --repeat).
# Then the quit detection of a cooperative child against a bare pidfd.
#   bench/process/list-processes.sh [build-dir] [rounds] [runs-per-round]
set -euo pipefail
build="${1:-build-bench}"
rounds="${2:-7}"
runs="${3:-20}"
vxps="$build/bench/process/vxps"
quit="$build/bench/process/quitlatency"
behaviour="$build/tests/helpers/behaviour"
[ -x "$vxps" ] || { echo "build with -DQUILLET_BUILD_BENCH=ON first: $vxps is missing" >&2; exit 2; }
python="${PYTHON:-/usr/bin/python3}"
"$python" -c 'import psutil' 2>/dev/null || { echo "python3-psutil is missing" >&2; exit 2; }

psutil_list='import psutil
for p in psutil.process_iter(["pid", "name", "exe"]):
    print(p.info["pid"], p.info["name"], p.info["exe"])'

# Sleepers in a process group of their own; the shell kills and reaps them
# when its input closes.
sleepers_pid=
start_sleepers() {
  coproc SLEEPERS { setsid sh -c "i=0; while [ \$i -lt $1 ]; do sleep 3600 & pids=\"\$pids \$!\"; i=\$((i+1)); done; echo ready; read x; kill \$pids; wait"; }
  sleepers_pid=$SLEEPERS_PID
  read -r _ <&"${SLEEPERS[0]}"
}
stop_sleepers() {
  [ -n "$sleepers_pid" ] || return 0
  exec {SLEEPERS[1]}>&-
  wait "$sleepers_pid" 2>/dev/null || true
  sleepers_pid=
}
trap stop_sleepers EXIT

ns() { date +%s%N; }
time_of() { # ns per run
  local start end
  start=$(ns)
  for _ in $(seq "$runs"); do "$@" >/dev/null 2>&1; done
  end=$(ns)
  echo $(( (end - start) / runs ))
}
median() { sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

printf '%-6s %9s %9s %9s %10s %9s %12s %14s\n' extra processes "vxps ms" "ps ms" "psutil ms" "vxps/ps" "vxps/psutil" "in-program ms"
for extra in 0 1000 5000; do
  [ "$extra" -gt 0 ] && start_sleepers "$extra"
  n=$( (ls -d /proc/[0-9]* 2>/dev/null || true) | wc -l)
  "$vxps" >/dev/null; ps -eo pid,comm,args >/dev/null; "$python" -c "$psutil_list" >/dev/null
  ours=() theirs=() py=() r1=() r2=()
  for _ in $(seq "$rounds"); do
    o=$(time_of "$vxps"); t=$(time_of ps -eo pid,comm,args); p=$(time_of "$python" -c "$psutil_list")
    ours+=("$o"); theirs+=("$t"); py+=("$p")
    r1+=("$(awk -v a="$o" -v b="$t" 'BEGIN { print a / b }')")
    r2+=("$(awk -v a="$o" -v b="$p" 'BEGIN { print a / b }')")
  done
  warm=$("$vxps" --repeat 20 2>&1 >/dev/null)
  printf '%-6s %9s %9.2f %9.2f %10.2f %9.2f %12.2f %14.2f\n' "$extra" "$n" \
    "$(printf '%s\n' "${ours[@]}" | median | awk '{ print $1 / 1e6 }')" \
    "$(printf '%s\n' "${theirs[@]}" | median | awk '{ print $1 / 1e6 }')" \
    "$(printf '%s\n' "${py[@]}" | median | awk '{ print $1 / 1e6 }')" \
    "$(printf '%s\n' "${r1[@]}" | median)" "$(printf '%s\n' "${r2[@]}" | median)" "$warm"
  stop_sleepers
done

echo
"$quit" "$behaviour" 200
