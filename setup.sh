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
# l3tunnel agent reads the kernel through libmnl; its tests drive iproute2.
[ -f /usr/include/libmnl/libmnl.h ] || need+=(libmnl-dev)
command -v pkg-config >/dev/null || need+=(pkg-config)
command -v ip >/dev/null || need+=(iproute2)
# Where it is found, the configure registers the test of the --json output.
/usr/bin/python3 -c 'import jsonschema' 2>/dev/null || need+=(python3-jsonschema)
if [ ${#need[@]} -gt 0 ]; then
   echo "installing: ${need[*]}"
   . tools/apt.sh
   apt_install setup.sh "${need[@]}"
fi

cmake -S . -B build >/dev/null
cmake --build build -j2
./build/tools/l3tunnel/l3tunnel run examples/default.json
