// One overlay via chain (tunnel, interface, next hop) written through to the
// next hop's acknowledged success, and let go again; the programmer's whole
// block path for groups of growing size; and the chain's cost against table
// fill. Which interface table the chain uses follows the process's toggle
// (the label says which; the floors exist for both).
#include "BenchFloor.h"

namespace bench {
namespace {

constexpr uint32_t batch = 256;

bool commonIif() { return L3TunnelOverlayEcmpProgrammer::commonIifOifIndex(); }

// Chains first..first+n-1, each acknowledged before the next.
bool chainsProgram(ProgrammerRig& rig, uint32_t first, uint32_t n, std::vector<HandlePtr>& out) {
   for (uint32_t i = first; i < first + n; ++i) {
      out.push_back(rig.programmer->fillOverlayNextHopInfo(via(i)));
      runLoop();
   }
   bool ok = true;
   for (auto& h : out) ok &= h->entryState() == State::success;
   return ok;
}

// Lets chain first+i go: its next hop with its last holder, then (with the
// toggle on) its committed interface, and with it the tunnel.
void chainRelease(ProgrammerRig& rig, uint32_t first, uint32_t i, HandlePtr& head) {
   head = nullptr;
   runLoop();
   if (auto intf = rig.programmer->l3InterfaceTable()) {
      intf->entryRemove(tunnelKey(first + i));
      runLoop();
   }
}

uint32_t chainRows(const ProgrammerRig& rig) {
   uint32_t n = 0;
   for (auto name :
        {L3TunnelIngL3NextHopTable::typeName, L3TunnelEgrL3Oif1Table::typeName,
         L3EgrL3Ipv4TunnelTable::typeName, IngL3Iif::typeName, EgrL3Oif1Table::typeName})
      n += rig.usedRows(name);
   return n;
}

// Arg: chains programmed (and kept) before the measured ones.
void BM_ChainProgram(benchmark::State& state, uint32_t fill) {
   ProgrammerRig rig(maxRows);
   std::vector<HandlePtr> kept;
   if (!check(state, chainsProgram(rig, 0, fill, kept), "fill failed")) return;
   const uint32_t rows = chainRows(rig);
   std::vector<HandlePtr> heads;
   heads.reserve(batch);
   Span span;
   for (auto _ : state) {
      span.start();
      for (uint32_t i = fill; i < fill + batch; ++i) {
         heads.push_back(rig.programmer->fillOverlayNextHopInfo(via(i)));
         runLoop();
      }
      span.stop(state);
      bool ok = true;
      for (auto& h : heads) ok &= h->entryState() == State::success;
      if (!check(state, ok, "a chain was not acknowledged") ||
          !check(state, chainRows(rig) == rows + batch * (commonIif() ? 4 : 3), "rows missing"))
         return;
      for (uint32_t i = 0; i < batch; ++i) chainRelease(rig, fill, i, heads[i]);
      heads.clear();
      if (!check(state, chainRows(rig) == rows, "a row outlived its chain")) return;
   }
   perOp(state, batch);
   state.SetLabel(toggleLabel());
}

// The via's chain already programmed with equal entries, the common case of
// a bulk run: the via is handed over again and must find all three.
void BM_ChainRewrite(benchmark::State& state) {
   ProgrammerRig rig(maxRows);
   std::vector<HandlePtr> heads;
   if (!check(state, chainsProgram(rig, 0, batch, heads), "a chain was not acknowledged")) return;
   const uint32_t writes = rig.chip->writes();
   Span span;
   for (auto _ : state) {
      bool same = true;
      span.start();
      for (uint32_t i = 0; i < batch; ++i)
         same &= rig.programmer->fillOverlayNextHopInfo(via(i)) == heads[i];
      span.stop(state);
      if (!check(state, same, "a rewrite found another next hop") ||
          !check(state, runLoop() == 0 && rig.chip->writes() == writes, "a rewrite wrote"))
         return;
   }
   heads.clear();
   perOp(state, batch);
   state.SetLabel(toggleLabel());
}

void BM_ChainRemove(benchmark::State& state) {
   ProgrammerRig rig(maxRows);
   const uint32_t rows = chainRows(rig);
   std::vector<HandlePtr> heads;
   heads.reserve(batch);
   Span span;
   for (auto _ : state) {
      if (!check(state, chainsProgram(rig, 0, batch, heads), "a chain was not acknowledged"))
         return;
      span.start();
      for (uint32_t i = 0; i < batch; ++i) chainRelease(rig, 0, i, heads[i]);
      span.stop(state);
      heads.clear();
      if (!check(state, chainRows(rig) == rows, "a row outlived its chain")) return;
   }
   perOp(state, batch);
   state.SetLabel(toggleLabel());
}

// Arg: vias per group. An iteration programs the group and lets it go, as
// often as makes about `batch` vias; the figure is per via.
void BM_Block(benchmark::State& state, uint32_t n) {
   const uint32_t cycles = std::max<uint32_t>(1, batch / n);
   ProgrammerRig rig(maxRows);
   auto list = MeridL3Tunnel::l3TunnelOverlayViaFactory();
   for (uint32_t i = 0; i < n; ++i) list->viaPush(via(i));
   auto cycle = [&] {
      HandlePtr block = rig.programmer->populateOverlayEcmpBlock(list);
      runLoop();
      const bool ok = block->entryState() == State::success;
      block = nullptr;
      runLoop();
      return ok;
   };
   // The first cycle makes what, with the toggle on, stays: committed
   // interfaces and the tunnels they name.
   if (!check(state, cycle(), "the group was not acknowledged")) return;
   const uint32_t members = rig.usedRows(L3EcmpMember0Table::typeName);
   Span span;
   for (auto _ : state) {
      bool ok = true;
      span.start();
      for (uint32_t c = 0; c < cycles; ++c) ok &= cycle();
      span.stop(state);
      if (!check(state, ok, "the group was not acknowledged") ||
          !check(state, rig.usedRows(L3EcmpMember0Table::typeName) == members,
                 "member rows outlived their group"))
         return;
   }
   perOp(state, cycles * n);
   state.SetLabel(toggleLabel());
}

// One program-and-release cycle of a group of n vias. With the toggle on the
// tunnels and committed interfaces stay from the first cycle, so each via
// finds them (rewrites) and only its next hop comes and goes.
FloorOps blockCycle(uint32_t n, bool merged) {
   FloorOps perVia;
   if (merged)
      perVia = floor::keyedRewrite() + floor::mergedRewrite() +
               floor::keyedWrite(rowLengths().nextHop) + floor::keyedRemove();
   else
      perVia = floor::chainWrite(false) + floor::chainRemove(false);
   perVia = perVia + floor::underlayLookup() + floor::blockWait();
   return n * perVia + floor::blockWrite(n) + floor::blockRemove(n);
}

constexpr uint32_t blockSizes[] = {1, 8, 64, 512};
constexpr uint32_t fills[] = {1024, 8192, fullChains};

const bool registered = [] {
   benchmark::RegisterBenchmark("chain/program", BM_ChainProgram, 0)->UseManualTime();
   benchmark::RegisterBenchmark("chain/remove", BM_ChainRemove)->UseManualTime();
   benchmark::RegisterBenchmark("chain/rewrite", BM_ChainRewrite)->UseManualTime();
   for (bool merged : {true, false}) {
      const std::string toggle = merged ? "/toggle=on" : "/toggle=off";
      floorIs(
          "chain/program" + toggle, [merged] { return floor::chainWrite(merged); }, batch);
      floorIs(
          "chain/remove" + toggle, [merged] { return floor::chainRemove(merged); }, batch);
      floorIs(
          "chain/rewrite" + toggle, [merged] { return floor::chainRewrite(merged); }, batch);
      for (uint32_t n : blockSizes) {
         const uint32_t cycles = std::max<uint32_t>(1, batch / n);
         floorIs(
             "block/" + std::to_string(n) + toggle, [n, merged] { return blockCycle(n, merged); },
             cycles, 0, cycles * n);
      }
   }
   for (uint32_t n : blockSizes)
      benchmark::RegisterBenchmark(("block/" + std::to_string(n)).c_str(), BM_Block, n)
          ->UseManualTime();
   // The fill is made once per run of the benchmark: few, long iterations.
   for (uint32_t fill : fills) {
      benchmark::RegisterBenchmark(("scale/chain/" + std::to_string(fill)).c_str(), BM_ChainProgram,
                                   fill)
          ->Iterations(iterations(40))
          ->UseManualTime();
      floorIs(
          "scale/chain/" + std::to_string(fill), [] { return floor::chainWrite(true); }, batch,
          fill);
   }
   return true;
}();

}  // namespace
}  // namespace bench
