#include "MeridL3Tunnel/L3TunnelIngL3NextHopTable.h"

#include "AsicSwTable/SwTableAccessor.h"
#include "MeridL3Unicast/L3NextHopAttributes.h"
#include "MeridProfile/ActiveChipProfile.h"

namespace MeridL3Tunnel {

namespace {
const auto& utilLoader = L3TunnelIngL3NextHopTable::UtilLoader::instance();
std::string prefix() {
   return "Value('" + std::string(L3TunnelIngL3NextHopEntry::typeName) + "', ** {";
}
}  // namespace

L3TunnelIngL3NextHopEntry::L3TunnelIngL3NextHopEntry(Orb::CharRange& r) {
   r.needString(prefix());
   r.needString("'l3Oif1Handle': ");
   l3Oif1Handle_ = Asic::SwTableBase::EntryHandle::handleFromText(r, "l3Oif1Handle");
   r.needString(", 'l3Oif1': ");
   l3Oif1_ = Orb::deserializeAttr<uint16_t>(r, "l3Oif1");
   r.needString(", 'drop': ");
   drop_ = Orb::deserializeAttr<bool>(r, "drop");
   r.needString(", 'strengthProfileIdx': ");
   try {
      strengthProfileIdx_ = U5(r);
   } catch (const std::range_error&) {
      Orb::rethrowFromDeserializeAttr("strengthProfileIdx");
   }
   r.needString(", 'viewType': ");
   try {
      viewType_ = U2(r);
   } catch (const std::range_error&) {
      Orb::rethrowFromDeserializeAttr("viewType");
   }
   r.needString("})");
}

bool operator<(const L3TunnelIngL3NextHopEntry& a, const L3TunnelIngL3NextHopEntry& b) {
   const Asic::EntryBase& ab = a;
   const Asic::EntryBase& bb = b;
   if (ab < bb) return true;
   if (bb < ab) return false;
   if (a.l3Oif1Handle_.ptr() != b.l3Oif1Handle_.ptr())
      return std::less<>()(a.l3Oif1Handle_.ptr(), b.l3Oif1Handle_.ptr());
   if (a.drop_ != b.drop_) return a.drop_ < b.drop_;
   if (a.strengthProfileIdx_ != b.strengthProfileIdx_)
      return a.strengthProfileIdx_ < b.strengthProfileIdx_;
   return a.viewType_ < b.viewType_;
}

namespace {
// The text form with `handle` in the handle's place, built in one buffer: the
// chip's row of every write is this text (with no handle).
std::string entryText(const L3TunnelIngL3NextHopEntry& e,
                      const Asic::SwTableBase::EntryHandle* handle) {
   std::string out;
   out.reserve(176);
   out.append("Value('").append(L3TunnelIngL3NextHopEntry::typeName).append("', ** {");
   out.append("'l3Oif1Handle': ").append(Asic::SwTableBase::EntryHandle::handleText(handle));
   out.append(", 'l3Oif1': ").append(std::to_string(e.l3Oif1()));
   out.append(", 'drop': ");
   Orb::StrepTraits<bool>::print(out, e.drop());
   out.append(", 'strengthProfileIdx': ").append(valueToStrep(e.strengthProfileIdx()));
   out.append(", 'viewType': ").append(valueToStrep(e.viewType()));
   out.append("})");
   return out;
}
}  // namespace

std::string valueToStrep(const L3TunnelIngL3NextHopEntry& e) {
   return entryText(e, e.l3Oif1Handle_.ptr());
}

std::string L3TunnelIngL3NextHopEntry::rowText() const { return entryText(*this, nullptr); }

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
