#!/usr/bin/env bash
# Builds the benchmarks in a Release build, runs them (once with the default
# toggles and once with CommonIifOifIndex off, which a process reads only
# once), and prints one table: figure | measured | floor | ratio | target | met?
# The program's stages are measured against its programming stage instead of
# a floor.
#
#   tools/bench.sh                    # build-release; 32-bit memory from build-32
#   BUILD_DIR=/tmp/b BUILD32_DIR=/tmp/b32 tools/bench.sh [benchmark options]
#
# Each speed benchmark runs BENCH_REPETITIONS times (default 3) and the fastest
# run counts, figure and floor alike: other load on the machine only ever
# slows a run down. The 32-bit memory figure comes from
# BUILD32_DIR/bench/l3tunnel_bench when that exists (tools/test-32bit.sh builds
# it). Results stay in BUILD_DIR/bench-results as Google Benchmark JSON.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${BUILD_DIR:-build-release}"
build32="${BUILD32_DIR:-build-32}"
repetitions="${BENCH_REPETITIONS:-3}"

cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DL3TUNNEL_BENCH=ON -DL3TUNNEL_TESTS=OFF >/dev/null
cmake --build "$build" --target l3tunnel_bench -j2 >/dev/null

results="$build/bench-results"
toggles="$results/toggles-off"
mkdir -p "$toggles"
echo '{"CommonIifOifIndex": false}' >"$toggles/MeridL3.json"
rm -f "$results"/*.json

run() {  # run BINARY OUT TOGGLE_DIR [options...]
   local bin="$1" out="$2" dir="$3"
   shift 3
   echo "running $bin -> $out" >&2
   L3TUNNEL_TOGGLE_DIR="$dir" "$bin" --benchmark_out="$out" --benchmark_out_format=json \
      --benchmark_repetitions="$repetitions" "$@" >/dev/null
}

bin="$build/bench/l3tunnel_bench"
offFilter='^(floor/)?(chain|block)/'
# Memory runs in a process of its own: tables and pools that earlier
# benchmarks grew would otherwise not be counted against the chains. So do
# the program's stages, which count heap too (default toggles only).
run "$bin" "$results/on.json" "" --benchmark_filter='-^(memory|l3tunnel)/' "$@"
run "$bin" "$results/off.json" "$toggles" --benchmark_filter="$offFilter" "$@"
run "$bin" "$results/mem-on.json" "" --benchmark_filter='^memory/'
run "$bin" "$results/mem-off.json" "$toggles" --benchmark_filter='^memory/'
run "$bin" "$results/stages.json" "" --benchmark_filter='^l3tunnel/'
if [ -x "$build32/bench/l3tunnel_bench" ]; then
   run "$build32/bench/l3tunnel_bench" "$results/on32.json" "" --benchmark_filter='^memory/'
   run "$build32/bench/l3tunnel_bench" "$results/off32.json" "$toggles" \
      --benchmark_filter='^memory/'
fi

python3 - "$results" <<'EOF'
import json, os, re, sys

results = sys.argv[1]

def load(name):
    path = os.path.join(results, name)
    if not os.path.exists(path):
        return None
    runs = {}
    for b in json.load(open(path))["benchmarks"]:
        if b.get("run_type", "iteration") != "iteration":
            continue
        key = re.sub(r"(/iterations:\d+)?(/repeats:\d+)?(/manual_time)?$", "", b["run_name"])
        best = runs.get(key)
        if best is None or best.get("error_occurred") or b.get("op", 0) < best.get("op", 0):
            runs[key] = b
    return runs

on, off = load("on.json"), load("off.json")
memOn, memOff = load("mem-on.json"), load("mem-off.json")
on32, off32 = load("on32.json"), load("off32.json")
stages = load("stages.json")
rows = []

def seconds(run):
    if run is None:
        return None
    if run.get("error_occurred"):
        return "ERROR: " + run.get("error_message", "")
    return run["op"]

def duration(s):
    if s is None:
        return "-"
    if isinstance(s, str):
        return s
    for unit, scale in (("s", 1), ("ms", 1e-3), ("µs", 1e-6)):
        if s >= scale:
            return f"{s / scale:.3g} {unit}"
    return f"{s / 1e-9:.3g} ns"

def speed(label, runs, name, floorName=None, limit=None, limitRatio=None):
    m = seconds(runs.get(name)) if runs else None
    f = seconds(runs.get("floor/" + (floorName or name))) if runs else None
    ratio = m / f if isinstance(m, float) and isinstance(f, float) else None
    target, met = [], []
    if limit is not None:
        target.append("≤ " + duration(limit))
        met.append(isinstance(m, float) and m <= limit)
    if limitRatio is not None:
        target.append(f"≤ {limitRatio:g}× floor")
        met.append(ratio is not None and ratio <= limitRatio)
    rows.append((label, duration(m), duration(f), f"{ratio:.2f}×" if ratio else "-",
                 ", ".join(target) or "-", ("yes" if all(met) else "NO") if met else "-"))
    return m, f

tables = [("v4", "IPv4 tunnel"), ("v6", "IPv6 tunnel"), ("tunnelInterface", "tunnel interface"),
          ("mergedInterface", "merged interface"), ("nextHop", "next hop"), ("member", "member (1-row block)")]
ops = [("write", "new key written, acknowledged"), ("rewrite", "identical rewrite"),
       ("remove", "removed: row deleted, index freed")]
for key, text in tables:
    for op, what in ops:
        speed(f"{text}: {what}", on, f"table/{key}/{op}")

for toggle, runs in (("on", on), ("off", off)):
    speed(f"via chain, toggle {toggle}: programmed, acknowledged", runs, "chain/program",
          f"chain/program/toggle={toggle}", limitRatio=2)
    speed(f"via chain, toggle {toggle}: let go, rows deleted", runs, "chain/remove",
          f"chain/remove/toggle={toggle}")
    speed(f"via chain, toggle {toggle}: identical rewrite, chain programmed", runs,
          "chain/rewrite", f"chain/rewrite/toggle={toggle}", limit=0.1e-6)
for toggle, runs in (("on", on), ("off", off)):
    for n in (1, 8, 64, 512):
        speed(f"populateOverlayEcmpBlock {n} vias, toggle {toggle}: cycle, per via", runs,
              f"block/{n}", f"block/{n}/toggle={toggle}")

fills = {}
for fill in (1024, 8192, 65000):
    fills[fill] = speed(f"via chain at {fill} chains (toggle on)", on, f"scale/chain/{fill}")
(m1, f1), (m64, f64) = fills[1024], fills[65000]
ok = all(isinstance(x, float) for x in (m1, m64))
scale = m64 / m1 if ok else None
fscale = f64 / f1 if all(isinstance(x, float) for x in (f1, f64)) else None
rows.append(("scaling: chain at 65000 / at 1024 chains", f"{scale:.3f}×" if scale else "-",
             f"{fscale:.3f}×" if fscale else "-", "-", "≤ 1.5×",
             ("yes" if scale <= 1.5 else "NO") if scale else "-"))

speed("warm restart: recover and sync, 65000 rows per table", on, "restart/recover",
      limit=20e-3, limitRatio=2)

# The agent's workload at a quarter of, one and four times 4096 groups of 16
# vias (toggle on): growth factors between sizes, and the failure's
# operation counts.
def growth(label, figures):
    (n0, a), (n1, b), (n2, c) = figures
    if all(isinstance(x, float) for x in (a, b, c)):
        rows.append((f"{label}: growth per x4 groups", f"{b / a:.2f}×, {c / b:.2f}×", "-", "-",
                     "-", "-"))

sizes = (1024, 4096, 16384)
growth("bulk run, time per via",
       [(n, speed(f"bulk run, {n} groups: per via", on, f"workload/bulk/{n}",
                  f"workload/bulk/{n}/toggle=on")[0]) for n in sizes])
failure = []
for n in sizes:
    failure.append((n, speed(f"endpoint failure, {n} groups: per affected group", on,
                             f"workload/failure/{n}", f"workload/failure/{n}/toggle=on",
                             limit=10e-6)[0]))
    run = on.get(f"workload/failure/{n}") if on else None
    if run and not run.get("error_occurred"):
        rows.append((f"endpoint failure, {n} groups: per affected group",
                     f"{run['allocs_per_group']:.1f} allocations, "
                     f"{run['hw_writes_per_group']:.1f} row writes, "
                     f"{run['hw_deletes_per_group']:.1f} row deletes", "-", "-", "-", "-"))
growth("endpoint failure, time per group", failure)
restart = []
for n in sizes:
    run = on.get(f"restart/replay/{n}") if on else None
    if run is None or run.get("error_occurred"):
        rows.append((f"warm restart, {n} groups x 16 vias", "ERROR" if run else "-", "-", "-",
                     "≤ 2× recover", "NO" if run else "-"))
        restart.append((n, None))
        continue
    ratio = run["restart_per_recover"]
    restart.append((n, run["op"]))
    rows.append((f"warm restart, {n} groups x 16 vias",
                 f"{duration(run['op'])} (recover {duration(run['recover'])}, replay "
                 f"{duration(run['replay'])}, reconcile {duration(run['reconcile'])})", "-",
                 f"{ratio:.2f}× recover", "≤ 2× recover", "yes" if ratio <= 2 else "NO"))
growth("warm restart, time", restart)

def memory(label, runs, limit):
    run = runs.get("memory/chain") if runs else None
    if runs is None:
        rows.append((label, "not built", "-", "-", f"≤ {limit} B", "-"))
    elif run is None or run.get("error_occurred"):
        rows.append((label, "ERROR", "-", "-", f"≤ {limit} B", "NO"))
    else:
        b = run["bytes_per_chain"]
        rows.append((label, f"{b:.0f} B ({run['blocks_per_chain']:.1f} blocks)", "-", "-",
                     f"≤ {limit} B", "yes" if b <= limit else "NO"))

memory("memory per live via chain, 65000 chains, 64-bit, toggle on", memOn, 1024)
memory("memory per live via chain, 65000 chains, 64-bit, toggle off", memOff, 1024)
memory("memory per live via chain, 65000 chains, 32-bit, toggle on", on32, 600)
memory("memory per live via chain, 65000 chains, 32-bit, toggle off", off32, 600)

# The program's own stages against its programming stage, and its peak heap
# against what the agent holds once programmed.
run = stages.get("l3tunnel/ProgramStages") if stages else None
label = "l3tunnel run, 10000 groups × 6 vias"
if run is None or run.get("error_occurred"):
    # Not built without the tools (the agent).
    measured = "ERROR: " + run.get("error_message", "") if run else "not built"
    for what, target in (("read + JSON output", "≤ 2× program"),
                         ("read + text output", "≤ 2× program"), ("peak heap", "≤ 2× held")):
        rows.append((f"{label}: {what}", measured, "-", "-", target, "NO" if run else "-"))
else:
    ms = lambda x: duration(x / 1e3)
    mib = lambda b: f"{b / 2**20:.1f} MiB"
    for kind, name in (("json", "JSON"), ("text", "text")):
        ratio = run[kind + "_ratio"]
        rows.append((f"{label}: read + {name} output",
                     f"{ms(run['read_ms'] + run[kind + '_ms'])} (read {ms(run['read_ms'])}, "
                     f"program {ms(run['program_ms'])})", "-", f"{ratio:.2f}× program",
                     "≤ 2× program", "yes" if ratio <= 2 else "NO"))
    peak = max(run["peak_json_bytes"], run["peak_text_bytes"])
    rows.append((f"{label}: peak heap", f"{mib(peak)} (held {mib(run['held_bytes'])})", "-",
                 f"{run['peak_ratio']:.2f}× held", "≤ 2× held",
                 "yes" if run["peak_ratio"] <= 2 else "NO"))

head = ("figure", "measured", "floor", "ratio", "target", "met?")
width = [max(len(r[i]) for r in rows + [head]) for i in range(len(head))]
line = lambda r: "| " + " | ".join(c.ljust(w) for c, w in zip(r, width)) + " |"
print(line(head))
print("|" + "|".join("-" * (w + 2) for w in width) + "|")
for r in rows:
    print(line(r))
EOF
