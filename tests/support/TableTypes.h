#pragma once
// Every keyed and index-keyed table of the library's catalogue, for the
// suites that run one case over each (each has its TableTraits): the
// catalogue's hardware tables whose handles are keyed (the ECMP member
// table's are blocks).
#include <gtest/gtest.h>

#include <type_traits>

#include "AsicSwTable/KeyedEntryHandle.h"
#include "MeridL3Tunnel/TableCatalogue.h"
#include "support/TableTraits.h"

namespace test {

namespace detail {
template <class... T>
struct Keyed;
template <>
struct Keyed<> {
   using type = MeridL3Tunnel::TypeList<>;
};
template <class T, class... Rest>
struct Keyed<T, Rest...> {
   template <class... R>
   static MeridL3Tunnel::TypeList<T, R...> with(MeridL3Tunnel::TypeList<R...>);
   using rest = typename Keyed<Rest...>::type;
   using type =
       std::conditional_t<std::is_same_v<typename T::EntryHandle, Asic::KeyedEntryHandle<T>>,
                          decltype(with(rest())), rest>;
};
template <class... T>
using KeyedOf = typename Keyed<T...>::type;
}  // namespace detail

using KeyedTables =
    MeridL3Tunnel::CatalogueHwTables::Apply<detail::KeyedOf>::Apply<::testing::Types>;

}  // namespace test
