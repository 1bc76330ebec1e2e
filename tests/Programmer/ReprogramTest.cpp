// Groups over time: reprogramming with a changed via list, releasing blocks,
// and random whole-group churn with responses held back and reordered.
#include <random>

#include "support/ProgrammerFixture.h"

namespace test {
namespace {

class Reprogram : public ProgrammerFixture {
protected:
   uint32_t rowsOf(std::string_view table) const {
      auto t = hw(table);
      return t ? t->usedRows() : 0;
   }
   // Rows of the interface table the toggle chose.
   uint32_t interfaceRows() const {
      return expectedToggle() ? rowsOf(EgrL3Oif1Table::typeName)
                              : rowsOf(L3TunnelEgrL3Oif1Table::typeName);
   }
   // Commitments of the merged interface table outlive their groups; the agent
   // removes them when it is done with the tunnels.
   void removeCommittedInterfaces() {
      if (!intf) return;
      std::vector<L3TunnelKey> keys;
      intf->forEachEntryHandle([&](const auto& k, const auto&) { keys.push_back(k); });
      for (auto& k : keys) intf->entryRemove(k);
      drainResponses(3);
   }
};

TEST_F(Reprogram, ReleasingTheOldBlockRemovesWhatOnlyItUsed) {
   start();
   HandlePtr old = program({via("10.0.0.1", "10.0.0.2", 2), via("10.0.0.1", "10.0.0.3", 1)});
   ASSERT_EQ(old->entryState(), State::success);
   const Asic::Index oldBase = block(old).baseIndex();
   const L3TunnelKey kept{addr("10.0.0.1"), addr("10.0.0.2")};
   const L3TunnelKey dropped{addr("10.0.0.1"), addr("10.0.0.3")};
   const Asic::Index droppedNextHop = nh->entryWeakRef(dropped)->hwIndex();
   EXPECT_EQ(rowsOf(L3TunnelIngL3NextHopTable::typeName), 3u);  // with the drop entry

   HandlePtr now = program({via("10.0.0.1", "10.0.0.2", 1), via("10.0.0.1", "10.0.0.4", 2)});
   ASSERT_EQ(now->entryState(), State::success);
   EXPECT_EQ(rowsOf(L3EcmpMember0Table::typeName), 6u);  // both blocks, until the old goes
   expectConsistent("both blocks: ");

   old = nullptr;
   runLoop();
   EXPECT_EQ(rowsOf(L3EcmpMember0Table::typeName), 3u);
   EXPECT_EQ(members->indexAllocator().used(), 3u);
   EXPECT_FALSE(nh->entryHandle(dropped));
   EXPECT_TRUE(nh->entryHandle(kept));
   EXPECT_EQ(rowsOf(L3TunnelIngL3NextHopTable::typeName), 3u);
   EXPECT_FALSE(hw(L3TunnelIngL3NextHopTable::typeName)->row(droppedNextHop));
   // The committed merged interface keeps its tunnel; without it both go.
   EXPECT_EQ(v4->entryHas(dropped), expectedToggle());
   EXPECT_EQ(interfaceRows(), expectedToggle() ? 3u : 2u);
   expectConsistent("old released: ");

   // The freed member rows and next-hop index are handed out again.
   HandlePtr next = program({via("10.0.0.1", "10.0.0.5", 3)});
   EXPECT_EQ(block(next).baseIndex(), oldBase);
   EXPECT_EQ(nh->entryWeakRef({addr("10.0.0.1"), addr("10.0.0.5")})->hwIndex(), droppedNextHop);
   expectConsistent("reused: ");
}

TEST_F(Reprogram, EqualListsShareOneBlockUntilTheLastHolderGoes) {
   start();
   HandlePtr a = program({via("10.0.0.1", "10.0.0.2", 2), dropVia(1)});
   HandlePtr b = program({via("10.0.0.1", "10.0.0.2", 2), dropVia(1)});
   EXPECT_EQ(a, b);
   EXPECT_EQ(members->entryBlocks(), 1u);
   const auto writes = stats(L3EcmpMember0Table::typeName).writes;
   a = nullptr;
   runLoop();
   EXPECT_EQ(rowsOf(L3EcmpMember0Table::typeName), 3u);
   EXPECT_EQ(stats(L3EcmpMember0Table::typeName).writes, writes);
   b = nullptr;
   runLoop();
   EXPECT_EQ(rowsOf(L3EcmpMember0Table::typeName), 0u);
   EXPECT_EQ(members->entryBlocks(), 0u);
   EXPECT_EQ(nh->entrys(), 1u);  // the reserved drop entry only
   expectConsistent();
}

// Whole groups are programmed, reprogrammed and released at random while the
// chip holds responses back and answers out of order; the tables, the member
// blocks and the chip must agree whenever nothing is held, and everything
// must go once every group is released and every commitment removed.
TEST_F(Reprogram, RandomGroupChurnKeepsTablesAndChipConsistent) {
   for (auto t : {L3EcmpMember0Table::typeName, L3TunnelIngL3NextHopTable::typeName})
      chipInfo->tableSizeIs(t, 24);
   start();
   std::mt19937 rng(20261121);
   auto pick = [&](uint32_t n) { return uint32_t(rng() % n); };
   const char* destinations[] = {"10.0.1.1", "10.0.1.2", "10.0.1.3", "10.0.1.4",
                                 "10.0.1.5", "10.0.1.6", "10.0.1.7", "10.0.1.8"};
   auto randomList = [&] {
      auto list = MeridL3Tunnel::l3TunnelOverlayViaFactory();
      for (uint32_t n = pick(4); n; --n) {
         if (pick(6) == 0) {
            list->viaPush(dropVia(1 + pick(2)));
            continue;
         }
         list->viaPush(via("10.0.0.1", destinations[pick(8)], pick(4), 1 + pick(5), 64 + pick(3)));
      }
      return list;
   };
   std::vector<HandlePtr> group(6);
   for (int step = 0; step < 400; ++step) {
      HandlePtr& g = group[pick(uint32_t(group.size()))];
      if (pick(4) == 0) {
         g = nullptr;
      } else {
         HandlePtr fresh = programmer->populateOverlayEcmpBlock(randomList());
         g = fresh;  // the new block first, then the old one goes
      }
      shuffleResponses(pick(5) == 0, rng());
      ASSERT_TRUE(stepConsistent(step));
   }
   drainResponses(3);
   expectConsistent("drained: ");
   for (auto& g : group) g = nullptr;
   drainResponses(3);
   removeCommittedInterfaces();
   EXPECT_EQ(members->entryBlocks(), 0u);
   EXPECT_EQ(members->indexAllocator().used(), 0u);
   EXPECT_EQ(rowsOf(L3EcmpMember0Table::typeName), 0u);
   EXPECT_EQ(nh->entrys(), 1u);
   EXPECT_EQ(rowsOf(L3TunnelIngL3NextHopTable::typeName), 1u);
   EXPECT_EQ(v4->entrys(), 0u);
   EXPECT_EQ(rowsOf(L3EgrL3Ipv4TunnelTable::typeName), 0u);
   EXPECT_EQ(interfaceRows(), 0u);
   expectConsistent("all released: ");
}

}  // namespace
}  // namespace test
