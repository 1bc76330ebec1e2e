#!/usr/bin/env bash
# The table library exports its factories and public types' API (the keyed
# tables' operations among it), never the engine's internals: the engine
# itself, the collections a keyed table keeps, and the engine's helpers.
set -euo pipefail
lib="$1"
syms=$(nm -DC --defined-only "$lib")
# Every factory the library's headers declare, so that a new table's is
# checked without a list to keep.
src=$(cd "$(dirname "$0")/.." && pwd)
factories=$(sed -n 's/^extern "C" MERID_API .* \([A-Za-z0-9]*Factory\)(.*/\1/p' "$src"/MeridL3Tunnel/*.h)
[ -n "$factories" ] || { echo "no factories declared in $src/MeridL3Tunnel"; exit 1; }
for f in $factories; do
   grep -q " T $f\$" <<<"$syms" || { echo "missing export: $f"; exit 1; }
done
if grep -E 'Accessor<|TableEngine::|tableOf<|KeyedTableData|HandleMap<|ResolvedEntryMap<|InFlightRequests<' <<<"$syms"; then
   echo "engine internals are exported (above)"
   exit 1
fi
echo "exports ok: $(grep -c ' [TWVu] ' <<<"$syms") symbols"
