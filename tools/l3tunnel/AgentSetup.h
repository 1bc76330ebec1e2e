#pragma once
// The overlay ECMP programmer set up as the agent sets it up: common state
// with module information, the shared underlay group table at its mount path,
// mount information registered, tables initialised or recovered. Header-only
// and std-only, so that the agent here, the tests and the benchmarks set the
// library up one way.
#include <cstdint>
#include <vector>

#include "Brio/Ptr.h"
#include "Ledger/EntityManager.h"
#include "Ledger/MountGroup.h"
#include "Local/EntityManager.h"
#include "MeridCentral/ChipInfo.h"
#include "MeridCentral/FeatureAgentCommonSmData.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "SharedL3/EcmpGroup1Table.h"

namespace L3TunnelTool {

struct AgentSetup {
   using Programmer = MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer;
   using UnderlayKey = MeridL3Tunnel::EcmpGroup1Table::Key;

   // The underlay group of ECMP adjacency `id`.
   static UnderlayKey adj(uint32_t id) {
      return {id, MeridL3Common::L3AdjIdKeyType::adjIdTypeEcmp};
   }

   // Common state, and the underlay table holding `groups`.
   void begin(const std::vector<UnderlayKey>& groups) {
      auto modules = Brio::makePtr<MeridCentral::LogicalModInfos>();
      modules->modIdIs(Programmer::tableUnit, 0);
      fcsd = Brio::makePtr<MeridCentral::FeatureAgentCommonSmData>();
      fcsd->logicalModInfosIs(modules);
      localEm = Brio::makePtr<Local::EntityManager>();
      underlay = Brio::makePtr<MeridL3Tunnel::EcmpGroup1Table>();
      localEm->entityIs(MeridL3Tunnel::EcmpGroup1Table::mountPath, underlay);
      for (const auto& key : groups) underlay->entryIs(key);
   }
   // The same with the groups of adjacencies 1..`groupCount`.
   void begin(uint32_t groupCount) {
      std::vector<UnderlayKey> groups;
      for (uint32_t id = 1; id <= groupCount; ++id) groups.push_back(adj(id));
      begin(groups);
   }

   // A new programmer over `ledger`: fresh tables, or tables recovered from
   // the chip's rows.
   void programmerIs(const Brio::Ptr<MeridCentral::ChipInfo>& chipInfo,
                     const Brio::Ptr<Ledger::EntityManager>& ledger, bool recover) {
      mounts = Ledger::MountGroup();
      programmer = MeridL3Tunnel::l3TunnelOverlayEcmpProgrammerFactory(fcsd, localEm, ledger);
      programmer->doMountHwTableMountInfo(mounts);
      if (recover)
         programmer->recoverTables(chipInfo);
      else
         programmer->initTables(chipInfo);
   }

   // Everything but the programmer, which its owner lets go first.
   void end() {
      underlay = nullptr;
      localEm = nullptr;
      fcsd = nullptr;
   }

   Brio::Ptr<MeridCentral::FeatureAgentCommonSmData> fcsd;
   Brio::Ptr<Local::EntityManager> localEm;
   Brio::Ptr<MeridL3Tunnel::EcmpGroup1Table> underlay;
   Ledger::MountGroup mounts;
   Brio::Ptr<Programmer> programmer;
};

}  // namespace L3TunnelTool
