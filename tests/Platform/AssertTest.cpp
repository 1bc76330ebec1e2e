// The abort text itself is checked where the library's own asserts fire; here
// only what no failing assert shows: a passing one evaluates its condition
// once and its message never.
#include <gtest/gtest.h>

#include "Orb/Assert.h"

namespace {

int evaluations = 0;
int counted() { return ++evaluations; }

TEST(AssertTest, ConditionOnceMessageNever) {
   evaluations = 0;
   ORB_ASSERT(counted() == 1) << counted() << counted();
   ORB_ASSERT(true) << counted();
   EXPECT_EQ(evaluations, 1);
}

}  // namespace
