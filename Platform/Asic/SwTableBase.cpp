#include "Asic/SwTableBase.h"

#include <ostream>

namespace Asic {

std::string_view SwTableBase::entryStateName(EntryState s) {
   switch (s) {
      case EntryState::unresolved:
         return "unresolved";
      case EntryState::inProgress:
         return "inProgress";
      case EntryState::wontProgram:
         return "wontProgram";
      case EntryState::success:
         return "success";
      case EntryState::failedNeededEntry:
         return "failedNeededEntry";
      case EntryState::noHwIndex:
         return "noHwIndex";
   }
   return "invalid";
}

std::ostream& operator<<(std::ostream& os, SwTableBase::EntryState s) {
   auto name = SwTableBase::entryStateName(s);
   if (name == "invalid") return os << "invalid(" << unsigned(s) << ")";
   return os << name;
}

Index SwTableBase::getHwEntryIndex(const EntryHandle& h) { return h.hwIndex(); }

Index SwTableBase::getHwIndexForDependentField(const EntryHandle& h) {
   return h.hwIndexForDependentField();
}

std::string_view SwTableBase::EntryHandle::entryTypeName(EntryType t) {
   switch (t) {
      case EntryType::none:
         return "none";
      case EntryType::referenceOnly:
         return "referenceOnly";
      case EntryType::committed:
         return "committed";
      case EntryType::inDeletion:
         return "inDeletion";
   }
   return "invalid";
}

std::ostream& operator<<(std::ostream& os, SwTableBase::EntryHandle::EntryType t) {
   return os << SwTableBase::EntryHandle::entryTypeName(t);
}

void SwTableBase::EntryHandle::entryStateIs(EntryState s) {
   if (s == entryState_) return;
   // Reactors may drop the last outside reference. A handle at zero is inside
   // its zero-reference handling, which already keeps it alive.
   Brio::Ptr<EntryHandle> self(references() ? this : nullptr);
   entryState_ = s;
   handleEntryState();
   publisher_.notify(entryStateAttr);
}

void SwTableBase::EntryHandle::swTableIs(SwTable* t) {
   if (t == swTable_) return;
   swTable_ = t;
   publisher_.notify(swTableAttr);
}

void SwTableBase::EntryHandle::dropTableReference() {
   if (flag(uncountedRefFlag)) return;
   flagIs(uncountedRefFlag, true);
   deleteRef();
}

void SwTableBase::EntryHandle::doAmendReferences() {
   if (!flag(uncountedRefFlag)) return;
   flagIs(uncountedRefFlag, false);
   newRef();
}

}  // namespace Asic
