#include "MeridL3Tunnel/L3TunnelEgrL3Oif1Table.h"

#include "AsicSwTable/SwTableAccessor.h"

namespace MeridL3Tunnel {

namespace {
const auto& utilLoader = L3TunnelEgrL3Oif1Table::UtilLoader::instance();
}

L3TunnelEgrL3Oif1Table::L3TunnelEgrL3Oif1Table() { hwResponseNeededIs(true); }

L3TunnelEgrL3Oif1Table::~L3TunnelEgrL3Oif1Table() {
   Asic::SwTable::Accessor<L3TunnelEgrL3Oif1Table>::destroy(*this);
}

void L3TunnelEgrL3Oif1Table::doInitAllocator() {
   Asic::SwTable::Accessor<L3TunnelEgrL3Oif1Table>::initAllocator<Allocator>(*this);
   indexAllocator()->initializedIs(true);
}

Brio::Ptr<L3TunnelEgrL3Oif1Table> l3TunnelEgrL3Oif1TableFactory() {
   return Brio::makePtr<L3TunnelEgrL3Oif1Table>();
}

}  // namespace MeridL3Tunnel

ASIC_KEYED_TABLE_FORWARDERS(MeridL3Tunnel::L3TunnelEgrL3Oif1Table);
ASIC_DEPENDENT_TABLE_FORWARDERS(MeridL3Tunnel::L3TunnelEgrL3Oif1Table);
