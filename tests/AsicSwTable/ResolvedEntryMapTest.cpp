// A table's values by key, kept in the keys' handles while they have one and
// in a map of their own otherwise: random traffic of writes, removals and
// handles coming and going, checked against a plain map after every step.
// A value lost or duplicated when its handle comes or goes, a wrong count or
// a walk that misses a place shows as a difference.
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <random>

#include "AsicSwTable/KeyedTableData.h"

namespace {

struct Key {
   uint32_t id;
   uint32_t hash(uint32_t seed) const { return (id % 5) ^ seed; }  // probe runs that wrap
   bool operator==(const Key&) const = default;
};

struct Handle : Brio::PtrInterface {
   explicit Handle(Key k) : k_(k) {}
   const Key& key() const { return k_; }
   struct HeldValue {
      std::optional<int> value;
      bool held = false;
   };
   HeldValue& heldValue() { return held_; }
   Key k_;
   HeldValue held_;
};

using Handles = Asic::HandleMap<Key, Handle, Asic::SeededHash<Key, 1>>;
using Values =
    Asic::ResolvedEntryMap<Key, int, Handles, Asic::KeyedMap<Key, std::optional<int>, 2>>;
using Model = std::map<uint32_t, std::optional<int>>;  // a node, maybe with an empty value

void expectSame(const Values& values, const Model& model, uint32_t step) {
   ASSERT_EQ(values.size(), model.size()) << "step " << step;
   Model walked;
   for (auto& [k, v] : values) ASSERT_TRUE(walked.emplace(k.id, v).second) << "step " << step;
   ASSERT_EQ(walked, model) << "step " << step;
   for (uint32_t id = 0; id < 40; ++id) {
      auto it = values.find(Key{id});
      ASSERT_EQ(it != values.end(), model.count(id) != 0) << "step " << step << " key " << id;
      if (it != values.end()) {
         ASSERT_EQ(it->second, model.at(id)) << "step " << step;
      }
   }
}

TEST(ResolvedEntryMap, RandomTrafficMatchesAMap) {
   for (uint32_t seed : {1u, 2u, 3u, 4u}) {
      std::mt19937 rng(seed);
      Handles handles;
      Values values(handles);
      Model model;
      for (uint32_t step = 0; step < 5000; ++step) {
         const Key k{uint32_t(rng() % 40)};
         switch (rng() % 5) {
            case 0: {  // a value, or a withdrawn one
               const std::optional<int> v =
                   rng() % 3 ? std::optional<int>(int(rng() % 100)) : std::nullopt;
               values.insert_or_assign(k, v);
               model[k.id] = v;
               break;
            }
            case 1:
               EXPECT_EQ(values.erase(k), model.erase(k.id)) << "step " << step;
               break;
            case 2:
               if (handles.find(k) == handles.end()) {
                  Brio::Ptr<Handle> h(new Handle(k));
                  handles.emplace(k, h);
                  values.adopt(*h);
               }
               break;
            default:
               if (auto it = handles.find(k); it != handles.end()) {
                  values.release(*it->second);
                  handles.erase(it);
               }
               break;
         }
         expectSame(values, model, step);
         if (HasFatalFailure()) return;
      }
   }
}

}  // namespace
