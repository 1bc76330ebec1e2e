#include "Brio/Ptr.h"

namespace Brio {

namespace PtrDetail {
bool threadSafe = false;
}
using PtrDetail::threadSafe;

void threadSafePtrIs(bool on) { threadSafe = on; }
bool threadSafePtr() { return threadSafe; }

uint32_t PtrInterface::loadAtomic() const {
   return std::atomic_ref<uint32_t>(refCount_).load(std::memory_order_acquire);
}

uint32_t PtrInterface::addAtomic(int32_t delta) const {
   return std::atomic_ref<uint32_t>(refCount_).fetch_add(uint32_t(delta),
                                                         std::memory_order_acq_rel) +
          uint32_t(delta);
}

void PtrInterface::flagIs(uint32_t f, bool on) const {
   if (threadSafe) {
      std::atomic_ref<uint32_t> r(refCount_);
      if (on)
         r.fetch_or(f);
      else
         r.fetch_and(~f);
      return;
   }
   refCount_ = on ? (refCount_ | f) : (refCount_ & ~f);
}

void PtrInterface::onZeroReferences() const {
   auto* self = const_cast<PtrInterface*>(this);
   if (flag(zeroingFlag)) {
      // Dropped to zero again inside the hook: run the hook, let the outer call delete.
      self->zeroReferencesIs(true);
      return;
   }
   flagIs(zeroingFlag, true);
   self->zeroReferencesIs(true);
   flagIs(zeroingFlag, false);
   if (references() == 0) delete self;
}

}  // namespace Brio
