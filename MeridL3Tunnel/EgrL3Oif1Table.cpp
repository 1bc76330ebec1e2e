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

ASIC_KEYED_TABLE_FORWARDERS(MeridL3Tunnel::EgrL3Oif1Table);
ASIC_DEPENDENT_TABLE_FORWARDERS(MeridL3Tunnel::EgrL3Oif1Table);
