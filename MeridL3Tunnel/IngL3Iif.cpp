#include "MeridL3Tunnel/IngL3Iif.h"

#include "AsicSwTable/SwTableAccessor.h"

namespace MeridL3Tunnel {

namespace {
const auto& utilLoader = IngL3Iif::UtilLoader::instance();
}

IngL3Iif::IngL3Iif() { hwResponseNeededIs(true); }

IngL3Iif::~IngL3Iif() { Asic::SwTable::Accessor<IngL3Iif>::destroy(*this); }

Brio::Ptr<IngL3Iif> ingL3IifFactory() { return Brio::makePtr<IngL3Iif>(); }

}  // namespace MeridL3Tunnel

ASIC_KEYED_TABLE_FORWARDERS(MeridL3Tunnel::IngL3Iif);
