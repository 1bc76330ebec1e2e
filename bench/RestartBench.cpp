// Warm restart: a new programmer recovers its tables from a chip that holds
// 65000 rows in each of them (tunnels, interfaces, next hops, members),
// learning which index every row uses, before the agent replays anything.
#include "BenchFloor.h"

namespace bench {
namespace {

constexpr uint32_t groupSize = 64;

// The chip after an agent programmed `fullChains` vias in groups and went
// away: the programmer first (so the groups delete nothing), then the groups.
void chipFilled(ProgrammerRig& rig) {
   std::vector<HandlePtr> blocks;
   for (uint32_t first = 0; first < fullChains; first += groupSize) {
      auto list = MeridL3Tunnel::l3TunnelOverlayViaFactory();
      for (uint32_t i = first; i < std::min(first + groupSize, fullChains); ++i)
         list->viaPush(via(i));
      blocks.push_back(rig.programmer->populateOverlayEcmpBlock(list));
      runLoop();
   }
   rig.programmer.reset();
   blocks.clear();
   runLoop();
}

void BM_Recover(benchmark::State& state) {
   ProgrammerRig rig(maxRows);
   chipFilled(rig);
   const bool merged = L3TunnelOverlayEcmpProgrammer::commonIifOifIndex();
   for (auto name : {L3EgrL3Ipv4TunnelTable::typeName, L3EcmpMember0Table::typeName,
                     merged ? IngL3Iif::typeName : L3TunnelEgrL3Oif1Table::typeName})
      if (!check(state, rig.usedRows(name) == fullChains, std::string(name) + " not filled"))
         return;
   Span span;
   for (auto _ : state) {
      span.start();
      auto p =
          MeridL3Tunnel::l3TunnelOverlayEcmpProgrammerFactory(rig.fcsd, rig.localEm, rig.ledger);
      p->recoverTables(rig.chipInfo);
      runLoop();
      span.stop(state);
      const uint32_t interfaces = merged ? p->l3InterfaceTable()->indexAllocator()->used()
                                         : p->l3TunnelEgrL3Oif1Table()->indexAllocator()->used();
      if (!check(state, p->l3EgrL3Ipv4TunnelTable()->indexAllocator()->used() == fullChains,
                 "tunnel rows not recovered") ||
          !check(state, interfaces == fullChains, "interface rows not recovered") ||
          !check(state, p->l3TunnelIngL3NextHopTable()->indexAllocator()->used() == fullChains + 1,
                 "next-hop rows not recovered") ||
          !check(state, p->l3EcmpMember0Table()->recoveredRows() == fullChains,
                 "member rows not recovered"))
         return;
      p.reset();
      runLoop();
   }
   state.counters["rows"] = fullChains;
   perOp(state, 1);
   state.SetLabel(toggleLabel());
}

// Per recovered chain: the tunnel's, the next hop's and the interface's index
// claimed for the key its row names (the merged interface's second half finds
// the key already holding that index); the member row's text read (a
// replayed block is matched by its rows), and its index claimed with the
// group's run of rows in the range allocator.
FloorOps recoverFloor() {
   FloorOps perRow;
   perRow.indexClaims = 3;
   perRow.indexLookups = 1;
   perRow.rowReads = {rowLengths().member};
   perRow.rangeRuns = true;
   perRow.rangeSize = groupSize;
   return perRow;
}

const bool registered = [] {
   benchmark::RegisterBenchmark("restart/recover", BM_Recover)
       ->Iterations(iterations(5))
       ->UseManualTime();
   floorIs("restart/recover", recoverFloor, fullChains, 0, 1);
   return true;
}();

}  // namespace
}  // namespace bench
