// The values the tables and the programmer take, run over every value type:
// the fixed text form and its way back, refusals that name the field, and
// each field taking part in equality, hash, order and truth, in declaration
// order, while what is not part of a value (its callable, an index derived
// from the entry it names) takes none.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "MeridL3Tunnel/L3TunnelOverlayVia.h"
#include "Orb/Strep.h"
#include "SharedL3/DontCareHandle.h"
#include "SharedL3/EcmpGroup1Table.h"
#include "support/Refusal.h"
#include "support/Setup.h"
#include "support/SimFixture.h"

namespace test {
namespace {

using SwTableWorkaround::dontCareHandle;
using Via = MeridL3Tunnel::L3TunnelOverlayViaEntry;
using MeridL3Common::L3AdjIdKey;
using MeridL3Common::L3AdjIdKeyType;

// Two live handles, the lower address first: a value naming the second is
// above one naming the first.
HandlePtr lo() {
   const bool first = std::less<>()(dontCareHandle(1).ptr(), dontCareHandle(2).ptr());
   return dontCareHandle(first ? 1 : 2);
}
HandlePtr hi() { return dontCareHandle(lo() == dontCareHandle(1) ? 2 : 1); }
std::string handle() { return Asic::SwTableBase::EntryHandle::handleText(lo().ptr()); }

template <class E>
struct Field {
   const char* name;
   std::function<void(E&)> raise;  // above the base's, or the default's, value
};
struct BadEdit {
   std::string from, to, prefix;  // the sample's text so edited is refused with `prefix`
};

template <class E>
void callable(E& e) {
   e.writeResponseFnIs([](State) {});
}

// A table's value: read back, ordered, hashed as the tables hash it, and
// raised field by field from the default value.
template <class E>
struct TableValue {
   static constexpr bool readsBack = true, ordered = true;
   static E base() { return E(); }
   static uint32_t hash(const E& e) { return e.genericIfHash(); }
};

// The egress tunnel values of both tunnel tables.
template <class E>
struct TunnelValue : TableValue<E> {
   static E sample() {
      return E(true, false, Wire::IpGenAddr("10.0.0.1"), 64, Wire::IpGenAddr("2001:db8::2"),
               U5(17));
   }
   static std::string text() {
      return "Value('" + std::string(E::typeName) +
             "', ** {'isIpInIpV4Tunnel': True, 'isIpInIpV6Tunnel': False, 'srcIpAddr': "
             "'10.0.0.1', 'ttlValue': 64, 'dstIpAddr': '2001:db8::2', "
             "'strengthProfileIndex1': 17})";
   }
   static std::vector<Field<E>> fields() {
      return {
          {"isIpInIpV4Tunnel", [](E& e) { e.isIpInIpV4TunnelIs(true); }},
          {"isIpInIpV6Tunnel", [](E& e) { e.isIpInIpV6TunnelIs(true); }},
          {"srcIpAddr",
           [](E& e) { e.srcIpAddrIs(Wire::IpGenAddr::ipGenAddrZero(Wire::AddressFamily::ipv4)); }},
          {"ttlValue", [](E& e) { e.ttlValueIs(1); }},
          {"dstIpAddr", [](E& e) { e.dstIpAddrIs(Wire::IpGenAddr("::1")); }},
          {"strengthProfileIndex1", [](E& e) { e.strengthProfileIndex1Is(U5(1)); }}};
   }
   static std::vector<std::function<void(E&)>> sameValue() { return {callable<E>}; }
   static std::vector<BadEdit> badEdits() {
      return {{"'isIpInIpV4Tunnel': True", "'isIpInIpV4Tunnel': true", "isIpInIpV4Tunnel: "},
              {"'isIpInIpV6Tunnel': False", "'isIpInIpV6Tunnel': 0", "isIpInIpV6Tunnel: "},
              {"'10.0.0.1'", "'10.0.0.256'", "srcIpAddr: "},
              {"'ttlValue': 64", "'ttlValue': 256", "ttlValue: "},
              {"'2001:db8::2'", "'2001:db8::2::'", "dstIpAddr: "},
              {"'strengthProfileIndex1': 17", "'strengthProfileIndex1': 32",
               "strengthProfileIndex1: "}};
   }
};

// The interface values of the tunnel interface table and of the merged
// table's egress member.
template <class E>
struct InterfaceValue : TableValue<E> {
   static E sample() { return E(lo(), 7, 10, U5(3)); }
   static std::string text() {
      return "Value('" + std::string(E::typeName) + "', ** {'tunnelIdxHandle': " + handle() +
             ", 'tunnelIdx': 7, 'ttlThreshold': 10, 'strengthPrflIndex': 3})";
   }
   static std::vector<Field<E>> fields() {
      return {{"tunnelIdxHandle", [](E& e) { e.tunnelIdxHandleIs(hi()); }},
              {"ttlThreshold", [](E& e) { e.ttlThresholdIs(11); }},
              {"strengthPrflIndex", [](E& e) { e.strengthPrflIndexIs(U5(4)); }}};
   }
   static std::vector<std::function<void(E&)>> sameValue() {
      return {callable<E>, [](E& e) { e.tunnelIdxIs(uint16_t(e.tunnelIdx() + 100)); }};
   }
   static std::vector<BadEdit> badEdits() {
      return {{"'tunnelIdx': 7", "'tunnelIdx': 65536", "tunnelIdx: "},
              {"'ttlThreshold': 10", "'ttlThreshold': 256", "ttlThreshold: "},
              {"'strengthPrflIndex': 3", "'strengthPrflIndex': 32", "strengthPrflIndex: "},
              {handle(), "0xg", "tunnelIdxHandle: "},
              {handle(), "(nil)", "tunnelIdxHandle: "}};
   }
};

struct NextHopValue : TableValue<Nh::Entry> {
   using E = Nh::Entry;
   static E sample() { return E(lo(), 7, false, U5(3), U2(1)); }
   static std::string text() {
      return "Value('MeridL3Tunnel::L3TunnelIngL3NextHopTable::Entry', ** {'l3Oif1Handle': " +
             handle() + ", 'l3Oif1': 7, 'drop': False, 'strengthProfileIdx': 3, 'viewType': 1})";
   }
   static std::vector<Field<E>> fields() {
      return {{"l3Oif1Handle", [](E& e) { e.l3Oif1HandleIs(hi()); }},
              {"drop", [](E& e) { e.dropIs(true); }},
              {"strengthProfileIdx", [](E& e) { e.strengthProfileIdxIs(U5(4)); }},
              {"viewType", [](E& e) { e.viewTypeIs(U2(2)); }}};
   }
   static std::vector<std::function<void(E&)>> sameValue() {
      return {callable<E>, [](E& e) { e.l3Oif1Is(uint16_t(e.l3Oif1() + 1)); }};
   }
   static std::vector<BadEdit> badEdits() {
      return {{"'l3Oif1': 7", "'l3Oif1': 65536", "l3Oif1: "},
              {"'drop': False", "'drop': false", "drop: "},
              {"'strengthProfileIdx': 3", "'strengthProfileIdx': 32", "strengthProfileIdx: "},
              {"'viewType': 1", "'viewType': 4", "viewType: "},
              {handle(), "0xg", "l3Oif1Handle: "}};
   }
};

struct MergedValue : TableValue<L3InterfaceTable::Entry> {
   using E = L3InterfaceTable::Entry;
   // Not ordered by its fields: nothing sorts merged values.
   static constexpr bool ordered = false;
   static EgrL3Oif1Table::Entry egress(uint8_t ttl) { return {lo(), 3, ttl, U5(18)}; }
   static E sample() { return E(IngL3Iif::Entry(), egress(9)); }
   static std::string text() {
      return "Value('MeridL3Tunnel::L3InterfaceTable::Entry', ** {'ingL3IifEntry': , "
             "'egrL3Oif1TableEntry': Value('MeridL3Tunnel::EgrL3Oif1Table::Entry', ** "
             "{'tunnelIdxHandle': " +
             handle() + ", 'tunnelIdx': 3, 'ttlThreshold': 9, 'strengthPrflIndex': 18})})";
   }
   static std::vector<Field<E>> fields() {
      return {{"egrL3Oif1TableEntry", [](E& e) { e.egrL3Oif1TableEntryIs(egress(200)); }}};
   }
   static std::vector<std::function<void(E&)>> sameValue() {
      return {callable<E>, [](E& e) {
                 auto egr = e.egrL3Oif1TableEntry();
                 egr.tunnelIdxIs(42);
                 e.egrL3Oif1TableEntryIs(egr);
              }};
   }
   // The egress value's refusals come with its field's name in front.
   static std::vector<BadEdit> badEdits() {
      return {{"'ttlThreshold': 9", "'ttlThreshold': 256", "egrL3Oif1TableEntry: ttlThreshold: "},
              {"'tunnelIdx': 3", "'tunnelIdx': 65536", "egrL3Oif1TableEntry: tunnelIdx: "},
              {"EgrL3Oif1Table::Entry", "L3TunnelEgrL3Oif1Table::Entry", "egrL3Oif1TableEntry: "},
              {handle(), "0x", "egrL3Oif1TableEntry: tunnelIdxHandle: "},
              {"'ingL3IifEntry': ,", "'ingL3IifEntry': x,", ""}};
   }
};

// Its text reads back only without an adjacency (OverlayViaTest).
struct ViaValue {
   using E = Via;
   static constexpr bool readsBack = false, ordered = true;
   static E sample() {
      return E(Plx::nextHopArpResolved, Wire::IpGenAddr("10.0.0.1"), Wire::IpGenAddr("2001:db8::2"),
               64, 2, L3AdjIdKey(7, L3AdjIdKeyType::adjIdTypeEcmp));
   }
   static E base() { return sample(); }
   static std::string text() {
      return "Value('MeridL3Tunnel::L3TunnelOverlayViaEntry', ** {'nhEntryType': "
             "nextHopArpResolved, 'srcIpAddr': '10.0.0.1', 'dstIpAddr': '2001:db8::2', 'ttl': 64, "
             "'weight': 2, 'underlayAdjId': L3AdjIdKey{adjId:7 type:adjIdTypeEcmp})";
   }
   static std::vector<Field<E>> fields() {
      return {{"nhEntryType", [](E& e) { e.nhEntryTypeIs(Plx::nextHopDrop); }},
              {"srcIpAddr", [](E& e) { e.srcIpAddrIs(Wire::IpGenAddr("10.0.0.3")); }},
              {"dstIpAddr", [](E& e) { e.dstIpAddrIs(Wire::IpGenAddr("2001:db8::3")); }},
              {"ttl", [](E& e) { e.ttlIs(65); }},
              {"weight", [](E& e) { e.weightIs(3); }},
              {"underlayAdjId",
               [](E& e) { e.underlayAdjIdIs(L3AdjIdKey(7, L3AdjIdKeyType::adjIdTypeTunnel)); }}};
   }
   static std::vector<std::function<void(E&)>> sameValue() { return {}; }
   static std::vector<BadEdit> badEdits() {
      return {{"nextHopArpResolved", "nextHopArp", "nhEntryType:"},
              {"'10.0.0.1'", "10.0.0.1", "srcIpAddr:"},
              {"'2001:db8::2'", "'2001:db8::g'", "dstIpAddr:"},
              {"'ttl': 64", "'ttl': 4294967296", "ttl:"},
              {"'weight': 2", "'weight': -2", "weight:"}};
   }
   static uint32_t hash(const E& e) { return e.hash(0); }
};

template <class V>
class ValueSuite : public ::testing::Test {
protected:
   using E = decltype(V::sample());
   static std::string refusalOf(const std::string& text) {
      return refusal<std::range_error>([&] { Orb::strepToValue<E>(text); });
   }
};
using Values =
    ::testing::Types<TunnelValue<V4::Entry>, TunnelValue<V6::Entry>, InterfaceValue<Oif::Entry>,
                     InterfaceValue<EgrL3Oif1Table::Entry>, NextHopValue, MergedValue, ViaValue>;
TYPED_TEST_SUITE(ValueSuite, Values);

TYPED_TEST(ValueSuite, PrintsTheFixedFormatAndReadsItBack) {
   using E = typename TestFixture::E;
   auto e = TypeParam::sample();
   EXPECT_EQ(valueToStrep(e), TypeParam::text());
   std::ostringstream os;
   os << e;
   EXPECT_EQ(os.str(), TypeParam::text());
   if (!TypeParam::readsBack) return;
   for (auto& change : TypeParam::sameValue()) change(e);
   for (const E& v : {e, E(), TypeParam::base()}) {
      const E parsed = Orb::strepToValue<E>(valueToStrep(v));
      EXPECT_TRUE(E::isEq(parsed, v)) << v;
      EXPECT_EQ(valueToStrep(parsed), valueToStrep(v)) << "what is not part of the value too";
   }
}

TYPED_TEST(ValueSuite, RefusalsNameTheField) {
   const std::string good = TypeParam::text();
   auto edited = [&](const std::string& from, const std::string& to) {
      std::string s = good;
      s.replace(s.find(from), from.size(), to);
      return s;
   };
   for (auto& c : TypeParam::badEdits()) {
      const std::string what = this->refusalOf(edited(c.from, c.to));
      EXPECT_NE(what, "accepted") << c.to;
      if (!c.prefix.empty()) {
         EXPECT_TRUE(startsWith(what, c.prefix)) << c.to << ": " << what;
      }
   }
   for (auto [from, to] : std::vector<std::pair<std::string, std::string>>{
            {"** {", "**{"}, {"Value('", "Value(\""}, {"Value(", "value("}})
      EXPECT_NE(this->refusalOf(edited(from, to)), "accepted") << to;
   EXPECT_NE(this->refusalOf(good + " "), "accepted");
   EXPECT_NE(this->refusalOf(good.substr(0, good.size() - 1)), "accepted");
}

// One field raised at a time: each moves equality and the hash and makes a
// default value true; the earlier raised field decides the order.
TYPED_TEST(ValueSuite, EachFieldCountsInDeclarationOrder) {
   using E = typename TestFixture::E;
   const E base = TypeParam::base();
   EXPECT_FALSE(bool(E()));
   std::vector<E> raised;
   for (auto& f : TypeParam::fields()) {
      E e = base, alone;
      f.raise(e);
      f.raise(alone);
      EXPECT_TRUE(bool(alone)) << f.name;
      EXPECT_FALSE(E::isEq(e, base)) << f.name;
      EXPECT_NE(TypeParam::hash(e), TypeParam::hash(base)) << f.name;
      if constexpr (TypeParam::ordered) {
         EXPECT_TRUE(base < e) << f.name;
         EXPECT_FALSE(e < base) << f.name;
         for (auto& earlier : raised) EXPECT_TRUE(e < earlier) << f.name;
      }
      raised.push_back(e);
   }
   for (auto& change : TypeParam::sameValue()) {
      E e = TypeParam::sample();
      change(e);
      EXPECT_TRUE(E::isEq(e, TypeParam::sample()));
      EXPECT_EQ(TypeParam::hash(e), TypeParam::hash(TypeParam::sample()));
   }
}

// A value naming an entry handle reads back only while the handle lives, and
// only an address that fits a pointer.
TEST(HandleValue, OnlyALiveHandleOfPointerWidthReadsBack) {
   auto groups = Brio::makePtr<MeridL3Tunnel::EcmpGroup1Table>(2);
   HandlePtr h = groups->entryIs(adj(1));
   const std::string address = Asic::SwTableBase::EntryHandle::handleText(h.ptr());
   const std::string text = Oif::Entry(h, 7, 10, U5(3)).stringValue();
   EXPECT_TRUE(Oif::Entry::isEq(Orb::strepToValue<Oif::Entry>(text), Oif::Entry(h, 7, 10, U5(3))));
   std::string wide = text;
   wide.replace(
       wide.find(address), address.size(),
       "0x1" + std::string(sizeof(uintptr_t) * 2 - (address.size() - 2), '0') + address.substr(2));
   EXPECT_TRUE(startsWith(refusal<std::range_error>([&] { Orb::strepToValue<Oif::Entry>(wide); }),
                          "tunnelIdxHandle: "));
   groups->entryDel(adj(1));
   h = nullptr;
   EXPECT_TRUE(startsWith(refusal<std::range_error>([&] { Orb::strepToValue<Oif::Entry>(text); }),
                          "tunnelIdxHandle: "));
}

TEST(KeyAndIndexText, TunnelKeyAndTableIndex) {
   L3TunnelKey k(addr("10.0.0.1"), addr("2001:db8::1"));
   EXPECT_EQ(Orb::valueToStrep(k), "L3TunnelKey('10.0.0.1', '2001:db8::1')");
   EXPECT_EQ(Orb::strepToValue<L3TunnelKey>(Orb::valueToStrep(k)), k);
   EXPECT_EQ(Orb::strepToValue<L3TunnelKey>(Orb::valueToStrep(L3TunnelKey())), L3TunnelKey());
   L3TunnelKey swapped(k.dstIpAddr(), k.srcIpAddr());
   EXPECT_TRUE(k < swapped || swapped < k);
   using Index = IngL3Iif::Index;
   EXPECT_EQ(Orb::valueToStrep(Index(4294967295u)), "4294967295");
   for (auto& [text, value] : std::vector<std::pair<std::string, Orb::Optional<uint32_t>>>{
            {"7", 7u}, {"4294967295", 0xFFFFFFFFu}, {"4294967296", {}}, {" 7", {}}, {"-1", {}}}) {
      const std::string what = refusal<std::range_error>([&] { Orb::strepToValue<Index>(text); });
      EXPECT_EQ(what == "accepted", bool(value)) << text << ": " << what;
      if (!value) {
         EXPECT_TRUE(startsWith(what, "value:")) << what;
      }
   }
}

}  // namespace
}  // namespace test
