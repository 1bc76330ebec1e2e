#pragma once
// The software image of the hardware's IPv4 egress tunnel table: per tunnel
// key, the outer header of the tunnel. Shares its index space with the IPv6
// table through their common allocator type; index 0 is never used.
#include "Asic/IndexAllocator.h"
#include "Asic/IndexValue.h"
#include "Asic/SwTable.h"
#include "AsicSwTable/SwTableOperations.h"
#include "MeridL3Tunnel/Export.h"
#include "MeridL3Tunnel/L3EgrL3IpTunnelEntry.h"
#include "MeridL3Tunnel/L3TunnelKey.h"

namespace MeridL3Tunnel {

class MERID_API L3EgrL3Ipv4TunnelTable final : public Asic::SwUnknownIndexTable {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3EgrL3Ipv4TunnelTable";
   struct EntryName {
      static constexpr std::string_view typeName = "MeridL3Tunnel::L3EgrL3Ipv4TunnelTable::Entry";
   };
   struct IndexName {
      static constexpr std::string_view typeName = "MeridL3Tunnel::L3EgrL3Ipv4TunnelTable::Index";
   };

   using Key = L3TunnelKey;
   using Entry = EgrL3IpTunnelEntry<EntryName>;
   using Index = Asic::IndexValue<IndexName>;
   using EntryHandle = Asic::KeyedEntryHandle<L3EgrL3Ipv4TunnelTable>;
   using Util = Asic::SwTable::Util;
   using UtilLoader = Asic::SwTableUtilLoader<L3EgrL3Ipv4TunnelTable>;
   using UnresolvedEntry = void;  // its entries name no other entry
   using Allocator = MeridL3Common::L3EgrL3TunnelSharedAllocator;
   using CrossAgentIndex = Asic::Index;
   static constexpr bool hasDependentField = false;
   static constexpr bool knownIndex = false;

   L3EgrL3Ipv4TunnelTable();
   ~L3EgrL3Ipv4TunnelTable() override;

   // The shared allocator replaces a private one.
   void doCreateAllocator() override {}
   void doInitAllocator() override;
   void doReserveIndicesAtTableInit();

   ASIC_KEYED_TABLE_OPERATIONS(L3EgrL3Ipv4TunnelTable)
};

extern "C" MERID_API Brio::Ptr<L3EgrL3Ipv4TunnelTable> l3EgrL3Ipv4TunnelTableFactory();

}  // namespace MeridL3Tunnel

ASIC_KEYED_TABLE_EXTERN(MeridL3Tunnel::L3EgrL3Ipv4TunnelTable);
