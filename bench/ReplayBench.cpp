// Warm restart with nothing changed, at the workload's sizes (Workload.h):
// the chip holds what an agent programmed, and each timed iteration is the
// library's side of a restart: the tables recovered, every group replayed,
// the stale rows purged and the event loop settled. The replay finds every
// row as it would write it, so it must write and delete nothing. Tearing the
// software down beforehand is not timed.
//
// Counters: recover, replay and reconcile (seconds per restart, each stage),
// restart_per_recover (the whole against recovery alone), hw_writes and
// hw_deletes per restart (both must be 0), claims (rows found holding what
// the replay writes), rows on the chip.
#include <chrono>

#include "Workload.h"

namespace bench {
namespace {

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

double since(std::chrono::steady_clock::time_point& t) {
   const auto now = std::chrono::steady_clock::now();
   const double s = std::chrono::duration<double>(now - t).count();
   t = now;
   return s;
}

void BM_Replay(benchmark::State& state) {
   const Workload w(uint32_t(state.range(0)));
   ProgrammerRig rig(maxRows, w.memberRows());
   std::vector<HandlePtr> blocks;
   auto replay = [&] {
      blocks.clear();
      for (uint32_t g = 0; g < w.groups(); ++g)
         blocks.push_back(rig.programmer->populateOverlayEcmpBlock(w.vias(g)));
      runLoop();
   };
   replay();
   const uint32_t members = rig.usedRows(L3EcmpMember0Table::typeName);
   if (!check(state, members == w.groups() * w.viasPerGroup, "member rows not filled")) return;
   Span span;
   Totals before, after;
   double recover = 0, replayed = 0, reconcile = 0;
   for (auto _ : state) {
      // The programmer goes first, so that the groups delete no row.
      rig.programmer = nullptr;
      blocks.clear();
      runLoop();
      rig.end();
      rig.begin(4);
      before = totals(rig);
      span.start();
      auto t = std::chrono::steady_clock::now();
      rig.programmerIs(rig.chipInfo, rig.ledger, true);
      runLoop();
      recover += since(t);
      replay();
      replayed += since(t);
      rig.programmer->purgeStaleEntries();
      runLoop();
      reconcile += since(t);
      span.stop(state);
      after = totals(rig);
      if (!check(state, after.writes == before.writes, "the replay wrote rows") ||
          !check(state, after.deletes == before.deletes, "the replay deleted rows") ||
          !check(state, rig.usedRows(L3EcmpMember0Table::typeName) == members, "members lost"))
         return;
   }
   rig.programmer = nullptr;
   blocks.clear();
   const double n = double(state.iterations());
   state.counters["recover"] = recover / n;
   state.counters["replay"] = replayed / n;
   state.counters["reconcile"] = reconcile / n;
   state.counters["restart_per_recover"] = (recover + replayed + reconcile) / recover;
   state.counters["hw_writes"] = double(after.writes - before.writes);
   state.counters["hw_deletes"] = double(after.deletes - before.deletes);
   state.counters["claims"] = double(after.claims - before.claims);
   state.counters["rows"] = double(after.rows);
   perOp(state, 1);
   state.SetLabel(toggleLabel());
}

const bool registered = [] {
   auto* b = benchmark::RegisterBenchmark("restart/replay", BM_Replay);
   for (uint32_t n : workloadSizes) b->Arg(n);
   b->Iterations(iterations(3))->UseManualTime();
   return true;
}();

}  // namespace
}  // namespace bench
