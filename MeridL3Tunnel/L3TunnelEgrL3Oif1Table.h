#pragma once
// The software image of the tunnel egress L3 outgoing-interface table: per
// tunnel key, the interface that sends into the tunnel. Each entry names its
// egress tunnel entry and carries that entry's hardware index once resolved.
#include "Asic/IndexAllocator.h"
#include "Asic/IndexValue.h"
#include "AsicSwTable/KeyedSwTable.h"
#include "MeridL3Tunnel/EgrL3Oif1Entry.h"
#include "MeridL3Tunnel/Export.h"
#include "MeridL3Tunnel/L3TunnelKey.h"

namespace MeridL3Tunnel {

class L3TunnelEgrL3Oif1Table;

// The table's types, named ahead of it for the operations of its base.
struct MERID_API L3TunnelEgrL3Oif1TableTypes {
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
   using UnresolvedEntry = Asic::KeyedUnresolvedEntry<L3TunnelEgrL3Oif1Table>;
   using Allocator = MeridL3Common::L3EgrL3Oif1TableSharedAllocator;
   using CrossAgentIndex = Orb::Optional<Asic::Index>;
};

class MERID_API L3TunnelEgrL3Oif1Table final
    : public Asic::KeyedSwTable<L3TunnelEgrL3Oif1Table, L3TunnelEgrL3Oif1TableTypes> {
public:
   L3TunnelEgrL3Oif1Table();
   ~L3TunnelEgrL3Oif1Table() override;

   void doCreateAllocator() override { doInitAllocator(); }
   void doInitAllocator() override;
};

extern "C" MERID_API Brio::Ptr<L3TunnelEgrL3Oif1Table> l3TunnelEgrL3Oif1TableFactory();

}  // namespace MeridL3Tunnel
