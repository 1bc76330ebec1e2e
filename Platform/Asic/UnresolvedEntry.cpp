#include "Asic/UnresolvedEntry.h"

#include "Orb/Trace.h"

namespace Asic {

namespace {
const Orb::TraceHandle trace{"Asic::SwTableBase::UnresolvedEntry"};
}

class SwTableBase::UnresolvedEntry::NeededEntryHandleSm final : public Brio::Notifiee {
public:
   NeededEntryHandleSm(UnresolvedEntry* owner, const EntryHandle* h, bool hwIndexSuffices)
       : owner_(owner), handle_(h), hwIndexSuffices_(hwIndexSuffices) {
      notifierIs(&const_cast<EntryHandle*>(h)->notifieeList());
   }

   void onAttribute(Brio::AttrId attr, Brio::KeyRef) override {
      if (attr != EntryHandle::entryStateAttr && attr != EntryHandle::hwIndexAttr) return;
      const EntryHandle& h = *handle_;
      const bool ready = h.isComplete() || (hwIndexSuffices_ && h.isHwIndexValid());
      if (ready) {
         notifierIs(nullptr);
         // The owner may drop this watcher, or die, in what follows: only
         // locals are used from here on.
         Brio::Ptr<UnresolvedEntry> owner(owner_);
         try {
            owner->neededEntryHandleReady();
         } catch (const std::exception& e) {
            // Nobody to throw to here: the write that named the handle has returned.
            ORB_TRACE(trace, 0, "doResolve") << " : failed: " << e.what();
            owner->markFailedNeededEntry();
         }
         return;
      }
      if (attr == EntryHandle::entryStateAttr && h.isFailed()) owner_->markFailedNeededEntry();
   }

   NeededEntryHandleSm* next = nullptr;  // the owner's next watcher

private:
   UnresolvedEntry* owner_;
   Brio::Ptr<const EntryHandle> handle_;
   bool hwIndexSuffices_;
};

SwTableBase::UnresolvedEntry::~UnresolvedEntry() { neededEntryHandleSmDelAll(); }

void SwTableBase::UnresolvedEntry::neededEntryHandleSmIs(const EntryHandle* h,
                                                         bool hwIndexSuffices) {
   auto* w = new NeededEntryHandleSm(this, h, hwIndexSuffices);
   w->next = watchers_;
   watchers_ = w;
   ++outstanding_;
}

void SwTableBase::UnresolvedEntry::neededEntryHandleSmDelAll() {
   while (NeededEntryHandleSm* w = watchers_) {
      watchers_ = w->next;
      delete w;
   }
   outstanding_ = 0;
}

void SwTableBase::UnresolvedEntry::neededEntryHandleReady() {
   if (outstanding_ && --outstanding_ == 0) doResolve();
}

}  // namespace Asic
