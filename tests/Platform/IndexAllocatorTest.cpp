// The first-free index allocator: the tables sharing it, and random use
// (requests for a given index included) against a plain model, with keys of
// good and of colliding hashes.
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>

#include "Asic/IndexAllocator.h"
#include "Orb/GenericValue.h"

namespace {

using Asic::Index;
using Asic::invalidIndex;

uint32_t mix(uint32_t h) {
   h ^= h >> 16;
   h *= 0x85ebca6b;
   h ^= h >> 13;
   return h;
}

// Hashed well, or into `Buckets` values only: long probe runs that wrap.
template <uint32_t Buckets = 0>
struct Key {
   static constexpr std::string_view typeName = "Test::Key";
   uint32_t id;
   uint32_t hash(uint32_t seed) const { return Buckets ? id % Buckets : mix(seed ^ id); }
   bool operator==(const Key&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const Key& k) { return os << k.id; }
};

Brio::Ptr<Asic::FirstFreeIndexAllocator> allocator(uint32_t n) {
   auto a = Brio::makePtr<Asic::FirstFreeIndexAllocator>();
   a->indexCountIs(n);
   return a;
}

// A table sharing the allocator that holds no key.
struct FakeHolder : Asic::IndexKeyHolder {
   bool allocatorKeyHeld(uint32_t, Orb::GenericValueRef) const override { return false; }
   std::string_view allocatorHolderName() const override { return "FakeHolder"; }
};

// Whether another table may still hold a key is asked only while more than
// one table is registered; each counts once and leaves when it goes.
TEST(FirstFreeIndexAllocator, SharingTablesCountOnceAndLeave) {
   auto a = allocator(4);
   FakeHolder v4, v6;
   a->setTableAttr(&v4, 3);
   EXPECT_FALSE(a->releaseCheck());
   a->setTableAttr(&v6, 3);
   a->setTableAttr(&v6, 3);
   EXPECT_TRUE(a->releaseCheck());
   EXPECT_EQ(a->tableAttrs(), 2u);
   a->tableAttrDel(&v6);
   EXPECT_FALSE(a->releaseCheck());
}

// Against a plain model: lowest free index first, reserved indices skipped
// (but left to a key holding them), given indices requested, keys moved,
// released and the size changed under them; sizes cross one and two bitmap
// levels, and keys whose hashes collide (all, or a few values, or none) run
// the key table's probes through removals.
template <class K>
void matchesModel(uint32_t size) {
   std::mt19937 rng(12345);
   auto pick = [&](uint32_t bound) { return uint32_t(rng() % bound); };
   auto a = allocator(size);
   uint32_t n = size;
   std::map<uint32_t, Index> held;  // key -> index
   std::map<Index, uint32_t> owner;
   std::set<Index> reserved;
   auto isFree = [&](Index i) { return i < n && !reserved.count(i) && !owner.count(i); };
   auto hold = [&](uint32_t key, Index i) {
      if (held.count(key)) owner.erase(held[key]);
      held[key] = i;
      owner[i] = key;
   };
   for (int op = 0; op < 4000; ++op) {
      const uint32_t key = pick(size + size / 4);
      const bool holds = held.count(key) != 0;
      switch (pick(10)) {
         case 0: {
            Index i = pick(size + 8);
            bool ok = (holds && held[key] == i) || isFree(i);
            ASSERT_EQ(a->requestIndexForKey(i, K{key}), ok) << i;
            if (ok) hold(key, i);
            break;
         }
         case 1: {
            if (pick(8) == 0) {
               n = pick(size + 1);
               a->indexCountIs(n);
               break;
            }
            Index last = key + pick(4);
            a->reserveIndices(key, last);
            for (Index i = key; i <= last; ++i) {
               if (!owner.count(i)) reserved.insert(i);
            }
            break;
         }
         case 2:
         case 3:
            a->releaseIndex(a->getKey(K{key}));
            if (holds) owner.erase(held[key]);
            held.erase(key);
            break;
         case 4:
            ASSERT_EQ(a->indexForKey(K{key}), holds ? held[key] : invalidIndex) << key;
            break;
         default: {
            Index expected = holds ? held[key] : invalidIndex;
            for (Index i = 0; !holds && i < n && expected == invalidIndex; ++i) {
               if (isFree(i)) expected = i;
            }
            ASSERT_EQ(a->newIndexForKey(K{key}), expected);
            if (expected != invalidIndex) hold(key, expected);
         }
      }
      ASSERT_EQ(a->used(), held.size()) << "op " << op;
   }
   for (auto& [i, k] : owner) ASSERT_EQ(a->keyForIndex(i)->template as<K>()->id, k);
   EXPECT_FALSE(a->requestIndexForKey(invalidIndex, K{0}));
   for (Index i = 0; i < size + 8; ++i) ASSERT_EQ(a->reserved(i), reserved.count(i) != 0);
   uint32_t visited = 0;
   a->forEachHeldIndex([&](Index, const Orb::GenericValue&) { ++visited; });
   EXPECT_EQ(visited, held.size());
}

TEST(FirstFreeIndexAllocator, MatchesReferenceModel) {
   for (uint32_t size : {70u, 5000u}) {
      SCOPED_TRACE(size);
      matchesModel<Key<>>(size);
      matchesModel<Key<1>>(size);
      matchesModel<Key<7>>(size);
      matchesModel<Key<0xFFFFFFFF>>(size);
   }
}

struct SharedAllocator : Asic::FirstFreeIndexAllocator {
   static constexpr std::string_view typeName = "Test::SharedAllocator";
   Orb::TypeId allocatorType() const override { return Orb::typeId<SharedAllocator>(); }
};

TEST(GenericIndexAllocatorStubDeathTest, NullTableAborts) {
   EXPECT_DEATH(Asic::GenericIndexAllocatorStub::createSharedAllocator<SharedAllocator>(
                    Orb::typeId<Key<>>(), nullptr),
                "assertion \"table\" failed");
}

}  // namespace
