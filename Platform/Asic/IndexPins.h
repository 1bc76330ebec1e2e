#pragma once
// Pins on a table's indices by rows found at a recovery in another table.
//
// A found row names an entry of another table by index only, which holds
// nothing: the replay could let that entry go, clearing its row and freeing
// its index under the row naming it. So the named table counts, per index,
// the found rows naming it, and holds the handle of a pinned index's entry
// for as long as the count lasts. A table of this agent is pinned before it
// has handles and holds each one it makes for a key holding a pinned index:
// recovering costs a count per found row, not a handle. A table another
// component has filled already is handed its pinned entries' handles at once.
//
// An index is free (count 0) -> pinned (count > 0, handle held once made) ->
// free again when the last naming row is written or deleted. Pinning rows move
// the counts; the named table reports the handles it makes.
#include <cstdint>
#include <vector>

#include "Asic/Index.h"
#include "Asic/SwTableBase.h"
#include "Brio/Ptr.h"

#pragma GCC visibility push(default)
namespace Asic {

class IndexPins : public Brio::PtrInterface {
public:
   using HandlePtrConst = Brio::Ptr<const SwTableBase::EntryHandle>;

   // One more row names `index`. False, and nothing pinned, when `index` is
   // not one of the table's: a row naming it is corrupt, and the pins never
   // grow past the table.
   bool pinIs(Index index);
   // A row naming `index` changed. Letting go of the last pin may start the
   // held entry's clean-up.
   void pinDel(Index index);
   // `handle` is the entry holding `index`: the table made it, or had it
   // when the index was pinned.
   void handleIs(Index index, const HandlePtrConst& handle);

   // The named table's indices, the bound of every pin.
   uint32_t indices() const { return indices_; }
   void indicesIs(uint32_t n) { indices_ = n; }
   // Indices pinned at least once.
   uint32_t pinned() const { return pinned_; }
   uint32_t pins(Index index) const { return index < slot_.size() ? slot_[index].pins : 0; }
   bool held(Index index) const { return index < slot_.size() && slot_[index].held; }

private:
   ~IndexPins() override = default;

   struct Slot {
      uint32_t pins = 0;
      HandlePtrConst held;
   };
   // By index; grown at a pin, let go with the last pin.
   std::vector<Slot> slot_;
   uint32_t pinned_ = 0;
   uint32_t indices_ = 0;
};

// A table whose indices rows of other tables may pin.
class IndexPinned {
public:
   // Made at the first use, kept by the pinning rows' tables as well. The
   // pins are the pinning rows' bookkeeping kept beside the table, so a table
   // seen as const can be pinned too. Bounded by the table's indices as they
   // are when asked.
   Brio::Ptr<IndexPins> indexPins() const;
   // Null unless some index is pinned: the only cost an unpinned table pays.
   IndexPins* indexPinsActive() const {
      return indexPins_ && indexPins_->pinned() ? indexPins_.ptr() : nullptr;
   }

protected:
   ~IndexPinned() = default;
   // How many indices the table has.
   virtual uint32_t pinnableIndices() const = 0;

private:
   mutable Brio::Ptr<IndexPins> indexPins_;
};

}  // namespace Asic
#pragma GCC visibility pop
