// Entries that name another table's entry, beyond the table suite's waiting
// and rewriting: whose callable hears a chain's answer, the width of the
// index they take, and what they refuse.
#include <gtest/gtest.h>

#include "support/Refusal.h"
#include "support/SimFixture.h"

namespace test {
namespace {

class DependentResolution : public SimFixture {
protected:
   void SetUp() override {
      SimFixture::SetUp();
      makeChainTables();
   }
};

// The callable is the resolved value's: a next hop whose interface failed has
// none resolved, so its writer hears nothing of the failure.
TEST_F(DependentResolution, NextHopCallbackFiresAfterResolutionWithTheChipsAnswer) {
   struct Case {
      const char* name;
      std::string_view refusingTable;
      State reported;
      std::vector<State> heard;
   };
   const Case cases[] = {
       {"write accepted", {}, State::success, {State::inProgress, State::success}},
       {"write refused", Nh::typeName, State::noHwIndex, {State::inProgress, State::noHwIndex}},
       {"interface failed", V4::typeName, State::failedNeededEntry, {}},
   };
   uint32_t n = 0;
   for (auto& c : cases) {
      SCOPED_TRACE(c.name);
      ++n;
      if (!c.refusingTable.empty()) chip->writeFailuresIs(c.refusingTable, 1);
      chip->holdResponsesIs(true);
      auto t = v4->entryRef(tunnelKey(n), tunnelEntry<V4>(tunnelKey(n)));
      auto o = oif->entryRef(tunnelKey(n), oifEntry(t));
      std::vector<State> heard;
      auto e = nextHopEntry(o);
      e.writeResponseFnIs([&](State s) { heard.push_back(s); });
      auto h = nh->entryRef(tunnelKey(n), e);
      EXPECT_EQ(h->entryState(), State::unresolved);
      EXPECT_TRUE(heard.empty()) << "an unresolved handle never calls it";
      chip->holdResponsesIs(false);
      for (int i = 0; i < 3; ++i) {  // tunnel, then interface, then next hop
         chip->releaseAllResponses();
         runLoop();
      }
      EXPECT_EQ(heard, c.heard);
      EXPECT_EQ(h->entryState(), c.reported);
   }
}

TEST_F(DependentResolution, DependentFieldIsSixteenBits) {
   // One allocator serves both tunnel tables; the last to initialise sizes it.
   chip->tableSizeIs(V4::typeName, 70000);
   chip->tableSizeIs(L3EgrL3Ipv6TunnelTable::typeName, 70000);
   makeChainTables();
   for (Asic::Index at : {65535u, 65536u}) {
      const auto k = tunnelKey(at);
      auto t = v4->entryWriteAtIndex(at, k, tunnelEntry<V4>(k));
      runLoop();
      ASSERT_EQ(t->hwIndex(), at);
      if (at == 65535) {
         oif->entryCommit(k, oifEntry(t));
         EXPECT_EQ(oif->resolvedEntry(k)->tunnelIdx(), 65535u);
         continue;
      }
      EXPECT_EQ(refusal<std::range_error>([&] { oif->entryCommit(k, oifEntry(t)); }),
                "Casting values: cast from unsigned int{ 65536 } to short unsigned int "
                "(max = 65535) failed.");
      EXPECT_FALSE(oif->resolvedEntry(k));
      EXPECT_TRUE(oif->unresolvedEntry(k)) << "the value still waits";
   }
   auto wont = v4->entryWontProgram(tunnelKey(7));
   oif->entryCommit(tunnelKey(7), oifEntry(wont));
   EXPECT_EQ(oif->resolvedEntry(tunnelKey(7))->tunnelIdx(), 65533u);
}

using DependentResolutionDeathTest = DependentResolution;

TEST_F(DependentResolutionDeathTest, ResolvingWithAWatcherOutstandingAborts) {
   chip->holdResponsesIs(true);
   auto t = v4->entryRef(tunnelKey(1), tunnelEntry<V4>(tunnelKey(1)));
   auto o = oif->entryRef(tunnelKey(1), oifEntry(t));
   auto ue = oif->unresolvedEntry(tunnelKey(1));
   ASSERT_TRUE(ue);
   EXPECT_DEATH(ue->doResolve(),
                "assertion \"ue->neededEntryHandleSms\\(\\) == 0\" failed: function should not "
                "have been called 0x");
}

TEST_F(DependentResolution, NullHandleIsRefused) {
   EXPECT_EQ(
       refusal<std::invalid_argument>([&] { oif->entryCommit(tunnelKey(1), oifEntry(nullptr)); }),
       "Initializing unresolved entry or entry block: entry handle was not yet assigned.");
   EXPECT_EQ(oif->resolvedEntrys(), 0u);
   EXPECT_TRUE(oif->unresolvedEntry(tunnelKey(1)));
   EXPECT_EQ(chip->table(Oif::typeName)->stats().writes, 0u);
}

}  // namespace
}  // namespace test
