#!/usr/bin/env bash
# Installs what a fresh Debian machine lacks, builds, and runs l3tunnel on
# the default example scenario.
set -euo pipefail
cd "$(dirname "$0")"

need=()
command -v cmake >/dev/null || need+=(cmake)
command -v g++ >/dev/null || need+=(g++)
[ -f /usr/include/gtest/gtest.h ] || need+=(libgtest-dev)
[ -f /usr/include/gmock/gmock.h ] || need+=(libgmock-dev)
[ -f /usr/include/benchmark/benchmark.h ] || need+=(libbenchmark-dev)
[ -f /usr/include/nlohmann/json.hpp ] || need+=(nlohmann-json3-dev)
if [ ${#need[@]} -gt 0 ]; then
   echo "installing: ${need[*]}"
   sudo_cmd=""
   [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
   $sudo_cmd apt-get update -qq
   DEBIAN_FRONTEND=noninteractive $sudo_cmd apt-get install -y -qq "${need[@]}"
fi

cmake -S . -B build >/dev/null
cmake --build build -j2
./build/tools/l3tunnel/l3tunnel run examples/default.json
