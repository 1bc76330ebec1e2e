#include <gtest/gtest.h>

#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "Brio/EventLoop.h"
#include "Brio/RQueue.h"

namespace {

// A leak or a double destruction shows in `live`.
struct Live {
   static inline int32_t live = 0;
   int32_t v;
   Live(int32_t x = -1) : v(x) { ++live; }
   Live(const Live& o) : v(o.v) { ++live; }
   Live& operator=(const Live&) = default;
   ~Live() { --live; }
};
using Queue = Brio::RQueue<Live>;

std::vector<uint32_t> capacities(const Queue& q) {
   std::vector<uint32_t> out;
   q.forEachBlockCapacity([&out](uint32_t c) { out.push_back(c); });
   return out;
}

// 2, 4, ... 8192 (16382 elements), then `more` blocks of 8192.
std::vector<uint32_t> growth(uint32_t more) {
   std::vector<uint32_t> out;
   for (uint32_t c = 2; c <= 8192; c *= 2) out.push_back(c);
   out.resize(out.size() + more, 8192);
   return out;
}

TEST(RQueue, BlocksAndPositionsFollowAModel) {
   const struct {
      uint32_t enq, deq, enqAgain;
      std::vector<uint32_t> caps;
      uint32_t first;
   } cases[] = {{3, 0, 0, {2, 4}, 0},
                {3, 2, 0, {4}, 2},
                {3, 3, 0, {}, 0},
                {3, 3, 1, {2}, 0},
                {7, 6, 1, {8}, 6},
                {14, 6, 1, {8, 16}, 6},
                {32767, 0, 0, growth(3), 0},
                {32767, 32766, 0, {8192}, 32766}};
   for (const auto& c : cases) {
      SCOPED_TRACE(::testing::Message() << c.enq << " " << c.deq << " " << c.enqAgain);
      {
         Queue q;
         std::deque<int32_t> model;
         int32_t next = 0;
         auto push = [&](uint32_t n) {
            for (uint32_t i = 0; i < n; ++i) {
               model.push_back(next++);
               const uint32_t pos = q.enq(Live(model.back()));
               ASSERT_EQ(pos, q.endPosition() - 1);
            }
         };
         push(c.enq);
         for (uint32_t i = 0; i < c.deq; ++i) q.deq(), model.pop_front();
         push(c.enqAgain);
         EXPECT_EQ(capacities(q), c.caps);
         EXPECT_EQ(q.firstPosition(), c.first);
         ASSERT_EQ(q.size(), model.size());
         EXPECT_EQ(Live::live, int32_t(model.size()));
         for (uint32_t i = 0; i < model.size(); ++i) ASSERT_EQ(q.at(c.first + i).v, model[i]);
      }
      EXPECT_EQ(Live::live, 0);
   }
}

TEST(EventLoop, RunsInOrderAndNests) {
   Brio::EventLoop loop;
   std::string trace;
   auto note = [&](const char* s) { return [&trace, s] { trace += s; }; };
   EXPECT_FALSE(loop.runOne());
   loop.post([&] { trace += "a(", loop.post(note("f")), loop.runOne(), trace += ")"; });
   loop.post(note("b"));
   loop.post([&] { trace += "c(", loop.runUntilIdle(), trace += ")"; });
   loop.post(note("e"));
   EXPECT_EQ(loop.pending(), 4u);
   loop.runUntilIdle();
   EXPECT_EQ(trace, "a(b)c(ef)");
   loop.post([&] { trace += "x", loop.post(note("y")); });
   EXPECT_EQ(loop.runUntilIdle(), 2u);
   loop.post(note("z"));
   loop.clear();
   EXPECT_FALSE(loop.runOne());
   EXPECT_EQ(trace, "a(b)c(ef)xy");
}

}  // namespace
