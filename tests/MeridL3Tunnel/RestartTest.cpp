// An agent restart in one process: the software tables die, the chip keeps its
// rows, new tables take the hardware over and the same writes land on the
// rows they had.
#include <gtest/gtest.h>

#include "support/SimFixture.h"

namespace test {
namespace {

// A key type of another table sharing an allocator.
struct OtherKey {
   static constexpr std::string_view typeName = "test::OtherKey";
   uint32_t v;
   uint32_t hash(uint32_t seed) const { return v ^ seed; }
   bool operator==(const OtherKey&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const OtherKey& k) { return os << k.v; }
};

class Restart : public SimFixture {
protected:
   void SetUp() override {
      SimFixture::SetUp();
      makeChainTables();
   }

   // Writes chains 1..n (and an IPv6 tunnel per chain) and keeps their handles.
   void program(uint32_t first, uint32_t last) {
      for (uint32_t n = first; n <= last; ++n) {
         auto t = v4->entryCommit(tunnelKey(n), tunnelEntry<V4>(tunnelKey(n)));
         auto o = oif->entryCommit(tunnelKey(n), oifEntry(t));
         nh->entryCommit(tunnelKey(n), nextHopEntry(o));
         v6->entryCommit(tunnelKey(n, true), tunnelEntry<V6>(tunnelKey(n, true)));
      }
      runLoop();
   }
};

TEST_F(Restart, MergedInterfacesKeepTheirIndex) {
   makeInterfaceTable();
   program(1, 4);
   for (uint32_t n = 1; n <= 4; ++n)
      intf->entryCommit(tunnelKey(n), interfaceEntry(v4->entryHandle(tunnelKey(n))));
   runLoop();
   intf->entryRemove(tunnelKey(1));
   runLoop();
   std::map<uint32_t, Asic::Index> index;
   for (uint32_t n = 2; n <= 4; ++n) index[n] = intf->entryHandle(tunnelKey(n))->hwIndex();
   const auto before = chipRows();
   const uint32_t changesBefore = chipChanges();

   restart();
   EXPECT_EQ(chipRows(), before);
   program(2, 4);
   for (uint32_t n : {4u, 2u, 3u})
      intf->entryCommit(tunnelKey(n), interfaceEntry(v4->entryHandle(tunnelKey(n))));
   runLoop();
   for (uint32_t n = 2; n <= 4; ++n)
      EXPECT_EQ(intf->entryHandle(tunnelKey(n))->hwIndex(), index[n]) << n;
   EXPECT_EQ(chipRows(), before);
   EXPECT_EQ(chipChanges(), changesBefore);
   // The index key 1 had is free; a new key may take it, never a survivor's.
   auto fresh = intf->entryCommit(tunnelKey(9), interfaceEntry(v4->entryHandle(tunnelKey(2))));
   for (uint32_t n = 2; n <= 4; ++n) EXPECT_NE(fresh->hwIndex(), index[n]);
   expectConsistent();
}

TEST_F(Restart, MountInformationNamesEachTableClass) {
   Ledger::MountGroup mg;
   V4::doMountHwTableMountInfo(mg);
   Oif::doMountHwTableMountInfo(mg);
   Oif::doMountHwTableMountInfo(mg);
   ASSERT_EQ(mg.mounts().size(), 2u);
   EXPECT_EQ(mg.mounts()[0].owner, std::string(V4::typeName) + "::Util");
   EXPECT_EQ(mg.mounts()[1].owner, std::string(Oif::typeName) + "::Util");
}

// An index the shared allocator gave to a key of another type names no key
// of this table.
TEST_F(Restart, IndexHeldByAKeyOfAnotherTypeNamesNoKey) {
   const Asic::Index other = v4->indexAllocator()->newIndexForKey(OtherKey{5});
   ASSERT_NE(other, Asic::invalidIndex);
   EXPECT_FALSE(v4->swKeyFromHwIndex(other));
   v4->indexAllocator()->releaseIndex(v4->indexAllocator()->getKey(OtherKey{5}));
}

using RestartDeathTest = Restart;

TEST_F(RestartDeathTest, SyncAfterWritesAborts) {
   program(1, 1);
   EXPECT_DEATH(v4->syncEntries(), "assertion \"!swTable_->resolvedEntrys\\(\\)\" failed");
}

}  // namespace
}  // namespace test
