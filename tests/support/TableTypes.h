#pragma once
// Every keyed and index-keyed table, for the suites that run one case over
// each (each has its TableTraits). Stands in for a catalogue of the
// library's tables.
#include <gtest/gtest.h>

#include "support/TableTraits.h"

namespace test {

using KeyedTables =
    ::testing::Types<L3EgrL3Ipv4TunnelTable, L3EgrL3Ipv6TunnelTable, L3TunnelEgrL3Oif1Table,
                     L3TunnelIngL3NextHopTable, IngL3Iif, EgrL3Oif1Table>;

}  // namespace test
