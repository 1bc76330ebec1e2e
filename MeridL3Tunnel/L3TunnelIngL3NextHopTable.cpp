#include "MeridL3Tunnel/L3TunnelIngL3NextHopTable.h"

#include "AsicSwTable/SwTableAccessor.h"
#include "MeridL3Unicast/L3NextHopAttributes.h"
#include "MeridProfile/ActiveChipProfile.h"

namespace MeridL3Tunnel {

namespace {
const auto& utilLoader = L3TunnelIngL3NextHopTable::UtilLoader::instance();
}

L3TunnelIngL3NextHopTable::L3TunnelIngL3NextHopTable() { hwResponseNeededIs(true); }

L3TunnelIngL3NextHopTable::~L3TunnelIngL3NextHopTable() {
   Asic::SwTable::Accessor<L3TunnelIngL3NextHopTable>::destroy(*this);
}

// A test chip always keeps tunnel next hops apart; any other chip says so
// through its L3 next-hop feature, which it must have.
void L3TunnelIngL3NextHopTable::doInitAllocator() {
   using Engine = Asic::SwTable::Accessor<L3TunnelIngL3NextHopTable>;
   const auto& chip = chipInfo();
   bool apart = chip && chip->isTestChip();
   if (!apart) {
      ORB_ASSERT(chip) << "the next-hop table needs the chip information to choose its allocator";
      auto profile = MeridProfile::activeChipProfile(*chip);
      auto feature =
          profile ? profile->feature(Orb::typeId<MeridL3Unicast::L3NextHopAttributes>()) : nullptr;
      auto* attributes = dynamic_cast<const MeridL3Unicast::L3NextHopAttributes*>(feature.ptr());
      ORB_ASSERT(attributes) << "chip without the L3NextHopAttributes feature";
      apart = attributes->tunnelNextHopsApart();
   }
   if (apart)
      Engine::initAllocator<MeridL3Common::L3TunnelNextHopSharedAllocator>(*this);
   else
      Engine::initAllocator<MeridL3Common::L3NextHopSharedAllocator>(*this);
   indexAllocator()->indexCountIs(numEntries());
   indexAllocator()->initializedIs(true);
}

Brio::Ptr<L3TunnelIngL3NextHopTable> l3TunnelIngL3NextHopTableFactory() {
   return Brio::makePtr<L3TunnelIngL3NextHopTable>();
}

}  // namespace MeridL3Tunnel

// The table's operations, its handle and its unresolved entries, made here
// from the engine and exported from the library.
template class Asic::KeyedSwTable<MeridL3Tunnel::L3TunnelIngL3NextHopTable,
                                  MeridL3Tunnel::L3TunnelIngL3NextHopTableTypes>;
template class Asic::KeyedDependentTable<MeridL3Tunnel::L3TunnelIngL3NextHopTable,
                                         MeridL3Tunnel::L3TunnelIngL3NextHopTableTypes>;
template class Asic::KeyedEntryHandle<MeridL3Tunnel::L3TunnelIngL3NextHopTable>;
template class Asic::KeyedUnresolvedEntry<MeridL3Tunnel::L3TunnelIngL3NextHopTable>;
