// From via lists to member blocks: weights and order, one key shared by a
// chain's handles, drop vias, underlay look-ups and full tables.
#include <algorithm>

#include "SharedL3/DontCareHandle.h"
#include "support/ProgrammerFixture.h"

namespace test {
namespace {

class OverlayBlock : public ProgrammerFixture {
protected:
   size_t traced(std::string_view text) const { return size_t(linesWith(trace.lines(), text)); }
   static const L3EcmpMember0Table::Entry& member(const HandlePtr& h, uint32_t slot) {
      return block(h).entryBlock().entry(L3EcmpMember0Table::Index(slot));
   }
   static L3TunnelKey keyOf(const HandlePtr& nextHop) {
      return static_cast<const L3TunnelIngL3NextHopTable::EntryHandle&>(*nextHop).key();
   }
   // A full table is traced and the chain is still written behind it. A table
   // finds out that it is full when what its entry names is programmed, so the
   // trace comes at the latest when the via is handed over again.
   void expectFullTableTraced(std::initializer_list<std::string_view> tables, uint32_t rowCount,
                              const char* traceText) {
      for (auto t : tables) chipInfo->tableSizeIs(t, rowCount);
      start();
      HandlePtr first = program({via("10.0.0.1", "10.0.0.2", 2)});
      trace.clear();
      HandlePtr h = program({via("10.0.0.1", "10.0.0.2", 2)});
      EXPECT_EQ(h, first);
      EXPECT_EQ(traced(traceText), 2u);
      EXPECT_EQ(traced("Full"), 2u);  // only the full table says so
      ASSERT_EQ(block(h).size(), 2u);
      const HandlePtr& nextHop = member(h, 0).nextHopHandle();
      EXPECT_TRUE(nh->entryHandle(keyOf(nextHop)));
      EXPECT_TRUE(nextHop->isFailed());
      EXPECT_EQ(h->entryState(), State::failedNeededEntry);
      expectConsistent();
   }
   Orb::TraceCapture trace{"MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer/5"};
};
using OverlayBlockDeathTest = OverlayBlock;

TEST_F(OverlayBlock, WeightsGiveConsecutiveSlotsInListOrder) {
   start();
   HandlePtr h = program({via("10.0.0.1", "10.0.0.2", 2, 1), via("10.0.0.1", "10.0.0.3", 0, 2),
                          via("10.0.0.1", "10.0.0.4", 3, 3)});
   ASSERT_EQ(block(h).size(), 5u);
   const char* dst[] = {"10.0.0.2", "10.0.0.2", "10.0.0.4", "10.0.0.4", "10.0.0.4"};
   for (uint32_t s = 0; s < 5; ++s) {
      EXPECT_EQ(keyOf(member(h, s).nextHopHandle()).dstIpAddr(), addr(dst[s])) << s;
      EXPECT_EQ(member(h, s).underlayHandle(), underlay->entryWeakRef(adj(s < 2 ? 1 : 3))) << s;
   }
   EXPECT_EQ(member(h, 0).nextHopHandle(), member(h, 1).nextHopHandle());
   EXPECT_FALSE(nh->entryHas({addr("10.0.0.1"), addr("10.0.0.3")}));
   // Every via is traced, the weightless one too, with its weight glued on.
   EXPECT_EQ(traced("populateOverlayEcmpBlock OverlayVia: nhEntryType=nextHopArpResolved "
                    "srcIpAddr=10.0.0.1 dstIpAddr=10.0.0.3 underlayAdjId=2weight=0"),
             1u);
   EXPECT_EQ(traced("fillOverlayNextHopInfo OverlayVia: srcIpAddr=10.0.0.1 dstIpAddr=10.0.0.4 "
                    "underlayAdjId=3"),
             3u);
   EXPECT_EQ(h->entryState(), State::success);
   // The tunnel, interface and next-hop handles of one chain share one copy
   // of its key.
   const L3TunnelKey key{addr("10.0.0.1"), addr("10.0.0.2")};
   auto tunnel = v4->entryHandle(key);
   ASSERT_TRUE(tunnel);
   auto sharesKey = [&](const auto& h) {
      ASSERT_TRUE(h);
      EXPECT_EQ(&h->key(), &tunnel->key());
   };
   sharesKey(nh->entryHandle(key));
   if (expectedToggle())
      sharesKey(intf->entryHandle(key));
   else
      sharesKey(oif->entryHandle(key));
   expectConsistent();
}

// A via only looks the reserved drop entry up: one the chip refused is traced
// and its handle used. The block commits it again, once, before its vias.
TEST_F(OverlayBlock, RefusedDropEntryIsTracedAtTheViaAndRecommittedByTheBlock) {
   chip->writeFailuresIs(L3TunnelIngL3NextHopTable::typeName, 1);
   start();
   const HandlePtr drop = nh->entryWeakRef(L3TunnelOverlayEcmpProgrammer::getTunnelDropKey());
   ASSERT_EQ(drop->entryState(), State::noHwIndex);
   const uint32_t writes = stats(L3TunnelIngL3NextHopTable::typeName).writes;
   EXPECT_EQ(programmer->fillOverlayNextHopInfo(dropVia(1)), drop);
   EXPECT_EQ(stats(L3TunnelIngL3NextHopTable::typeName).writes, writes) << "a via writes nothing";
   EXPECT_EQ(traced("fillOverlayNextHopInfo L3TunnelNextHopTable is Full "), 1u);

   HandlePtr h = program({via("10.0.0.1", "10.0.0.2", 1), dropVia(3)});
   EXPECT_EQ(stats(L3TunnelIngL3NextHopTable::typeName).writes, writes + 2);  // drop, next hop
   EXPECT_EQ(drop->entryState(), State::success);
   EXPECT_EQ(member(h, 3).nextHopHandle(), drop);
   EXPECT_EQ(member(h, 3).nextHopIdx(), drop->hwIndex());
   EXPECT_EQ(traced("fillOverlayNextHopInfo L3TunnelNextHopTable is Full "), 1u);
   expectConsistent();
}

TEST_F(OverlayBlock, MissingUnderlayIsTracedOncePerSlotAndTheMemberStillBuilt) {
   start();
   HandlePtr h = program({via("10.0.0.1", "10.0.0.2", 3, 99)});
   EXPECT_EQ(traced("populateOverlayEcmpBlock Underlay is not yet resolved. UnderlayAdjId=  99"),
             3u);
   ASSERT_EQ(block(h).size(), 3u);
   EXPECT_FALSE(member(h, 2).underlayHandle());
   EXPECT_EQ(member(h, 2).underlayIdx(), Asic::invalidIndex);
   EXPECT_EQ(h->entryState(), State::success);
}

TEST_F(OverlayBlockDeathTest, ViaOfAnotherKindStopsTheProcess) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   start();
   EXPECT_DEATH(
       program({via("10.0.0.1", "10.0.0.2", 1, 1, 64, Plx::NextHopEntryType::nextHopGlean)}),
       "assertion \"\\( viaEntry.nhEntryType\\(\\) == Plx::nextHopArpResolved\\(\\) \\) \\|\\| "
       "\\( viaEntry.nhEntryType\\(\\) == Plx::nextHopDrop\\(\\) \\)\" failed");
}

TEST_F(OverlayBlock, FullTunnelTableIsTracedAndTheChainGoesOn) {
   // Index 0 of the tunnel index space is reserved: one row leaves none.
   expectFullTableTraced({L3EgrL3Ipv4TunnelTable::typeName, L3EgrL3Ipv6TunnelTable::typeName}, 1,
                         "fillOverlayNextHopInfo L3EgrL3IpTunnelTables is Full ");
}

TEST_F(OverlayBlock, FullInterfaceTableIsTracedAndTheChainGoesOn) {
   expectFullTableTraced(
       {L3TunnelEgrL3Oif1Table::typeName, IngL3Iif::typeName, EgrL3Oif1Table::typeName}, 0,
       "fillOverlayNextHopInfo L3TunnelEgrL3OifTable is Full ");
}

TEST_F(OverlayBlock, FullNextHopTableIsTracedAndTheBlockStillBuilt) {
   expectFullTableTraced({L3TunnelIngL3NextHopTable::typeName}, 1,  // the drop entry's row
                         "fillOverlayNextHopInfo L3TunnelNextHopTable is Full ");
}

}  // namespace
}  // namespace test
