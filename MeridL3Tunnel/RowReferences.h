#pragma once
// Which field of which table's rows names a row of which table, by index.
// The recovery pins what found rows name from this list, and a loaded chip
// is checked against table sizes from it, so the two cannot disagree.
//
// Entries with the same table and field are alternatives: a next hop names
// the interface of whichever interface setting wrote it. The merged
// interface's index is its IngL3Iif row (and its EgrL3Oif1Table row).
#include <string_view>

#include "MeridL3Tunnel/EgrL3Oif1Table.h"
#include "MeridL3Tunnel/IngL3Iif.h"
#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"
#include "MeridL3Tunnel/L3TunnelEgrL3Oif1Table.h"
#include "MeridL3Tunnel/L3TunnelIngL3NextHopTable.h"
#include "SharedL3/EcmpGroup1Table.h"
#include "SharedL3/L3EcmpMember0Table.h"

namespace MeridL3Tunnel {

struct RowReference {
   std::string_view table;  // whose rows hold the field
   std::string_view field;
   std::string_view named;  // the table whose index the field holds
};

inline constexpr RowReference rowReferences[] = {
    {L3EcmpMember0Table::typeName, "nextHopIdx", L3TunnelIngL3NextHopTable::typeName},
    {L3EcmpMember0Table::typeName, "underlayIdx", EcmpGroup1Table::typeName},
    {L3TunnelIngL3NextHopTable::typeName, "l3Oif1", IngL3Iif::typeName},
    {L3TunnelIngL3NextHopTable::typeName, "l3Oif1", L3TunnelEgrL3Oif1Table::typeName},
    {EgrL3Oif1Table::typeName, "tunnelIdx", L3EgrL3Ipv4TunnelTable::typeName},
    {L3TunnelEgrL3Oif1Table::typeName, "tunnelIdx", L3EgrL3Ipv4TunnelTable::typeName},
};

// Besides these fields, each member row's key names the block of member rows
// it belongs to (L3EcmpMember0Table::RowKey: base and size in that table).

}  // namespace MeridL3Tunnel
