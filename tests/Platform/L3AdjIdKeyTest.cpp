// The shared L3 value types: the adjacency key's text, and a next-hop kind
// read only as a whole name.
#include <gtest/gtest.h>

#include <sstream>

#include "MeridL3Common/L3AdjIdKey.h"
#include "Plx/NextHopEntryType.h"

namespace {

using MeridL3Common::L3AdjIdKey;
using MeridL3Common::L3AdjIdKeyType;

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

}  // namespace
