#!/bin/sh
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Builds the libFuzzer targets with clang (AddressSanitizer and
# UndefinedBehaviorSanitizer) in build-fuzz/ and runs each for a bounded
# time. Exits non-zero when a target reports anything.
# Usage: scripts/run-fuzzers.sh [seconds-per-target, default 30]
set -eu
seconds=${1:-30}
root=$(cd "$(dirname "$0")/.." && pwd)
build="$root/build-fuzz"

CC=clang CXX=clang++ cmake -S "$root" -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DQUILLET_BUILD_FUZZERS=ON -DQUILLET_BUILD_TESTS=OFF -DQUILLET_SANITIZE=ON >/dev/null
targets="fuzz_stringwithhtml fuzz_htmlimport fuzz_escapes fuzz_codepoints"
# shellcheck disable=SC2086
ninja -C "$build" -j2 $targets

status=0
for t in $targets; do
    # fuzz_stringwithhtml silences standard error (the log lines), so the
    # sanitizers write their reports to files of their own.
    rm -f "$build/$t.sanitizer".*
    export ASAN_OPTIONS="detect_leaks=1:abort_on_error=1:log_path=$build/$t.sanitizer"
    export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1:log_path=$build/$t.sanitizer"
    corpus="$build/corpus/$t"
    mkdir -p "$corpus"
    echo "== $t for ${seconds}s"
    if ! "$build/fuzz/$t" -max_total_time="$seconds" -max_len=4096 -timeout=10 \
        -artifact_prefix="$build/$t-" "$corpus" >"$build/$t.log" 2>&1; then
        echo "$t: report, see $build/$t.log"
        tail -n 40 "$build/$t.log"
        status=1
    fi
    if ls "$build/$t.sanitizer".* >/dev/null 2>&1; then
        echo "$t: sanitizer report:"
        cat "$build/$t.sanitizer".*
        status=1
    fi
done
exit $status
