#pragma once
// The egress L3 outgoing-interface table, kept under its hardware index: the
// egress half of a merged interface. Each entry names its egress tunnel entry
// and carries that entry's hardware index once resolved. Written only by the
// merged interface table, which allocates the index.
#include "Asic/IndexValue.h"
#include "Asic/SwTable.h"
#include "AsicSwTable/SwTableOperations.h"
#include "MeridL3Tunnel/EgrL3Oif1Entry.h"
#include "MeridL3Tunnel/Export.h"

namespace MeridL3Tunnel {

class MERID_API EgrL3Oif1Table final : public Asic::SwKnownIndexTable {
public:
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
   using EntryHandle = Asic::KeyedEntryHandle<EgrL3Oif1Table>;
   using UnresolvedEntry = Asic::KeyedUnresolvedEntry<EgrL3Oif1Table>;
   using Util = Asic::SwTable::Util;
   using UtilLoader = Asic::SwTableUtilLoader<EgrL3Oif1Table>;
   using Allocator = Asic::GenericIndexAllocator;  // none: the key is the index
   using CrossAgentIndex = Asic::Index;
   static constexpr bool hasDependentField = true;
   static constexpr bool knownIndex = true;

   EgrL3Oif1Table();
   ~EgrL3Oif1Table() override;
   void doReserveIndicesAtTableInit() {}

   ASIC_KEYED_TABLE_OPERATIONS(EgrL3Oif1Table)
   ASIC_DEPENDENT_TABLE_OPERATIONS(EgrL3Oif1Table)
};

extern "C" MERID_API Brio::Ptr<EgrL3Oif1Table> egrL3Oif1TableFactory();

}  // namespace MeridL3Tunnel

ASIC_KEYED_TABLE_EXTERN(MeridL3Tunnel::EgrL3Oif1Table);
ASIC_DEPENDENT_TABLE_EXTERN(MeridL3Tunnel::EgrL3Oif1Table);
