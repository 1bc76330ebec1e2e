// The member table after a restart, where the chip's rows do not line up with
// whole blocks: blocks whose rows lie side by side, a block missing a row, and
// rows a block has taken before the table learned what the chip holds.
#include <gtest/gtest.h>

#include "AsicSim/Chip.h"
#include "Brio/EventLoop.h"
#include "SharedL3/EcmpGroup1Table.h"
#include "SharedL3/L3EcmpMember0Table.h"

namespace test {
namespace {

using MeridL3Tunnel::EcmpGroup1Table;
using MeridL3Tunnel::L3EcmpMember0Table;
using HandlePtr = Asic::SwTableBase::EntryHandle::PtrConst;
using Block = L3EcmpMember0Table::EntryHandle;

class MemberRecovery : public ::testing::Test {
protected:
   void SetUp() override {
      Brio::EventLoop::instance().clear();
      chip = Brio::makePtr<AsicSim::Chip>();
      chip->install();
      chipInfo = Brio::makePtr<MeridCentral::ChipInfo>();
      chipInfo->tableSizeIs(L3EcmpMember0Table::typeName, 16);
      table = makeTable();
      named = Brio::makePtr<EcmpGroup1Table>();
      for (uint32_t id = 1; id <= 3; ++id)
         named->entryIs({id, MeridL3Common::L3AdjIdKeyType::adjIdTypeEcmp});
   }
   void TearDown() override {
      table.reset();
      Brio::EventLoop::instance().clear();
      chip->uninstall();
   }
   Brio::Ptr<L3EcmpMember0Table> makeTable() {
      auto t = MeridL3Tunnel::l3EcmpMember0TableFactory();
      t->doInit(0, nullptr, chipInfo);
      t->doInitComplete();
      return t;
   }
   // `n` members naming group `id`.
   L3EcmpMember0Table::EntryBlock blockOf(uint32_t n, uint32_t id) {
      L3EcmpMember0Table::EntryBlock b;
      const HandlePtr h = named->entryWeakRef({id, MeridL3Common::L3AdjIdKeyType::adjIdTypeEcmp});
      for (uint32_t i = 0; i < n; ++i)
         b.entryIs(L3EcmpMember0Table::Index(i), {h, nullptr, 0, 0, true});
      return b;
   }
   HandlePtr place(const L3EcmpMember0Table::EntryBlock& b) {
      HandlePtr h = table->entryBlockRef(b);
      Brio::EventLoop::instance().runUntilIdle();
      return h;
   }
   static Asic::Index base(const HandlePtr& h) { return static_cast<const Block&>(*h).baseIndex(); }
   Brio::Ptr<AsicSim::HwTable> hw() const { return chip->table(L3EcmpMember0Table::typeName); }
   // The table goes as at an agent restart; the rows stay.
   void restart() {
      table.reset();
      Brio::EventLoop::instance().runUntilIdle();
      table = makeTable();
   }

   Brio::Ptr<AsicSim::Chip> chip;
   Brio::Ptr<MeridCentral::ChipInfo> chipInfo;
   Brio::Ptr<L3EcmpMember0Table> table;
   Brio::Ptr<EcmpGroup1Table> named;
};

// Blocks of 2, 3 and 4 rows side by side form one run of rows on the chip;
// each is still recovered on its own and takes exactly its rows back.
TEST_F(MemberRecovery, BlocksSideBySideEachTakeTheirRowsBack) {
   const uint32_t sizes[] = {2, 3, 4};
   Asic::Index bases[3];
   {
      HandlePtr held[3];
      for (uint32_t i = 0; i < 3; ++i) bases[i] = base(held[i] = place(blockOf(sizes[i], i + 1)));
      restart();
   }
   table->syncEntries();
   ASSERT_EQ(table->recoveredRows(), 9u);
   const auto changes = hw()->stats().changes;
   HandlePtr replayed[3];
   for (uint32_t i = 3; i-- > 0;) {
      replayed[i] = place(blockOf(sizes[i], i + 1));
      EXPECT_EQ(base(replayed[i]), bases[i]) << "block " << i;
   }
   EXPECT_EQ(table->recoveredRows(), 0u);
   EXPECT_EQ(hw()->stats().changes, changes);
}

// A block missing one row on the chip is not whole: its rows stay out of
// new blocks' way until the purge, and the replayed block is placed afresh.
TEST_F(MemberRecovery, BlockMissingARowIsNotTakenBackAndIsPurged) {
   {
      HandlePtr held = place(blockOf(3, 1));
      restart();
   }
   hw()->rowIs(1, nullptr);
   hw()->rowKeyIs(1, {});
   table->syncEntries();
   EXPECT_EQ(table->recoveredRows(), 2u);
   HandlePtr replayed = place(blockOf(3, 1));
   EXPECT_EQ(base(replayed), 3u);  // first range clear of rows 0 and 2
   EXPECT_EQ(table->recoveredRows(), 2u);
   table->purgeStaleEntries();
   Brio::EventLoop::instance().runUntilIdle();
   EXPECT_EQ(table->recoveredRows(), 0u);
   for (Asic::Index i : {0u, 2u}) EXPECT_FALSE(hw()->row(i)) << "row " << i;
   EXPECT_EQ(hw()->usedRows(), 3u);
}

// Rows a block already holds when the table learns the chip's rows are the
// block's: only the rest count as recovered, and the purge leaves the
// block's rows alone.
TEST_F(MemberRecovery, RowsTakenBeforeTheSyncStayTheBlocks) {
   {
      HandlePtr held = place(blockOf(5, 1));
      restart();
   }
   HandlePtr early = place(blockOf(2, 2));
   ASSERT_EQ(base(early), 0u);
   table->syncEntries();
   EXPECT_EQ(table->recoveredRows(), 3u);
   table->purgeStaleEntries();
   Brio::EventLoop::instance().runUntilIdle();
   EXPECT_TRUE(hw()->row(0) && hw()->row(1));
   EXPECT_EQ(hw()->usedRows(), 2u);
   EXPECT_EQ(table->indexAllocator().used(), 2u);
}

}  // namespace
}  // namespace test
