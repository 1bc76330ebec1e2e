#include "MeridL3Tunnel/L3EgrL3Ipv6TunnelTable.h"

#include "AsicSwTable/SwTableAccessor.h"

namespace MeridL3Tunnel {

namespace {
const auto& utilLoader = L3EgrL3Ipv6TunnelTable::UtilLoader::instance();
}

L3EgrL3Ipv6TunnelTable::L3EgrL3Ipv6TunnelTable() { hwResponseNeededIs(true); }

L3EgrL3Ipv6TunnelTable::~L3EgrL3Ipv6TunnelTable() {
   Asic::SwTable::Accessor<L3EgrL3Ipv6TunnelTable>::destroy(*this);
}

void L3EgrL3Ipv6TunnelTable::doInitAllocator() {
   Asic::SwTable::Accessor<L3EgrL3Ipv6TunnelTable>::initAllocator<Allocator>(*this);
   indexAllocator()->initializedIs(true);
}

void L3EgrL3Ipv6TunnelTable::doReserveIndicesAtTableInit() {
   indexAllocator()->reserveIndices(0, 0);
}

Brio::Ptr<L3EgrL3Ipv6TunnelTable> l3EgrL3Ipv6TunnelTableFactory() {
   return Brio::makePtr<L3EgrL3Ipv6TunnelTable>();
}

}  // namespace MeridL3Tunnel

// The table's operations and its handle, made here from the engine and
// exported from the library.
template class Asic::KeyedSwTable<MeridL3Tunnel::L3EgrL3Ipv6TunnelTable,
                                  MeridL3Tunnel::L3EgrL3Ipv6TunnelTableTypes>;
template class Asic::KeyedEntryHandle<MeridL3Tunnel::L3EgrL3Ipv6TunnelTable>;
