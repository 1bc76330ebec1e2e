#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "Asic/RangeIndexAllocator.h"

namespace {

using Asic::invalidIndex;

// One step of a script: take `size` (expecting `first`), or give back the
// range a previous step took.
struct Step {
   enum Op { take, give, claim } op;
   uint32_t size;
   uint32_t first;  // take/claim: expected first (invalidIndex: refused); give: step number
};

struct Script {
   const char* name;
   uint32_t count;
   std::vector<Step> steps;
   uint32_t largestFreeAfter;
};

class RangeIndexAllocatorScript : public ::testing::TestWithParam<Script> {};

TEST_P(RangeIndexAllocatorScript, Runs) {
   const Script& s = GetParam();
   Asic::RangeIndexAllocator a;
   a.indexCountIs(s.count);
   std::vector<std::pair<uint32_t, uint32_t>> taken(s.steps.size());
   for (size_t i = 0; i < s.steps.size(); ++i) {
      const Step& st = s.steps[i];
      if (st.op == Step::take) {
         const auto got = a.rangeNew(st.size);
         EXPECT_EQ(got, st.first) << "step " << i;
         taken[i] = {got, st.size};
      } else if (st.op == Step::claim) {
         EXPECT_EQ(a.rangeClaim(st.first, st.size), st.size != 0 && st.first != invalidIndex)
             << "step " << i;
      } else {
         a.rangeDel(taken[st.first].first, taken[st.first].second);
      }
   }
   EXPECT_EQ(a.largestFree(), s.largestFreeAfter);
}

INSTANTIATE_TEST_SUITE_P(
    Scripts, RangeIndexAllocatorScript,
    ::testing::Values(
        Script{"FirstFitFromZero", 16, {{Step::take, 4, 0}, {Step::take, 4, 4}}, 8},
        Script{"TooLargeIsRefused", 8, {{Step::take, 9, invalidIndex}, {Step::take, 8, 0}}, 0},
        Script{"ZeroTakesNothing", 4, {{Step::take, 0, invalidIndex}}, 4},
        // Freed neighbours merge into one extent that a large block fits again.
        Script{"ReleaseCoalesces",
               12,
               {{Step::take, 4, 0},
                {Step::take, 4, 4},
                {Step::take, 4, 8},
                {Step::give, 0, 0},
                {Step::give, 0, 2},
                {Step::give, 0, 1},
                {Step::take, 12, 0}},
               0},
        // The smallest hole that fits is used, so the large one stays whole.
        Script{"BestFitKeepsLargeHoles",
               20,
               {{Step::take, 3, 0},
                {Step::take, 2, 3},
                {Step::take, 5, 5},
                {Step::take, 2, 10},
                {Step::give, 0, 1},
                {Step::take, 2, 3}},
               8},
        Script{"ClaimSplitsAnExtent",
               10,
               {{Step::claim, 2, 4}, {Step::take, 4, 0}, {Step::take, 4, 6}},
               0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(RangeIndexAllocatorDeathTest, GivingBackAFreeRangeStops) {
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   Asic::RangeIndexAllocator a;
   a.indexCountIs(10);
   a.rangeNew(4);
   EXPECT_DEATH(a.rangeDel(2, 4), "is already partly free");
}

// Random takes, claims and gives agree with a plain bitmap of used indices.
TEST(RangeIndexAllocator, RandomUseMatchesABitmap) {
   Asic::RangeIndexAllocator a;
   a.indexCountIs(256);
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
