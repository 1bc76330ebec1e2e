#pragma once
// A written value that waits for the entries it names.
//
// Each needed handle that is not ready yet gets a watcher (a needed-entry-
// handle state machine) that follows the handle through its publisher. When
// the handle becomes ready the watcher stops and the count of outstanding
// watchers drops; at zero the entry's `doResolve` runs. When the handle fails
// the watcher calls `markFailedNeededEntry` and keeps watching, so a later
// success of the handle still resolves the entry.
#include <cstdint>
#include <memory>
#include <vector>

#include "Asic/SwTableBase.h"

#pragma GCC visibility push(default)
namespace Asic {

class SwTableBase::UnresolvedEntry : public Brio::PtrInterface {
public:
   uint32_t neededEntryHandleSms() const { return outstanding_; }
   // Watches `h` until it is complete, or, with `hwIndexSuffices`, until it
   // has a valid hardware index.
   void neededEntryHandleSmIs(const EntryHandle* h, bool hwIndexSuffices = false);

   // Stops watching: an entry its table has dropped must not resolve.
   void neededEntryHandleSmDelAll();

   virtual void doResolve() = 0;
   virtual void markFailedNeededEntry() = 0;
   virtual void setEntryState(EntryState) {}

   UnresolvedEntry(const UnresolvedEntry&) = delete;
   UnresolvedEntry& operator=(const UnresolvedEntry&) = delete;

protected:
   UnresolvedEntry() = default;
   ~UnresolvedEntry() override;

private:
   class NeededEntryHandleSm;
   void neededEntryHandleReady();
   // Owned, linked through the watchers; deleted in the destructor (the type
   // is private to the source). A list, not a vector: most entries have one.
   NeededEntryHandleSm* watchers_ = nullptr;
   uint32_t outstanding_ = 0;
};

}  // namespace Asic
#pragma GCC visibility pop
