#include <csignal>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "Orb/Assert.h"

namespace {

struct EntryHandle {
   static int referenceOnly() { return 1; }
   int entryType() const { return 2; }
};

// Each check returns the line of its assert when `fail` is false and stops the
// process there when it is true.
int referenceOnlyCheck(bool fail) {
   const EntryHandle handle;
   const EntryHandle* eh = &handle;
   if (!fail) return __LINE__ + 1;
   ORB_ASSERT(eh->entryType() == EntryHandle::referenceOnly()) << "unexpected entryType " << 7;
   return 0;
}

int noMessageCheck(bool fail) {
   const int existingKey = 3, newKey = 3;
   if (!fail) return __LINE__ + 1;
   ORB_ASSERT(existingKey != newKey);
   return 0;
}

int quotedLiteralCheck(bool fail) {
   if (!fail) return __LINE__ + 1;
   ORB_ASSERT(0 && "Couldn't install reserved tunnel next hop drop entry");
   return 0;
}

std::string regexEscaped(const std::string& text) {
   std::string out;
   for (char c : text) {
      if (std::string_view("\\^$.|?*+()[]{}").find(c) != std::string_view::npos) out += '\\';
      out += c;
   }
   return out;
}

TEST(AssertDeathTest, PrintsExpressionMessageAndPlace) {
   struct Case {
      std::function<int(bool)> check;
      std::string text;
   };
   const Case cases[] = {
       {referenceOnlyCheck,
        "assertion \"eh->entryType() == EntryHandle::referenceOnly()\" failed: unexpected "
        "entryType 7"},
       {noMessageCheck, "assertion \"existingKey != newKey\" failed"},
       {quotedLiteralCheck,
        "assertion \"0 && \"Couldn't install reserved tunnel next hop drop entry\"\" failed"},
   };
   for (const Case& c : cases) {
      const std::string line = c.text + " (AssertTest:" + std::to_string(c.check(false)) + ")\n";
      EXPECT_EXIT(c.check(true), ::testing::KilledBySignal(SIGABRT), regexEscaped(line));
   }
}

TEST(AssertDeathTest, AssertFailStripsPathAndExtension) {
   EXPECT_EXIT(Orb::assertFail("table", "no table", "/src/AsicSwTable/SwTableAccessor.h", 12),
               ::testing::KilledBySignal(SIGABRT),
               regexEscaped("assertion \"table\" failed: no table (SwTableAccessor:12)\n"));
   EXPECT_EXIT(Orb::assertFail("0", "", "Plain", 3), ::testing::KilledBySignal(SIGABRT),
               regexEscaped("assertion \"0\" failed (Plain:3)\n"));
}

int evaluations = 0;
int counted() { return ++evaluations; }

TEST(AssertTest, ConditionOnceMessageNever) {
   evaluations = 0;
   ORB_ASSERT(counted() == 1) << counted() << counted();
   ORB_ASSERT(true) << counted();
   EXPECT_EQ(evaluations, 1);
}

}  // namespace
