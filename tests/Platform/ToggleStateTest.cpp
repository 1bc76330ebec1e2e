#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "Orb/Trace.h"
#include "Toggle/ToggleState.h"
#include "support/Refusal.h"

namespace {

class ToggleState : public ::testing::Test {
protected:
   void SetUp() override {
      dir = std::filesystem::temp_directory_path() /
            ("toggles-" + std::to_string(::getpid()) + "-" +
             ::testing::UnitTest::GetInstance()->current_test_info()->name());
      std::filesystem::create_directories(dir);
      setenv(toggleDirVariable, dir.c_str(), 1);
   }
   void TearDown() override {
      unsetenv(toggleDirVariable);
      std::filesystem::remove_all(dir);
   }
   void fileIs(const std::string& text) { std::ofstream(dir / "MeridL3.json") << text; }
   uint32_t state(bool def) { return getToggleState("CommonIifOifIndex", "MeridL3.json", def); }
   std::filesystem::path dir;
};

TEST_F(ToggleState, FileDecidesAndAbsenceGivesTheDefault) {
   struct Case {
      const char* text;  // null: no file
      bool defaultState;
      uint32_t expected;
   };
   for (const Case& c : {Case{nullptr, true, 1}, Case{nullptr, false, 0},
                         Case{"{\"CommonIifOifIndex\": false}", true, 0},
                         Case{" {\n \"Other\": true, \"CommonIifOifIndex\": true }\n", false, 1},
                         Case{"{\"CommonIifOifIndex\": 6}", true, 6},
                         Case{"{\"Other\": false}", true, 1}, Case{"{}", false, 0}}) {
      std::filesystem::remove(dir / "MeridL3.json");
      if (c.text) fileIs(c.text);
      EXPECT_EQ(state(c.defaultState), c.expected) << (c.text ? c.text : "no file");
   }
   unsetenv(toggleDirVariable);
   fileIs("{\"CommonIifOifIndex\": false}");
   EXPECT_EQ(state(true), 1u) << "without the variable no file is read";
}

TEST_F(ToggleState, MalformedFileIsRefusedNamingIt) {
   struct Case {
      const char* text;
      const char* reason;
   };
   for (const Case& c : {Case{"", "expected \"{\" at position 0"},
                         Case{"{\"CommonIifOifIndex\": yes}", "expected a number at position 22"},
                         Case{"{\"CommonIifOifIndex\" false}", "expected \":\" at position 21"},
                         Case{"{\"CommonIifOifIndex\": true", "expected \"}\" at position 26"},
                         Case{"{\"a\": 1} x", "expected nothing after the object at position 9"},
                         Case{"{\"CommonIifOifIndex\": 99999999999}", "out of range"}}) {
      fileIs(c.text);
      const std::string what = test::refusal<std::invalid_argument>([&] { state(true); });
      EXPECT_NE(what.find((dir / "MeridL3.json").string() + ": "), std::string::npos) << what;
      EXPECT_NE(what.find(c.reason), std::string::npos) << what;
   }
}

// A name the code base does not read is most likely misspelt: the file still
// counts, and the trace says which name in which file.
TEST_F(ToggleState, UnknownNamesAreReportedOnTheTrace) {
   const std::string path = (dir / "MeridL3.json").string();
   struct Case {
      const char* text;
      uint32_t expected;
      std::vector<std::string> lines;
   };
   const std::string prefix = "Toggle::ToggleState: getToggleState : " + path;
   for (const Case& c :
        {Case{"{\"CommonIifOifIndex\": false}", 0, {}},
         Case{"{\"CommonIifOifIdx\": false}",
              1,
              {prefix + ": unknown toggle \"CommonIifOifIdx\" (known: CommonIifOifIndex)"}},
         Case{"{\"A\": 1, \"CommonIifOifIndex\": false, \"B\": true}",
              0,
              {prefix + ": unknown toggle \"A\" (known: CommonIifOifIndex)",
               prefix + ": unknown toggle \"B\" (known: CommonIifOifIndex)"}}}) {
      fileIs(c.text);
      Orb::TraceCapture capture("Toggle::*/0");
      EXPECT_EQ(state(true), c.expected) << c.text;
      EXPECT_EQ(capture.lines(), c.lines) << c.text;
   }
   fileIs("{\"CommonIifOifIdx\": false}");
   Orb::TraceCapture off("");
   state(true);
   EXPECT_TRUE(off.lines().empty()) << "the warning is part of the trace, off by default";
}

}  // namespace
