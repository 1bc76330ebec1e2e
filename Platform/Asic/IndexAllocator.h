#pragma once
// Allocators hand hardware indices to table keys. They are shared by type
// between tables (one process-wide allocator per allocator type), so keys of
// different types may live in one index space.
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <utility>
#include <vector>

#include "Asic/Index.h"
#include "Brio/Ptr.h"
#include "Orb/GenericValue.h"
#include "Orb/TypeId.h"

#pragma GCC visibility push(default)
namespace Asic {

// A table whose collection (attribute) holds the keys an allocator serves.
class IndexKeyHolder {
public:
   virtual bool allocatorKeyHeld(uint32_t attrId, Orb::GenericValueRef key) const = 0;
   virtual std::string_view allocatorHolderName() const = 0;

protected:
   ~IndexKeyHolder() = default;
};

// Key bookkeeping common to every allocation policy. A held key owns exactly
// one index; the policy below decides which free index comes next.
class GenericIndexAllocator : public Brio::PtrInterface {
public:
   // Keeps both sentinels out of the index space.
   static constexpr uint32_t maxIndexCount = wontProgramIndex;

   virtual Orb::TypeId allocatorType() const = 0;

   // The index already held by the key, else the lowest free one, now held by
   // the key; invalidIndex when none is free.
   template <Orb::GenericType K>
   Index newIndexForKey(const K& key) {
      return newIndexForKey(Orb::GenericValueRef(key));
   }
   Index newIndexForKey(Orb::GenericValueRef key);
   // The same for a key already in generic form: a new key's holder is
   // shared, not copied.
   Index newIndexForKey(const Orb::GenericValue& key);

   // Makes the key hold exactly `index`, giving up any other index it held.
   // False, with nothing changed, when the index is reserved, out of range or
   // held by another key.
   template <Orb::GenericType K>
   bool requestIndexForKey(Index index, const K& key) {
      return requestIndexForKey(index, Orb::GenericValueRef(key));
   }
   bool requestIndexForKey(Index index, Orb::GenericValueRef key);
   // The same for a key already in generic form (a row's key at recovery):
   // the allocator shares its holder instead of copying the value.
   bool requestIndexForKey(Index index, const Orb::GenericValue& key);

   template <Orb::GenericType K>
   Index indexForKey(const K& key) const {
      return indexForKey(Orb::GenericValueRef(key));
   }
   Index indexForKey(Orb::GenericValueRef key) const;

   // Table keys serve as allocator keys as they are.
   template <Orb::GenericType K>
   Orb::GenericValue getKey(const K& key) const {
      return Orb::GenericValue::of(key);
   }
   Orb::GenericValue getKey(const Orb::GenericValue& key) const { return key; }

   std::optional<Orb::GenericValue> keyForIndex(Index index) const;

   // False while a registered attribute of another table still holds the key:
   // the index must outlive the last table entry that uses it.
   bool canReleaseIndex(const Orb::GenericValue& allocatorKey, const IndexKeyHolder* table) const;
   void releaseIndexFromTable(const Orb::GenericValue& allocatorKey, const IndexKeyHolder* table);
   void releaseIndex(const Orb::GenericValue& allocatorKey);

   void setTableAttr(const IndexKeyHolder* table, uint32_t attrId);
   void tableAttrDel(const IndexKeyHolder* table);
   // Only a shared index needs the holders asked before it is released.
   bool releaseCheck() const { return tableAttrs_.size() > 1; }
   uint32_t tableAttrs() const { return uint32_t(tableAttrs_.size()); }

   uint32_t indexCount() const { return indexCount_; }
   // Held indices survive a shrink; they are simply not handed out again.
   void indexCountIs(uint32_t n);
   bool initialized() const { return initialized_; }
   void initializedIs(bool on) { initialized_ = on; }
   uint32_t used() const { return keys_; }
   bool held(Index index) const { return index < indexToKey_.size() && indexToKey_[index]; }

   // Visits (index, key) of every held index in index order.
   template <class F>
   void forEachHeldIndex(F&& f) const {
      for (Index i = 0; i < indexToKey_.size(); ++i) {
         if (indexToKey_[i]) f(i, indexToKey_[i]);
      }
   }

protected:
   GenericIndexAllocator() = default;
   ~GenericIndexAllocator() override = default;

   // Policy: take the next free index (invalidIndex when none).
   virtual Index freeIndexTake() = 0;
   // Policy: take exactly `index` if it is free; the caller has checked that
   // no key holds it.
   virtual bool freeIndexClaim(Index index) = 0;
   // Policy: `index` is no longer held.
   virtual void freeIndexIs(Index index) = 0;
   // Policy: indexCount() changed.
   virtual void indexSpaceChanged() = 0;
   // One past the highest index that may be held.
   Index heldEnd() const { return Index(indexToKey_.size()); }

private:
   static constexpr uint32_t noSlot = 0xFFFFFFFFu;
   bool indexClaim(Index index, Orb::GenericValueRef key, const Orb::GenericValue* shared);
   Index indexTakeForKey(Orb::GenericValueRef key, const Orb::GenericValue* shared);
   void keyIndexIs(Index index, Orb::GenericValue key);
   void keyIndexDel(Index index);
   void indexToKeyCover(Index index);
   // The key table: which slot holds the key's index (noSlot: none), a slot
   // for a new index, a slot emptied.
   uint32_t slotFind(Orb::GenericValueRef key) const;
   void slotInsert(Index index);
   void slotErase(uint32_t slot);
   uint32_t slotHome(uint32_t hash) const { return (hash * 0x9e3779b1u) >> slotShift_; }
   void slotsGrow();

   // Grows with the highest held index (by half again, within the index
   // count): first-free keeps that dense.
   std::vector<Orb::GenericValue> indexToKey_;
   // Keys to indices: an open-addressing table (linear probing, deletion by
   // backward shift) of indices into indexToKey_, which holds the keys. No
   // allocation per key: recovery claims every row's index, and each key
   // programmed takes one. Each slot keeps its key's hash, so that a probe
   // reads a key only when the hashes match.
   struct Slot {
      Index index = invalidIndex;  // invalidIndex: empty
      uint32_t hash = 0;
   };
   std::vector<Slot> slots_;
   uint32_t slotShift_ = 32;
   uint32_t keys_ = 0;
   std::vector<std::pair<const IndexKeyHolder*, uint32_t>> tableAttrs_;
   uint32_t indexCount_ = 0;
   bool initialized_ = false;
};

// Free indices in a hierarchical bitmap: each level has one bit per non-empty
// word of the level below, so the lowest free index is found in log64(n)
// steps whatever the fill.
class FreeIndexBitmap {
public:
   // All clear, `n` bits.
   void sizeIs(uint32_t n);
   uint32_t size() const { return size_; }
   bool test(uint32_t i) const { return i < size_ && (leaf()[i >> 6] >> (i & 63) & 1) != 0; }
   void set(uint32_t i);
   void clear(uint32_t i);
   void clearRange(uint32_t first, uint32_t last);
   // The raw writers touch the leaf level only, for bulk rebuilds;
   // rebuildSummaries() must follow before the next lookup.
   void setRangeRaw(uint32_t first, uint32_t last) { rangeRawIs(first, last, true); }
   void clearRangeRaw(uint32_t first, uint32_t last) { rangeRawIs(first, last, false); }
   void clearRaw(uint32_t i) { leaf()[i >> 6] &= ~(uint64_t(1) << (i & 63)); }
   void rebuildSummaries();
   // Lowest set bit, invalidIndex when none.
   uint32_t first() const;

private:
   std::vector<uint64_t>& leaf() { return levels_.front(); }
   const std::vector<uint64_t>& leaf() const { return levels_.front(); }
   void rangeRawIs(uint32_t first, uint32_t last, bool on);
   // Propagate a leaf word that became non-empty / empty.
   void setUp(uint32_t word);
   void clearUp(uint32_t word);

   // levels_[0] is the leaf level; the last level is a single word.
   std::vector<std::vector<uint64_t>> levels_{std::vector<uint64_t>(1)};
   uint32_t size_ = 0;
};

class FirstFreeIndexAllocator : public GenericIndexAllocator {
public:
   static constexpr std::string_view typeName = "Asic::FirstFreeIndexAllocator";
   Orb::TypeId allocatorType() const override { return Orb::typeId<FirstFreeIndexAllocator>(); }

   // Inclusive and idempotent. An index a key holds right now is left to it
   // and is not reserved: taking it away would orphan a programmed entry.
   void reserveIndices(Index first, Index last);
   bool reserved(Index index) const;
   // How many indices below `end` are reserved.
   uint32_t reservedBelow(Index end) const;

protected:
   Index freeIndexTake() override;
   bool freeIndexClaim(Index index) override;
   void freeIndexIs(Index index) override;
   void indexSpaceChanged() override;

private:
   void reservedRangeIs(Index first, Index last);

   // Set bit: inside the index space, not reserved, not held.
   FreeIndexBitmap free_;
   // Reserved ranges as first -> last, disjoint and not adjacent.
   std::map<Index, Index> reserved_;
};

// Process-wide registry of shared allocators, one per allocator type.
class GenericIndexAllocatorStub {
public:
   using Factory = std::function<Brio::Ptr<GenericIndexAllocator>()>;

   template <class A>
   static Brio::Ptr<A> createSharedAllocator(Orb::TypeId tableType, const IndexKeyHolder* table) {
      static_assert(std::is_base_of_v<GenericIndexAllocator, A>);
      return Brio::ptr_cast<A>(createSharedAllocator(Orb::typeId<A>(), tableType, table, [] {
         return Brio::Ptr<GenericIndexAllocator>(new A());
      }));
   }
   static Brio::Ptr<GenericIndexAllocator> createSharedAllocator(Orb::TypeId allocatorType,
                                                                 Orb::TypeId tableType,
                                                                 const IndexKeyHolder* table,
                                                                 const Factory& factory);
   static void freeSharedAllocator(Orb::TypeId allocatorType, Orb::TypeId tableType,
                                   const IndexKeyHolder* table);
   static Brio::Ptr<GenericIndexAllocator> sharedAllocator(Orb::TypeId allocatorType);
   static uint32_t sharers(Orb::TypeId allocatorType);
};

}  // namespace Asic

namespace MeridL3Common {

class L3EgrL3TunnelSharedAllocator : public Asic::FirstFreeIndexAllocator {
public:
   static constexpr std::string_view typeName = "MeridL3Common::L3EgrL3TunnelSharedAllocator";
   Orb::TypeId allocatorType() const override {
      return Orb::typeId<L3EgrL3TunnelSharedAllocator>();
   }
};

class L3EgrL3Oif1TableSharedAllocator : public Asic::FirstFreeIndexAllocator {
public:
   static constexpr std::string_view typeName = "MeridL3Common::L3EgrL3Oif1TableSharedAllocator";
   Orb::TypeId allocatorType() const override {
      return Orb::typeId<L3EgrL3Oif1TableSharedAllocator>();
   }
};

class L3TunnelNextHopSharedAllocator : public Asic::FirstFreeIndexAllocator {
public:
   static constexpr std::string_view typeName = "MeridL3Common::L3TunnelNextHopSharedAllocator";
   Orb::TypeId allocatorType() const override {
      return Orb::typeId<L3TunnelNextHopSharedAllocator>();
   }
};

class L3NextHopSharedAllocator : public Asic::FirstFreeIndexAllocator {
public:
   static constexpr std::string_view typeName = "MeridL3Common::L3NextHopSharedAllocator";
   Orb::TypeId allocatorType() const override { return Orb::typeId<L3NextHopSharedAllocator>(); }
};

class L3InterfaceSharedAllocator : public Asic::FirstFreeIndexAllocator {
public:
   static constexpr std::string_view typeName = "MeridL3Common::L3InterfaceSharedAllocator";
   Orb::TypeId allocatorType() const override { return Orb::typeId<L3InterfaceSharedAllocator>(); }
};

}  // namespace MeridL3Common
#pragma GCC visibility pop
