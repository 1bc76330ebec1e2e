#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Asic/RangeIndexAllocator.h"

namespace {

using Asic::invalidIndex;

TEST(RangeIndexAllocatorDeathTest, GivingBackAFreeRangeStops) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   Asic::RangeIndexAllocator a;
   a.indexCountIs(10);
   a.rangeNew(4);
   EXPECT_DEATH(a.rangeDel(2, 4), "is already partly free");
}

// Random takes, claims and gives agree with a plain bitmap of used indices;
// which free extent a take uses shows in the tool's checked output.
TEST(RangeIndexAllocator, RandomUseMatchesABitmap) {
   Asic::RangeIndexAllocator a;
   a.indexCountIs(256);
   EXPECT_EQ(a.rangeNew(0), invalidIndex);
   std::vector<bool> used(256);
   std::vector<std::pair<uint32_t, uint32_t>> live;
   std::mt19937 rng(7);
   for (int step = 0; step < 4000; ++step) {
      const uint32_t op = rng() % 5;
      if (op == 0) {
         // A claim of any range, free or not, in the table or past its end.
         const uint32_t first = rng() % 260, size = 1 + rng() % 8;
         bool free = first + size <= 256;
         for (uint32_t i = first; free && i < first + size; ++i) free = !used[i];
         ASSERT_EQ(a.rangeClaim(first, size), free) << first << "+" << size;
         if (!free) continue;
         for (uint32_t i = first; i < first + size; ++i) used[i] = true;
         live.emplace_back(first, size);
      } else if (live.empty() || op % 2) {
         const uint32_t size = 1 + rng() % 16;
         const auto first = a.rangeNew(size);
         if (first == invalidIndex) {
            ASSERT_LT(a.largestFree(), size);
            continue;
         }
         for (uint32_t i = first; i < first + size; ++i) {
            ASSERT_FALSE(used[i]) << "index " << i << " handed out twice";
            used[i] = true;
         }
         live.emplace_back(first, size);
      } else {
         const size_t k = rng() % live.size();
         a.rangeDel(live[k].first, live[k].second);
         for (uint32_t i = live[k].first; i < live[k].first + live[k].second; ++i) used[i] = false;
         live.erase(live.begin() + long(k));
      }
      uint32_t n = 0;
      for (uint32_t i = 0; i < 256; ++i) {
         n += used[i];
         ASSERT_EQ(a.isFree(i), !used[i]) << "index " << i << " at step " << step;
      }
      ASSERT_EQ(a.used(), n);
   }
}

}  // namespace
