// Interned generic values: equal values share one holder while any sharer
// lives, the pool lets a holder go with its last sharer, and values of other
// types or unequal values never share, however their hashes collide.
#include <gtest/gtest.h>

#include <map>
#include <ostream>
#include <random>
#include <vector>

#include "Orb/GenericValue.h"

namespace {

template <int Tag>
struct Key {
   static constexpr std::string_view typeName = Tag ? "Test::OtherKey" : "Test::Key";
   uint32_t id;
   uint32_t hash(uint32_t) const { return id % 3; }  // long probe runs that wrap
   bool operator==(const Key&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const Key& k) { return os << k.id; }
};

TEST(GenericValueIntern, EqualValuesShareOtherTypesAndPlainValuesDoNot) {
   const auto a = Orb::GenericValue::interned(Key<0>{7});
   const auto b = Orb::GenericValue::interned(Key<0>{7});
   EXPECT_EQ(a.as<Key<0>>(), b.as<Key<0>>());
   EXPECT_EQ(a.sharing(), 2u);
   const auto other = Orb::GenericValue::interned(Key<1>{7});
   EXPECT_EQ(other.sharing(), 1u);
   EXPECT_EQ(Orb::GenericValue::interned(Key<0>{10}).sharing(), 1u);  // same hash, unequal
   const auto plain = Orb::GenericValue::of(Key<0>{7});
   EXPECT_EQ(plain.sharing(), 1u);
   EXPECT_EQ(a.sharing(), 2u);
   EXPECT_TRUE(a == plain);
   EXPECT_FALSE(Orb::GenericValue::interned(Orb::GenericValueRef()));
}

// Random traffic against a count of live sharers per value: a holder the
// pool lost, or one it kept after its last sharer went (a release that took
// out another holder of the same hash), shows as a wrong sharing count (and,
// under the sanitizer, as a use after free). The set's own probing is tested
// in PointerSetTest.
TEST(GenericValueIntern, RandomTrafficMatchesACountOfSharers) {
   std::mt19937 rng(1);
   std::map<uint32_t, std::vector<Orb::GenericValue>> live;
   for (uint32_t step = 0; step < 20000; ++step) {
      const uint32_t id = rng() % 200;
      auto& sharers = live[id];
      if (rng() % 2 && !sharers.empty()) {
         sharers.erase(sharers.begin() + rng() % sharers.size());
      } else {
         sharers.push_back(Orb::GenericValue::interned(Key<0>{id}));
         ASSERT_EQ(sharers.back().sharing(), sharers.size()) << "step " << step;
         ASSERT_EQ(sharers.back().as<Key<0>>(), sharers.front().as<Key<0>>());
      }
   }
}

}  // namespace
