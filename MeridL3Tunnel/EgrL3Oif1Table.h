#pragma once
// The egress L3 outgoing-interface table, kept under its hardware index: the
// egress half of a merged interface. Each entry names its egress tunnel entry
// and carries that entry's hardware index once resolved. Written only by the
// merged interface table, which allocates the index.
#include "Asic/IndexValue.h"
#include "AsicSwTable/KeyedSwTable.h"
#include "MeridL3Tunnel/EgrL3Oif1Entry.h"
#include "MeridL3Tunnel/Export.h"

namespace MeridL3Tunnel {

class EgrL3Oif1Table;

// The table's types, named ahead of it for the operations of its base.
struct MERID_API EgrL3Oif1TableTypes {
   static constexpr std::string_view typeName = "MeridL3Tunnel::EgrL3Oif1Table";
   struct EntryName {
      static constexpr std::string_view typeName = "MeridL3Tunnel::EgrL3Oif1Table::Entry";
   };
   struct IndexName {
      static constexpr std::string_view typeName = "MeridL3Tunnel::EgrL3Oif1Table::Index";
   };

   using Index = Asic::IndexValue<IndexName>;
   using Key = Index;
   using Entry = EgrL3Oif1Entry<EntryName>;
   using UnresolvedEntry = Asic::KeyedUnresolvedEntry<EgrL3Oif1Table>;
   using CrossAgentIndex = Asic::Index;
};

class MERID_API EgrL3Oif1Table final
    : public Asic::KeyedSwTable<EgrL3Oif1Table, EgrL3Oif1TableTypes> {
public:
   EgrL3Oif1Table();
   ~EgrL3Oif1Table() override;
};

extern "C" MERID_API Brio::Ptr<EgrL3Oif1Table> egrL3Oif1TableFactory();

}  // namespace MeridL3Tunnel
