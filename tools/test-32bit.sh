#!/usr/bin/env bash
# Builds the library, its tests and its benchmarks for 32-bit x86 (-m32, with
# Debian's i386 multiarch packages), checks that what was built is 32-bit, and
# runs the tests. BUILD_DIR (default build-32) and extra CMake options may be
# given.
#   BUILD_DIR=build-32 tools/test-32bit.sh
set -euo pipefail
cd "$(dirname "$0")/.."
build="${BUILD_DIR:-build-32}"

installed() { dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "ok installed"; }
need=()
for p in g++-multilib libgtest-dev:i386 libgmock-dev:i386 libbenchmark-dev:i386 \
   nlohmann-json3-dev cmake file; do
   installed "$p" || need+=("$p")
done
if [ ${#need[@]} -gt 0 ]; then
   sudo_cmd=""
   [ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
   if ! dpkg --print-foreign-architectures | grep -qx i386; then
      $sudo_cmd dpkg --add-architecture i386
   fi
   . tools/apt.sh
   apt_install test-32bit.sh "${need[@]}"
fi

cmake -S . -B "$build" -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/i386-linux-gnu.cmake" \
   -DCMAKE_BUILD_TYPE=Release -DL3TUNNEL_BENCH=ON "$@" >/dev/null
cmake --build "$build" -j2

# Every program and library built must be 32-bit; the benchmarks must exist,
# since they give the 32-bit memory figures.
[ -x "$build/bench/l3tunnel_bench" ] || {
   echo "test-32bit.sh: no 32-bit benchmark binary (is libbenchmark-dev:i386 installed?)" >&2
   exit 1
}
checked=0
while IFS= read -r -d '' f; do
   kind="$(file -b "$f")"
   case "$kind" in
      "ELF 32-bit"*) checked=$((checked + 1)) ;;
      ELF*)
         echo "test-32bit.sh: $f is not 32-bit: $kind" >&2
         exit 1
         ;;
   esac
done < <(find "$build" -path "$build/CMakeFiles" -prune -o -path '*/CMakeFiles/*' -prune -o \
   -type f \( -name '*.so' -o -name '*.so.*' -o -perm -u+x \) -print0)
echo "test-32bit.sh: $checked ELF files, all 32-bit"

ctest --test-dir "$build" --output-on-failure -j2
