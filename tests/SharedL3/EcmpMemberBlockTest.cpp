// The ECMP member table on its own: blocks hear their write responses; after
// a restart, rows that are no whole block wait for the purge. Blocks waiting,
// finding no range, released, keeping what they name until their rows go, or
// taken back whole are the model runs' and the restart sweeps'.
// Underlay group handles stand in for next hops, since their states can be
// steered.
#include <gtest/gtest.h>

#include <optional>

#include "AsicSim/Chip.h"
#include "Brio/EventLoop.h"
#include "SharedL3/EcmpGroup1Table.h"
#include "SharedL3/L3EcmpMember0Table.h"
#include "support/Setup.h"
#include "support/SimFixture.h"

namespace test {
namespace {

using MeridL3Tunnel::EcmpGroup1Table;
using MeridL3Tunnel::L3EcmpMember0Table;
using Block = L3EcmpMember0Table::EntryHandle;

class EcmpMemberBlock : public SimFixture {
protected:
   void SetUp() override {
      SimFixture::SetUp();
      setUpRows(8);
   }
   void setUpRows(uint32_t rowCount) {
      chipInfo->tableSizeIs(L3EcmpMember0Table::typeName, rowCount);
      members = makeTable();
      named = Brio::makePtr<EcmpGroup1Table>();
   }
   Brio::Ptr<L3EcmpMember0Table> makeTable() {
      auto t = MeridL3Tunnel::l3EcmpMember0TableFactory();
      t->doInit(0, nullptr, chipInfo);
      t->doInitComplete();
      return t;
   }
   // A block of `n` members naming the groups `ids` in turn.
   L3EcmpMember0Table::EntryBlock blockOf(uint32_t n, std::vector<uint32_t> ids) {
      L3EcmpMember0Table::EntryBlock b;
      for (uint32_t i = 0; i < n; ++i) {
         const HandlePtr h = named->entryWeakRef(adj(ids[i % ids.size()]));
         b.entryIs(L3EcmpMember0Table::Index(i), {h, nullptr, 0, 0, true});
      }
      return b;
   }
   HandlePtr place(const L3EcmpMember0Table::EntryBlock& b) {
      HandlePtr h = members->entryBlockRef(b);
      runLoop();
      return h;
   }
   static Asic::Index base(const HandlePtr& h) { return static_cast<const Block&>(*h).baseIndex(); }
   Brio::Ptr<AsicSim::HwTable> hw() const { return chip->table(L3EcmpMember0Table::typeName); }
   // The table goes as at an agent restart; the rows stay.
   void restart() {
      members.reset();
      runLoop();
      members = makeTable();
   }

   Brio::Ptr<EcmpGroup1Table> named;
};

TEST_F(EcmpMemberBlock, RefusedRowWriteIsNoHwIndex) {
   named->entryIs(adj(1));
   chip->writeFailuresIs(L3EcmpMember0Table::typeName, 1);
   HandlePtr h = members->entryBlockRef(blockOf(2, {1}));
   runLoop();
   EXPECT_EQ(h->entryState(), State::noHwIndex);
   EXPECT_EQ(h->hwIndex(), Asic::invalidIndex);
   h = nullptr;
   runLoop();
   EXPECT_EQ(hw()->usedRows(), 0u);
   EXPECT_EQ(members->indexAllocator().used(), 0u);
}

// After a restart the chip's rows need not line up with whole blocks.
class EcmpMemberRecovery : public EcmpMemberBlock {
protected:
   void SetUp() override {
      SimFixture::SetUp();
      setUpRows(16);
      for (uint32_t id = 1; id <= 3; ++id) named->entryIs(adj(id));
   }
};

// Rows that are no whole block of their own (one missing, a key of another
// row, a key naming a block beyond the table) are not taken back as a block,
// only kept out of new blocks' way until the purge.
TEST_F(EcmpMemberRecovery, RowsThatAreNoWholeBlockAreKeptOnlyUntilThePurge) {
   using RowKey = L3EcmpMember0Table::RowKey;
   const struct {
      const char* name;
      Asic::Index row;
      std::optional<RowKey> key;  // none: the row is cleared
      uint32_t found;
   } cases[] = {
       {"a row missing", 1, std::nullopt, 2},
       {"a key of another row", 1, RowKey(7, 0, 3), 3},
       {"a block beyond the table", 0, RowKey(0, 0, 0x80000000), 3},
   };
   for (const auto& c : cases) {
      SCOPED_TRACE(c.name);
      {
         HandlePtr held = place(blockOf(3, {1}));
         ASSERT_EQ(base(held), 0u);
         restart();
      }
      if (c.key) {
         hw()->rowKeyIs(c.row, Orb::GenericValue::of(*c.key));
      } else {
         hw()->rowIs(c.row, nullptr);
         hw()->rowKeyIs(c.row, {});
      }
      members->syncEntries();
      EXPECT_EQ(members->recoveredRows(), c.found);
      HandlePtr replayed = place(blockOf(3, {1}));
      EXPECT_EQ(base(replayed), 3u);  // the first range clear of the found rows
      members->purgeStaleEntries();
      runLoop();
      EXPECT_EQ(members->recoveredRows(), 0u);
      for (Asic::Index i = 0; i < 3; ++i) EXPECT_FALSE(hw()->row(i)) << "row " << i;
      replayed = nullptr;
      runLoop();
      EXPECT_EQ(hw()->usedRows(), 0u);
      restart();
   }
}

TEST(EcmpMemberEntry, TextFormRoundTripsAndBlocksAreFilledInOrder) {
   auto named = Brio::makePtr<EcmpGroup1Table>();
   const HandlePtr h = named->entryIs(adj(3));
   const L3EcmpMember0Table::Entry e(h, nullptr, 7, 9, true);
   const std::string text = valueToStrep(e);
   EXPECT_EQ(e.rowText(),
             "Value('MeridL3Tunnel::L3EcmpMember0Table::Entry', ** {'nextHopHandle': "
             "0x0, 'underlayHandle': 0x0, 'nextHopIdx': 7, 'underlayIdx': 9, "
             "'resolved': True})");
   Orb::CharRange r(text);
   const L3EcmpMember0Table::Entry back(r);
   EXPECT_EQ(back, e);
   EXPECT_EQ(back.nextHopIdx(), 7u);
   L3EcmpMember0Table::EntryBlock b;
   EXPECT_THROW(b.entryIs(L3EcmpMember0Table::Index(1), e), std::out_of_range);
   b.entryIs(L3EcmpMember0Table::Index(0), e);
   EXPECT_EQ(b.entrys(), 1u);
}

}  // namespace
}  // namespace test
