// The tunnel key's hash: equal keys hash alike however they were made;
// keys that differ in any address byte that counts, in family or in which
// address is which, hash apart under every map's seed; and a run of keys
// spreads over the low bits the maps index with.
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "AsicSwTable/KeyedTableData.h"
#include "MeridL3Tunnel/L3TunnelKey.h"

namespace {

using MeridL3Tunnel::L3TunnelKey;
using Wire::IpGenAddr;

L3TunnelKey key(const char* src, const char* dst) { return {IpGenAddr(src), IpGenAddr(dst)}; }

constexpr uint32_t seeds[] = {0, Asic::entryHandleSeed, Asic::resolvedEntrySeed,
                              Asic::unresolvedEntrySeed};

TEST(TunnelKeyHash, EqualKeysAlikeUnequalKeysApart) {
   for (uint32_t seed : seeds)
      EXPECT_EQ(key("10.0.0.1", "11.0.0.2").hash(seed),
                L3TunnelKey(IpGenAddr::ipv4(0x0a000001), IpGenAddr::ipv4(0x0b000002)).hash(seed));
   const struct {
      const char* what;
      L3TunnelKey a, b;
   } apart[] = {
       {"swapped", key("10.0.0.1", "11.0.0.2"), key("11.0.0.2", "10.0.0.1")},
       {"last source octet", key("10.0.0.1", "11.0.0.2"), key("10.0.0.3", "11.0.0.2")},
       {"first destination octet", key("10.0.0.1", "11.0.0.2"), key("10.0.0.1", "12.0.0.2")},
       {"family", key("1.2.3.4", "1.2.3.4"), key("102:304::", "102:304::")},
       {"last IPv6 byte", key("2001:db8::1", "2001:db8::2"), key("2001:db8::1", "2001:db8::3")},
       {"middle IPv6 byte", key("2001:db8::1", "2001:db8::2"), key("2001:db8::1", "2001:db8:1::2")},
       {"zero in each family", key("0.0.0.0", "0.0.0.0"), key("::", "::")},
   };
   for (const auto& c : apart)
      for (uint32_t seed : seeds)
         EXPECT_NE(c.a.hash(seed), c.b.hash(seed)) << c.what << ", " << seed;
}

TEST(TunnelKeyHash, ConsecutiveKeysSpreadOverTheLowBits) {
   constexpr uint32_t keys = 1 << 14, buckets = 1 << 10;
   for (uint32_t seed : seeds) {
      std::vector<uint32_t> count(buckets);
      for (uint32_t n = 0; n < keys; ++n)
         ++count[L3TunnelKey(IpGenAddr::ipv4(0x0a000001), IpGenAddr::ipv4(0x0b000000 + n))
                     .hash(seed) %
                 buckets];
      // 16 a bucket on average; a weak mix leaves many empty and some crowded.
      EXPECT_LT(*std::max_element(count.begin(), count.end()), 40u) << seed;
      EXPECT_GT(*std::min_element(count.begin(), count.end()), 2u) << seed;
   }
}

}  // namespace
