// The IPv4 and IPv6 egress tunnel tables take their indices from one shared
// allocator: one key in both shares its index, and no index is held twice.
#include <gtest/gtest.h>

#include "support/SimFixture.h"

namespace test {
namespace {

// A key type of another table sharing the allocator.
struct OtherKey {
   static constexpr std::string_view typeName = "test::OtherKey";
   uint32_t v;
   uint32_t hash(uint32_t seed) const { return v ^ seed; }
   bool operator==(const OtherKey&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const OtherKey& k) { return os << k.v; }
};

class SharedIndexSpace : public SimFixture {
protected:
   void SetUp() override {
      SimFixture::SetUp();
      makeTunnelTables();
   }
};

// One key in both tables shares one index until both let go: once
// programmed, one after the other; or both while their writes are in flight,
// whichever write is answered first.
TEST_F(SharedIndexSpace, OneKeyInBothTablesSharesItsIndexUntilBothLetGo) {
   const auto k = tunnelKey(1);
   const V6::Entry six(false, true, k.srcIpAddr(), 1, k.dstIpAddr(), U5(2));
   auto a = v4->entryRef(k, tunnelEntry<V4>(k)), b = v6->entryRef(k, six);
   runLoop();
   EXPECT_EQ(a->hwIndex(), b->hwIndex());
   a.reset();
   runLoop();
   EXPECT_EQ(v6->indexAllocator()->indexForKey(k), b->hwIndex()) << "the IPv6 entry still uses it";
   b.reset();
   runLoop();
   EXPECT_EQ(v6->indexAllocator()->indexForKey(k), Asic::invalidIndex);
   for (uint32_t first : {0u, 1u}) {
      SCOPED_TRACE(first == 0 ? "IPv4 answered first" : "IPv6 answered first");
      chip->holdResponsesIs(true);
      a = v4->entryRef(k, tunnelEntry<V4>(k));
      b = v6->entryRef(k, six);
      a.reset();
      b.reset();
      chip->releaseResponse(first);
      runLoop();
      settle();
      EXPECT_EQ(hw(V4::typeName)->usedRows(), 0u);
      EXPECT_EQ(hw(V6::typeName)->usedRows(), 0u);
      EXPECT_EQ(v4->indexAllocator()->used(), 0u);
      expectConsistent();
   }
}

// An index the shared allocator gave to a key of another type names no key
// of this table.
TEST_F(SharedIndexSpace, IndexHeldByAKeyOfAnotherTypeNamesNoKey) {
   const Asic::Index other = v4->indexAllocator()->newIndexForKey(OtherKey{5});
   ASSERT_NE(other, Asic::invalidIndex);
   EXPECT_FALSE(v4->swKeyFromHwIndex(other));
   v4->indexAllocator()->releaseIndex(v4->indexAllocator()->getKey(OtherKey{5}));
}

using SharedIndexSpaceDeathTest = SharedIndexSpace;

TEST_F(SharedIndexSpaceDeathTest, SyncAfterWritesAborts) {
   v4->entryCommit(tunnelKey(1), tunnelEntry<V4>(tunnelKey(1)));
   runLoop();
   EXPECT_DEATH(v4->syncEntries(), "assertion \"!swTable_->resolvedEntrys\\(\\)\" failed");
}

// Random writes, rewrites, commits, removals and dropped references over both
// tables, with responses held and released out of order; everything must
// agree after every step once the loop is idle, and nothing may be left when
// every reference is gone.
TEST_F(SharedIndexSpace, RandomChurnKeepsTheInvariants) {
   chip->tableSizeIs(V4::typeName, 12);
   chip->tableSizeIs(V6::typeName, 12);
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
            held[{six, n}] = six ? v6->entryRef(k, tunnelEntry<V6>(k, ttl))
                                 : v4->entryRef(k, tunnelEntry<V4>(k, ttl));
            break;
         case 2:
            six ? v6->entryCommit(k, tunnelEntry<V6>(k, ttl))
                : v4->entryCommit(k, tunnelEntry<V4>(k, ttl));
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
   EXPECT_EQ(hw(V4::typeName)->usedRows(), 0u);
   EXPECT_EQ(hw(V6::typeName)->usedRows(), 0u);
   expectConsistent();
}

}  // namespace
}  // namespace test
