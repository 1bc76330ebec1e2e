// The IPv4 and IPv6 egress tunnel tables take their indices from one shared
// allocator: one index space, index 0 never used, no index held twice.
#include <gtest/gtest.h>

#include "support/InvariantChecker.h"
#include "support/SimFixture.h"

namespace test {
namespace {

class SharedIndexSpace : public SimFixture {
protected:
   void SetUp() override {
      SimFixture::SetUp();
      makeTunnelTables();
   }
   HandlePtr write4(uint32_t n) {
      return v4->entryRef(tunnelKey(n), tunnelEntry<L3EgrL3Ipv4TunnelTable>(tunnelKey(n)));
   }
   HandlePtr write6(uint32_t n) {
      return v6->entryRef(tunnelKey(n, true),
                          tunnelEntry<L3EgrL3Ipv6TunnelTable>(tunnelKey(n, true)));
   }
};

TEST_F(SharedIndexSpace, IndicesAlternateBetweenTheTables) {
   struct Step {
      bool v6;
      Asic::Index expected;
   };
   for (auto order : {std::vector<Step>{{false, 1}, {true, 2}, {false, 3}},
                      std::vector<Step>{{true, 1}, {false, 2}, {true, 3}}}) {
      std::vector<HandlePtr> held;
      uint32_t n = 0;
      for (auto& s : order) held.push_back(s.v6 ? write6(++n) : write4(++n));
      runLoop();
      for (size_t i = 0; i < order.size(); ++i) EXPECT_EQ(held[i]->hwIndex(), order[i].expected);
      held.clear();
      runLoop();
      EXPECT_EQ(v4->indexAllocator()->used(), 0u);
   }
}

TEST_F(SharedIndexSpace, OneKeyInBothTablesSharesItsIndexUntilBothLetGo) {
   auto k = tunnelKey(1);
   auto a = v4->entryRef(k, tunnelEntry<L3EgrL3Ipv4TunnelTable>(k));
   auto b = v6->entryRef(
       k, L3EgrL3Ipv6TunnelTable::Entry(false, true, k.srcIpAddr(), 1, k.dstIpAddr(), U5(2)));
   runLoop();
   EXPECT_EQ(a->hwIndex(), b->hwIndex());
   a.reset();
   runLoop();
   EXPECT_EQ(v6->indexAllocator()->indexForKey(k), b->hwIndex()) << "the IPv6 entry still uses it";
   b.reset();
   runLoop();
   EXPECT_EQ(v6->indexAllocator()->indexForKey(k), Asic::invalidIndex);
   expectConsistent();
}

// Let go while both writes are in flight: the index stays held until the
// last of the two rows is deleted, whichever write is answered first.
TEST_F(SharedIndexSpace, OneKeyLetGoInBothTablesWhileItsWritesAreInFlight) {
   const auto k = tunnelKey(1);
   for (uint32_t first : {0u, 1u}) {
      SCOPED_TRACE(first == 0 ? "IPv4 answered first" : "IPv6 answered first");
      chip->holdResponsesIs(true);
      auto a = v4->entryRef(k, tunnelEntry<L3EgrL3Ipv4TunnelTable>(k));
      auto b = v6->entryRef(
          k, L3EgrL3Ipv6TunnelTable::Entry(false, true, k.srcIpAddr(), 1, k.dstIpAddr(), U5(2)));
      a.reset();
      b.reset();
      chip->releaseResponse(first);
      runLoop();
      settle();
      EXPECT_EQ(hw(L3EgrL3Ipv4TunnelTable::typeName)->usedRows(), 0u);
      EXPECT_EQ(hw(L3EgrL3Ipv6TunnelTable::typeName)->usedRows(), 0u);
      EXPECT_EQ(v4->indexAllocator()->used(), 0u);
      expectConsistent();
   }
}

// Random writes, rewrites, commits, removals and dropped references over both
// tables, with responses held and released out of order; everything must
// agree after every step once the loop is idle, and nothing may be left when
// every reference is gone.
TEST_F(SharedIndexSpace, RandomChurnKeepsTheInvariants) {
   chip->tableSizeIs(L3EgrL3Ipv4TunnelTable::typeName, 12);
   chip->tableSizeIs(L3EgrL3Ipv6TunnelTable::typeName, 12);
   makeTunnelTables(12);  // fewer indices than keys: the tables fill up
   std::map<std::pair<bool, uint32_t>, HandlePtr> held;
   churn(20261121, 3000, [&](const Draw& pick) {
      const bool six = pick(2);
      const uint32_t n = 1 + pick(16);
      const auto k = tunnelKey(n, six);
      const uint8_t ttl = uint8_t(1 + pick(3));
      switch (pick(5)) {
         case 0:
         case 1:
            held[{six, n}] = six ? v6->entryRef(k, tunnelEntry<L3EgrL3Ipv6TunnelTable>(k, ttl))
                                 : v4->entryRef(k, tunnelEntry<L3EgrL3Ipv4TunnelTable>(k, ttl));
            break;
         case 2:
            six ? v6->entryCommit(k, tunnelEntry<L3EgrL3Ipv6TunnelTable>(k, ttl))
                : v4->entryCommit(k, tunnelEntry<L3EgrL3Ipv4TunnelTable>(k, ttl));
            break;
         case 3:
            six ? v6->entryRemove(k) : v4->entryRemove(k);
            break;
         case 4:
            held.erase({six, n});
            break;
      }
   });
   if (HasFailure()) return;
   settle();
   held.clear();
   v4->entryRemoveAll();
   v6->entryRemoveAll();
   runLoop();
   EXPECT_EQ(v4->entryHandles() + v6->entryHandles(), 0u);
   EXPECT_EQ(v4->resolvedEntrys() + v6->resolvedEntrys(), 0u);
   EXPECT_EQ(v4->indexAllocator()->used(), 0u);
   EXPECT_EQ(hw(L3EgrL3Ipv4TunnelTable::typeName)->usedRows(), 0u);
   EXPECT_EQ(hw(L3EgrL3Ipv6TunnelTable::typeName)->usedRows(), 0u);
   expectConsistent();
}

}  // namespace
}  // namespace test
