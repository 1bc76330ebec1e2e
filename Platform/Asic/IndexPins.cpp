#include "Asic/IndexPins.h"

#include <utility>

namespace Asic {

bool IndexPins::pinIs(Index index) {
   if (index >= indices_ || !isValidIndex(index)) return false;
   if (index >= slot_.size()) slot_.resize(size_t(index) + 1);
   if (slot_[index].pins++ == 0) ++pinned_;
   return true;
}

// The slot is put right before the handle goes: letting go may start the
// entry's clean-up, which may pin or unpin other indices.
void IndexPins::pinDel(Index index) {
   if (index >= slot_.size() || slot_[index].pins == 0) return;
   Slot& s = slot_[index];
   if (--s.pins) return;
   HandlePtrConst gone = std::move(s.held);
   if (--pinned_ == 0) std::vector<Slot>().swap(slot_);
}

void IndexPins::handleIs(Index index, const HandlePtrConst& handle) {
   if (index >= slot_.size() || slot_[index].pins == 0 || slot_[index].held) return;
   slot_[index].held = handle;
}

Brio::Ptr<IndexPins> IndexPinned::indexPins() const {
   if (!indexPins_) indexPins_ = Brio::Ptr<IndexPins>(new IndexPins);
   indexPins_->indicesIs(pinnableIndices());
   return indexPins_;
}

}  // namespace Asic
