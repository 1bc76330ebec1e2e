#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for FUZZ_SECONDS (default 20) on a
# copy of its seeds in fuzz/corpus, so that the repository's corpus never
# grows from a run. Fails when any target finds something; the input that did
# it is kept in BUILD_DIR/fuzz-artifacts. Extra arguments pick the targets.
#   BUILD_DIR=build-fuzz FUZZ_SECONDS=20 tools/fuzz.sh [fuzz_scenario ...]
set -euo pipefail
cd "$(dirname "$0")/.."
build="${BUILD_DIR:-build-fuzz}"
seconds="${FUZZ_SECONDS:-20}"

# clang and its fuzzer runtime; the runtime's package follows clang's version.
can_fuzz() {
   command -v clang++ >/dev/null &&
      echo 'extern "C" int LLVMFuzzerTestOneInput(const char*, unsigned long) { return 0; }' |
      clang++ -x c++ -fsanitize=fuzzer,address,undefined -o /dev/null - 2>/dev/null
}
if ! can_fuzz; then
   . tools/apt.sh
   command -v clang++ >/dev/null || apt_install fuzz.sh clang
   major="$(clang++ -dumpversion | cut -d. -f1)"
   apt_install fuzz.sh "libclang-rt-${major}-dev"
   can_fuzz || { echo "fuzz.sh: clang cannot build fuzz targets" >&2; exit 1; }
fi

CC=clang CXX=clang++ cmake -S . -B "$build" -DL3TUNNEL_FUZZ=ON -DL3TUNNEL_TESTS=OFF \
   -DL3TUNNEL_BENCH=OFF >/dev/null
cmake --build "$build" --target fuzz_targets -j2

targets=("$@")
if [ ${#targets[@]} -eq 0 ]; then
   for dir in fuzz/corpus/*/; do targets+=("$(basename "$dir")"); done
fi

# The scratch files of the targets (the chip's saves sync) live in memory when
# they can, and go with the run.
scratch="$(mktemp -d -p /dev/shm l3tunnel-fuzz.XXXXXX 2>/dev/null || mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
artifacts="$build/fuzz-artifacts"
mkdir -p "$artifacts"

export ASAN_OPTIONS="detect_leaks=1:abort_on_error=0${ASAN_OPTIONS:+:$ASAN_OPTIONS}"
export UBSAN_OPTIONS="print_stacktrace=1:halt_on_error=1${UBSAN_OPTIONS:+:$UBSAN_OPTIONS}"
failed=()
for t in "${targets[@]}"; do
   corpus="$scratch/corpus-$t"
   cp -r "fuzz/corpus/$t" "$corpus"
   echo "== $t (${seconds}s)"
   if TMPDIR="$scratch" "$build/fuzz/$t" -max_total_time="$seconds" -timeout=10 \
      -rss_limit_mb=2048 -max_len=8192 -print_final_stats=1 \
      -artifact_prefix="$artifacts/$t-" "$corpus" >"$scratch/$t.log" 2>&1; then
      grep -E "^stat::number_of_executed_units|^Done" "$scratch/$t.log" | tr '\n' ' '
      echo
   else
      tail -n 60 "$scratch/$t.log"
      failed+=("$t")
   fi
done

if [ ${#failed[@]} -gt 0 ]; then
   echo "fuzz.sh: findings in: ${failed[*]} (inputs in $artifacts)" >&2
   exit 1
fi
echo "fuzz.sh: ${#targets[@]} targets, no findings"
