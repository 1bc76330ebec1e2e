// A handle's text form reads back to the live handle, and only while it
// lives, through many handles made and freed in random order (the registry of
// live handles grows and closes the gaps its deletions leave).
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "Orb/CharRange.h"
#include "SharedL3/EcmpGroup1Table.h"

namespace {

using Handle = Asic::SwTableBase::EntryHandle;
using MeridL3Common::L3AdjIdKey;

L3AdjIdKey group(uint32_t id) { return {id, MeridL3Common::L3AdjIdKeyType::adjIdTypeEcmp}; }

const Handle* readBack(const std::string& text) {
   Orb::CharRange r(text);
   return Handle::handleFromText(r).ptr();
}

TEST(HandleText, ReadsBackExactlyTheLiveHandles) {
   constexpr uint32_t n = 3000;
   auto groups = Brio::makePtr<MeridL3Tunnel::EcmpGroup1Table>(n + 1);
   struct Made {
      uint32_t id;
      const Handle* handle;
      std::string text;
   };
   std::vector<Made> live, gone;
   auto make = [&](uint32_t first, uint32_t count) {
      for (uint32_t id = first; id < first + count; ++id) {
         const Handle* h = groups->entryIs(group(id)).ptr();  // the table holds it
         live.push_back({id, h, Handle::handleText(h)});
      }
   };
   auto check = [&](const char* when) {
      for (auto& m : live) ASSERT_EQ(readBack(m.text), m.handle) << when << ", group " << m.id;
      for (auto& m : gone)
         EXPECT_THROW(readBack(m.text), std::range_error) << when << ", group " << m.id;
   };
   std::mt19937 rng(7);
   make(1, n / 2);
   check("made");
   for (int round = 0; round < 3; ++round) {
      std::shuffle(live.begin(), live.end(), rng);
      for (size_t i = 0, half = live.size() / 2; i < half; ++i) {
         groups->entryDel(group(live.back().id));
         gone.push_back(live.back());
         live.pop_back();
      }
      check("freed");
      gone.clear();  // their addresses may now go to new handles
      make(n / 2 + 1 + round * n / 6, n / 6);
      check("made again");
   }
   EXPECT_EQ(readBack("0x0"), nullptr);
}

}  // namespace
