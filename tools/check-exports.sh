#!/usr/bin/env bash
# The table library exports its factories and public types' API, never the
# engine's internals.
set -euo pipefail
lib="$1"
syms=$(nm -DC --defined-only "$lib")
for f in l3EgrL3Ipv4TunnelTableFactory l3EgrL3Ipv6TunnelTableFactory \
         l3TunnelEgrL3Oif1TableFactory l3TunnelIngL3NextHopTableFactory l3TunnelOverlayViaFactory \
         ingL3IifFactory egrL3Oif1TableFactory l3InterfaceTableFactory \
         l3TunnelOverlayEcmpProgrammerFactory; do
   grep -q " T $f\$" <<<"$syms" || { echo "missing export: $f"; exit 1; }
done
if grep -E 'Accessor<|KeyedTableData|DataWithAllocator' <<<"$syms"; then
   echo "engine internals are exported (above)"
   exit 1
fi
echo "exports ok: $(grep -c ' [TWVu] ' <<<"$syms") symbols"
