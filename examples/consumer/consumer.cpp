// A forwarding agent's first use of MeridL3Tunnel: it opens the library, finds
// the programmer's and the via list's factories by name, sets the programmer
// up on the simulated chip, programs one overlay ECMP group of two vias and
// prints each member's next hop. Exit code 0 only when every member is
// programmed.
//
//   consumer [PATH-TO-libMeridL3Tunnel.so]
#include <dlfcn.h>

#include <cstdint>
#include <exception>
#include <iostream>

#include "AsicSim/Chip.h"
#include "Brio/EventLoop.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "Plx/NextHopEntryType.h"

using namespace MeridL3Tunnel;

namespace {

// The factories' types come from the headers, their addresses from the
// library: an agent loads the plug-in it is configured with.
using ProgrammerFactory = decltype(&l3TunnelOverlayEcmpProgrammerFactory);
using ViaFactory = decltype(&l3TunnelOverlayViaFactory);

MeridL3Common::L3AdjIdKey ecmpAdjacency(uint32_t id) {
   return {id, MeridL3Common::L3AdjIdKeyType::adjIdTypeEcmp};
}

// A tunnel from 192.0.2.1 to `dst`, carried by underlay group `adjId`.
L3TunnelOverlayViaEntry via(const char* dst, uint32_t adjId) {
   L3TunnelOverlayViaEntry e;
   e.nhEntryTypeIs(Plx::nextHopArpResolved());
   e.srcIpAddrIs(Wire::IpGenAddr("192.0.2.1"));
   e.dstIpAddrIs(Wire::IpGenAddr(dst));
   e.ttlIs(64);
   e.weightIs(1);
   e.underlayAdjIdIs(ecmpAdjacency(adjId));
   return e;
}

int run(const char* path) {
   void* lib = dlopen(path, RTLD_NOW);
   if (!lib) {
      std::cerr << "consumer: " << dlerror() << "\n";
      return 1;
   }
   auto makeProgrammer =
       reinterpret_cast<ProgrammerFactory>(dlsym(lib, "l3TunnelOverlayEcmpProgrammerFactory"));
   auto makeVias = reinterpret_cast<ViaFactory>(dlsym(lib, "l3TunnelOverlayViaFactory"));
   if (!makeProgrammer || !makeVias) {
      std::cerr << "consumer: " << path << ": factories not found\n";
      return 1;
   }

   // The simulated chip stands behind the plug-in loader in place of the
   // hardware driver; every table's writes reach it from there.
   auto chip = Brio::makePtr<AsicSim::Chip>();
   chip->install();
   auto chipInfo = Brio::makePtr<MeridCentral::ChipInfo>();  // 4096 rows per table

   // What the agent holds before the library starts: common state naming the
   // module of the programmer's unit, and the shared underlay groups at the
   // path where the programmer looks for them.
   auto modules = Brio::makePtr<MeridCentral::LogicalModInfos>();
   modules->modIdIs(L3TunnelOverlayEcmpProgrammer::tableUnit, 0);
   auto fcsd = Brio::makePtr<MeridCentral::FeatureAgentCommonSmData>();
   fcsd->logicalModInfosIs(modules);
   auto localEm = Brio::makePtr<Local::EntityManager>();
   auto underlay = Brio::makePtr<EcmpGroup1Table>();
   localEm->entityIs(EcmpGroup1Table::mountPath, underlay);
   underlay->entryIs(ecmpAdjacency(1));
   underlay->entryIs(ecmpAdjacency(2));

   Ledger::MountGroup mounts;
   auto programmer = makeProgrammer(fcsd, localEm, Brio::makePtr<Ledger::EntityManager>());
   programmer->doMountHwTableMountInfo(mounts);
   programmer->initTables(chipInfo);

   auto vias = makeVias();
   vias->viaPush(via("198.51.100.1", 1));
   vias->viaPush(via("198.51.100.2", 2));
   // The handle keeps the group programmed; the chip answers the writes from
   // the event loop.
   auto group = programmer->populateOverlayEcmpBlock(vias);
   Brio::EventLoop::instance().runUntilIdle();

   const auto& block = static_cast<const L3EcmpMember0Table::EntryHandle&>(*group);
   bool programmed = group->entryState() == Asic::SwTableBase::success() && block.size() == 2;
   uint32_t slot = 0;
   for (const auto& member : block.entryBlock()) {
      const auto& nextHop = member.nextHopHandle();
      std::cout << "member " << slot++ << ": next hop ";
      if (nextHop && nextHop->isHwIndexValid())
         std::cout << nextHop->hwIndex();
      else
         std::cout << "none";
      std::cout << ", " << (nextHop ? nextHop->entryState() : group->entryState()) << "\n";
      programmed = programmed && nextHop && nextHop->entryState() == Asic::SwTableBase::success();
   }
   std::cout << "group: " << group->entryState() << "\n";

   // The group's handle goes first, then the programmer and its tables.
   group = nullptr;
   programmer = nullptr;
   Brio::EventLoop::instance().runUntilIdle();
   chip->uninstall();
   dlclose(lib);
   return programmed ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
   try {
      return run(argc > 1 ? argv[1] : MERIDL3TUNNEL_LIBRARY);
   } catch (const std::exception& e) {  // a malformed toggle file, for one
      std::cerr << "consumer: " << e.what() << "\n";
      return 1;
   }
}
