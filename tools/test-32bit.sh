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
   nlohmann-json3-dev cmake file python3-jsonschema libmnl-dev:i386 pkg-config iproute2; do
   installed "$p" || need+=("$p")
done
sudo_cmd=""
[ "$(id -u)" -eq 0 ] || sudo_cmd="sudo"
. tools/apt.sh
if [ ${#need[@]} -gt 0 ]; then
   if ! dpkg --print-foreign-architectures | grep -qx i386; then
      $sudo_cmd dpkg --add-architecture i386
   fi
   apt_install test-32bit.sh "${need[@]}"
fi

# Some kernels run no 32-bit program (IA-32 emulation switched off): "Exec
# format error". The tests then run under qemu's user-mode emulation,
# registered with binfmt_misc so that the programs the tests start run too,
# and the random runs, some ten times slower there, take a tenth of the seeds.
mkdir -p "$build"
probe="$build/probe32"
printf 'int main(void) { return 0; }\n' | gcc -m32 -x c -o "$probe" -
binfmt=/proc/sys/fs/binfmt_misc
qemu=/usr/bin/qemu-i386-static
if ! "$probe" 2>/dev/null; then
   [ -x "$qemu" ] || apt_install test-32bit.sh qemu-user-static
   [ -e "$binfmt/register" ] || $sudo_cmd mount -t binfmt_misc binfmt_misc "$binfmt"
   if [ ! -e "$binfmt/qemu-i386" ]; then
      magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00'
      mask='\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
      printf '%s\n' ":qemu-i386:M::$magic:$mask:$qemu:F" | $sudo_cmd tee "$binfmt/register" >/dev/null
   fi
   "$probe" || {
      echo "test-32bit.sh: this machine runs no 32-bit program, not even under $qemu" >&2
      exit 1
   }
fi
rm -f "$probe"
# Registered by an earlier run, the emulator takes every 32-bit program.
if [ -r "$binfmt/qemu-i386" ] && [ "$(head -n 1 "$binfmt/qemu-i386")" = enabled ]; then
   export MODEL_RUNS="${MODEL_RUNS:-150}"
   echo "test-32bit.sh: 32-bit programs run under $qemu (random runs: $MODEL_RUNS seeds)"
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
