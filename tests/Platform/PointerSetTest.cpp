// The open-addressing pointer set under random fill-and-drain traffic, checked
// against std::unordered_set after every step. Each id range fills the slot
// array of one size to its limit, growing it on the way, and ids share
// hashes, so probe runs are long and removals shift members back across the
// array's end. A member lost, kept twice or left out of reach of its home
// shows as a difference.
#include <gtest/gtest.h>

#include <array>
#include <random>
#include <span>
#include <unordered_set>

#include "Orb/PointerSet.h"

namespace {

struct Item {
   uint32_t id;
};
using Slot = const Item*;  // a raw pointer: moving one out of a slot leaves it set

struct Traits {
   static uint32_t hash(uint32_t id) { return id * 7 % 23; }
   static uint32_t hash(const Slot& s) { return hash(s->id); }
   static bool isEq(const Slot& s, uint32_t id) { return s->id == id; }
};
using Set = Orb::PointerSet<Slot, Traits>;

constexpr uint32_t ids = 96;
const auto items = [] {
   std::array<Item, ids> a;
   for (uint32_t id = 0; id < ids; ++id) a[id].id = id;
   return a;
}();

// Whether removing the member at `i` scans on past the array's last slot.
bool scanWraps(std::span<const Slot> s, uint32_t i) {
   if (i == Set::noSlot || !s.front()) return false;
   for (; i < s.size(); ++i)
      if (!s[i]) return false;
   return true;
}

void expectSame(const Set& set, const std::unordered_set<uint32_t>& model, uint32_t step) {
   ASSERT_EQ(set.members(), model.size()) << "step " << step;
   std::unordered_set<uint32_t> walked;
   for (const Slot& s : set.slots()) {
      if (s) {
         ASSERT_TRUE(walked.insert(s->id).second) << "step " << step << " id " << s->id;
      }
   }
   ASSERT_EQ(walked, model) << "step " << step;
   for (uint32_t id = 0; id < ids; ++id) {
      const uint32_t i = set.slotFind(id);
      ASSERT_EQ(i != Set::noSlot, model.count(id) != 0) << "step " << step << " id " << id;
      if (i != Set::noSlot) {
         ASSERT_EQ(set.slots()[i]->id, id) << "step " << step;
      }
   }
}

TEST(PointerSet, RandomTrafficMatchesAnUnorderedSet) {
   uint32_t wrapped = 0;  // removals whose backward shift crossed the end
   for (uint32_t seed : {1u, 2u, 3u}) {
      for (uint32_t universe : {6u, 12u, 24u, 48u, ids}) {
         std::mt19937 rng(seed);
         Set set;
         std::unordered_set<uint32_t> model;
         for (uint32_t step = 0; step < 3000; ++step) {
            const uint32_t id = rng() % universe;
            // Phases of mostly adding and mostly removing, so the set fills and drains.
            const bool filling = (step / 300) % 2 == 0;
            const bool adding = (rng() % 4 != 0) == filling;
            if (adding) {
               if (set.slotFind(id) == Set::noSlot) {
                  set.memberIs(&items[id]);
                  model.insert(id);
               }
            } else {
               const uint32_t i = set.slotFind(id);
               wrapped += scanWraps(set.slots(), i);
               // A handle map's caller may take the pointer out before removing it.
               if (i != Set::noSlot && rng() % 2) set.slots()[i] = nullptr;
               set.memberDel(i);  // noSlot: an absent id removes nothing
               model.erase(id);
            }
            expectSame(set, model, step);
            if (HasFatalFailure()) return;
         }
         set.memberDelAll();
         EXPECT_EQ(set.members(), 0u);
         EXPECT_TRUE(set.slots().empty());
      }
   }
   EXPECT_GT(wrapped, 0u);
}

}  // namespace
