// The overlay via list and what is particular to its entries (the value
// suite has the rest): reading an adjacency, zero sources, reflection,
// bounds and memory accounting.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <vector>

#include "MeridL3Tunnel/L3TunnelOverlayVia.h"
#include "Orb/Strep.h"
#include "support/Refusal.h"

namespace {

using MeridL3Common::L3AdjIdKey;
using MeridL3Common::L3AdjIdKeyType;
using MeridL3Tunnel::L3TunnelOverlayVia;
using Entry = MeridL3Tunnel::L3TunnelOverlayViaEntry;
using Wire::AddressFamily;
using Wire::IpGenAddr;

Entry sample() {
   return Entry(Plx::nextHopArpResolved, IpGenAddr("10.0.0.1"), IpGenAddr("2001:db8::2"), 64, 2,
                L3AdjIdKey(7, L3AdjIdKeyType::adjIdTypeEcmp));
}

TEST(OverlayViaEntry, ParsesOnlyAnEmptyAdjacencyPart) {
   const std::string head =
       "Value('MeridL3Tunnel::L3TunnelOverlayViaEntry', ** {'nhEntryType': nextHopDrop, "
       "'srcIpAddr': '10.1.1.1', 'dstIpAddr': '10.2.2.2', 'ttl': 64, 'weight': 2, "
       "'underlayAdjId': ";
   const Entry e = Orb::strepToValue<Entry>(head + "})");
   EXPECT_TRUE(Entry::isEq(e, Entry(Plx::nextHopDrop, IpGenAddr("10.1.1.1"), IpGenAddr("10.2.2.2"),
                                    64, 2, L3AdjIdKey())))
       << e;
   // Printed adjacency texts, default key included, stop the parser right there.
   for (const std::string& adj :
        {sample().underlayAdjId().stringValue(), L3AdjIdKey().stringValue()}) {
      const std::string what =
          test::refusal<std::range_error>([&] { Orb::strepToValue<Entry>(head + adj + "})"); });
      EXPECT_NE(what.find("position " + std::to_string(head.size())), std::string::npos) << what;
   }
}

TEST(OverlayViaEntry, AllZeroSourcesOfDifferentFamiliesDifferButHashAlike) {
   std::vector<Entry> entries;
   for (auto f : {AddressFamily::unspecified, AddressFamily::ipv4, AddressFamily::ipv6}) {
      Entry e = sample();
      e.srcIpAddrIs(IpGenAddr::ipGenAddrZero(f));
      entries.push_back(e);
   }
   for (std::size_t i = 1; i < entries.size(); ++i) {
      EXPECT_FALSE(Entry::isEq(entries[0], entries[i])) << i;
      EXPECT_EQ(entries[0].hash(0), entries[i].hash(0)) << i;
      EXPECT_EQ(entries[0].hash(99), entries[i].hash(99)) << i;
   }
}

class OverlayViaList : public ::testing::Test {
protected:
   static Entry numbered(uint32_t i) {
      Entry e = sample();
      e.weightIs(i);
      return e;
   }
   static L3TunnelOverlayVia::Ptr listOf(uint32_t n) {
      auto l = MeridL3Tunnel::l3TunnelOverlayViaFactory();
      for (uint32_t i = 0; i < n; ++i) l->viaPush(numbered(i));
      return l;
   }
};

TEST_F(OverlayViaList, PositionMustBeBelowTheSizeAndPopNeedsAnElement) {
   EXPECT_EQ(test::refusal<std::out_of_range>([&] { listOf(0)->viaPop(); }),
             "pop from an empty vector");
   for (uint32_t n : {0u, 1u, 4u}) {
      SCOPED_TRACE(n);
      auto l = listOf(n);
      const std::string expected = "vector index out of range: position " + std::to_string(n) +
                                   ", size " + std::to_string(n);
      EXPECT_EQ(test::refusal<std::out_of_range>([&] { l->viaIs(n, numbered(99)); }), expected);
      EXPECT_EQ(test::refusal<std::out_of_range>([&] { l->via(n); }), expected);
      if (n > 0) {
         EXPECT_EQ(l->via(n - 1).weight(), n - 1);  // the last position is in range
      }
   }
}

TEST_F(OverlayViaList, TrackerFollowsCapacityAndObjects) {
   using MT = Brio::MemoryTracker;
   const auto storage = MT::bytes(MeridL3Tunnel::VE_Via::typeName);
   const auto objects = MT::usage(L3TunnelOverlayVia::typeName);
   {
      auto a = listOf(5), b = listOf(0);
      EXPECT_EQ(MT::blocks(L3TunnelOverlayVia::typeName), objects.blocks + 2);
      EXPECT_EQ(MT::bytes(L3TunnelOverlayVia::typeName),
                objects.bytes + 2 * sizeof(L3TunnelOverlayVia));
      auto capacityBytes = [&] { return (a->viaCapacity() + b->viaCapacity()) * sizeof(Entry); };
      EXPECT_GE(a->viaCapacity(), 5u);
      EXPECT_EQ(MT::bytes(MeridL3Tunnel::VE_Via::typeName), storage + capacityBytes());
      for (uint32_t i = 0; i < 40; ++i) b->viaPush(numbered(i));
      EXPECT_EQ(MT::bytes(MeridL3Tunnel::VE_Via::typeName), storage + capacityBytes());
      const uint32_t kept = b->viaCapacity();
      b->viaPopAll();
      EXPECT_EQ(b->vias(), 0u);
      EXPECT_EQ(b->viaCapacity(), kept);
      EXPECT_EQ(MT::bytes(MeridL3Tunnel::VE_Via::typeName), storage + capacityBytes());
   }
   EXPECT_EQ(MT::bytes(MeridL3Tunnel::VE_Via::typeName), storage);
   EXPECT_EQ(MT::bytes(L3TunnelOverlayVia::typeName), objects.bytes);
   EXPECT_EQ(MT::blocks(L3TunnelOverlayVia::typeName), objects.blocks);
}

}  // namespace
