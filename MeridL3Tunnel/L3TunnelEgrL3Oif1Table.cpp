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

// The table's operations, its handle and its unresolved entries, made here
// from the engine and exported from the library.
template class Asic::KeyedSwTable<MeridL3Tunnel::L3TunnelEgrL3Oif1Table,
                                  MeridL3Tunnel::L3TunnelEgrL3Oif1TableTypes>;
template class Asic::KeyedDependentTable<MeridL3Tunnel::L3TunnelEgrL3Oif1Table,
                                         MeridL3Tunnel::L3TunnelEgrL3Oif1TableTypes>;
template class Asic::KeyedEntryHandle<MeridL3Tunnel::L3TunnelEgrL3Oif1Table>;
template class Asic::KeyedUnresolvedEntry<MeridL3Tunnel::L3TunnelEgrL3Oif1Table>;
