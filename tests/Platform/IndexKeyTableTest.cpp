// The allocator's table of keys to indices under random traffic, checked
// against a plain map: keys whose hashes collide (all of them, or a few
// values), keys moved to another index, released in any order; and keys in
// generic form, whose holder the allocator shares rather than copies.
#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <random>

#include "Asic/IndexAllocator.h"

namespace {

using Asic::Index;
using Asic::invalidIndex;

// `Buckets` distinct hash values for all keys: long probe runs that wrap.
template <uint32_t Buckets>
struct CollidingKey {
   static constexpr std::string_view typeName = "Test::CollidingKey";
   uint32_t id;
   uint32_t hash(uint32_t) const { return id % Buckets; }
   bool operator==(const CollidingKey&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const CollidingKey& k) { return os << k.id; }
};

template <class Key>
void randomTraffic(uint32_t seed) {
   constexpr uint32_t count = 300;
   auto a = Brio::makePtr<Asic::FirstFreeIndexAllocator>();
   a->indexCountIs(count);
   std::map<uint32_t, Index> model;  // key id -> index
   std::mt19937 rng(seed);
   for (uint32_t step = 0; step < 20000; ++step) {
      const Key k{uint32_t(rng() % 400)};
      const uint32_t op = rng() % 4;
      if (op == 0) {
         const Index i = a->newIndexForKey(k);
         if (!model.count(k.id) && i != invalidIndex) model[k.id] = i;
         ASSERT_EQ(i, model.count(k.id) ? model[k.id] : invalidIndex) << "step " << step;
      } else if (op == 1) {
         a->releaseIndex(a->getKey(k));
         model.erase(k.id);
      } else if (op == 2) {
         // Claim (or move the key to) an index that is free, if the model says so.
         const Index want = rng() % count;
         bool taken = false;
         for (auto& [id, i] : model) taken |= i == want && id != k.id;
         ASSERT_EQ(a->requestIndexForKey(want, k), !taken) << "step " << step;
         if (!taken) model[k.id] = want;
      } else {
         ASSERT_EQ(a->indexForKey(k), model.count(k.id) ? model[k.id] : invalidIndex)
             << "step " << step;
      }
      ASSERT_EQ(a->used(), model.size()) << "step " << step;
   }
   // Every key is found at its index, and every index names its key.
   for (auto& [id, i] : model) {
      EXPECT_EQ(a->indexForKey(Key{id}), i);
      const auto held = a->keyForIndex(i);
      ASSERT_TRUE(held);
      EXPECT_EQ(held->template as<Key>()->id, id);
   }
   uint32_t visited = 0;
   a->forEachHeldIndex([&](Index, const Orb::GenericValue&) { ++visited; });
   EXPECT_EQ(visited, model.size());
}

TEST(IndexKeyTable, RandomTrafficMatchesAMap) {
   for (uint32_t seed : {1u, 2u, 3u}) {
      SCOPED_TRACE(seed);
      randomTraffic<CollidingKey<1>>(seed);
      randomTraffic<CollidingKey<7>>(seed);
      randomTraffic<CollidingKey<0xFFFFFFFF>>(seed);
   }
}

}  // namespace
