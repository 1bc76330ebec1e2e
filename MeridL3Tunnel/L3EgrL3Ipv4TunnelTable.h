#pragma once
// The software image of the hardware's IPv4 egress tunnel table: per tunnel
// key, the outer header of the tunnel. Shares its index space with the IPv6
// table through their common allocator type; index 0 is never used.
#include "Asic/IndexAllocator.h"
#include "Asic/IndexValue.h"
#include "AsicSwTable/KeyedSwTable.h"
#include "MeridL3Tunnel/Export.h"
#include "MeridL3Tunnel/L3EgrL3IpTunnelEntry.h"
#include "MeridL3Tunnel/L3TunnelKey.h"

namespace MeridL3Tunnel {

// The table's types, named ahead of it for the operations of its base.
struct MERID_API L3EgrL3Ipv4TunnelTableTypes {
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
   using UnresolvedEntry = void;  // its entries name no other entry
   using Allocator = MeridL3Common::L3EgrL3TunnelSharedAllocator;
   using CrossAgentIndex = Asic::Index;
};

class MERID_API L3EgrL3Ipv4TunnelTable final
    : public Asic::KeyedSwTable<L3EgrL3Ipv4TunnelTable, L3EgrL3Ipv4TunnelTableTypes> {
public:
   L3EgrL3Ipv4TunnelTable();
   ~L3EgrL3Ipv4TunnelTable() override;

   // The shared allocator replaces a private one.
   void doCreateAllocator() override {}
   void doInitAllocator() override;
   void doReserveIndicesAtTableInit();
};

extern "C" MERID_API Brio::Ptr<L3EgrL3Ipv4TunnelTable> l3EgrL3Ipv4TunnelTableFactory();

}  // namespace MeridL3Tunnel
