// Text forms, comparison and truth of the tunnel values.
#include <gtest/gtest.h>

#include <functional>

#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"
#include "MeridL3Tunnel/L3EgrL3Ipv6TunnelTable.h"
#include "Orb/Strep.h"
#include "support/Refusal.h"

namespace {

using MeridL3Tunnel::L3TunnelKey;
using V4 = MeridL3Tunnel::L3EgrL3Ipv4TunnelTable::Entry;
using V6 = MeridL3Tunnel::L3EgrL3Ipv6TunnelTable::Entry;
using Wire::IpGenAddr;

template <class E>
class TunnelEntryText : public ::testing::Test {
protected:
   static E sample() {
      return E(true, false, IpGenAddr("10.0.0.1"), 64, IpGenAddr("2001:db8::2"), U5(17));
   }
};
using EntryTypes = ::testing::Types<V4, V6>;
TYPED_TEST_SUITE(TunnelEntryText, EntryTypes);

TYPED_TEST(TunnelEntryText, PrintsTheFixedFormat) {
   const std::string name(TypeParam::typeName);
   EXPECT_EQ(this->sample().stringValue(),
             "Value('" + name +
                 "', ** {'isIpInIpV4Tunnel': True, 'isIpInIpV6Tunnel': False, 'srcIpAddr': "
                 "'10.0.0.1', 'ttlValue': 64, 'dstIpAddr': '2001:db8::2', "
                 "'strengthProfileIndex1': 17})");
}

TYPED_TEST(TunnelEntryText, PrintThenParseGivesAnEqualEntry) {
   std::vector<TypeParam> values{TypeParam(), this->sample()};
   auto withFn = this->sample();
   withFn.writeResponseFnIs([](Asic::SwTableBase::EntryState) {});
   values.push_back(withFn);
   values.push_back(TypeParam(false, true, IpGenAddr("::"), 255, IpGenAddr("0.0.0.0"), U5(31)));
   for (auto& v : values) {
      auto parsed = Orb::strepToValue<TypeParam>(v.stringValue());
      EXPECT_TRUE(TypeParam::isEq(parsed, v)) << v;
      EXPECT_FALSE(parsed.writeResponseFn()) << "the callable is not part of the text";
   }
}

TYPED_TEST(TunnelEntryText, BadFieldFailsNamingTheField) {
   const std::string good = this->sample().stringValue();
   struct Case {
      std::string from, to, field;
   };
   const std::vector<Case> cases{
       {"'isIpInIpV4Tunnel': True", "'isIpInIpV4Tunnel': true", "isIpInIpV4Tunnel"},
       {"'isIpInIpV6Tunnel': False", "'isIpInIpV6Tunnel': 0", "isIpInIpV6Tunnel"},
       {"'10.0.0.1'", "'10.0.0.256'", "srcIpAddr"},
       {"'ttlValue': 64", "'ttlValue': 256", "ttlValue"},
       {"'2001:db8::2'", "'2001:db8::2::'", "dstIpAddr"},
       {"'strengthProfileIndex1': 17", "'strengthProfileIndex1': 32", "strengthProfileIndex1"},
   };
   for (auto& c : cases) {
      std::string bad = good;
      bad.replace(bad.find(c.from), c.from.size(), c.to);
      const std::string what =
          test::refusal<std::range_error>([&] { Orb::strepToValue<TypeParam>(bad); });
      EXPECT_TRUE(test::startsWith(what, c.field + ":")) << what;
   }
}

TYPED_TEST(TunnelEntryText, LiteralPiecesMustStandExactly) {
   const std::string good = this->sample().stringValue();
   for (auto [from, to] :
        std::vector<std::pair<std::string, std::string>>{{"** {", "**{"},
                                                         {", 'ttlValue'", ",'ttlValue'"},
                                                         {"})", "} )"},
                                                         {"Value(", "value("}}) {
      std::string bad = good;
      bad.replace(bad.find(from), from.size(), to);
      EXPECT_THROW(Orb::strepToValue<TypeParam>(bad), std::range_error) << bad;
   }
   EXPECT_THROW(Orb::strepToValue<TypeParam>(good + " "), std::range_error);
   // The other table's type name is another type.
   using Other = std::conditional_t<std::is_same_v<TypeParam, V4>, V6, V4>;
   EXPECT_THROW(Orb::strepToValue<TypeParam>(Other().stringValue()), std::range_error);
}

TYPED_TEST(TunnelEntryText, TruthAndOrder) {
   EXPECT_FALSE(bool(TypeParam()));
   std::vector<std::function<void(TypeParam&)>> changes{
       [](TypeParam& e) { e.isIpInIpV4TunnelIs(true); },
       [](TypeParam& e) { e.isIpInIpV6TunnelIs(true); },
       [](TypeParam& e) { e.srcIpAddrIs(IpGenAddr::ipGenAddrZero(Wire::AddressFamily::ipv4)); },
       [](TypeParam& e) { e.ttlValueIs(1); },
       [](TypeParam& e) { e.dstIpAddrIs(IpGenAddr("::1")); },
       [](TypeParam& e) { e.strengthProfileIndex1Is(U5(1)); },
   };
   for (size_t i = 0; i < changes.size(); ++i) {
      TypeParam e;
      changes[i](e);
      EXPECT_TRUE(bool(e)) << "field " << i;
      EXPECT_TRUE(TypeParam() < e) << "field " << i;
      EXPECT_FALSE(e < TypeParam()) << "field " << i;
   }
   auto a = this->sample(), b = this->sample();
   EXPECT_FALSE(a < b);
   b.dstIpAddrIs(IpGenAddr("2001:db8::3"));
   EXPECT_TRUE(a < b) << "differing only in dstIpAddr orders by it";
   // isIpInIpV4Tunnel decides before srcIpAddr.
   auto c = this->sample(), d = this->sample();
   c.isIpInIpV4TunnelIs(false);
   c.srcIpAddrIs(IpGenAddr("10.0.0.9"));
   d.srcIpAddrIs(IpGenAddr("10.0.0.0"));
   EXPECT_TRUE(c < d);
}

TEST(L3TunnelKeyText, RoundTripAndHashSeeds) {
   L3TunnelKey k(IpGenAddr("10.0.0.1"), IpGenAddr("2001:db8::1"));
   EXPECT_EQ(Orb::valueToStrep(k), "L3TunnelKey('10.0.0.1', '2001:db8::1')");
   EXPECT_EQ(Orb::strepToValue<L3TunnelKey>(Orb::valueToStrep(k)), k);
   EXPECT_EQ(Orb::strepToValue<L3TunnelKey>(Orb::valueToStrep(L3TunnelKey())), L3TunnelKey());
   EXPECT_NE(k.hash(Asic::entryHandleSeed), k.hash(Asic::resolvedEntrySeed));
   L3TunnelKey swapped(k.dstIpAddr(), k.srcIpAddr());
   EXPECT_FALSE(k == swapped);
   EXPECT_TRUE(k < swapped || swapped < k);
}

TEST(TableIndexText, DecimalValue) {
   using Index = MeridL3Tunnel::L3EgrL3Ipv4TunnelTable::Index;
   EXPECT_EQ(Orb::valueToStrep(Index(4294967295u)), "4294967295");
   EXPECT_EQ(Orb::strepToValue<Index>("7"), Index(7));
   EXPECT_FALSE(bool(Index(0)));
   EXPECT_TRUE(Index(1) < Index(2));
   const std::string what =
       test::refusal<std::range_error>([] { Orb::strepToValue<Index>("4294967296"); });
   EXPECT_TRUE(test::startsWith(what, "value:")) << what;
}

}  // namespace
