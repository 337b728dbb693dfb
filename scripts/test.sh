#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Installs what is needed, builds, and runs every test. Each test starts its
# own X server and session bus where it needs them.
#   scripts/test.sh             the normal build, in build/
#   scripts/test.sh --sanitize  AddressSanitizer + UBSan build, in build-asan/
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup-debian.sh
if [ "${1:-}" = "--sanitize" ]; then
  export QUILLET_BUILD_DIR=build-asan QUILLET_BUILD_TYPE=Debug
  export ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  bash scripts/build.sh -DQUILLET_SANITIZE=ON
else
  bash scripts/build.sh
fi
ctest --test-dir "${QUILLET_BUILD_DIR:-build}" --output-on-failure -j 2
