// The restart sweep across processes, through the installed l3tunnel and its
// state directory: process 1 runs an example's steps 1..k and saves the chip,
// process 2 recovers, replays the groups live after step k and runs the rest.
// Process 2 must end with the rows, at the same indices, of one process that
// ran the same configuration without a restart, and change rows only where
// that process did. Every example runs with both interface-table toggles.
#include <gtest/gtest.h>

#include <cctype>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "support/Installed.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;
using test::fileText;

// The groups that hold a block after the first `k` steps, with their vias.
std::map<std::string, Json> liveAfter(const Json& steps, size_t k) {
   std::map<std::string, Json> live;
   for (size_t i = 0; i < k; ++i) {
      const Json& s = steps[i];
      const std::string op = s.at("op");
      if (op == "program") live[s.at("group")] = s.at("vias");
      if (op == "release") live.erase(s.at("group").get<std::string>());
      if (op == "restart") live.clear();
   }
   return live;
}

// Row changes per table made by step `i` of an --each-step run.
std::map<std::string, uint32_t> changesOfStep(const Json& perStep, size_t i) {
   std::map<std::string, uint32_t> out;
   for (const auto& [table, s] : perStep.at(i).at("stats").items()) {
      const uint32_t before =
          i ? perStep.at(i - 1).at("stats").at(table).at("changes").get<uint32_t>() : 0;
      out[table] = s.at("changes").get<uint32_t>() - before;
   }
   return out;
}

class ProcessRestartSweep : public ::testing::TestWithParam<std::tuple<std::string, bool>> {
protected:
   void SetUp() override { ASSERT_FALSE(scratch_.path.empty()); }

   // Runs the installed program on `scenario` with --json --each-step and the
   // extra arguments; the per-step snapshots, or null when it failed.
   Json run(const std::string& name, const Json& scenario, std::vector<std::string> extra = {}) {
      const fs::path file = dir_ / (name + ".json");
      std::ofstream(file) << scenario.dump();
      std::vector<std::string> args{L3TUNNEL_INSTALLED, "run", file.string(), "--json",
                                    "--each-step"};
      args.insert(args.end(), extra.begin(), extra.end());
      const test::Outcome r = test::runProgram(dir_, args);
      EXPECT_EQ(r.code, 0) << name << ": " << r.err;
      if (r.code != 0) return Json();
      Json steps = Json::array();  // one line per step
      std::istringstream lines(r.out);
      for (std::string line; std::getline(lines, line);) steps.push_back(Json::parse(line));
      return steps;
   }

   test::ScratchDir scratch_{"l3tunnel-sweep"};
   const fs::path& dir_ = scratch_.path;
};

TEST_P(ProcessRestartSweep, SecondProcessEndsAsOneProcessWouldAndItsReplayChangesNothing) {
   const auto& [file, toggle] = GetParam();
   Json doc = Json::parse(fileText(file));
   doc["toggles"]["CommonIifOifIndex"] = toggle;
   const Json steps = doc.at("steps");
   const size_t n = steps.size();
   for (size_t k = 1; k < n && !HasFailure(); ++k) {
      const std::string where = fs::path(file).filename().string() + ", toggle " +
                                (toggle ? "on" : "off") + ", restart after step " +
                                std::to_string(k) + ": ";
      Json replay = Json::array();
      for (const auto& [group, vias] : liveAfter(steps, k))
         replay.push_back({{"op", "program"}, {"group", group}, {"vias", vias}});
      const size_t r = replay.size();
      Json first = doc, second = doc, whole = doc;
      first["steps"] = Json(steps.begin(), steps.begin() + long(k));
      second["steps"] = replay;
      for (size_t i = k; i < n; ++i) second["steps"].push_back(steps[i]);
      whole["steps"] = first["steps"];
      for (const auto& s : second["steps"]) whole["steps"].push_back(s);

      // A state directory the program has to make, parents and all.
      const std::string state = (dir_ / "state" / std::to_string(k)).string();
      const Json one = run("whole", whole);
      const Json before = run("first", first, {"--state-dir", state});
      ASSERT_TRUE(fs::exists(fs::path(state) / "chip.state")) << where;
      const Json after = run("second", second, {"--state-dir", state});
      ASSERT_FALSE(one.is_null() || before.is_null() || after.is_null()) << where;
      ASSERT_EQ(after.size(), r + n - k) << where;

      EXPECT_EQ(before.back().at("hardware"), one.at(k - 1).at("hardware"))
          << where << "the first process ends elsewhere than the single one at step " << k;
      // A new process counts from zero: each of its steps' changes is the
      // single process's change for the same step. So a replay changes rows
      // only for a group the chip had no room for, as in the single process.
      for (size_t j = 0; j < after.size(); ++j)
         EXPECT_EQ(changesOfStep(after, j), changesOfStep(one, k + j))
             << where << (j < r ? "replay step " : "step ") << j + 1 << " of the second process";
      EXPECT_EQ(after.back().at("hardware"), one.back().at("hardware")) << where;
      EXPECT_EQ(after.back().at("groups"), one.back().at("groups")) << where;
   }
}

INSTANTIATE_TEST_SUITE_P(
    Examples, ProcessRestartSweep,
    ::testing::Combine(::testing::ValuesIn(test::sweptScenarios(L3TUNNEL_EXAMPLES)),
                       ::testing::Bool()),
    [](const auto& info) {
       std::string name = fs::path(std::get<0>(info.param)).stem().string() + "_" +
                          std::to_string(info.index / 2) +
                          (std::get<1>(info.param) ? "_toggle_on" : "_toggle_off");
       for (char& c : name)
          if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
       return name;
    });

}  // namespace
