// The write path, programming and write responses of the egress tunnel tables,
// run over both tables.
#include <gtest/gtest.h>

#include "Orb/Trace.h"
#include "support/InvariantChecker.h"
#include "support/SimFixture.h"

namespace test {
namespace {

// Records every change a publisher announces.
struct Recorder : Brio::Notifiee {
   std::vector<Brio::AttrId> attrs;
   std::vector<State> states;
   const Asic::SwTableBase::EntryHandle* handle = nullptr;
   void onAttribute(Brio::AttrId attr, Brio::KeyRef) override {
      attrs.push_back(attr);
      if (handle && attr == Asic::SwTableBase::EntryHandle::entryStateAttr)
         states.push_back(handle->entryState());
   }
   void watch(const HandlePtr& h) {
      handle = h.ptr();
      notifierIs(&const_cast<Asic::SwTableBase::EntryHandle*>(h.ptr())->notifieeList());
   }
};

template <class Table>
class EgrL3IpTunnelWriteTest : public SimFixture {
protected:
   static constexpr bool isV6 = std::is_same_v<Table, L3EgrL3Ipv6TunnelTable>;
   void SetUp() override {
      SimFixture::SetUp();
      makeTunnelTables();
   }
   Table& table() {
      if constexpr (isV6)
         return *v6;
      else
         return *v4;
   }
   std::string_view name() { return Table::typeName; }
   L3TunnelKey key(uint32_t n) { return tunnelKey(n, isV6); }
   typename Table::Entry entry(uint32_t n, uint8_t ttl = 64) {
      return tunnelEntry<Table>(key(n), ttl);
   }
};

using TunnelTables = ::testing::Types<L3EgrL3Ipv4TunnelTable, L3EgrL3Ipv6TunnelTable>;
TYPED_TEST_SUITE(EgrL3IpTunnelWriteTest, TunnelTables);

TYPED_TEST(EgrL3IpTunnelWriteTest, ChangedValueGoesThroughUnresolvedToSuccess) {
   auto& t = this->table();
   auto h = t.entryCommit(this->key(1), this->entry(1));
   this->runLoop();
   Recorder r;
   r.watch(h);
   std::vector<State> heard;
   auto changed = this->entry(1, 128);
   changed.writeResponseFnIs([&](State s) { heard.push_back(s); });
   t.entryCommit(this->key(1), changed);
   this->runLoop();
   EXPECT_EQ(r.states, (std::vector<State>{State::unresolved, State::inProgress, State::success}));
   EXPECT_EQ(heard, (std::vector<State>{State::inProgress, State::success}));
   EXPECT_EQ(h->hwIndex(), 1u) << "a rewrite keeps the key's index";
   EXPECT_EQ(this->hw(this->name())->rowText(1), changed.stringValue());
   this->expectConsistent();
}

TYPED_TEST(EgrL3IpTunnelWriteTest, WriteAtIndexLandsThere) {
   auto& t = this->table();
   auto h = t.entryWriteAtIndex(7, this->key(1), this->entry(1));
   this->runLoop();
   EXPECT_EQ(h->hwIndex(), 7u);
   EXPECT_EQ(this->hw(this->name())->rowText(7), this->entry(1).stringValue());
   EXPECT_EQ(t.entryRef(this->key(2), this->entry(2))->hwIndex(), Asic::invalidIndex);
   this->runLoop();
   EXPECT_EQ(t.entryHandle(this->key(2)), nullptr) << "the reference above was dropped";
   this->expectConsistent();
}

TYPED_TEST(EgrL3IpTunnelWriteTest, StaleResponseOfASupersededWriteIsIgnored) {
   auto& t = this->table();
   this->chip->holdResponsesIs(true);
   auto h = t.entryCommit(this->key(1), this->entry(1));
   t.entryCommit(this->key(1), this->entry(1, 2));
   this->chip->releaseResponse(0);
   this->runLoop();
   EXPECT_EQ(h->entryState(), State::inProgress) << "the answer to the first value says nothing";
   this->chip->releaseAllResponses();
   this->runLoop();
   EXPECT_EQ(h->entryState(), State::success);
}

TYPED_TEST(EgrL3IpTunnelWriteTest, DroppedWhileTheWriteIsInFlightWaitsForIt) {
   auto& t = this->table();
   this->chip->holdResponsesIs(true);
   auto h = t.entryRef(this->key(1), this->entry(1));
   h.reset();
   EXPECT_EQ(this->stats(this->name()).deletes, 0u) << "no delete overtakes the write";
   this->chip->releaseAllResponses();
   this->runLoop();
   EXPECT_EQ(this->stats(this->name()).deletes, 1u);
   this->chip->releaseAllResponses();
   this->runLoop();
   EXPECT_FALSE(t.entryHandle(this->key(1)));
   EXPECT_EQ(t.indexAllocator()->used(), 0u);
   this->expectConsistent();
}

TYPED_TEST(EgrL3IpTunnelWriteTest, RevivedDuringTheDeleteDance) {
   auto& t = this->table();
   auto h = t.entryRef(this->key(1), this->entry(1));
   this->runLoop();
   this->chip->holdResponsesIs(true);
   h.reset();
   auto back = t.entryRef(this->key(1), this->entry(1));
   EXPECT_EQ(back->entryType(), Type::referenceOnly);
   this->chip->releaseAllResponses();
   this->runLoop();
   this->chip->releaseAllResponses();
   this->runLoop();
   EXPECT_EQ(back->entryState(), State::success);
   EXPECT_EQ(t.entryHandle(this->key(1)), back);
   this->expectConsistent();
}

TEST_F(SimFixture, HandlesOutliveTheirTableUnlinked) {
   makeTunnelTables();
   auto h = v4->entryRef(tunnelKey(1), tunnelEntry<L3EgrL3Ipv4TunnelTable>(tunnelKey(1)));
   runLoop();
   tablesDrop();
   EXPECT_EQ(h->swTable(), nullptr);
   EXPECT_TRUE(hw(L3EgrL3Ipv4TunnelTable::typeName)->row(1)) << "rows stay for a restart";
   h.reset();
   EXPECT_EQ(runLoop(), 0u);
}

// A handle revived while its delete was in flight and dropped after the delete
// was answered has no row left: it goes without another delete.
TEST_F(SimFixture, RevivedAfterTheDeleteWasAnsweredGoesQuietly) {
   makeTunnelTables();
   auto k = tunnelKey(1);
   auto h = v4->entryRef(k, tunnelEntry<L3EgrL3Ipv4TunnelTable>(k));
   runLoop();
   chip->holdResponsesIs(true);
   h.reset();
   auto revived = v4->entryRef(k, tunnelEntry<L3EgrL3Ipv4TunnelTable>(k));
   drainResponses();
   runLoop();
   EXPECT_EQ(revived->entryState(), State::success);
   const auto deletes = stats(L3EgrL3Ipv4TunnelTable::typeName).deletes;
   revived.reset();
   runLoop();
   EXPECT_FALSE(v4->entryHandle(k));
   EXPECT_EQ(stats(L3EgrL3Ipv4TunnelTable::typeName).deletes, deletes + 1);
   EXPECT_EQ(v4->indexAllocator()->used(), 0u);

   // Revived without a value (a watcher's weak reference) and dropped only
   // after the delete was answered: the row is gone already.
   chipInfo->tableSizeIs(IngL3Iif::typeName, 8);
   ing = MeridL3Tunnel::ingL3IifFactory();
   init(*ing);
   auto m = ing->entryRef(IngL3Iif::Index(3), IngL3Iif::Entry());
   runLoop();
   chip->holdResponsesIs(true);
   m.reset();
   auto watcher = ing->entryWeakRef(IngL3Iif::Index(3));
   drainResponses();
   const auto ingDeletes = stats(IngL3Iif::typeName).deletes;
   watcher.reset();
   runLoop();
   EXPECT_FALSE(ing->entryHandle(IngL3Iif::Index(3)));
   EXPECT_FALSE(ing->resolvedEntryHas(IngL3Iif::Index(3)));
   EXPECT_EQ(stats(IngL3Iif::typeName).deletes, ingDeletes);
   // A watcher of an index nobody wrote deletes nothing either: after a
   // restart that row may still hold what the agent will write again.
   ing->entryWeakRef(IngL3Iif::Index(5)).reset();
   EXPECT_EQ(stats(IngL3Iif::typeName).deletes, ingDeletes);
}

}  // namespace
}  // namespace test
