#include "MeridL3Tunnel/EgrL3Oif1Table.h"

#include "AsicSwTable/SwTableAccessor.h"

namespace MeridL3Tunnel {

namespace {
const auto& utilLoader = EgrL3Oif1Table::UtilLoader::instance();
}

EgrL3Oif1Table::EgrL3Oif1Table() { hwResponseNeededIs(true); }

EgrL3Oif1Table::~EgrL3Oif1Table() { Asic::SwTable::Accessor<EgrL3Oif1Table>::destroy(*this); }

Brio::Ptr<EgrL3Oif1Table> egrL3Oif1TableFactory() { return Brio::makePtr<EgrL3Oif1Table>(); }

}  // namespace MeridL3Tunnel

// The table's operations, its handle and its unresolved entries, made here
// from the engine and exported from the library.
template class Asic::KeyedSwTable<MeridL3Tunnel::EgrL3Oif1Table,
                                  MeridL3Tunnel::EgrL3Oif1TableTypes>;
template class Asic::KeyedDependentTable<MeridL3Tunnel::EgrL3Oif1Table,
                                         MeridL3Tunnel::EgrL3Oif1TableTypes>;
template class Asic::KeyedEntryHandle<MeridL3Tunnel::EgrL3Oif1Table>;
template class Asic::KeyedUnresolvedEntry<MeridL3Tunnel::EgrL3Oif1Table>;
