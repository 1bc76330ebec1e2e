// The agent's workload (Workload.h) at a quarter of, one and four times 4096
// groups:
//   workload/bulk/N     every group programmed on an empty chip, settled
//                       group by group; figure per via. About 98% of the vias
//                       find their chain already programmed by an earlier
//                       group.
//   workload/failure/N  one endpoint fails: each of its 64 groups is
//                       programmed again without it, as the agent does (the
//                       new block made before the old is let go), and
//                       settled; figure per affected group, with the heap
//                       allocations and chip operations (row writes, row
//                       deletes) per group.
#include <optional>
#include <set>

#include "BenchFloor.h"
#include "HeapCount.h"
#include "Workload.h"

namespace bench {
namespace {

struct ChipOps {
   uint64_t writes = 0, deletes = 0;
};

ChipOps chipOps(const ProgrammerRig& rig) {
   ChipOps ops;
   for (auto& name : rig.chip->tableNames())
      if (auto hw = rig.hw(name, L3TunnelOverlayEcmpProgrammer::tableUnit)) {
         ops.writes += hw->stats().writes;
         ops.deletes += hw->stats().deletes;
      }
   return ops;
}

// Every group programmed into `blocks`, settled after each group.
bool programAll(ProgrammerRig& rig, const Workload& w, std::vector<HandlePtr>& blocks) {
   blocks.clear();
   for (uint32_t g = 0; g < w.groups(); ++g) {
      blocks.push_back(rig.programmer->populateOverlayEcmpBlock(w.vias(g)));
      runLoop();
   }
   bool ok = true;
   for (auto& b : blocks) ok &= b->entryState() == State::success;
   return ok && rig.usedRows(L3EcmpMember0Table::typeName) == w.groups() * w.viasPerGroup;
}

void BM_Bulk(benchmark::State& state) {
   const Workload w(uint32_t(state.range(0)));
   std::optional<ProgrammerRig> rig;
   std::vector<HandlePtr> blocks;
   Span span;
   int64_t allocations = 0;
   ChipOps ops;
   // The programmer goes first, so that the groups delete no row one by one.
   auto teardown = [&] {
      if (rig) rig->programmer = nullptr;
      blocks.clear();
      rig.reset();
   };
   for (auto _ : state) {
      teardown();
      rig.emplace(maxRows, w.memberRows());
      const int64_t a0 = heapAllocations();
      span.start();
      const bool ok = programAll(*rig, w, blocks);
      span.stop(state);
      allocations = heapAllocations() - a0;
      ops = chipOps(*rig);
      if (!check(state, ok, "a group was not programmed")) return;
   }
   teardown();
   const double vias = double(w.groups()) * w.viasPerGroup;
   state.counters["allocs_per_via"] = double(allocations) / vias;
   state.counters["hw_writes_per_via"] = double(ops.writes) / vias;
   state.counters["vias"] = vias;
   perOp(state, uint32_t(vias));
   state.SetLabel(toggleLabel());
}

// Each affected group programmed again from `vias`, as the agent does: the new
// block first, then the old one let go; settled after each group.
void reprogram(ProgrammerRig& rig, const Workload& w, std::vector<HandlePtr>& blocks,
               const std::vector<uint32_t>& groups, uint32_t skip) {
   for (uint32_t g : groups) {
      HandlePtr old = std::move(blocks[g]);
      blocks[g] = rig.programmer->populateOverlayEcmpBlock(w.vias(g, skip));
      old = nullptr;
      runLoop();
   }
}

void BM_Failure(benchmark::State& state) {
   const Workload w(uint32_t(state.range(0)));
   ProgrammerRig rig(maxRows, w.memberRows());
   std::vector<HandlePtr> blocks;
   if (!check(state, programAll(rig, w, blocks), "a group was not programmed")) return;
   Span span;
   int64_t allocations = 0;
   ChipOps ops;
   uint32_t affected = 0, iteration = 0;
   for (auto _ : state) {
      // Endpoints spread over the space, a different one each time.
      const uint32_t e = (iteration++ * 37) % w.endpoints();
      const std::vector<uint32_t> groups = w.groupsOf(e);
      const ChipOps before = chipOps(rig);
      const int64_t a0 = heapAllocations();
      span.start();
      reprogram(rig, w, blocks, groups, e);
      span.stop(state);
      allocations += heapAllocations() - a0;
      const ChipOps after = chipOps(rig);
      ops.writes += after.writes - before.writes;
      ops.deletes += after.deletes - before.deletes;
      affected += uint32_t(groups.size());
      // Two groups whose vias are the same once the endpoint is gone share
      // one block.
      std::set<const void*> distinct;
      bool ok = true;
      for (uint32_t g : groups) {
         ok &= blocks[g]->entryState() == State::success;
         distinct.insert(blocks[g].ptr());
      }
      const uint32_t rows = (w.groups() - uint32_t(groups.size())) * w.viasPerGroup +
                            uint32_t(distinct.size()) * (w.viasPerGroup - 1);
      if (!check(state, ok, "a group was not programmed again") ||
          !check(state, rig.usedRows(L3EcmpMember0Table::typeName) == rows,
                 "member rows outlived their blocks"))
         return;
      // The endpoint comes back, outside the timed span.
      reprogram(rig, w, blocks, groups, ~0u);
   }
   rig.programmer = nullptr;
   blocks.clear();
   state.counters["groups_per_failure"] = double(affected) / double(state.iterations());
   state.counters["allocs_per_group"] = double(allocations) / affected;
   state.counters["hw_writes_per_group"] = double(ops.writes) / affected;
   state.counters["hw_deletes_per_group"] = double(ops.deletes) / affected;
   perOp(state, uint32_t(affected / state.iterations()));
   state.SetLabel(toggleLabel());
}

// Floors, per the figure's unit. A new chain's next hop is waited for by its
// block.
FloorOps memberVia(bool found, bool merged) {
   return floor::underlayLookup() +
          (found ? floor::chainRewrite(merged) : floor::chainWrite(merged) + floor::blockWait());
}

// Four groups (64 vias, one endpoint new to the chip), per via.
FloorOps bulkFloor(bool merged) {
   return 4 * floor::blockWrite(Workload::viasPerGroup) + 63 * memberVia(true, merged) +
          memberVia(false, merged);
}

// One affected group: its 15 remaining vias found, the new block written and
// the old one removed.
FloorOps failureFloor(bool merged) {
   constexpr uint32_t n = Workload::viasPerGroup;
   return floor::blockWrite(n - 1) + floor::blockRemove(n) + (n - 1) * memberVia(true, merged);
}

const bool registered = [] {
   auto* bulk = benchmark::RegisterBenchmark("workload/bulk", BM_Bulk);
   auto* failure = benchmark::RegisterBenchmark("workload/failure", BM_Failure);
   for (uint32_t n : workloadSizes) {
      bulk->Arg(n);
      failure->Arg(n);
   }
   bulk->Iterations(iterations(2))->UseManualTime();
   for (bool merged : {true, false}) {
      const std::string toggle = merged ? "/toggle=on" : "/toggle=off";
      for (uint32_t n : workloadSizes) {
         const std::string size = "/" + std::to_string(n);
         const Workload w(n);
         floorIs(
             "workload/bulk" + size + toggle, [merged] { return bulkFloor(merged); },
             w.groups() / 4, 0, w.groups() * Workload::viasPerGroup);
         floorIs(
             "workload/failure" + size + toggle, [merged] { return failureFloor(merged); }, 64,
             w.endpoints());
      }
   }
   failure->Iterations(iterations(8))->UseManualTime();
   return true;
}();

}  // namespace
}  // namespace bench
