// The shared L3 value types (adjacency key, next-hop kind) and the tagged
// memory tracker.
#include <gtest/gtest.h>

#include <list>
#include <map>
#include <set>
#include <sstream>
#include <vector>

#include "Brio/Allocator.h"
#include "MeridL3Common/L3AdjIdKey.h"
#include "Orb/Strep.h"
#include "Plx/NextHopEntryType.h"

namespace {

using MeridL3Common::L3AdjIdKey;
using MeridL3Common::L3AdjIdKeyType;
using Plx::NextHopEntryType;

TEST(L3AdjIdKey, PrintsWithoutClosingBrace) {
   const struct {
      L3AdjIdKey key;
      const char* text;
   } cases[] = {
       {L3AdjIdKey(), "L3AdjIdKey{adjId:0 type:adjIdTypeUnknown"},
       {L3AdjIdKey(4294967295u, L3AdjIdKeyType::adjIdTypeEcmp),
        "L3AdjIdKey{adjId:4294967295 type:adjIdTypeEcmp"},
       {L3AdjIdKey(17, L3AdjIdKeyType::adjIdTypeTunnel),
        "L3AdjIdKey{adjId:17 type:adjIdTypeTunnel"},
       {L3AdjIdKey(5, L3AdjIdKeyType(200)), "L3AdjIdKey{adjId:5 type:200"},
   };
   for (const auto& c : cases) {
      EXPECT_EQ(c.key.stringValue(), c.text);
      std::ostringstream os;
      os << c.key;
      EXPECT_EQ(os.str(), c.text);
   }
}

TEST(L3AdjIdKey, OrdersByIdThenTypeAndHashesBothFields) {
   const std::vector<L3AdjIdKey> ascending{
       {0, L3AdjIdKeyType::adjIdTypeUnknown}, {0, L3AdjIdKeyType::adjIdTypeEcmp},
       {1, L3AdjIdKeyType::adjIdTypeUnknown}, {1, L3AdjIdKeyType::adjIdTypeTunnel},
       {2, L3AdjIdKeyType::adjIdTypeUnknown}, {0xffffffffu, L3AdjIdKeyType::adjIdTypeNextHop}};
   std::set<uint32_t> hashes;
   for (std::size_t i = 0; i < ascending.size(); ++i) {
      for (std::size_t j = 0; j < ascending.size(); ++j) {
         EXPECT_EQ(ascending[i] < ascending[j], i < j) << i << " " << j;
         EXPECT_EQ(L3AdjIdKey::isEq(ascending[i], ascending[j]), i == j) << i << " " << j;
      }
      hashes.insert(ascending[i].hash(0));
      EXPECT_NE(ascending[i].hash(0), ascending[i].hash(1));
      EXPECT_EQ(ascending[i].hash(7), L3AdjIdKey(ascending[i]).hash(7));
   }
   EXPECT_EQ(hashes.size(), ascending.size());
}

TEST(NextHopEntryType, EveryKindRoundTripsByName) {
   EXPECT_EQ(uint8_t(Plx::nextHopArpResolved()), 2);
   EXPECT_EQ(uint8_t(Plx::nextHopDrop()), 3);
   static_assert(sizeof(NextHopEntryType) == 1);
   for (NextHopEntryType t :
        {Plx::nextHopUnknown(), Plx::nextHopArpPending(), Plx::nextHopArpResolved(),
         Plx::nextHopDrop(), Plx::nextHopReceive(), Plx::nextHopGlean()}) {
      const std::string text = Plx::valueToStrep(t);
      EXPECT_EQ(Orb::strepToValue<NextHopEntryType>(text), t) << text;
   }
   EXPECT_EQ(Plx::valueToStrep(Plx::nextHopDrop), "nextHopDrop");
   EXPECT_TRUE(Plx::nextHopArpResolved < Plx::nextHopDrop());
}

TEST(NextHopEntryType, ReadsOneWholeName) {
   Orb::CharRange r("nextHopDrop, 'x'");
   EXPECT_EQ(Plx::sequenceToValue(r), Plx::nextHopDrop);
   EXPECT_EQ(r.rest(), ", 'x'");
   for (const char* bad : {"", "nextHop", "nextHopDropped", "NextHopDrop", "3", " nextHopDrop"}) {
      Orb::CharRange b(bad);
      EXPECT_THROW(Plx::sequenceToValue(b), std::range_error) << bad;
      EXPECT_EQ(b.position(), 0u) << bad;
   }
}

struct TagA {
   static constexpr std::string_view typeName = "Test::TagA";
};
struct TagB {
   static constexpr std::string_view typeName = "Test::TagB";
};

TEST(MemoryTracker, CountsEachTagsLiveBlocksAndBytes) {
   const auto a0 = Brio::MemoryTracker::usage(TagA::typeName);
   const auto b0 = Brio::MemoryTracker::usage(TagB::typeName);
   {
      std::vector<uint64_t, Brio::Allocator<uint64_t, TagA>> v;
      v.reserve(10);
      EXPECT_EQ(Brio::MemoryTracker::bytes(TagA::typeName), a0.bytes + 80);
      EXPECT_EQ(Brio::MemoryTracker::blocks(TagA::typeName), a0.blocks + 1);
      // Node containers allocate through the rebound allocator, still under the tag.
      std::map<int, int, std::less<>, Brio::Allocator<std::pair<const int, int>, TagB>> m;
      std::list<int, Brio::Allocator<int, TagB>> l;
      for (int i = 0; i < 5; ++i) m[i] = i, l.push_back(i);
      EXPECT_EQ(Brio::MemoryTracker::blocks(TagB::typeName), b0.blocks + 10);
      EXPECT_GE(Brio::MemoryTracker::bytes(TagB::typeName), b0.bytes + 5 * (8 + sizeof(int)));
      EXPECT_EQ(Brio::MemoryTracker::bytes(TagA::typeName), a0.bytes + 80);
   }
   EXPECT_EQ(Brio::MemoryTracker::bytes(TagA::typeName), a0.bytes);
   EXPECT_EQ(Brio::MemoryTracker::blocks(TagB::typeName), b0.blocks);
   EXPECT_EQ(Brio::MemoryTracker::bytes(TagB::typeName), b0.bytes);
}

}  // namespace
