#pragma once
// The overlay ECMP programmer on the simulated chip, set up as the agent does:
// common state with module information, the shared underlay group table at
// its path, mount information registered, tables initialised. Which interface
// table the programmer uses follows the toggle this process was started with.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "Plx/NextHopEntryType.h"
#include "support/Setup.h"
#include "support/SimFixture.h"

namespace test {

using MeridL3Tunnel::EcmpGroup1Table;
using MeridL3Tunnel::L3EcmpMember0Table;
using MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer;
using MeridL3Tunnel::L3TunnelOverlayVia;
using MeridL3Tunnel::L3TunnelOverlayViaEntry;
using Block = L3EcmpMember0Table::EntryHandle;
using AdjKey = MeridL3Common::L3AdjIdKey;

inline L3TunnelOverlayViaEntry via(const char* src, const char* dst, uint32_t weight = 1,
                                   uint32_t adjId = 1, uint32_t ttl = 64,
                                   Plx::NextHopEntryType type = Plx::nextHopArpResolved()) {
   L3TunnelOverlayViaEntry e;
   e.nhEntryTypeIs(type);
   e.srcIpAddrIs(addr(src));
   e.dstIpAddrIs(addr(dst));
   e.ttlIs(ttl);
   e.weightIs(weight);
   e.underlayAdjIdIs(adj(adjId));
   return e;
}

inline L3TunnelOverlayViaEntry dropVia(uint32_t weight) {
   return via("0.0.0.0", "0.0.0.0", weight, 0, 0, Plx::nextHopDrop());
}

inline Brio::Ptr<const L3TunnelOverlayVia> viaList(
    const std::vector<L3TunnelOverlayViaEntry>& vias) {
   auto list = MeridL3Tunnel::l3TunnelOverlayViaFactory();
   for (auto& v : vias) list->viaPush(v);
   return list;
}

inline const Block& block(const HandlePtr& h) { return static_cast<const Block&>(*h); }

class ProgrammerFixture : public SimFixture, public AgentSetup {
protected:
   static constexpr uint32_t rows = 64;

   // The toggle the test run was started with (the ctest runs set it).
   static bool expectedToggle() {
      const char* e = std::getenv("EXPECT_COMMON_IIF_OIF_INDEX");
      return !e || std::string(e) != "0";
   }

   void SetUp() override {
      SimFixture::SetUp();
      unit = L3TunnelOverlayEcmpProgrammer::tableUnit;
      for (auto name :
           {L3EcmpMember0Table::typeName, L3TunnelIngL3NextHopTable::typeName,
            L3TunnelEgrL3Oif1Table::typeName, L3EgrL3Ipv4TunnelTable::typeName,
            L3EgrL3Ipv6TunnelTable::typeName, IngL3Iif::typeName, EgrL3Oif1Table::typeName})
         chipInfo->tableSizeIs(name, rows);
      begin(4);
   }

   // The programmer goes first, as the agent lets it go.
   void tablesDrop() override {
      programmer.reset();
      SimFixture::tablesDrop();
   }

   // Makes the programmer and its tables, as the agent does at start; the
   // fixture's checks run over those tables.
   void start() {
      tablesIs(false);
      runLoop();
   }

   // The programmer, fresh or recovered from the chip's rows, and its tables.
   void tablesIs(bool recover) {
      programmerIs(chipInfo, ledger, recover);
      v4 = programmer->l3EgrL3Ipv4TunnelTable();
      v6 = programmer->l3EgrL3Ipv6TunnelTable();
      oif = programmer->l3TunnelEgrL3Oif1Table();
      intf = programmer->l3InterfaceTable();
      nh = programmer->l3TunnelIngL3NextHopTable();
      members = programmer->l3EcmpMember0Table();
   }

   HandlePtr program(const std::vector<L3TunnelOverlayViaEntry>& vias) {
      HandlePtr h = programmer->populateOverlayEcmpBlock(viaList(vias));
      runLoop();
      return h;
   }
};

}  // namespace test
