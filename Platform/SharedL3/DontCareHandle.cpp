#include "SharedL3/DontCareHandle.h"

#include <map>
#include <string>

namespace SwTableWorkaround {

namespace {

class DontCareEntryHandle final : public Asic::SwTableBase::EntryHandle {
public:
   static constexpr std::string_view typeName = "SwTableWorkaround::DontCareEntryHandle";
   explicit DontCareEntryHandle(Asic::Index index) {
      hwIndex_ = index;
      entryState_ = Asic::SwTableBase::wontProgram();
      resolvedEntryState_ = Asic::SwTableBase::wontProgram();
   }
   Orb::TypeId fwkType() const override { return Orb::typeId<DontCareEntryHandle>(); }
   std::string keyText() const override { return "dontCare(" + std::to_string(hwIndex_) + ")"; }
};

}  // namespace

Asic::SwTableBase::EntryHandle::PtrConst dontCareHandle(Asic::Index index) {
   // Never freed: entries in static tables may name a placeholder until exit.
   static auto* handles = new std::map<Asic::Index, Asic::SwTableBase::EntryHandle::PtrConst>;
   auto& h = (*handles)[index];
   if (!h) h = Brio::makePtr<DontCareEntryHandle>(index);
   return h;
}

}  // namespace SwTableWorkaround
