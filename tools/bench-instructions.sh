#!/usr/bin/env bash
# Instructions per timed span of the workload benchmarks at each size, under
# callgrind (only the timed spans are collected), and their growth per x4
# groups: a machine-independent check that the work grows linearly.
#
#   tools/bench-instructions.sh            # uses build-release (tools/bench.sh builds it)
#   BUILD_DIR=/tmp/b tools/bench-instructions.sh [benchmark name regex]
set -euo pipefail
cd "$(dirname "$0")/.."
build="${BUILD_DIR:-build-release}"
bin="$build/bench/l3tunnel_bench"
pattern="${1:-^(workload/(bulk|failure)|restart/replay)/}"
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

names=$("$bin" --benchmark_list_tests=true | grep -E "$pattern" | grep -v '^floor/' |
   sed -E 's@/(iterations|manual_time).*$@@')
for name in $names; do
   # One iteration; the name anchored so that no other benchmark runs.
   L3TUNNEL_BENCH_ITERATIONS=1 valgrind --tool=callgrind --collect-atstart=no \
      --callgrind-out-file="$out/cg.out" "$bin" --benchmark_filter="^${name}/" \
      >/dev/null 2>"$out/log" || { cat "$out/log" >&2; exit 1; }
   ir=$(grep -E '^(summary|totals):' "$out/cg.out" | head -1 | awk '{print $2}')
   echo "$name $ir"
done | python3 -c '
import re, sys
rows = [l.split() for l in sys.stdin if l.strip()]
prev = {}
print("| benchmark | instructions | growth per x4 |")
print("|---|---|---|")
for name, ir in rows:
    ir = int(ir)
    m = re.match(r"(.*)/(\d+)(/.*)?$", name)
    base = m.group(1) if m else name
    g = f"{ir / prev[base]:.2f}x" if base in prev else "-"
    prev[base] = ir
    print(f"| {name} | {ir:,} | {g} |")
'
