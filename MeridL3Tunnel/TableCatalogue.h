#pragma once
// The programmer's tables, once, in chain order: ECMP member rows name next
// hops, next hops name interfaces, interfaces name tunnels. Set-up, recovery,
// the reconcile, teardown and the tools' views walk this list; adding a table
// is its own files plus one line here.
//
// Each line names the table, its factory, the link of the chain it holds,
// the interface setting it serves ("CommonIifOifIndex" on: the merged table;
// off: the tunnel interface table) and the hardware tables its rows live in
// (a merged table's are its members').
#include <cstddef>
#include <tuple>
#include <type_traits>

#include "MeridL3Tunnel/EgrL3Oif1Table.h"
#include "MeridL3Tunnel/IngL3Iif.h"
#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"
#include "MeridL3Tunnel/L3EgrL3Ipv6TunnelTable.h"
#include "MeridL3Tunnel/L3TunnelEgrL3Oif1Table.h"
#include "MeridL3Tunnel/L3TunnelIngL3NextHopTable.h"
#include "MeridL3Tunnel/L3TunnelInterfaceTable.h"
#include "SharedL3/L3EcmpMember0Table.h"

namespace MeridL3Tunnel {

template <class... T>
struct TypeList {
   static constexpr size_t size = sizeof...(T);
   // Calls `f.template operator()<T>()` for each type, in order.
   template <class F>
   static constexpr void forEach(F&& f) {
      (f.template operator()<T>(), ...);
   }
   // The same, last type first.
   template <class F>
   static constexpr void forEachReversed(F&& f) {
      reversed<0>(f);
   }
   template <template <class...> class Into>
   using Apply = Into<T...>;

private:
   template <size_t I, class F>
   static constexpr void reversed(F& f) {
      if constexpr (I < sizeof...(T)) {
         reversed<I + 1>(f);
         f.template operator()<std::tuple_element_t<I, std::tuple<T...>>>();
      }
   }
};

enum class InterfaceSetting : uint8_t { any, merged, separate };
// The link of a via's chain a table holds; tables of one link are
// alternatives (IPv4 or IPv6 tunnel, one interface table per setting).
enum class ChainLink : uint8_t { member, nextHop, interface, tunnel };

template <class T, Brio::Ptr<T> (*Factory)(), ChainLink Link, InterfaceSetting Setting,
          class... HwTables>
struct CatalogueLine {
   using Table = T;
   using Hw = TypeList<HwTables...>;
   static constexpr ChainLink link = Link;
   static constexpr InterfaceSetting setting = Setting;
   static Brio::Ptr<T> make() { return Factory(); }
   // Whether the table is in use under the interface setting `merged`.
   static constexpr bool inUse(bool merged) {
      return setting == InterfaceSetting::any || (setting == InterfaceSetting::merged) == merged;
   }
};

using TableCatalogue = TypeList<
    CatalogueLine<L3EcmpMember0Table, l3EcmpMember0TableFactory, ChainLink::member,
                  InterfaceSetting::any, L3EcmpMember0Table>,
    CatalogueLine<L3TunnelIngL3NextHopTable, l3TunnelIngL3NextHopTableFactory, ChainLink::nextHop,
                  InterfaceSetting::any, L3TunnelIngL3NextHopTable>,
    CatalogueLine<L3TunnelEgrL3Oif1Table, l3TunnelEgrL3Oif1TableFactory, ChainLink::interface,
                  InterfaceSetting::separate, L3TunnelEgrL3Oif1Table>,
    CatalogueLine<L3InterfaceTable, l3InterfaceTableFactory, ChainLink::interface,
                  InterfaceSetting::merged, IngL3Iif, EgrL3Oif1Table>,
    CatalogueLine<L3EgrL3Ipv4TunnelTable, l3EgrL3Ipv4TunnelTableFactory, ChainLink::tunnel,
                  InterfaceSetting::any, L3EgrL3Ipv4TunnelTable>,
    CatalogueLine<L3EgrL3Ipv6TunnelTable, l3EgrL3Ipv6TunnelTableFactory, ChainLink::tunnel,
                  InterfaceSetting::any, L3EgrL3Ipv6TunnelTable>>;

// The lines of the catalogue standing for `link`, in catalogue order.
template <ChainLink link, class F>
constexpr void forEachLineOf(F&& f) {
   TableCatalogue::forEach([&]<class Line>() {
      if constexpr (Line::link == link) f.template operator()<Line>();
   });
}

namespace Detail {
template <class... Line>
using TablePtrs = std::tuple<Brio::Ptr<typename Line::Table>...>;
template <class... Line>
struct HwTablesOf {
   template <class... A>
   struct Join;
   template <class... A>
   struct Join<TypeList<A...>> {
      using type = TypeList<A...>;
   };
   template <class... A, class... B, class... Rest>
   struct Join<TypeList<A...>, TypeList<B...>, Rest...> {
      using type = typename Join<TypeList<A..., B...>, Rest...>::type;
   };
   using type = typename Join<TypeList<>, typename Line::Hw...>::type;
};
}  // namespace Detail

// One pointer per catalogued table, in catalogue order.
using CatalogueTables = TableCatalogue::Apply<Detail::TablePtrs>;
// Every hardware table of the catalogue, in catalogue order.
using CatalogueHwTables = typename TableCatalogue::Apply<Detail::HwTablesOf>::type;

}  // namespace MeridL3Tunnel
