#pragma once
// The ingress L3 incoming-interface table, kept under its hardware index. Its
// entry has no fields: programming it tells the hardware that the interface
// index exists on the ingress side. Written only by the merged interface
// table, which allocates the index.
#include <tuple>

#include "Asic/DescribedEntry.h"
#include "Asic/IndexValue.h"
#include "AsicSwTable/KeyedSwTable.h"
#include "MeridL3Tunnel/Export.h"

namespace MeridL3Tunnel {

class MERID_API IngL3IifEntry : public Asic::DescribedEntry<IngL3IifEntry> {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::IngL3Iif::Entry";

   IngL3IifEntry() = default;
   explicit IngL3IifEntry(Orb::CharRange& r) { fieldsRead(r); }

   // No fields: every value is equal to every other, and the text is empty.
   static constexpr std::tuple<> fields{};
};

// The table's types, named ahead of it for the operations of its base.
struct MERID_API IngL3IifTypes {
   static constexpr std::string_view typeName = "MeridL3Tunnel::IngL3Iif";
   struct IndexName {
      static constexpr std::string_view typeName = "MeridL3Tunnel::IngL3Iif::Index";
   };

   using Index = Asic::IndexValue<IndexName>;
   using Key = Index;
   using Entry = IngL3IifEntry;
   using UnresolvedEntry = void;  // its entry names nothing
   using CrossAgentIndex = Asic::Index;
};

class MERID_API IngL3Iif final : public Asic::KeyedSwTable<IngL3Iif, IngL3IifTypes> {
public:
   IngL3Iif();
   ~IngL3Iif() override;
};

extern "C" MERID_API Brio::Ptr<IngL3Iif> ingL3IifFactory();

}  // namespace MeridL3Tunnel
