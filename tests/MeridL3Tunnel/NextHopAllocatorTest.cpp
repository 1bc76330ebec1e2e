// Which index space the tunnel next hops take their indices from, as chosen
// from the chip at start.
#include <gtest/gtest.h>

#include <optional>
#include <set>

#include "MeridL3Unicast/L3NextHopAttributes.h"
#include "support/SimFixture.h"

namespace test {
namespace {

using Stub = Asic::GenericIndexAllocatorStub;
using TunnelSpace = MeridL3Common::L3TunnelNextHopSharedAllocator;
using OrdinarySpace = MeridL3Common::L3NextHopSharedAllocator;

enum class Feature { none, apart, together, impostor, noProfile };

// Claims the next-hop feature's type without being that feature.
struct Impostor final : Asic::Feature {
   Orb::TypeId fwkType() const override {
      return Orb::typeId<MeridL3Unicast::L3NextHopAttributes>();
   }
};

// Stands for the ordinary L3 next-hop table, which shares its index space
// with the tunnel next hops on some chips.
struct OrdinaryNextHops final : Asic::IndexKeyHolder {
   static constexpr std::string_view typeName = "MeridL3Unicast::L3NextHopTable";
   explicit OrdinaryNextHops(uint32_t rows) {
      alloc = Stub::createSharedAllocator<OrdinarySpace>(Orb::typeId<OrdinaryNextHops>(), this);
      alloc->setTableAttr(this, 1);
      if (!alloc->indexCount()) alloc->indexCountIs(rows);
   }
   ~OrdinaryNextHops() {
      for (auto& k : keys) alloc->releaseIndex(alloc->getKey(k));
      Stub::freeSharedAllocator(Orb::typeId<OrdinarySpace>(), Orb::typeId<OrdinaryNextHops>(),
                                this);
   }
   Asic::Index take(const L3TunnelKey& k) {
      keys.insert(k);
      return alloc->newIndexForKey(k);
   }
   bool allocatorKeyHeld(uint32_t, Orb::GenericValueRef key) const override {
      const L3TunnelKey* k = key.as<L3TunnelKey>();
      return k && keys.count(*k);
   }
   std::string_view allocatorHolderName() const override { return typeName; }

   Brio::Ptr<OrdinarySpace> alloc;
   std::set<L3TunnelKey> keys;
};

class NextHopAllocator : public SimFixture {
protected:
   static constexpr uint32_t rows = 12;
   void chipIs(bool testChip, Feature feature) {
      chipInfo = Brio::makePtr<MeridCentral::ChipInfo>();
      for (auto name : {V4::typeName, L3EgrL3Ipv6TunnelTable::typeName,
                        L3TunnelEgrL3Oif1Table::typeName, Nh::typeName})
         chipInfo->tableSizeIs(name, rows);
      chipInfo->isTestChipIs(testChip);
      if (feature == Feature::noProfile) return;
      auto profile = Brio::makePtr<Asic::ChipProfile>();
      if (feature == Feature::apart || feature == Feature::together)
         profile->featureIs(
             Brio::makePtr<MeridL3Unicast::L3NextHopAttributes>(feature == Feature::apart));
      if (feature == Feature::impostor) profile->featureIs(Brio::makePtr<Impostor>());
      chipInfo->chipProfileIs(profile);
   }
   void makeNextHops() {
      nh = MeridL3Tunnel::l3TunnelIngL3NextHopTableFactory();
      init(*nh);
   }
};

// Another chip without the feature stops the table's set-up.
TEST_F(NextHopAllocator, TestChipAlwaysKeepsTunnelNextHopsApartOtherChipsAsk) {
   struct Case {
      bool testChip;
      Feature feature;
      bool apart, stops = false;
   };
   for (auto c :
        {Case{true, Feature::noProfile, true}, Case{true, Feature::none, true},
         Case{true, Feature::together, true}, Case{true, Feature::impostor, true},
         Case{false, Feature::apart, true}, Case{false, Feature::together, false},
         Case{false, Feature::none, true, true}, Case{false, Feature::noProfile, true, true},
         Case{false, Feature::impostor, true, true}}) {
      SCOPED_TRACE(::testing::Message()
                   << "test chip " << c.testChip << ", feature " << int(c.feature));
      chipIs(c.testChip, c.feature);
      if (c.stops) {
         EXPECT_DEATH(makeNextHops(), "assertion \"attributes\" failed");
         continue;
      }
      makeNextHops();
      const Orb::TypeId chosen =
          c.apart ? Orb::typeId<TunnelSpace>() : Orb::typeId<OrdinarySpace>();
      const Orb::TypeId other = c.apart ? Orb::typeId<OrdinarySpace>() : Orb::typeId<TunnelSpace>();
      auto& alloc = nh->indexAllocator();
      ASSERT_TRUE(alloc);
      EXPECT_EQ(alloc->allocatorType(), chosen);
      EXPECT_EQ(Stub::sharedAllocator(chosen), alloc);
      EXPECT_EQ(Stub::sharers(chosen), 1u);
      EXPECT_EQ(Stub::sharers(other), 0u);
      EXPECT_EQ(alloc->indexCount(), rows);
      EXPECT_TRUE(alloc->initialized());
      nh.reset();
      EXPECT_EQ(Stub::sharers(chosen), 0u) << "the table gives its share back";
   }
}

// Sharing the ordinary space means an index the ordinary next hops hold is
// never given to a tunnel next hop; apart, the two spaces do not meet.
TEST_F(NextHopAllocator, OrdinarySpaceIsSharedWithTheOrdinaryNextHops) {
   for (bool apart : {false, true}) {
      SCOPED_TRACE(apart ? "apart" : "shared");
      chipIs(false, apart ? Feature::apart : Feature::together);
      makeChainTables(rows);
      {
         OrdinaryNextHops ordinary(rows);
         EXPECT_EQ(ordinary.alloc == nh->indexAllocator(), !apart);
         EXPECT_EQ(Stub::sharers(Orb::typeId<OrdinarySpace>()), apart ? 1u : 2u);
         EXPECT_EQ(ordinary.take(tunnelKey(100)), 0u);
         EXPECT_EQ(ordinary.take(tunnelKey(101)), 1u);
         const auto k = tunnelKey(1);
         auto t = v4->entryRef(k, tunnelEntry<V4>(k));
         auto o = oif->entryRef(k, oifEntry(t));
         auto h = nh->entryRef(k, nextHopEntry(o));
         for (int i = 0; i < 3; ++i) runLoop();
         ASSERT_EQ(h->entryState(), State::success);
         EXPECT_EQ(h->hwIndex(), apart ? 0u : 2u);
         EXPECT_TRUE(hw(Nh::typeName)->row(h->hwIndex()));
      }
      TearDown();
      SetUp();
   }
}

}  // namespace
}  // namespace test
