// Groups over time: reprogramming with a changed via list and releasing
// blocks. Random whole-group churn is the model runs' (tests/Model).
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

}  // namespace
}  // namespace test
