#pragma once
// The software image of the hardware's L3 next hops used for overlay tunnels:
// per tunnel key, a next hop that forwards through a tunnel outgoing interface
// or drops. Each entry names its interface entry (drop entries name a
// placeholder) and carries that entry's hardware index once resolved. Its
// index space is chosen at start from the chip's features.
#include <tuple>

#include "Asic/DescribedEntry.h"
#include "Asic/IndexAllocator.h"
#include "Asic/IndexValue.h"
#include "AsicSwTable/KeyedSwTable.h"
#include "MeridL3Tunnel/Export.h"
#include "MeridL3Tunnel/IngL3Iif.h"
#include "MeridL3Tunnel/L3TunnelEgrL3Oif1Table.h"
#include "MeridL3Tunnel/L3TunnelKey.h"
#include "Orb/BitUInt.h"

namespace MeridL3Tunnel {

class MERID_API L3TunnelIngL3NextHopEntry : public Asic::DescribedEntry<L3TunnelIngL3NextHopEntry> {
public:
   using HandlePtr = Brio::Ptr<const Asic::SwTableBase::EntryHandle>;
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3TunnelIngL3NextHopTable::Entry";

   L3TunnelIngL3NextHopEntry() = default;
   L3TunnelIngL3NextHopEntry(HandlePtr oif, uint16_t l3Oif1, bool drop, U5 strength, U2 viewType)
       : l3Oif1Handle_(std::move(oif)),
         l3Oif1_(l3Oif1),
         drop_(drop),
         strengthProfileIdx_(strength),
         viewType_(viewType) {}
   explicit L3TunnelIngL3NextHopEntry(Orb::CharRange& r) { fieldsRead(r); }

   const HandlePtr& l3Oif1Handle() const { return l3Oif1Handle_; }
   void l3Oif1HandleIs(HandlePtr h) { l3Oif1Handle_ = std::move(h); }
   uint16_t l3Oif1() const { return l3Oif1_; }
   void l3Oif1Is(uint16_t i) { l3Oif1_ = i; }
   bool drop() const { return drop_; }
   void dropIs(bool d) { drop_ = d; }
   U5 strengthProfileIdx() const { return strengthProfileIdx_; }
   void strengthProfileIdxIs(U5 s) { strengthProfileIdx_ = s; }
   U2 viewType() const { return viewType_; }
   void viewTypeIs(U2 v) { viewType_ = v; }

private:
   HandlePtr l3Oif1Handle_;
   uint16_t l3Oif1_ = 0;
   bool drop_ = false;
   U5 strengthProfileIdx_;
   U2 viewType_;

public:
   // The interface is the one of whichever interface setting wrote the next
   // hop: the merged interface's (its IngL3Iif row) or the tunnel OIF's.
   static constexpr auto fields = std::tuple{
       Asic::handleField("l3Oif1Handle", &L3TunnelIngL3NextHopEntry::l3Oif1Handle_),
       Asic::dependentField("l3Oif1", &L3TunnelIngL3NextHopEntry::l3Oif1_,
                            &L3TunnelIngL3NextHopEntry::l3Oif1Handle_, IngL3Iif::typeName,
                            L3TunnelEgrL3Oif1Table::typeName),
       Asic::valueField("drop", &L3TunnelIngL3NextHopEntry::drop_),
       Asic::valueField("strengthProfileIdx", &L3TunnelIngL3NextHopEntry::strengthProfileIdx_),
       Asic::valueField("viewType", &L3TunnelIngL3NextHopEntry::viewType_)};
};

class L3TunnelIngL3NextHopTable;

// The table's types, named ahead of it for the operations of its base.
struct MERID_API L3TunnelIngL3NextHopTableTypes {
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3TunnelIngL3NextHopTable";
   struct IndexName {
      static constexpr std::string_view typeName =
          "MeridL3Tunnel::L3TunnelIngL3NextHopTable::Index";
   };

   using Key = L3TunnelKey;
   using Entry = L3TunnelIngL3NextHopEntry;
   using Index = Asic::IndexValue<IndexName>;
   using UnresolvedEntry = Asic::KeyedUnresolvedEntry<L3TunnelIngL3NextHopTable>;
   // Either of two shared allocator types, chosen from the chip at start.
   using Allocator = Asic::FirstFreeIndexAllocator;
   using CrossAgentIndex = Orb::Optional<Asic::Index>;
};

class MERID_API L3TunnelIngL3NextHopTable final
    : public Asic::KeyedSwTable<L3TunnelIngL3NextHopTable, L3TunnelIngL3NextHopTableTypes> {
public:
   L3TunnelIngL3NextHopTable();
   ~L3TunnelIngL3NextHopTable() override;

   void doCreateAllocator() override { doInitAllocator(); }
   void doInitAllocator() override;
};

extern "C" MERID_API Brio::Ptr<L3TunnelIngL3NextHopTable> l3TunnelIngL3NextHopTableFactory();

}  // namespace MeridL3Tunnel
