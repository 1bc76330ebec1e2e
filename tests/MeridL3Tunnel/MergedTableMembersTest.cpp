// The merged interface table's members, used on their own: the key is the
// hardware index, so a handle knows its row as soon as it is written.
#include <gtest/gtest.h>

#include <algorithm>

#include "Orb/Trace.h"
#include "support/SimFixture.h"

namespace test {
namespace {

using IngIndex = IngL3Iif::Index;
using EgrIndex = EgrL3Oif1Table::Index;

class MergedTableMembers : public SimFixture {
protected:
   void SetUp() override {
      SimFixture::SetUp();
      makeTunnelTables();
      chipInfo->tableSizeIs(IngL3Iif::typeName, defaultRows);
      chipInfo->tableSizeIs(EgrL3Oif1Table::typeName, defaultRows);
      ing = MeridL3Tunnel::ingL3IifFactory();
      egr = MeridL3Tunnel::egrL3Oif1TableFactory();
      init(*ing);
      init(*egr);
   }
   HandlePtr tunnel(uint32_t n) {
      return v4->entryCommit(tunnelKey(n), tunnelEntry<V4>(tunnelKey(n)));
   }
   static EgrL3Oif1Table::Entry egrEntry(HandlePtr t, uint16_t idx = 0, uint8_t ttl = 7) {
      return {std::move(t), idx, ttl, U5(18)};
   }
   const std::string* row(std::string_view table, Asic::Index i) { return hw(table)->row(i); }

   // The invalid index is never programmed, and its removal deletes nothing.
   template <class Table>
   void expectInvalidIndexNeverProgrammed(Table& table, const typename Table::Entry& e) {
      using Index = typename Table::Index;
      const auto name = Table::typeName;
      SCOPED_TRACE(name);
      const auto before = stats(name);
      Orb::TraceCapture trace(std::string(name) + "/9");
      auto bad = table.entryCommit(Index(Asic::invalidIndex), e);
      EXPECT_EQ(bad->entryState(), State::noHwIndex);
      EXPECT_EQ(bad->hwIndex(), Asic::invalidIndex);
      table.entryRemove(Index(Asic::invalidIndex));
      bad.reset();
      settle();
      EXPECT_EQ(stats(name).writes, before.writes);
      EXPECT_EQ(stats(name).deletes, before.deletes);
      EXPECT_FALSE(table.entryHandle(Index(Asic::invalidIndex)));
      const std::string skip =
          std::string(name) + ": handleEntry : No entry in HwTable for this key. Skip delete";
      EXPECT_EQ(std::count(trace.lines().begin(), trace.lines().end(), skip), 1);
   }
};

TEST_F(MergedTableMembers, InvalidIndexIsNeverProgrammed) {
   auto t = tunnel(1);
   runLoop();
   expectInvalidIndexNeverProgrammed(*ing, IngL3Iif::Entry());
   expectInvalidIndexNeverProgrammed(*egr, egrEntry(t));
}

TEST_F(MergedTableMembers, IngressEntriesAreAllEqualSoARewriteProgramsNothing) {
   IngL3Iif::Entry plain, withFn;
   withFn.writeResponseFnIs([](State) {});
   EXPECT_TRUE(IngL3Iif::Entry::isEq(plain, withFn));
   EXPECT_FALSE(plain < withFn || withFn < plain);
   EXPECT_FALSE(bool(withFn));
   auto h = ing->entryCommit(IngIndex(3), plain);
   runLoop();
   const auto writes = stats(IngL3Iif::typeName).writes;
   for (auto* e : {&plain, &withFn}) {
      EXPECT_EQ(ing->entryCommit(IngIndex(3), *e), h);
      EXPECT_EQ(ing->entryRef(IngIndex(3), *e), h);
   }
   runLoop();
   EXPECT_EQ(stats(IngL3Iif::typeName).writes, writes);
   EXPECT_EQ(h->entryState(), State::success);
   EXPECT_EQ(h->entryType(), Type::committed);
   EXPECT_TRUE(ing->entryHas(IngIndex(3)));
   EXPECT_FALSE(ing->entryHas(IngIndex(4)));
}

TEST_F(MergedTableMembers, EgressWaitsForItsTunnelAndShowsTheWaitingValueFirst) {
   chip->holdResponsesIs(true);
   tunnel(1);
   auto t = tunnel(2);  // a nonzero index, unlike a default entry's
   auto h = egr->entryCommit(EgrIndex(5), egrEntry(t, 0, 9));
   EXPECT_EQ(h->entryState(), State::unresolved);
   ASSERT_TRUE(egr->unresolvedEntry(EgrIndex(5)));
   EXPECT_FALSE(egr->resolvedEntryHas(EgrIndex(5)));
   EXPECT_TRUE(egr->entryHas(EgrIndex(5)));
   EXPECT_TRUE(EgrL3Oif1Table::Entry::isEq(egr->entry(EgrIndex(5)), egrEntry(t, 0, 9)));
   settle();
   EXPECT_FALSE(egr->unresolvedEntry(EgrIndex(5)));
   ASSERT_TRUE(egr->resolvedEntry(EgrIndex(5)));
   EXPECT_EQ(egr->entry(EgrIndex(5)).tunnelIdx(), t->hwIndex());
   EXPECT_NE(t->hwIndex(), 0u);
   EXPECT_EQ(*row(EgrL3Oif1Table::typeName, 5), egr->resolvedEntry(EgrIndex(5))->rowText());
   EXPECT_EQ(h->entryState(), State::success);
   EXPECT_TRUE(egr->entryHas(EgrIndex(5)));

   // A new value waiting for another tunnel stands before the programmed one.
   chip->holdResponsesIs(true);
   auto t3 = tunnel(3);
   egr->entryCommit(EgrIndex(5), egrEntry(t3, 0, 9));
   EXPECT_EQ(egr->entry(EgrIndex(5)).tunnelIdxHandle(), t3);
   EXPECT_EQ(egr->resolvedEntry(EgrIndex(5))->tunnelIdxHandle(), t);
   settle();
   EXPECT_EQ(egr->entry(EgrIndex(5)).tunnelIdx(), t3->hwIndex());

   EXPECT_TRUE(EgrL3Oif1Table::Entry::isEq(egr->entry(EgrIndex(6)), EgrL3Oif1Table::Entry()));
   EXPECT_FALSE(bool(egr->entry(EgrIndex(6))));
   EXPECT_FALSE(egr->entryHas(EgrIndex(6)));
}

}  // namespace
}  // namespace test
