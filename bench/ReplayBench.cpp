// Warm restart with nothing changed: the chip holds what an agent programmed
// (N groups of 16 vias over 1024 tunnels, N = 4096 filling the member table),
// and each timed iteration is the library's side of a restart: the software
// torn down, the tables recovered, every group replayed, the stale rows
// purged and the event loop settled. The replay finds every row as it would
// write it, so it must write and delete nothing.
//
// Counters: hw_writes and hw_deletes per restart (both must be 0), claims
// (rows found holding what the replay writes), rows on the chip, op (seconds
// per restart).
#include <vector>

#include "BenchRig.h"
#include "MeridL3Tunnel/L3TunnelOverlayVia.h"

namespace bench {
namespace {

constexpr uint32_t viasPerGroup = 16;
constexpr uint32_t tunnels = 1024;

// Via `v` of group `g`: tunnel (g + 64v) mod 1024 over underlay group
// 1 + (g / 1024 + v) mod 4. The first via's tunnel and underlay tell the
// 4096 groups apart, so no two share a block.
Brio::Ptr<const MeridL3Tunnel::L3TunnelOverlayVia> groupVias(uint32_t g) {
   auto list = MeridL3Tunnel::l3TunnelOverlayViaFactory();
   for (uint32_t v = 0; v < viasPerGroup; ++v) {
      const L3TunnelKey k = tunnelKey((g + 64 * v) % tunnels);
      list->viaPush({Plx::nextHopArpResolved(), k.srcIpAddr(), k.dstIpAddr(), 64, 1,
                     adj(1 + (g / tunnels + v) % 4)});
   }
   return list;
}

struct Totals {
   uint64_t writes = 0, deletes = 0, claims = 0, rows = 0;
};

Totals totals(const ProgrammerRig& rig) {
   Totals t;
   t.writes = rig.chip->writes();
   t.claims = rig.chip->claims();
   for (auto& name : rig.chip->tableNames()) {
      auto hw = rig.hw(name, L3TunnelOverlayEcmpProgrammer::tableUnit);
      if (!hw) continue;
      t.deletes += hw->stats().deletes;
      t.rows += hw->usedRows();
   }
   return t;
}

void BM_Replay(benchmark::State& state) {
   const auto groups = uint32_t(state.range(0));
   ProgrammerRig rig(maxRows);
   std::vector<Brio::Ptr<const MeridL3Tunnel::L3TunnelOverlayVia>> vias;
   for (uint32_t g = 0; g < groups; ++g) vias.push_back(groupVias(g));
   std::vector<HandlePtr> blocks;
   auto replay = [&] {
      blocks.clear();
      for (auto& list : vias) blocks.push_back(rig.programmer->populateOverlayEcmpBlock(list));
      runLoop();
   };
   replay();
   const uint32_t members = rig.usedRows(L3EcmpMember0Table::typeName);
   if (!check(state, members == groups * viasPerGroup, "member rows not filled")) return;
   Span span;
   Totals before, after;
   for (auto _ : state) {
      before = totals(rig);
      span.start();
      // The programmer goes first, so that the groups delete no row.
      rig.programmer = nullptr;
      blocks.clear();
      runLoop();
      rig.end();
      rig.begin(4);
      rig.programmerIs(rig.chipInfo, rig.ledger, true);
      replay();
      rig.programmer->purgeStaleEntries();
      runLoop();
      span.stop(state);
      after = totals(rig);
      if (!check(state, after.writes == before.writes, "the replay wrote rows") ||
          !check(state, after.deletes == before.deletes, "the replay deleted rows") ||
          !check(state, rig.usedRows(L3EcmpMember0Table::typeName) == members, "members lost"))
         return;
   }
   state.counters["hw_writes"] = double(after.writes - before.writes);
   state.counters["hw_deletes"] = double(after.deletes - before.deletes);
   state.counters["claims"] = double(after.claims - before.claims);
   state.counters["rows"] = double(after.rows);
   perOp(state, 1);
   state.SetLabel(toggleLabel());
}

const bool registered = [] {
   benchmark::RegisterBenchmark("restart/replay", BM_Replay)
       ->Arg(512)
       ->Arg(4096)
       ->Iterations(iterations(3))
       ->UseManualTime();
   return true;
}();

}  // namespace
}  // namespace bench
