#pragma once
// The software image of the tunnel egress L3 outgoing-interface table: per
// tunnel key, the interface that sends into the tunnel. Each entry names its
// egress tunnel entry and carries that entry's hardware index once resolved.
#include "Asic/IndexAllocator.h"
#include "Asic/IndexValue.h"
#include "Asic/SwTable.h"
#include "AsicSwTable/SwTableOperations.h"
#include "MeridL3Tunnel/EgrL3Oif1Entry.h"
#include "MeridL3Tunnel/Export.h"
#include "MeridL3Tunnel/L3TunnelKey.h"

namespace MeridL3Tunnel {

class MERID_API L3TunnelEgrL3Oif1Table final : public Asic::SwUnknownIndexTable {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3TunnelEgrL3Oif1Table";
   struct EntryName {
      static constexpr std::string_view typeName = "MeridL3Tunnel::L3TunnelEgrL3Oif1Table::Entry";
   };
   struct IndexName {
      static constexpr std::string_view typeName = "MeridL3Tunnel::L3TunnelEgrL3Oif1Table::Index";
   };

   using Key = L3TunnelKey;
   using Entry = EgrL3Oif1Entry<EntryName>;
   using Index = Asic::IndexValue<IndexName>;
   using EntryHandle = Asic::KeyedEntryHandle<L3TunnelEgrL3Oif1Table>;
   using UnresolvedEntry = Asic::KeyedUnresolvedEntry<L3TunnelEgrL3Oif1Table>;
   using Util = Asic::SwTable::Util;
   using UtilLoader = Asic::SwTableUtilLoader<L3TunnelEgrL3Oif1Table>;
   using Allocator = MeridL3Common::L3EgrL3Oif1TableSharedAllocator;
   using CrossAgentIndex = Orb::Optional<Asic::Index>;
   static constexpr bool hasDependentField = true;
   static constexpr bool knownIndex = false;

   L3TunnelEgrL3Oif1Table();
   ~L3TunnelEgrL3Oif1Table() override;

   void doCreateAllocator() override { doInitAllocator(); }
   void doInitAllocator() override;
   void doReserveIndicesAtTableInit() {}

   ASIC_KEYED_TABLE_OPERATIONS(L3TunnelEgrL3Oif1Table)
   ASIC_DEPENDENT_TABLE_OPERATIONS(L3TunnelEgrL3Oif1Table)
};

extern "C" MERID_API Brio::Ptr<L3TunnelEgrL3Oif1Table> l3TunnelEgrL3Oif1TableFactory();

}  // namespace MeridL3Tunnel

ASIC_KEYED_TABLE_EXTERN(MeridL3Tunnel::L3TunnelEgrL3Oif1Table);
ASIC_DEPENDENT_TABLE_EXTERN(MeridL3Tunnel::L3TunnelEgrL3Oif1Table);
