#include "Asic/IndexAllocator.h"

#include <algorithm>
#include <bit>

#include "Orb/Assert.h"

namespace Asic {

namespace {

constexpr uint64_t allBits = ~uint64_t(0);

uint64_t wordMask(uint32_t word, uint32_t first, uint32_t last) {
   uint32_t lo = (word == first >> 6) ? (first & 63) : 0;
   uint32_t hi = (word == last >> 6) ? (last & 63) : 63;
   return (allBits >> (63 - hi)) & (allBits << lo);
}

}  // namespace

// ---------------------------------------------------------------------------
// GenericIndexAllocator

Index GenericIndexAllocator::newIndexForKey(Orb::GenericValueRef key) {
   return indexTakeForKey(key, nullptr);
}

Index GenericIndexAllocator::newIndexForKey(const Orb::GenericValue& key) {
   return indexTakeForKey(key.ref(), &key);
}

Index GenericIndexAllocator::indexTakeForKey(Orb::GenericValueRef key,
                                             const Orb::GenericValue* shared) {
   if (!key) return invalidIndex;
   if (const uint32_t slot = slotFind(key); slot != noSlot) return slots_[slot].index;
   Index index = freeIndexTake();
   if (!isValidIndex(index)) return invalidIndex;
   keyIndexIs(index, shared ? *shared : Orb::GenericValue(key));
   return index;
}

bool GenericIndexAllocator::requestIndexForKey(Index index, Orb::GenericValueRef key) {
   return indexClaim(index, key, nullptr);
}

bool GenericIndexAllocator::requestIndexForKey(Index index, const Orb::GenericValue& key) {
   return indexClaim(index, key.ref(), &key);
}

bool GenericIndexAllocator::indexClaim(Index index, Orb::GenericValueRef key,
                                       const Orb::GenericValue* shared) {
   if (!key) return false;
   const uint32_t slot = slotFind(key);
   if (slot != noSlot && slots_[slot].index == index) return true;
   if (held(index) || !freeIndexClaim(index)) return false;
   if (slot == noSlot) {
      keyIndexIs(index, shared ? *shared : Orb::GenericValue(key));
      return true;
   }
   Index old = std::exchange(slots_[slot].index, index);
   indexToKeyCover(index);
   indexToKey_[index] = std::move(indexToKey_[old]);
   freeIndexIs(old);
   return true;
}

Index GenericIndexAllocator::indexForKey(Orb::GenericValueRef key) const {
   const uint32_t slot = slotFind(key);
   return slot == noSlot ? invalidIndex : slots_[slot].index;
}

std::optional<Orb::GenericValue> GenericIndexAllocator::keyForIndex(Index index) const {
   if (!held(index)) return std::nullopt;
   return indexToKey_[index];
}

bool GenericIndexAllocator::canReleaseIndex(const Orb::GenericValue& allocatorKey,
                                            const IndexKeyHolder* table) const {
   Orb::GenericValueRef key(allocatorKey);
   for (const auto& [holder, attrId] : tableAttrs_) {
      if (holder != table && holder->allocatorKeyHeld(attrId, key)) return false;
   }
   return true;
}

void GenericIndexAllocator::releaseIndexFromTable(const Orb::GenericValue& allocatorKey,
                                                  const IndexKeyHolder* table) {
   ORB_ASSERT(table);
   releaseIndex(allocatorKey);
}

void GenericIndexAllocator::releaseIndex(const Orb::GenericValue& allocatorKey) {
   const uint32_t slot = slotFind(allocatorKey);
   if (slot == noSlot) return;
   const Index index = slots_[slot].index;
   slotErase(slot);
   keyIndexDel(index);
}

void GenericIndexAllocator::setTableAttr(const IndexKeyHolder* table, uint32_t attrId) {
   ORB_ASSERT(table);
   auto entry = std::make_pair(table, attrId);
   if (std::find(tableAttrs_.begin(), tableAttrs_.end(), entry) == tableAttrs_.end()) {
      tableAttrs_.push_back(entry);
   }
}

void GenericIndexAllocator::tableAttrDel(const IndexKeyHolder* table) {
   std::erase_if(tableAttrs_, [table](const auto& e) { return e.first == table; });
}

void GenericIndexAllocator::indexCountIs(uint32_t n) {
   ORB_ASSERT(n <= maxIndexCount) << "index count " << n;
   if (n == indexCount_) return;
   indexCount_ = n;
   indexSpaceChanged();
}

// Keys come in first-free order, each index one past the last: growing by one
// element at a time would cost a call per key.
void GenericIndexAllocator::indexToKeyCover(Index index) {
   if (index < indexToKey_.size()) return;
   const size_t needed = size_t(index) + 1;
   const size_t grown = indexToKey_.size() + indexToKey_.size() / 2;
   indexToKey_.resize(std::max(needed, std::min(grown, size_t(indexCount_))));
}

void GenericIndexAllocator::keyIndexIs(Index index, Orb::GenericValue key) {
   indexToKeyCover(index);
   indexToKey_[index] = std::move(key);
   slotInsert(index);
}

uint32_t GenericIndexAllocator::slotFind(Orb::GenericValueRef key) const {
   if (!keys_ || !key) return noSlot;
   const uint32_t mask = uint32_t(slots_.size()) - 1;
   for (uint32_t i = slotHome(key.hash());; i = (i + 1) & mask) {
      const Slot& slot = slots_[i];
      if (slot.index == invalidIndex) return noSlot;
      if (slot.hash == key.hash() && indexToKey_[slot.index] == key) return i;
   }
}

void GenericIndexAllocator::slotInsert(Index index) {
   if ((uint64_t(keys_) + 1) * 10 > uint64_t(slots_.size()) * 7) slotsGrow();
   const uint32_t mask = uint32_t(slots_.size()) - 1;
   const uint32_t hash = indexToKey_[index].hash();
   uint32_t i = slotHome(hash);
   while (slots_[i].index != invalidIndex) i = (i + 1) & mask;
   slots_[i] = {index, hash};
   ++keys_;
}

// Later members of the probe run move back over the hole, so that no search
// stops short of its key.
void GenericIndexAllocator::slotErase(uint32_t slot) {
   const uint32_t mask = uint32_t(slots_.size()) - 1;
   uint32_t hole = slot;
   for (uint32_t j = (hole + 1) & mask; slots_[j].index != invalidIndex; j = (j + 1) & mask) {
      const uint32_t home = slotHome(slots_[j].hash);
      const bool stays = hole <= j ? (hole < home && home <= j) : (hole < home || home <= j);
      if (stays) continue;
      slots_[hole] = slots_[j];
      hole = j;
   }
   slots_[hole] = Slot();
   --keys_;
}

void GenericIndexAllocator::slotsGrow() {
   std::vector<Slot> old(slots_.empty() ? 16 : slots_.size() * 2);
   old.swap(slots_);
   slotShift_ = 32 - uint32_t(std::countr_zero(slots_.size()));
   const uint32_t mask = uint32_t(slots_.size()) - 1;
   for (const Slot& slot : old) {
      if (slot.index == invalidIndex) continue;
      uint32_t i = slotHome(slot.hash);
      while (slots_[i].index != invalidIndex) i = (i + 1) & mask;
      slots_[i] = slot;
   }
}

void GenericIndexAllocator::keyIndexDel(Index index) {
   indexToKey_[index] = Orb::GenericValue();
   freeIndexIs(index);
}

// ---------------------------------------------------------------------------
// FreeIndexBitmap

void FreeIndexBitmap::sizeIs(uint32_t n) {
   size_ = n;
   levels_.clear();
   uint32_t words = std::max<uint32_t>(1, (n + 63) / 64);
   levels_.emplace_back(words);
   while (words > 1) {
      words = (words + 63) / 64;
      levels_.emplace_back(words);
   }
}

void FreeIndexBitmap::set(uint32_t i) {
   uint64_t& w = leaf()[i >> 6];
   bool wasEmpty = w == 0;
   w |= uint64_t(1) << (i & 63);
   if (wasEmpty) setUp(i >> 6);
}

void FreeIndexBitmap::clear(uint32_t i) {
   uint64_t& w = leaf()[i >> 6];
   if (w == 0) return;
   w &= ~(uint64_t(1) << (i & 63));
   if (w == 0) clearUp(i >> 6);
}

void FreeIndexBitmap::clearRange(uint32_t first, uint32_t last) {
   if (first > last || first >= size_) return;
   last = std::min(last, size_ - 1);
   for (uint32_t word = first >> 6; word <= last >> 6; ++word) {
      uint64_t& w = leaf()[word];
      if (w == 0) continue;
      w &= ~wordMask(word, first, last);
      if (w == 0) clearUp(word);
   }
}

void FreeIndexBitmap::rangeRawIs(uint32_t first, uint32_t last, bool on) {
   if (first > last || first >= size_) return;
   last = std::min(last, size_ - 1);
   for (uint32_t word = first >> 6; word <= last >> 6; ++word) {
      uint64_t mask = wordMask(word, first, last);
      if (on) {
         leaf()[word] |= mask;
      } else {
         leaf()[word] &= ~mask;
      }
   }
}

void FreeIndexBitmap::rebuildSummaries() {
   for (size_t l = 1; l < levels_.size(); ++l) {
      std::vector<uint64_t>& up = levels_[l];
      std::fill(up.begin(), up.end(), 0);
      const std::vector<uint64_t>& down = levels_[l - 1];
      for (uint32_t w = 0; w < down.size(); ++w) {
         if (down[w]) up[w >> 6] |= uint64_t(1) << (w & 63);
      }
   }
}

void FreeIndexBitmap::setUp(uint32_t word) {
   for (size_t l = 1; l < levels_.size(); ++l) {
      uint64_t& w = levels_[l][word >> 6];
      bool wasEmpty = w == 0;
      w |= uint64_t(1) << (word & 63);
      if (!wasEmpty) return;
      word >>= 6;
   }
}

void FreeIndexBitmap::clearUp(uint32_t word) {
   for (size_t l = 1; l < levels_.size(); ++l) {
      uint64_t& w = levels_[l][word >> 6];
      w &= ~(uint64_t(1) << (word & 63));
      if (w != 0) return;
      word >>= 6;
   }
}

uint32_t FreeIndexBitmap::first() const {
   if (levels_.back()[0] == 0) return invalidIndex;
   uint32_t i = 0;
   for (size_t l = levels_.size(); l-- > 0;) {
      i = (i << 6) | uint32_t(std::countr_zero(levels_[l][i]));
   }
   return i;
}

// ---------------------------------------------------------------------------
// FirstFreeIndexAllocator

void FirstFreeIndexAllocator::reserveIndices(Index first, Index last) {
   if (first > last) return;
   Index next = first;
   Index heldLast = std::min(last, heldEnd() ? heldEnd() - 1 : 0);
   for (Index i = first; heldEnd() && i <= heldLast; ++i) {
      if (!held(i)) continue;
      if (next < i) reservedRangeIs(next, i - 1);
      next = i + 1;
   }
   if (next <= last) reservedRangeIs(next, last);
   free_.clearRange(first, last);
}

bool FirstFreeIndexAllocator::reserved(Index index) const {
   auto it = reserved_.upper_bound(index);
   if (it == reserved_.begin()) return false;
   return index <= std::prev(it)->second;
}

uint32_t FirstFreeIndexAllocator::reservedBelow(Index end) const {
   uint32_t n = 0;
   for (const auto& [first, last] : reserved_) {
      if (first >= end) break;
      n += uint32_t(std::min<uint64_t>(uint64_t(last) + 1, end) - first);
   }
   return n;
}

void FirstFreeIndexAllocator::reservedRangeIs(Index first, Index last) {
   auto it = reserved_.upper_bound(first);
   if (it != reserved_.begin()) {
      auto before = std::prev(it);
      if (uint64_t(before->second) + 1 >= first) {
         first = before->first;
         last = std::max(last, before->second);
         reserved_.erase(before);
      }
   }
   while (it != reserved_.end() && uint64_t(it->first) <= uint64_t(last) + 1) {
      last = std::max(last, it->second);
      it = reserved_.erase(it);
   }
   reserved_.emplace(first, last);
}

Index FirstFreeIndexAllocator::freeIndexTake() {
   Index i = free_.first();
   if (i != invalidIndex) free_.clear(i);
   return i;
}

bool FirstFreeIndexAllocator::freeIndexClaim(Index index) {
   if (!free_.test(index)) return false;
   free_.clear(index);
   return true;
}

void FirstFreeIndexAllocator::freeIndexIs(Index index) {
   // Held indices are never reserved, so only the range decides.
   if (index < free_.size()) free_.set(index);
}

void FirstFreeIndexAllocator::indexSpaceChanged() {
   uint32_t n = indexCount();
   free_.sizeIs(n);
   if (n == 0) return;
   free_.setRangeRaw(0, n - 1);
   for (const auto& [first, last] : reserved_) {
      if (first >= n) break;
      free_.clearRangeRaw(first, last);
   }
   for (Index i = 0; i < std::min(n, heldEnd()); ++i) {
      if (held(i)) free_.clearRaw(i);
   }
   free_.rebuildSummaries();
}

// ---------------------------------------------------------------------------
// GenericIndexAllocatorStub

namespace {

struct Share {
   Orb::TypeId tableType;
   const IndexKeyHolder* table;
};

struct SharedEntry {
   Brio::Ptr<GenericIndexAllocator> allocator;
   std::vector<Share> shares;
};

// Never destroyed: tables of libraries unloaded at exit may still hold keys
// whose code is gone by the time static destructors run.
std::unordered_map<Orb::TypeId, SharedEntry>& registry() {
   static auto* r = new std::unordered_map<Orb::TypeId, SharedEntry>();
   return *r;
}

}  // namespace

Brio::Ptr<GenericIndexAllocator> GenericIndexAllocatorStub::createSharedAllocator(
    Orb::TypeId allocatorType, Orb::TypeId tableType, const IndexKeyHolder* table,
    const Factory& factory) {
   ORB_ASSERT(table);
   SharedEntry& entry = registry()[allocatorType];
   if (!entry.allocator) {
      entry.allocator = factory();
      ORB_ASSERT(entry.allocator && entry.allocator->allocatorType() == allocatorType)
          << "factory made no allocator of type " << allocatorType.name();
   }
   auto sharing = [table](const Share& s) { return s.table == table; };
   if (std::find_if(entry.shares.begin(), entry.shares.end(), sharing) == entry.shares.end()) {
      entry.shares.push_back({tableType, table});
   }
   return entry.allocator;
}

void GenericIndexAllocatorStub::freeSharedAllocator(Orb::TypeId allocatorType,
                                                    Orb::TypeId tableType,
                                                    const IndexKeyHolder* table) {
   (void)tableType;  // a table is identified by its address; the type is for traces
   ORB_ASSERT(table);
   auto it = registry().find(allocatorType);
   if (it == registry().end()) return;
   SharedEntry& entry = it->second;
   auto removed = std::erase_if(entry.shares, [table](const Share& s) { return s.table == table; });
   if (removed == 0) return;
   entry.allocator->tableAttrDel(table);
   if (entry.shares.empty()) registry().erase(it);
}

Brio::Ptr<GenericIndexAllocator> GenericIndexAllocatorStub::sharedAllocator(
    Orb::TypeId allocatorType) {
   auto it = registry().find(allocatorType);
   return it == registry().end() ? nullptr : it->second.allocator;
}

uint32_t GenericIndexAllocatorStub::sharers(Orb::TypeId allocatorType) {
   auto it = registry().find(allocatorType);
   return it == registry().end() ? 0 : uint32_t(it->second.shares.size());
}

}  // namespace Asic
