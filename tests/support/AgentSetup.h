#pragma once
// The overlay ECMP programmer on the simulated chip, set up as the agent sets
// it up: common state with module information, the shared underlay group
// table at its mount path, mount information registered, tables initialised
// or recovered. Shared by the fixtures and the model runs (no gtest here).
#include <string>

#include "AsicSim/Chip.h"
#include "Ledger/EntityManager.h"
#include "Ledger/MountGroup.h"
#include "Local/EntityManager.h"
#include "MeridCentral/ChipInfo.h"
#include "MeridCentral/FeatureAgentCommonSmData.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"

namespace test {

inline MeridL3Common::L3AdjIdKey adj(uint32_t id) {
   return {id, MeridL3Common::L3AdjIdKeyType::adjIdTypeEcmp};
}

struct AgentSetup {
   using Programmer = MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer;

   // Underlay groups adj1..adj`groupCount` exist.
   void begin(uint32_t groupCount) {
      auto modules = Brio::makePtr<MeridCentral::LogicalModInfos>();
      modules->modIdIs(Programmer::tableUnit, 0);
      fcsd = Brio::makePtr<MeridCentral::FeatureAgentCommonSmData>();
      fcsd->logicalModInfosIs(modules);
      localEm = Brio::makePtr<Local::EntityManager>();
      underlay = Brio::makePtr<MeridL3Tunnel::EcmpGroup1Table>();
      localEm->entityIs(MeridL3Tunnel::EcmpGroup1Table::mountPath, underlay);
      for (uint32_t id = 1; id <= groupCount; ++id) underlay->entryIs(adj(id));
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

   Brio::Ptr<MeridCentral::FeatureAgentCommonSmData> fcsd;
   Brio::Ptr<Local::EntityManager> localEm;
   Brio::Ptr<MeridL3Tunnel::EcmpGroup1Table> underlay;
   Ledger::MountGroup mounts;
   Brio::Ptr<Programmer> programmer;
};

}  // namespace test
