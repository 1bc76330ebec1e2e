#pragma once
// The ingress L3 incoming-interface table, kept under its hardware index. Its
// entry has no fields: programming it tells the hardware that the interface
// index exists on the ingress side. Written only by the merged interface
// table, which allocates the index.
#include <tuple>

#include "Asic/IndexValue.h"
#include "Asic/SwTable.h"
#include "AsicSwTable/SwTableOperations.h"
#include "MeridL3Tunnel/Export.h"

namespace MeridL3Tunnel {

class MERID_API IngL3IifEntry : public Asic::EntryImpl<IngL3IifEntry> {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::IngL3Iif::Entry";

   IngL3IifEntry() = default;
   explicit IngL3IifEntry(Orb::CharRange&) {}  // the text form is empty

   // No fields: every value is equal to every other.
   std::tuple<> valueFields() const { return {}; }
   friend bool operator==(const IngL3IifEntry& a, const IngL3IifEntry& b) { return isEq(a, b); }
   friend bool operator<(const IngL3IifEntry& a, const IngL3IifEntry& b) {
      return static_cast<const Asic::EntryBase&>(a) < static_cast<const Asic::EntryBase&>(b);
   }
   explicit operator bool() const { return false; }
   friend std::string valueToStrep(const IngL3IifEntry&) { return {}; }
   friend std::ostream& operator<<(std::ostream& os, const IngL3IifEntry&) { return os; }
};

class MERID_API IngL3Iif final : public Asic::SwKnownIndexTable {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::IngL3Iif";
   struct IndexName {
      static constexpr std::string_view typeName = "MeridL3Tunnel::IngL3Iif::Index";
   };

   using Index = Asic::IndexValue<IndexName>;
   using Key = Index;
   using Entry = IngL3IifEntry;
   using EntryHandle = Asic::KeyedEntryHandle<IngL3Iif>;
   using UnresolvedEntry = void;  // its entry names nothing
   using Util = Asic::SwTable::Util;
   using UtilLoader = Asic::SwTableUtilLoader<IngL3Iif>;
   using Allocator = Asic::GenericIndexAllocator;  // none: the key is the index
   using CrossAgentIndex = Asic::Index;
   static constexpr bool hasDependentField = false;
   static constexpr bool knownIndex = true;

   IngL3Iif();
   ~IngL3Iif() override;
   void doReserveIndicesAtTableInit() {}

   ASIC_KEYED_TABLE_OPERATIONS(IngL3Iif)
};

extern "C" MERID_API Brio::Ptr<IngL3Iif> ingL3IifFactory();

}  // namespace MeridL3Tunnel

ASIC_KEYED_TABLE_EXTERN(MeridL3Tunnel::IngL3Iif);
