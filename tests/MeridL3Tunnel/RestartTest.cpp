// An agent restart in one process: the software tables die, the chip keeps its
// rows, new tables take the hardware over and the same writes land on the
// rows they had.
#include <gtest/gtest.h>

#include "Asic/RecoverGroup.h"
#include "support/InvariantChecker.h"
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

   // The agent goes away and comes back: new tables join a recover group and
   // are brought in line with the rows before anything is written again.
   void restart() {
      const bool merged = bool(intf);
      tablesDrop();
      Brio::EventLoop::instance().clear();
      v4 = MeridL3Tunnel::l3EgrL3Ipv4TunnelTableFactory();
      v6 = MeridL3Tunnel::l3EgrL3Ipv6TunnelTableFactory();
      oif = MeridL3Tunnel::l3TunnelEgrL3Oif1TableFactory();
      nh = MeridL3Tunnel::l3TunnelIngL3NextHopTableFactory();
      Asic::RecoverGroup group;
      v4->doRecoverHwTable(group, 0, ledger, chipInfo);
      v6->doRecoverHwTable(group, 0, ledger, chipInfo);
      oif->doRecoverHwTable(group, 0, ledger, chipInfo);
      nh->doRecoverHwTable(group, 0, ledger, chipInfo);
      group.recover();
      if (merged) makeInterfaceTable();
   }

   std::map<std::string, std::vector<std::string>> rows() {
      std::map<std::string, std::vector<std::string>> r;
      for (auto& name : chip->tableNames()) {
         auto t = chip->table(name);
         for (Asic::Index i = 0; i < t->numEntries(); ++i) r[name].push_back(t->rowText(i));
      }
      return r;
   }
   uint32_t changes() {
      uint32_t n = 0;
      for (auto& name : chip->tableNames()) n += chip->table(name)->stats().changes;
      return n;
   }
};

TEST_F(Restart, RewritesLandOnTheRowsTheyHadAndChangeNothing) {
   program(1, 4);
   // Holes, so that a first-free allocator without the rows' history would
   // put the rewrites elsewhere.
   for (uint32_t n : {1u, 3u}) {
      nh->entryRemove(tunnelKey(n));
      oif->entryRemove(tunnelKey(n));
      v4->entryRemove(tunnelKey(n));
      v6->entryRemove(tunnelKey(n, true));
   }
   runLoop();
   runLoop();
   const auto before = rows();
   const uint32_t changesBefore = changes();
   std::map<std::string, Asic::Index> indexBefore;
   for (uint32_t n : {2u, 4u}) {
      indexBefore["v4" + std::to_string(n)] = v4->entryHandle(tunnelKey(n))->hwIndex();
      indexBefore["nh" + std::to_string(n)] = nh->entryHandle(tunnelKey(n))->hwIndex();
   }

   restart();
   EXPECT_EQ(rows(), before) << "recovery alone touches no row";
   program(4, 4);
   program(2, 2);
   EXPECT_EQ(rows(), before);
   EXPECT_EQ(changes(), changesBefore) << "every rewrite wrote what the row held";
   for (uint32_t n : {2u, 4u}) {
      EXPECT_EQ(v4->entryHandle(tunnelKey(n))->hwIndex(), indexBefore["v4" + std::to_string(n)]);
      EXPECT_EQ(nh->entryHandle(tunnelKey(n))->hwIndex(), indexBefore["nh" + std::to_string(n)]);
   }
   // A new key gets an index no survivor uses.
   program(9, 9);
   auto fresh = v4->entryHandle(tunnelKey(9))->hwIndex();
   for (uint32_t n : {2u, 4u}) EXPECT_NE(fresh, v4->entryHandle(tunnelKey(n))->hwIndex());
   EXPECT_NE(fresh, v6->entryHandle(tunnelKey(2, true))->hwIndex());
   expectConsistent();
}

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
   const auto before = rows();
   const uint32_t changesBefore = changes();

   restart();
   EXPECT_EQ(rows(), before);
   program(2, 4);
   for (uint32_t n : {4u, 2u, 3u})
      intf->entryCommit(tunnelKey(n), interfaceEntry(v4->entryHandle(tunnelKey(n))));
   runLoop();
   for (uint32_t n = 2; n <= 4; ++n)
      EXPECT_EQ(intf->entryHandle(tunnelKey(n))->hwIndex(), index[n]) << n;
   EXPECT_EQ(rows(), before);
   EXPECT_EQ(changes(), changesBefore);
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

TEST_F(Restart, CrossAgentLookups) {
   program(1, 2);
   const auto k = tunnelKey(2);
   const Asic::Index i = v4->entryHandle(k)->hwIndex();
   EXPECT_EQ(v4->hwIndexOnlyForCrossAgentCommunication(k), i);
   EXPECT_EQ(v4->hwIndexOnlyForCrossAgentCommunication(tunnelKey(77)), Asic::invalidIndex);
   EXPECT_EQ(v4->swKeyFromHwIndex(i), k);
   EXPECT_FALSE(v4->swKeyFromHwIndex(Asic::Index(i + 100)));
   EXPECT_EQ(nh->hwIndexOnlyForCrossAgentCommunication(k), nh->entryHandle(k)->hwIndex());
   EXPECT_FALSE(nh->hwIndexOnlyForCrossAgentCommunication(tunnelKey(77)));
   // An index that the shared allocator gave to a key of another type.
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
