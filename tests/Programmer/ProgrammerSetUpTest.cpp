// Set-up of the overlay ECMP programmer: toggle, mounts, table creation and
// the reserved drop next hop. Whole chains through either interface table
// are the model runs' (tests/Model).
#include <dlfcn.h>

#include <algorithm>

#include "SharedL3/DontCareHandle.h"
#include "support/ProgrammerFixture.h"

namespace test {
namespace {

using ProgrammerSetUp = ProgrammerFixture;
using ProgrammerSetUpDeathTest = ProgrammerFixture;

TEST_F(ProgrammerSetUp, ToggleChoosesTheInterfaceTableAndTheMountedClasses) {
   ASSERT_EQ(L3TunnelOverlayEcmpProgrammer::commonIifOifIndex(), expectedToggle());
   {
      Orb::TraceCapture trace("MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer/5");
      start();
      EXPECT_EQ(trace.lines(),
                std::vector<std::string>{"MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer: "
                                         "initTables Initialize L3OverlayTunnel tables"});
   }
   std::vector<std::string> owners;
   for (auto& m : mounts.mounts()) owners.push_back(m.owner);
   EXPECT_EQ(bool(programmer->l3InterfaceTable()), expectedToggle());
   EXPECT_EQ(bool(programmer->l3TunnelEgrL3Oif1Table()), !expectedToggle());
   std::vector<std::string_view> mounted{L3EcmpMember0Table::typeName,
                                         L3TunnelIngL3NextHopTable::typeName};
   if (expectedToggle())
      mounted.insert(mounted.end(), {IngL3Iif::typeName, EgrL3Oif1Table::typeName});
   else
      mounted.push_back(L3TunnelEgrL3Oif1Table::typeName);
   mounted.insert(mounted.end(),
                  {L3EgrL3Ipv4TunnelTable::typeName, L3EgrL3Ipv6TunnelTable::typeName});
   ASSERT_EQ(owners.size(), mounted.size());
   for (size_t i = 0; i < owners.size(); ++i)
      EXPECT_EQ(owners[i], std::string(mounted[i]) + "::Util");
   // Mounting a class again adds nothing.
   programmer->doMountHwTableMountInfo(mounts);
   EXPECT_EQ(mounts.mounts().size(), owners.size());
   EXPECT_EQ(programmer->ecmpGroup1Table().ptr(), underlay.ptr());
   for (auto* t :
        {static_cast<Asic::SwTable*>(members.ptr()), static_cast<Asic::SwTable*>(nh.ptr()),
         static_cast<Asic::SwTable*>(v4.ptr()), static_cast<Asic::SwTable*>(v6.ptr())}) {
      EXPECT_EQ(t->unitId(), 0x1FFu) << t->name();
      EXPECT_TRUE(ledger->entity("hardware/table/" + std::string(t->name()))) << t->name();
   }
}

TEST_F(ProgrammerSetUp, ReservedDropNextHopIsInstalledUnderTheZeroKey) {
   start();
   const L3TunnelKey key = L3TunnelOverlayEcmpProgrammer::getTunnelDropKey();
   EXPECT_EQ(key.srcIpAddr(), Wire::IpGenAddr::ipGenAddrZero(Wire::AddressFamily::ipv4));
   EXPECT_EQ(key.dstIpAddr(), Wire::IpGenAddr::ipGenAddrZero(Wire::AddressFamily::ipv4));
   HandlePtr drop = nh->entryWeakRef(key);
   ASSERT_TRUE(drop);
   EXPECT_EQ(drop->entryState(), State::success);
   EXPECT_EQ(drop->entryType(), Type::committed);
   EXPECT_EQ(nh->entry(key), L3TunnelIngL3NextHopTable::Entry(SwTableWorkaround::dontCareHandle(0),
                                                              0, true, U5(17), U2()));
   expectConsistent();
}

TEST_F(ProgrammerSetUp, MissingUnderlayGroupTableLeavesItNullAndEveryUnderlayUnresolved) {
   localEm->entityDel(EcmpGroup1Table::mountPath);
   start();
   EXPECT_FALSE(programmer->ecmpGroup1Table());
   Orb::TraceCapture trace("MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer/5");
   HandlePtr h = program({via("10.0.0.1", "10.0.0.2", 2)});
   EXPECT_EQ(block(h).size(), 2u);
   EXPECT_FALSE(block(h).entryBlock().entry(L3EcmpMember0Table::Index(0)).underlayHandle());
   EXPECT_EQ(linesWith(trace.lines(), "Underlay is not yet resolved"), 2);
}

TEST_F(ProgrammerSetUpDeathTest, BrokenPlatformStopsInitTables) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   fcsd->logicalModInfosIs(nullptr);
   EXPECT_DEATH(start(),
                "assertion \"fcsd\\(\\)->logicalModInfos\\(\\)\" failed "
                "\\(L3TunnelOverlayEcmpProgrammer:[0-9]+\\)");
   fcsd = nullptr;
   EXPECT_DEATH(start(), "assertion \"fcsd\\(\\)->logicalModInfos\\(\\)\" failed");
}

TEST_F(ProgrammerSetUpDeathTest, FullNextHopTableStopsInitTablesAtTheDropEntry) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   chipInfo->tableSizeIs(L3TunnelIngL3NextHopTable::typeName, 0);
   EXPECT_DEATH(
       {
          Orb::Trace::configIs("MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer/5");
          start();
       },
       "L3TunnelOverlayEcmpProgrammer: programReservedTunnelDropEntry L3TunnelNextHopTable is "
       "Full \n.*assertion \"0 && \"Couldn't install reserved tunnel next hop drop entry\"\" "
       "failed");
}

// The agent finds every factory by name and builds a group through them.
TEST_F(ProgrammerSetUp, FactoriesAreFoundByNameInTheSharedLibrary) {
   void* lib = dlopen(MERIDL3TUNNEL_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
   if (!lib) lib = dlopen(MERIDL3TUNNEL_LIBRARY, RTLD_NOW);
   ASSERT_TRUE(lib) << dlerror();
   for (const char* name : {"l3TunnelOverlayEcmpProgrammerFactory", "l3TunnelOverlayViaFactory",
                            "l3EgrL3Ipv4TunnelTableFactory", "l3EgrL3Ipv6TunnelTableFactory",
                            "l3TunnelEgrL3Oif1TableFactory", "l3TunnelIngL3NextHopTableFactory",
                            "ingL3IifFactory", "egrL3Oif1TableFactory", "l3InterfaceTableFactory"})
      EXPECT_TRUE(dlsym(lib, name)) << name;
   using ProgrammerFactory = decltype(&MeridL3Tunnel::l3TunnelOverlayEcmpProgrammerFactory);
   using ViaFactory = decltype(&MeridL3Tunnel::l3TunnelOverlayViaFactory);
   auto makeProgrammer =
       reinterpret_cast<ProgrammerFactory>(dlsym(lib, "l3TunnelOverlayEcmpProgrammerFactory"));
   auto makeVias = reinterpret_cast<ViaFactory>(dlsym(lib, "l3TunnelOverlayViaFactory"));
   ASSERT_TRUE(makeProgrammer && makeVias);
   programmer = makeProgrammer(fcsd, localEm, ledger);
   programmer->initTables(chipInfo);
   auto list = makeVias();
   EXPECT_TRUE(list->notification());
   list->viaPush(via("10.0.0.1", "10.0.0.2", 3));
   HandlePtr h = programmer->populateOverlayEcmpBlock(list);
   runLoop();
   EXPECT_EQ(h->entryState(), State::success);
   EXPECT_EQ(hw(L3EcmpMember0Table::typeName)->usedRows(), 3u);
   h = nullptr;
   programmer = nullptr;
   dlclose(lib);
}

}  // namespace
}  // namespace test
