#pragma once
// An open-addressing set of pointers (linear probing, deletion by backward
// shift, doubling past three quarters full). The collections built on it hold
// one member per live entry and are measured in bytes per entry, so a member
// is its slot: no allocation, and no state byte or tombstone beside it
// (backward shift leaves no tombstones). Whatever a member is found by (its
// address, a hash it carries, a key it holds) is read through it by `Traits`.
//
// `Slot` is a raw or counted pointer, or a struct of one and what its user
// keeps beside it: null when default-made, testable as a bool, movable.
// `Traits`, kept in the set:
//   uint32_t hash(const Slot&) const;          never given a null slot
//   uint32_t hash(const Probe&) const;         for each Probe type looked up
//   bool isEq(const Slot&, const Probe&) const;
// Adding or removing a member moves others, so a slot index and a walk of
// `slots()` last only until the next change.
#include <bit>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

namespace Orb {

template <class Slot, class Traits>
class PointerSet {
public:
   static constexpr uint32_t noSlot = 0xFFFFFFFFu;

   uint32_t members() const { return members_; }
   // Every slot, the empty ones null.
   std::span<Slot> slots() { return slots_; }
   std::span<const Slot> slots() const { return slots_; }

   // The slot of the member equal to `probe`, or noSlot.
   template <class Probe>
   uint32_t slotFind(const Probe& probe) const {
      if (members_ == 0) return noSlot;
      for (uint32_t i = home(traits_.hash(probe));; i = next(i)) {
         if (!slots_[i]) return noSlot;
         if (traits_.isEq(slots_[i], probe)) return i;
      }
   }

   // `s` must not be a member yet. Returns its slot.
   uint32_t memberIs(Slot s) {
      if (uint64_t(members_) * 4 + 4 > uint64_t(slots_.size()) * 3) grow();
      ++members_;
      const uint32_t hash = traits_.hash(s);
      return place(std::move(s), hash);
   }

   // Removes the member at `i`; noSlot removes nothing. The slot may already
   // be null (its pointer moved out by the caller): the member still counts.
   void memberDel(uint32_t i) {
      if (i == noSlot) return;
      // Released only once the set is whole again: releasing may run code
      // that looks members up.
      [[maybe_unused]] Slot gone = std::move(slots_[i]);
      for (uint32_t j = next(i); slots_[j]; j = next(j)) {
         // A member whose home lies cyclically in (i, j] would be cut off
         // from it by filling the hole; any other fills it.
         const uint32_t k = home(traits_.hash(slots_[j]));
         if (i <= j ? (i < k && k <= j) : (i < k || k <= j)) continue;
         slots_[i] = std::move(slots_[j]);
         i = j;
      }
      slots_[i] = Slot();
      --members_;
   }

   // Empties the set and frees its slots.
   void memberDelAll() {
      std::vector<Slot> gone;
      gone.swap(slots_);
      members_ = 0;
   }

private:
   uint32_t next(uint32_t i) const { return (i + 1) & (uint32_t(slots_.size()) - 1); }
   // Fibonacci hashing: the top bits of the product, so a hash weak in its
   // low bits (an aligned address) still spreads.
   uint32_t home(uint32_t hash) const { return (hash * 0x9e3779b1u) >> shift_; }
   uint32_t place(Slot s, uint32_t hash) {
      uint32_t i = home(hash);
      while (slots_[i]) i = next(i);
      slots_[i] = std::move(s);
      return i;
   }
   void grow() {
      std::vector<Slot> old(slots_.empty() ? 8 : slots_.size() * 2);
      old.swap(slots_);
      shift_ = 32 - uint32_t(std::countr_zero(slots_.size()));
      for (Slot& s : old) {
         if (!s) continue;
         const uint32_t hash = traits_.hash(s);
         place(std::move(s), hash);
      }
   }

   std::vector<Slot> slots_;
   uint32_t members_ = 0;
   uint32_t shift_ = 32;  // 32 - log2(slot count)
   [[no_unique_address]] Traits traits_;
};

}  // namespace Orb
