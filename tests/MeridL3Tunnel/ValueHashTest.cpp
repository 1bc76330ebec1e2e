// The value hash of every table entry: equal values hash alike (what takes no
// part in equality takes none in the hash), and each field of the value moves it.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "MeridL3Tunnel/EgrL3Oif1Table.h"
#include "MeridL3Tunnel/IngL3Iif.h"
#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"
#include "MeridL3Tunnel/L3EgrL3Ipv6TunnelTable.h"
#include "MeridL3Tunnel/L3TunnelEgrL3Oif1Table.h"
#include "MeridL3Tunnel/L3TunnelIngL3NextHopTable.h"
#include "MeridL3Tunnel/L3TunnelInterfaceTable.h"
#include "SharedL3/DontCareHandle.h"

namespace {

using namespace MeridL3Tunnel;
using SwTableWorkaround::dontCareHandle;
using Wire::IpGenAddr;

template <class E>
struct HashCase {
   std::vector<E> values;  // a few chosen values of the type
   // Changes of what is not part of the value: the result stays equal.
   std::vector<std::function<void(E&)>> sameValue;
   // One field each: the result differs.
   std::vector<std::pair<const char*, std::function<void(E&)>>> fieldChanges;
};

template <class E>
void expectHashFollowsEquality(const HashCase<E>& c) {
   SCOPED_TRACE(std::string(E::typeName));
   for (const E& v : c.values) {
      SCOPED_TRACE(v.stringValue());
      const E copy = v;
      EXPECT_EQ(copy.genericIfHash(), v.genericIfHash());
      for (auto& change : c.sameValue) {
         E e = v;
         change(e);
         ASSERT_TRUE(E::isEq(e, v));
         EXPECT_EQ(e.genericIfHash(), v.genericIfHash());
         EXPECT_EQ(e.genericIfHash(0x1c976be5), v.genericIfHash(0x1c976be5));
      }
      for (auto& [field, change] : c.fieldChanges) {
         E e = v;
         change(e);
         ASSERT_FALSE(E::isEq(e, v)) << field;
         EXPECT_NE(e.genericIfHash(), v.genericIfHash()) << field;
      }
   }
}

template <class E>
void callable(E& e) {
   e.writeResponseFnIs([](Asic::SwTableBase::EntryState) {});
}

template <class E>
HashCase<E> tunnelCase() {
   return {{E(true, false, IpGenAddr("10.0.0.1"), 64, IpGenAddr("10.0.0.2"), U5(17)),
            E(false, true, IpGenAddr("2001:db8::1"), 255, IpGenAddr("2001:db8::2"), U5(31))},
           {callable<E>},
           {{"isIpInIpV4Tunnel", [](E& e) { e.isIpInIpV4TunnelIs(!e.isIpInIpV4Tunnel()); }},
            {"isIpInIpV6Tunnel", [](E& e) { e.isIpInIpV6TunnelIs(!e.isIpInIpV6Tunnel()); }},
            {"srcIpAddr", [](E& e) { e.srcIpAddrIs(IpGenAddr("10.9.9.9")); }},
            {"ttlValue", [](E& e) { e.ttlValueIs(uint8_t(e.ttlValue() + 1)); }},
            {"dstIpAddr", [](E& e) { e.dstIpAddrIs(IpGenAddr("10.9.9.9")); }},
            {"strengthProfileIndex1", [](E& e) { e.strengthProfileIndex1Is(U5(3)); }}}};
}

template <class E>
HashCase<E> interfaceCase() {
   return {{E(dontCareHandle(1), 0, 0, U5(18)), E(dontCareHandle(2), 7, 64, U5(0))},
           {callable<E>, [](E& e) { e.tunnelIdxIs(uint16_t(e.tunnelIdx() + 100)); }},
           {{"tunnelIdxHandle", [](E& e) { e.tunnelIdxHandleIs(dontCareHandle(3)); }},
            {"ttlThreshold", [](E& e) { e.ttlThresholdIs(uint8_t(e.ttlThreshold() + 1)); }},
            {"strengthPrflIndex", [](E& e) { e.strengthPrflIndexIs(U5(5)); }}}};
}

TEST(ValueHash, EqualValuesHashAlikeAndEveryFieldMovesTheHash) {
   expectHashFollowsEquality(tunnelCase<L3EgrL3Ipv4TunnelTable::Entry>());
   expectHashFollowsEquality(tunnelCase<L3EgrL3Ipv6TunnelTable::Entry>());
   expectHashFollowsEquality(interfaceCase<L3TunnelEgrL3Oif1Table::Entry>());
   expectHashFollowsEquality(interfaceCase<EgrL3Oif1Table::Entry>());

   using Nh = L3TunnelIngL3NextHopTable::Entry;
   expectHashFollowsEquality(HashCase<Nh>{
       {Nh(dontCareHandle(1), 0, false, U5(30), U2()), Nh(nullptr, 9, true, U5(17), U2(3))},
       {callable<Nh>, [](Nh& e) { e.l3Oif1Is(uint16_t(e.l3Oif1() + 1)); }},
       {{"l3Oif1Handle", [](Nh& e) { e.l3Oif1HandleIs(dontCareHandle(3)); }},
        {"drop", [](Nh& e) { e.dropIs(!e.drop()); }},
        {"strengthProfileIdx", [](Nh& e) { e.strengthProfileIdxIs(U5(4)); }},
        {"viewType", [](Nh& e) { e.viewTypeIs(U2(1)); }}}});

   expectHashFollowsEquality(
       HashCase<IngL3Iif::Entry>{{IngL3Iif::Entry()}, {callable<IngL3Iif::Entry>}, {}});

   using Merged = L3InterfaceTable::Entry;
   const auto egress = [](uint8_t ttl) {
      return EgrL3Oif1Table::Entry(dontCareHandle(1), 0, ttl, U5(18));
   };
   expectHashFollowsEquality(HashCase<Merged>{
       {Merged(IngL3Iif::Entry(), egress(0)), Merged(IngL3Iif::Entry(), egress(9))},
       {callable<Merged>,
        [](Merged& e) {
           auto egr = e.egrL3Oif1TableEntry();
           egr.tunnelIdxIs(42);
           e.egrL3Oif1TableEntryIs(egr);
        }},
       {{"egrL3Oif1TableEntry", [&](Merged& e) { e.egrL3Oif1TableEntryIs(egress(200)); }}}});
}

TEST(ValueHash, SeedMovesTheHash) {
   const L3EgrL3Ipv4TunnelTable::Entry v(true, false, IpGenAddr("10.0.0.1"), 64,
                                         IpGenAddr("10.0.0.2"), U5(17));
   EXPECT_NE(v.genericIfHash(1), v.genericIfHash(2));
   EXPECT_EQ(v.genericIfHash(), v.genericIfHash(0));
}

}  // namespace
