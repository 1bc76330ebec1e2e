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

// The table's operations and its handle, made here from the engine and
// exported from the library.
template class Asic::KeyedSwTable<MeridL3Tunnel::IngL3Iif, MeridL3Tunnel::IngL3IifTypes>;
template class Asic::KeyedEntryHandle<MeridL3Tunnel::IngL3Iif>;
