#include <cstdlib>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Flit/Flit.h"
#include "Orb/Trace.h"

namespace {

// Highest enabled level, -1 when off.
int levelOf(const Orb::TraceHandle& h,
            bool (Orb::TraceHandle::*on)(uint32_t) const = &Orb::TraceHandle::enabled) {
   for (int level = 9; level >= 0; --level) {
      if ((h.*on)(uint32_t(level))) return level;
   }
   return -1;
}
int flitLevel(const Orb::TraceHandle& h) { return levelOf(h, &Orb::TraceHandle::flitEnabled); }

class TraceTest : public ::testing::Test {
protected:
   void SetUp() override {
      textConfig_ = Orb::Trace::config();
      flitConfig_ = Flit::config();
      Orb::Trace::configIs("");
      Flit::configIs("");
      Flit::clear();
   }
   void TearDown() override {
      Orb::Trace::configIs(textConfig_);
      Flit::configIs(flitConfig_);
      Flit::capacityIs(Flit::defaultCapacity);
      Flit::clear();
   }

private:
   std::string textConfig_, flitConfig_;
};

Orb::TraceHandle nsA{"Ns::A"};
Orb::TraceHandle nsAB{"Ns::AB"};
Orb::TraceHandle nsB{"Ns::B"};
Orb::TraceHandle otherA{"Other::A"};

TEST_F(TraceTest, ConfigurationMatching) {
   struct Case {
      const char* config;
      int a, ab, b, other;
   };
   const Case cases[] = {
       {"", -1, -1, -1, -1},
       {"Ns::A/5", 5, -1, -1, -1},
       {"Ns::A", 9, -1, -1, -1},
       {"Ns::A/0", 0, -1, -1, -1},
       {"Ns::A*/3", 3, 3, -1, -1},
       {"Ns::*/3", 3, 3, 3, -1},
       {"*/2", 2, 2, 2, 2},
       {"*/2,Ns::A/7", 7, 2, 2, 2},
       {"Ns::A/7,*/2", 2, 2, 2, 2},
       {"Ns::*/6,Ns::AB/1", 6, 1, 6, -1},
       {" Ns::A/4 , ,Ns::B/1,", 4, -1, 1, -1},
       {"Ns::A/x,Ns::B/3", -1, -1, 3, -1},
       {"Ns::A/10,N*::B/3,/4,Ns::A/,Other::A/1/2,Ns:: A/1", -1, -1, -1, -1},
   };
   ::testing::internal::CaptureStderr();
   for (const Case& c : cases) {
      Orb::Trace::configIs(c.config);
      EXPECT_EQ(Orb::Trace::config(), c.config);
      EXPECT_EQ(levelOf(nsA), c.a) << c.config;
      EXPECT_EQ(levelOf(nsAB), c.ab) << c.config;
      EXPECT_EQ(levelOf(nsB), c.b) << c.config;
      EXPECT_EQ(levelOf(otherA), c.other) << c.config;
      // The ring's switch is separate.
      EXPECT_EQ(flitLevel(nsA), -1) << c.config;
   }
   ::testing::internal::GetCapturedStderr();
}

TEST_F(TraceTest, BadItemsReportedOncePerProcess) {
   ::testing::internal::CaptureStderr();
   Orb::Trace::configIs("Once*Bad/1,Good/2,Once/12");
   Orb::Trace::configIs("Once*Bad/1");
   Flit::configIs("Once*Bad/1");
   EXPECT_EQ(::testing::internal::GetCapturedStderr(),
             "L3TUNNEL_TRACE: ignoring bad item 'Once*Bad/1'\n"
             "L3TUNNEL_TRACE: ignoring bad item 'Once/12'\n"
             "L3TUNNEL_FLIT: ignoring bad item 'Once*Bad/1'\n");
}

// Not a fixture test: the fixture's set-up would configure the child too.
TEST(TraceEnvironment, ReadAtFirstUse) {
   // A fresh process is needed: the environment is read once.
   GTEST_FLAG_SET(death_test_style, "threadsafe");
   setenv("L3TUNNEL_TRACE", "Ns::*/4,Ns::B/1", 1);
   setenv("L3TUNNEL_FLIT", "Ns::A/6", 1);
   const bool ok = levelOf(nsA) == 4 && levelOf(nsB) == 1 && flitLevel(nsA) == 6 &&
                   flitLevel(nsB) == -1 && Orb::Trace::config() == "Ns::*/4,Ns::B/1";
   EXPECT_EXIT(std::exit(ok ? 0 : 1), ::testing::ExitedWithCode(0), "");
   unsetenv("L3TUNNEL_TRACE");
   unsetenv("L3TUNNEL_FLIT");
   GTEST_FLAG_SET(death_test_style, "fast");
}

int evaluations = 0;
int counted(int v) {
   ++evaluations;
   return v;
}

TEST_F(TraceTest, DisabledPathEvaluatesNothing) {
   evaluations = 0;
   Orb::TraceCapture capture("Ns::A/3");
   ORB_TRACE(nsA, 4, "op") << counted(1);
   ORB_TRACE(nsB, 0, "op") << counted(2);
   FLIT(nsA, 0, "{}", counted(3));
   EXPECT_EQ(evaluations, 0);
   EXPECT_TRUE(capture.lines().empty());
   ORB_TRACE(nsA, 3, "op") << counted(4);
   EXPECT_EQ(evaluations, 1);
}

TEST_F(TraceTest, CaptureRestoresConfigAndSink) {
   std::vector<std::string> outer;
   Orb::Trace::sinkIs([&](std::string_view line) { outer.emplace_back(line); });
   Orb::Trace::configIs("Ns::A/1");
   {
      Orb::TraceCapture capture("Ns::B/1");
      ORB_TRACE(nsA, 1, "hidden");
      ORB_TRACE(nsB, 1, "inner") << " : Writing entry : " << 42 << ", at key : "
                                 << "k1";
      EXPECT_EQ(capture.lines(),
                std::vector<std::string>{"Ns::B: inner : Writing entry : 42, at key : k1"});
   }
   EXPECT_EQ(Orb::Trace::config(), "Ns::A/1");
   ORB_TRACE(nsB, 1, "hidden");
   ORB_TRACE(nsA, 1, "outer");
   Orb::Trace::sinkIs(nullptr);
   EXPECT_EQ(outer, std::vector<std::string>{"Ns::A: outer"});
}

TEST_F(TraceTest, FlitFormatSubstitution) {
   const std::string fits(sizeof(Flit::Record::text) - 1, 'x');
   const std::string tooLong(300, 'y');
   struct Case {
      std::function<void()> record;
      std::string line;
   };
   const Case cases[] = {
       {[] { Flit::record("{}: {} entryState: {}", "T", "op", 3); }, "T: op entryState: 3"},
       {[] { Flit::record("{} and {}", "x"); }, "x and {}"},
       {[] { Flit::record("no braces", "a", 7); }, "no braces | a | 7"},
       {[] { Flit::record("{}{}|{", 1, -2, 3); }, "1-2|{ | 3"},
       {[] { Flit::record("[{}]", ""); }, "[]"},
       {[] { Flit::record("{ }{}", 1.5); }, "{ }1.5"},
       {[&] { Flit::record("{}", fits); }, fits},
       {[&] { Flit::record("{} {}", tooLong, "b"); },
        std::string(sizeof(Flit::Record::text) - 1, 'y') + " {} [truncated]"},
       {[&] { Flit::record("{} {}", fits, "b"); }, fits + " {} [truncated]"},
   };
   for (const Case& c : cases) {
      Flit::clear();
      c.record();
      EXPECT_EQ(Flit::records(), std::vector<std::string>{c.line});
   }
}

TEST_F(TraceTest, FlitSwitchedPerNameAndLevel) {
   Flit::configIs("Ns::A/4,Ns::B/0");
   EXPECT_EQ(Flit::config(), "Ns::A/4,Ns::B/0");
   FLIT(nsA, 4, "{}: {}", nsA.name(), "kept");
   FLIT(nsA, 5, "{}: {}", nsA.name(), "dropped");
   FLIT(nsB, 0, "{}: {}", nsB.name(), "kept");
   FLIT(nsB, 1, "{}: {}", nsB.name(), "dropped");
   FLIT(nsAB, 0, "{}: {}", nsAB.name(), "dropped");
   EXPECT_EQ(Flit::records(), (std::vector<std::string>{"Ns::A: kept", "Ns::B: kept"}));
   EXPECT_FALSE(nsA.enabled(0));
}

}  // namespace
