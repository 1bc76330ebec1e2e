#!/usr/bin/env bash
# Builds and runs the whole test suite. BUILD_DIR and extra CMake options
# (e.g. -DL3TUNNEL_SANITIZE=ON) may be given.
set -euo pipefail
cd "$(dirname "$0")"
build="${BUILD_DIR:-build}"
cmake -S . -B "$build" "$@" >/dev/null
cmake --build "$build" -j2
ctest --test-dir "$build" --output-on-failure -j2
