#!/usr/bin/env bash
# SPDX-FileCopyrightText: 2026 Quillet developers
# SPDX-License-Identifier: MIT
#
# Configures and builds Quillet into build/ (or $QUILLET_BUILD_DIR).
# Extra arguments go to CMake's configure step.
set -euo pipefail
cd "$(dirname "$0")/.."
dir="${QUILLET_BUILD_DIR:-build}"
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE="${QUILLET_BUILD_TYPE:-RelWithDebInfo}" "$@" >/dev/null
cmake --build "$dir" -j "$(nproc)"
