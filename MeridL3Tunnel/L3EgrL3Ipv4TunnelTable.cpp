#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"

#include "AsicSwTable/SwTableAccessor.h"

namespace MeridL3Tunnel {

namespace {
const auto& utilLoader = L3EgrL3Ipv4TunnelTable::UtilLoader::instance();
}

L3EgrL3Ipv4TunnelTable::L3EgrL3Ipv4TunnelTable() { hwResponseNeededIs(true); }

L3EgrL3Ipv4TunnelTable::~L3EgrL3Ipv4TunnelTable() {
   Asic::SwTable::Accessor<L3EgrL3Ipv4TunnelTable>::destroy(*this);
}

void L3EgrL3Ipv4TunnelTable::doInitAllocator() {
   Asic::SwTable::Accessor<L3EgrL3Ipv4TunnelTable>::initAllocator<Allocator>(*this);
   indexAllocator()->initializedIs(true);
}

void L3EgrL3Ipv4TunnelTable::doReserveIndicesAtTableInit() {
   indexAllocator()->reserveIndices(0, 0);
}

Brio::Ptr<L3EgrL3Ipv4TunnelTable> l3EgrL3Ipv4TunnelTableFactory() {
   return Brio::makePtr<L3EgrL3Ipv4TunnelTable>();
}

}  // namespace MeridL3Tunnel

// The table's operations and its handle, made here from the engine and
// exported from the library.
template class Asic::KeyedSwTable<MeridL3Tunnel::L3EgrL3Ipv4TunnelTable,
                                  MeridL3Tunnel::L3EgrL3Ipv4TunnelTableTypes>;
template class Asic::KeyedEntryHandle<MeridL3Tunnel::L3EgrL3Ipv4TunnelTable>;
