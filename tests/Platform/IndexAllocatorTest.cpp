#include <gtest/gtest.h>

#include <map>
#include <random>
#include <set>
#include <unordered_set>

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

struct TunnelKey {
   static constexpr std::string_view typeName = "Test::TunnelKey";
   uint32_t vrf;
   uint32_t dst;
   uint32_t hash(uint32_t seed) const { return mix(seed ^ (vrf << 16) ^ dst); }
   bool operator==(const TunnelKey&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const TunnelKey& k) {
      return os << "vrf " << k.vrf << " dst " << k.dst;
   }
};

// Same layout and hash as TunnelKey: only the type tells them apart.
struct NextHopKey {
   static constexpr std::string_view typeName = "Test::NextHopKey";
   uint32_t unit;
   uint32_t id;
   uint32_t hash(uint32_t seed) const { return mix(seed ^ (unit << 16) ^ id); }
   bool operator==(const NextHopKey&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const NextHopKey& k) {
      return os << "nh " << k.id;
   }
};

TunnelKey tk(uint32_t i) { return TunnelKey{0, i}; }
NextHopKey nh(uint32_t i) { return NextHopKey{0, i}; }

Brio::Ptr<Asic::FirstFreeIndexAllocator> allocator(uint32_t n) {
   auto a = Brio::makePtr<Asic::FirstFreeIndexAllocator>();
   a->indexCountIs(n);
   return a;
}

class FakeHolder : public Asic::IndexKeyHolder {
public:
   bool allocatorKeyHeld(uint32_t attrId, Orb::GenericValueRef key) const override {
      auto it = keys.find(attrId);
      return it != keys.end() && it->second.find(key) != it->second.end();
   }
   std::string_view allocatorHolderName() const override { return "FakeHolder"; }
   std::map<uint32_t, std::unordered_set<Orb::GenericValue>> keys;
};

// ---------------------------------------------------------------------------

TEST(GenericValue, EqualityNeedsSameTypeAndValue) {
   auto a = Orb::GenericValue::of(tk(5));
   auto other = Orb::GenericValue::of(nh(5));
   ASSERT_EQ(a.hash(), other.hash());
   EXPECT_FALSE(a == other);
   EXPECT_TRUE(a == Orb::GenericValue::of(tk(5)));
   EXPECT_FALSE(a == Orb::GenericValue::of(tk(6)));
   EXPECT_FALSE(a == Orb::GenericValue());
   EXPECT_TRUE(Orb::GenericValue() == Orb::GenericValue());
   EXPECT_EQ(a.hash(), tk(5).hash(0));
   EXPECT_EQ(a.text(), "vrf 0 dst 5");
   EXPECT_EQ(a.type().name(), "Test::TunnelKey");
   ASSERT_NE(a.as<TunnelKey>(), nullptr);
   EXPECT_EQ(a.as<TunnelKey>()->dst, 5u);
   EXPECT_EQ(a.as<NextHopKey>(), nullptr);
}

TEST(GenericValue, LookupByRefFindsStoredValue) {
   std::unordered_map<Orb::GenericValue, int> m;
   m.emplace(Orb::GenericValue::of(tk(3)), 1);
   m.emplace(Orb::GenericValue::of(nh(3)), 2);
   const TunnelKey probe = tk(3);
   auto it = m.find(Orb::GenericValueRef(probe));
   ASSERT_NE(it, m.end());
   EXPECT_EQ(it->second, 1);
   EXPECT_EQ(m.find(Orb::GenericValueRef(nh(3)))->second, 2);
   EXPECT_EQ(m.find(Orb::GenericValueRef(nh(4))), m.end());
}

// ---------------------------------------------------------------------------

// Filling whole summary words empties upper bitmap levels; freeing refills them.
TEST(FirstFreeIndexAllocator, FillsAndRefillsAcrossBitmapLevels) {
   const uint32_t n = 64 * 64 * 2 + 10;
   auto a = allocator(n);
   a->reserveIndices(4096, 4096 + 63);
   Index expected = 0;
   for (uint32_t k = 0; k < n - 64; ++k, ++expected) {
      if (expected == 4096) expected += 64;
      ASSERT_EQ(a->newIndexForKey(tk(k)), expected);
   }
   EXPECT_EQ(a->newIndexForKey(tk(n)), invalidIndex);
   for (Index i : {n - 1, 8191u, 4200u, 4095u, 7u}) a->releaseIndex(*a->keyForIndex(i));
   for (Index i : {7u, 4095u, 4200u, 8191u, n - 1}) EXPECT_EQ(a->newIndexForKey(tk(n + i)), i);
   EXPECT_EQ(a->newIndexForKey(tk(n)), invalidIndex);
}

TEST(FirstFreeIndexAllocator, RequestIndexForKey) {
   struct Case {
      const char* what;
      Index index;
      uint32_t key;
      bool ok;
      Index keyIndexAfter;
      uint32_t used;
      Index nextFree;
   };
   // Before each case: size 8, 0 reserved, key 1 holds 1, key 2 holds 2.
   const Case cases[] = {
       {"already held by the key", 1, 1, true, 1, 2, 3},
       {"free index, new key", 3, 7, true, 3, 3, 4},
       {"free index moves the key", 5, 1, true, 5, 2, 1},
       {"reserved", 0, 7, false, invalidIndex, 2, 3},
       {"reserved, key keeps its index", 0, 1, false, 1, 2, 3},
       {"out of range", 8, 7, false, invalidIndex, 2, 3},
       {"invalid index", invalidIndex, 1, false, 1, 2, 3},
       {"held by another key", 2, 1, false, 1, 2, 3},
   };
   for (const Case& c : cases) {
      SCOPED_TRACE(c.what);
      auto a = allocator(8);
      a->reserveIndices(0, 0);
      a->newIndexForKey(tk(1));
      a->newIndexForKey(tk(2));
      EXPECT_EQ(a->requestIndexForKey(c.index, tk(c.key)), c.ok);
      EXPECT_EQ(a->indexForKey(tk(c.key)), c.keyIndexAfter);
      EXPECT_EQ(a->indexForKey(tk(2)), 2u);
      EXPECT_EQ(a->used(), c.used);
      if (c.ok) {
         EXPECT_EQ(a->keyForIndex(c.index)->as<TunnelKey>()->dst, c.key);
      }
      EXPECT_EQ(a->newIndexForKey(tk(50)), c.nextFree);
   }
}

TEST(FirstFreeIndexAllocator, KeysOfTwoTypesShareOneIndexSpace) {
   auto a = allocator(4);
   EXPECT_EQ(a->newIndexForKey(tk(0)), 0u);
   EXPECT_EQ(a->newIndexForKey(nh(0)), 1u);
   EXPECT_FALSE(a->requestIndexForKey(0, nh(0)));
   EXPECT_EQ(a->keyForIndex(0)->as<TunnelKey>()->dst, 0u);
   EXPECT_EQ(a->keyForIndex(1)->as<NextHopKey>()->id, 0u);
   EXPECT_EQ(a->keyForIndex(1)->as<TunnelKey>(), nullptr);
   std::vector<Index> seen;
   a->forEachHeldIndex([&](Index i, const Orb::GenericValue& k) {
      seen.push_back(i);
      EXPECT_EQ(a->indexForKey(k.ref()), i);
   });
   EXPECT_EQ(seen, (std::vector<Index>{0, 1}));
}

TEST(FirstFreeIndexAllocator, ReleaseWaitsForOtherHolders) {
   auto a = allocator(4);
   FakeHolder v4, v6;
   auto key = a->getKey(tk(1));
   a->newIndexForKey(tk(1));
   a->setTableAttr(&v4, 3);
   EXPECT_FALSE(a->releaseCheck());
   a->setTableAttr(&v6, 3);
   a->setTableAttr(&v6, 3);
   EXPECT_TRUE(a->releaseCheck());
   EXPECT_EQ(a->tableAttrs(), 2u);

   v4.keys[3].insert(key);
   v6.keys[3].insert(key);
   EXPECT_FALSE(a->canReleaseIndex(key, &v4));
   EXPECT_FALSE(a->canReleaseIndex(key, &v6));
   v6.keys[4].insert(key);
   v6.keys[3].clear();
   // v4 still holds the key itself; v6 holds it only in an unregistered attribute.
   EXPECT_TRUE(a->canReleaseIndex(key, &v4));
   EXPECT_FALSE(a->canReleaseIndex(key, &v6));
   a->releaseIndexFromTable(key, &v4);
   EXPECT_EQ(a->indexForKey(tk(1)), invalidIndex);

   a->tableAttrDel(&v6);
   EXPECT_FALSE(a->releaseCheck());
}

// Against a plain model: lowest free index first, reserved indices skipped
// (but left to a key holding them), keys moved, released and the size
// changed under them; sizes cross one and two bitmap levels.
TEST(FirstFreeIndexAllocator, MatchesReferenceModel) {
   std::mt19937 rng(12345);
   auto pick = [&](uint32_t bound) { return uint32_t(rng() % bound); };
   for (uint32_t size : {70u, 5000u}) {
      SCOPED_TRACE(size);
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
         uint32_t key = pick(size + size / 4);
         bool holds = held.count(key) != 0;
         switch (pick(10)) {
            case 0: {
               Index i = pick(size + 8);
               bool ok = (holds && held[key] == i) || isFree(i);
               ASSERT_EQ(a->requestIndexForKey(i, tk(key)), ok) << i;
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
            case 4:
               a->releaseIndex(a->getKey(tk(key)));
               if (holds) owner.erase(held[key]);
               held.erase(key);
               break;
            default: {
               Index expected = holds ? held[key] : invalidIndex;
               for (Index i = 0; !holds && i < n && expected == invalidIndex; ++i) {
                  if (isFree(i)) expected = i;
               }
               ASSERT_EQ(a->newIndexForKey(tk(key)), expected);
               if (expected != invalidIndex) hold(key, expected);
            }
         }
      }
      ASSERT_EQ(a->used(), held.size());
      for (auto& [i, k] : owner) ASSERT_EQ(a->keyForIndex(i)->as<TunnelKey>()->dst, k);
      for (Index i = 0; i < size + 8; ++i) ASSERT_EQ(a->reserved(i), reserved.count(i) != 0);
   }
}

// ---------------------------------------------------------------------------

struct CountedAllocator : Asic::FirstFreeIndexAllocator {
   static constexpr std::string_view typeName = "Test::CountedAllocator";
   static inline int live = 0;
   CountedAllocator() { ++live; }
   ~CountedAllocator() override { --live; }
   Orb::TypeId allocatorType() const override { return Orb::typeId<CountedAllocator>(); }
};

TEST(GenericIndexAllocatorStub, SharesOneAllocatorPerTypeUntilTheLastTableFrees) {
   using Stub = Asic::GenericIndexAllocatorStub;
   using Tunnel = MeridL3Common::L3EgrL3TunnelSharedAllocator;
   FakeHolder v4, v6;
   const auto counted = Orb::typeId<CountedAllocator>();
   const auto tableType = Orb::typeId<TunnelKey>();
   {
      auto a = Stub::createSharedAllocator<CountedAllocator>(tableType, &v4);
      auto b = Stub::createSharedAllocator<CountedAllocator>(tableType, &v6);
      Stub::createSharedAllocator<CountedAllocator>(tableType, &v6);
      EXPECT_EQ(a, b);
      EXPECT_EQ(CountedAllocator::live, 1);
      EXPECT_EQ(Stub::sharers(counted), 2u);
      EXPECT_EQ(Stub::sharedAllocator(counted), a);

      auto t = Stub::createSharedAllocator<Tunnel>(tableType, &v4);
      EXPECT_NE(Brio::Ptr<Asic::GenericIndexAllocator>(t),
                Brio::Ptr<Asic::GenericIndexAllocator>(a));
      EXPECT_EQ(t->allocatorType().name(), "MeridL3Common::L3EgrL3TunnelSharedAllocator");
      Stub::freeSharedAllocator(Orb::typeId<Tunnel>(), tableType, &v4);
      EXPECT_FALSE(Stub::sharedAllocator(Orb::typeId<Tunnel>()));

      a->setTableAttr(&v4, 1);
      a->setTableAttr(&v6, 1);
      Stub::freeSharedAllocator(counted, tableType, &v4);
      EXPECT_EQ(Stub::sharers(counted), 1u);
      EXPECT_FALSE(a->releaseCheck()) << "the freed table's attributes go too";
      Stub::freeSharedAllocator(counted, tableType, &v6);
      EXPECT_EQ(Stub::sharers(counted), 0u);
      EXPECT_FALSE(Stub::sharedAllocator(counted));
      EXPECT_EQ(CountedAllocator::live, 1) << "still held here";
   }
   EXPECT_EQ(CountedAllocator::live, 0);
}

TEST(GenericIndexAllocatorStubDeathTest, NullTableAborts) {
   EXPECT_DEATH(Asic::GenericIndexAllocatorStub::createSharedAllocator<CountedAllocator>(
                    Orb::typeId<TunnelKey>(), nullptr),
                "assertion \"table\" failed");
}

}  // namespace
