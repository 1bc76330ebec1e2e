#pragma once
// Which field of which table's rows names a row of which table, by index.
// The recovery pins what found rows name from this list, and a loaded chip
// is checked against table sizes from it. It is not written by hand: it is
// the dependent fields of the catalogue's hardware tables' entries, as their
// descriptions give them, so the list and the entries cannot disagree.
//
// Entries for one field are alternatives, listed together, the first with
// `alternative` 0: a next hop names the interface of whichever interface
// setting wrote it. The merged interface's index is its IngL3Iif row (and
// its EgrL3Oif1Table row).
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "Asic/EntryFields.h"
#include "MeridL3Tunnel/TableCatalogue.h"
#include "SharedL3/EcmpGroup1Table.h"

namespace MeridL3Tunnel {

struct RowReference {
   std::string_view table;  // whose rows hold the field
   std::string_view field;  // its name, for messages
   std::string_view named;  // a table whose index the field holds
   // Reads the field's text in a row of `table`, by the field's place in
   // the entry's description.
   Asic::RowFieldRead read = nullptr;
   uint8_t alternative = 0;  // 0 for the first table the field may name
};

namespace RowReferencesDetail {

template <class Entry>
constexpr size_t namedCount() {
   size_t n = 0;
   Entry::Fields::forEachDependent([&](const auto& d, Asic::RowFieldRead) { n += d.named.size(); });
   return n;
}

template <class... Hw>
constexpr auto of(TypeList<Hw...>) {
   std::array<RowReference, (namedCount<typename Hw::Entry>() + ... + 0)> refs{};
   size_t k = 0;
   auto add = [&]<class Table>() {
      Table::Entry::Fields::forEachDependent([&](const auto& d, Asic::RowFieldRead read) {
         for (size_t a = 0; a < d.named.size(); ++a)
            refs[k++] = {Table::typeName, d.name, d.named[a], read, uint8_t(a)};
      });
   };
   (add.template operator()<Hw>(), ...);
   return refs;
}

// A named table is one of the catalogue's or the underlay groups' table: a
// description naming a table by a name nobody has fails to build.
template <class... Hw>
constexpr bool known(std::string_view name, TypeList<Hw...>) {
   return name == EcmpGroup1Table::typeName || ((name == Hw::typeName) || ...);
}

}  // namespace RowReferencesDetail

inline constexpr auto rowReferences = RowReferencesDetail::of(CatalogueHwTables{});

static_assert(std::all_of(rowReferences.begin(), rowReferences.end(),
                          [](const RowReference& r) {
                             return RowReferencesDetail::known(r.named, CatalogueHwTables{});
                          }),
              "an entry names a table that is neither catalogued nor the underlay groups'");

// The alternatives of the field `first` stands first for: [first, end).
constexpr const RowReference* alternativesEnd(const RowReference* first) {
   const RowReference* end = first + 1;
   while (end != rowReferences.data() + rowReferences.size() && end->alternative != 0) ++end;
   return end;
}

// Besides these fields, each member row's key names the block of member rows
// it belongs to (L3EcmpMember0Table::RowKey: base and size in that table).

}  // namespace MeridL3Tunnel
