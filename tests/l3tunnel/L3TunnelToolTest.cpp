// The installed l3tunnel program, run on scenarios written per test: what its
// JSON says about the tables, the chip and the groups, how it restarts within
// a run and across runs, and how it refuses bad input and usage.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "support/Installed.h"

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

constexpr const char* binary = L3TUNNEL_INSTALLED;
constexpr const char* demo = TUNNEL_DEMO_INSTALLED;

using test::fileText;
using test::Outcome;

// One document per line: a run prints one, --each-step one per step (an
// array here).
Json jsonOf(const Outcome& r, bool lines) {
   if (!lines) return Json::parse(r.out);
   Json all = Json::array();
   std::istringstream in(r.out);
   for (std::string line; std::getline(in, line);) all.push_back(Json::parse(line));
   return all;
}

// Scenario pieces. Every via goes from 10.0.0.1; underlay groups 1 to 3 exist.
Json via(const std::string& dst, uint32_t weight = 1, uint32_t adj = 1) {
   return {{"nhEntryType", "nextHopArpResolved"},
           {"srcIpAddr", "10.0.0.1"},
           {"dstIpAddr", dst},
           {"weight", weight},
           {"underlayAdjId", {{"adjId", adj}}}};
}
// Vectors, not Json, so that a single element is not taken for the whole.
Json program(const std::string& group, const std::vector<Json>& vias) {
   return {{"op", "program"}, {"group", group}, {"vias", vias}};
}
Json release(const std::string& group) { return {{"op", "release"}, {"group", group}}; }
Json scenario(const std::vector<Json>& steps, bool commonIifOifIndex = true) {
   return {{"toggles", {{"CommonIifOifIndex", commonIifOifIndex}}},
           {"underlay", Json::array({{{"adjId", 1}}, {{"adjId", 2}}, {{"adjId", 3}}})},
           {"steps", steps}};
}

// The entry of a tunnel-keyed table for the tunnel to `dst`.
const Json& entryTo(const Json& snap, const std::string& table, const std::string& dst) {
   for (const auto& e : snap.at("tables").at(table).at("entries"))
      if (e.at("key").is_object() && e.at("key").at("dstIpAddr") == dst) return e;
   throw std::runtime_error(table + " has no entry for " + dst);
}

// The text lines of a human run that start with `prefix` after blanks.
std::vector<std::string> linesStarting(const std::string& text, const std::string& prefix) {
   std::vector<std::string> out;
   std::istringstream in(text);
   for (std::string line; std::getline(in, line);) {
      const size_t at = line.find_first_not_of(' ');
      if (at != std::string::npos && line.compare(at, prefix.size(), prefix) == 0)
         out.push_back(line.substr(at));
   }
   return out;
}

// Refused: exit code `code`, nothing on standard output and one line on
// standard error that starts with `start` (and is `start` when it ends
// the line).
void expectRefused(const Outcome& r, const std::string& start, int code = 2) {
   EXPECT_EQ(r.code, code) << r.err;
   EXPECT_TRUE(r.out.empty()) << r.out;
   EXPECT_TRUE(r.err.starts_with(start)) << r.err;
   EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
}

class L3TunnelTool : public ::testing::Test {
protected:
   void SetUp() override { ASSERT_FALSE(scratch_.path.empty()); }

   std::string write(const std::string& name, const std::string& text) {
      const fs::path p = dir_ / name;
      std::ofstream(p) << text;
      return p.string();
   }
   std::string scenarioFile(const Json& s, const std::string& name = "s.json") {
      return write(name, s.dump());
   }

   Outcome run(const std::vector<std::string>& args,
               const std::vector<std::pair<std::string, std::string>>& env = {},
               const std::function<void()>& inChild = {}) {
      std::vector<std::string> argv{binary};
      argv.insert(argv.end(), args.begin(), args.end());
      return test::runProgram(dir_, argv, env, inChild);
   }

   // Runs the program on a terminal, TERM and NO_COLOR unset but for `env`;
   // returns what the terminal showed.
   std::string runOnTerminal(const std::vector<std::string>& args,
                             const std::vector<std::pair<std::string, std::string>>& env) {
      int terminal = -1;
      const pid_t pid = forkpty(&terminal, nullptr, nullptr, nullptr);
      if (pid == 0) {
         unsetenv("TERM");
         unsetenv("NO_COLOR");
         for (const auto& [k, v] : env) setenv(k.c_str(), v.c_str(), 1);
         std::vector<char*> cargs{const_cast<char*>(binary)};
         for (const auto& a : args) cargs.push_back(const_cast<char*>(a.c_str()));
         cargs.push_back(nullptr);
         execv(cargs[0], cargs.data());
         _exit(127);
      }
      std::string shown;
      char buffer[4096];
      // Read until the program's side closes (EIO), or the output would be lost.
      for (ssize_t n; (n = read(terminal, buffer, sizeof buffer)) > 0;) shown.append(buffer, n);
      close(terminal);
      int status = 0;
      waitpid(pid, &status, 0);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << shown;
      return shown;
   }

   // Runs the scenario with --json and the extra arguments; expects success.
   Json runJson(const Json& s, std::vector<std::string> extra = {}) {
      std::vector<std::string> args{"run", scenarioFile(s, "scenario.json"), "--json"};
      args.insert(args.end(), extra.begin(), extra.end());
      const Outcome r = run(args);
      EXPECT_EQ(r.code, 0) << r.err;
      const bool lines = std::find(extra.begin(), extra.end(), "--each-step") != extra.end();
      return r.code == 0 ? jsonOf(r, lines) : Json();
   }

   test::ScratchDir scratch_{"l3tunnel-test"};
   const fs::path& dir_ = scratch_.path;
};

// ---- what the tables hold ----------------------------------------------------

class ToggleTest : public L3TunnelTool, public ::testing::WithParamInterface<bool> {};

// Restarts within a run and across runs (--state-dir) are the restart
// sweeps' (tests/Sweep), over every example and both toggles.
INSTANTIATE_TEST_SUITE_P(CommonIifOifIndex, ToggleTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "On" : "Off"; });

// The examples run in the sweeps; the bad one is refused as documented, with
// --json as one object a program can read.
TEST_F(L3TunnelTool, TheBadExampleIsRefusedAsDocumented) {
   const std::string bad = std::string(L3TUNNEL_EXAMPLES) + "/bad.json";
   expectRefused(
       run({"run", bad}),
       "l3tunnel: " + bad + ": step 3: vias[1].ttl: -1 is not an unsigned 32-bit number\n");
   const Outcome r = run({"run", bad, "--json"});
   expectRefused(r, "{");
   EXPECT_EQ(Json::parse(r.err), Json({{"error", "-1 is not an unsigned 32-bit number"},
                                       {"file", bad},
                                       {"step", 3},
                                       {"field", "vias[1].ttl"}}));
}

// The demo reads the caller's toggle file and refuses a bad one in one line;
// a run holds to its scenario's toggles and leaves no private copy behind.
TEST_F(L3TunnelTool, TheCallersTogglesAreTheDemosNotARunsOnes) {
   fs::create_directories(dir_ / "toggles");
   fs::create_directories(dir_ / "tmp");
   const std::string toggles = (dir_ / "toggles").string();
   const std::vector<std::pair<std::string, std::string>> env{{"L3TUNNEL_TOGGLE_DIR", toggles},
                                                              {"TMPDIR", (dir_ / "tmp").string()}};
   write("toggles/MeridL3.json", "{\"CommonIifOifIndex\": false}");
   const Outcome off = test::runProgram(dir_, {demo}, env);
   EXPECT_EQ(off.code, 0) << off.err;
   EXPECT_TRUE(off.out.starts_with("CommonIifOifIndex is off")) << off.out;
   Json s = scenario({});
   s.erase("toggles");
   const Outcome r = run({"run", scenarioFile(s), "--json"}, env);
   ASSERT_EQ(r.code, 0) << r.err;
   EXPECT_TRUE(jsonOf(r, false).at("tables").contains("L3InterfaceTable"));
   EXPECT_TRUE(fs::is_empty(dir_ / "tmp"));

   write("toggles/MeridL3.json", "{\"CommonIifOifIndex\": maybe}");
   expectRefused(
       test::runProgram(dir_, {demo}, env),
       "tunnel_demo: toggle file " + toggles + "/MeridL3.json: expected a number at position 22\n");
}

// ---- refusals ------------------------------------------------------------------

struct BadInput {
   const char* name;
   std::string scenario;
   const char* message;  // what follows "l3tunnel: FILE: "
};

std::string steps(const std::string& list) { return R"({"steps": [)" + list + "]}"; }
std::string programOf(const std::string& viaList) {
   return R"({"op": "program", "group": "g", "vias": [)" + viaList + "]}";
}
// A via from `src` to `dst`, with the `more` fields.
std::string viaBetween(const std::string& src, const std::string& dst,
                       const std::string& more = "") {
   return R"({"nhEntryType": "nextHopArpResolved", "srcIpAddr": ")" + src + R"(", "dstIpAddr": ")" +
          dst + R"(", "underlayAdjId": {"adjId": 1})" + (more.empty() ? "" : ", " + more) + "}";
}
std::string viaWith(const std::string& more) { return viaBetween("10.0.0.1", "10.0.0.2", more); }
const std::string goodVia = viaWith("");

const std::vector<BadInput> badInputs{
    {"MalformedJson", R"({"steps": [)", "malformed JSON: parse error at line"},
    // Found by fuzzing: both once crashed or escaped with the wrong exit code.
    {"NestedTooDeep", R"({"chip": )" + std::string(10000, '[') + std::string(10000, ']') + "}",
     "nested deeper than 64 levels"},
    {"NumberOutOfRange", steps(programOf(viaWith(R"("ttl": 1e999)"))), "malformed JSON: "},
    {"UnknownViaField", steps(programOf(viaWith(R"("mtu": 9000)"))),
     "step 1: vias[0].mtu: unknown field"},
    {"UnknownOp", steps(R"({"op": "flush"})"), "step 1: op: \"flush\" is not an op"},
    {"UnknownOpField", steps(R"({"op": "restart", "group": "g"})"), "step 1: group: unknown field"},
    {"BadAddress", steps(programOf(viaBetween("10.0.0.1", "10.0.0.300"))),
     "step 1: vias[0].dstIpAddr: \"10.0.0.300\" is not an IPv4 or IPv6 address"},
    {"TooLargeNumber", steps(programOf(viaWith(R"("weight": 4294967296)"))),
     "step 1: vias[0].weight: 4294967296 is not an unsigned 32-bit number"},
    {"UnknownTable", R"({"chip": {"tableSizes": {"L3Nope": 8}}})",
     "chip.tableSizes.L3Nope: unknown table name"},
    {"TableTooLarge", R"({"chip": {"tableSizes": {"IngL3Iif": 65537}}})",
     "chip.tableSizes.IngL3Iif: 65537 rows"},
    {"UnknownToggle", R"({"toggles": {"FastPath": true}})", "toggles.FastPath: unknown toggle"},
    {"ReleaseAfterRestart",
     steps(programOf(goodVia) + R"(, {"op": "restart"}, {"op": "release", "group": "g"})"),
     "step 3: group: \"g\" holds no block to release"},
    {"MissingField", steps(R"({"op": "program", "group": "g"})"), "step 1: vias: missing"},
    {"ReservedDropKey", steps(programOf(viaBetween("0.0.0.0", "0.0.0.0"))),
     "step 1: vias[0]: 0.0.0.0 -> 0.0.0.0 is the reserved drop next hop's key"},
    {"UnsupportedNextHop", steps(programOf(R"({"nhEntryType": "nextHopGlean"})")),
     "step 1: vias[0].nhEntryType: \"nextHopGlean\" is not nextHopArpResolved or nextHopDrop"},
    // A key given twice is refused wherever it is, rather than the last one winning.
    {"DuplicateTopKey", R"({"steps": [{"op": "restart"}], "steps": []})",
     "duplicate key \"steps\""},
    {"DuplicateViaKey", steps(programOf(goodVia + "," + viaWith(R"("ttl": -5, "ttl": 64)"))),
     "step 1: vias[1]: duplicate key \"ttl\""},
    {"DuplicateStepKey", steps(R"({"op": "restart"}, {"op": "restart", "op": "reconcile"})"),
     "step 2: duplicate key \"op\""},
    {"DuplicateUnderlay", R"({"underlay": [{"adjId": 2}, {"adjId": 1}, {"adjId": 2, "type": 1}]})",
     "underlay[2]: adjacency 2 of type 1 is listed twice"},
    // Refused where the reader meets it, before the rest is even read.
    {"UnknownTopFieldFirst", R"({"colour": 1, "steps": [{"op": )", "colour: unknown field"},
    // The chip can come after the steps it limits.
    {"TooManyMembersForALaterChip",
     R"({"steps": [)" + programOf(viaWith(R"("weight": 9)")) +
         R"(], "chip": {"tableSizes": {"L3EcmpMember0Table": 8}}})",
     "step 1: vias: the weights add up to 9 members, more than the 8 rows"},
    // Numbers are quoted as the file writes them.
    {"MinusZero", steps(programOf(viaWith(R"("ttl": -0)"))),
     "step 1: vias[0].ttl: -0 is not an unsigned 32-bit number"},
    {"Exponent", steps(programOf(viaWith(R"("weight": 1e3)"))),
     "step 1: vias[0].weight: 1e3 is not an unsigned 32-bit number"},
    {"BeyondSixtyFourBits", R"({"underlay": [{"adjId": 99999999999999999999}]})",
     "underlay[0].adjId: 99999999999999999999 is not an unsigned 32-bit number"},
    {"NumberForABoolean", R"({"chip": {"testChip": 1E0}})",
     "chip.testChip: 1E0 is not true or false"},
};

class BadInputTest : public L3TunnelTool, public ::testing::WithParamInterface<BadInput> {};

// Refused before anything runs: one line, exit code 2, no output, no state.
TEST_P(BadInputTest, IsRefusedWithOneLineNamingTheField) {
   const std::string file = write("bad.json", GetParam().scenario);
   const fs::path state = dir_ / "state";
   expectRefused(run({"run", file, "--state-dir", state.string()}),
                 "l3tunnel: " + file + ": " + GetParam().message);
   EXPECT_FALSE(fs::exists(state));
}

INSTANTIATE_TEST_SUITE_P(Scenario, BadInputTest, ::testing::ValuesIn(badInputs),
                         [](const auto& info) { return info.param.name; });

TEST_F(L3TunnelTool, UsageErrorsExitTwoAndHelpAndVersionZero) {
   const std::string file = write("s.json", "{}");
   for (const std::vector<std::string>& args :
        {std::vector<std::string>{"--help"}, std::vector<std::string>{"run", file, "--help"}}) {
      const Outcome r = run(args);
      EXPECT_EQ(r.code, 0) << r.err;
      EXPECT_TRUE(r.out.starts_with("usage: l3tunnel run")) << r.out;
      EXPECT_NE(r.out.find("A scenario is at most 64 MiB.\n"), std::string::npos);
   }
   const Outcome version = run({"--version"});
   EXPECT_EQ(version.code, 0);
   EXPECT_EQ(version.out, std::string("l3tunnel ") + L3TUNNEL_VERSION + "\n");

   // A scenario is at most 64 MiB: a larger file is refused from its size, a
   // device after one byte past the bound, neither read whole.
   const std::string atBound = (dir_ / "at.json").string(),
                     beyond = (dir_ / "beyond.json").string();
   for (const auto& [path, size] :
        {std::pair{atBound, 64u << 20}, std::pair{beyond, (64u << 20) + 1}}) {
      std::ofstream(path).close();
      fs::resize_file(path, size);  // zero bytes, and sparse
   }
   const std::string tooLarge = ": larger than 64 MiB, the largest scenario accepted\n";
   const std::string none = (dir_ / "none.json").string();
   // What standard error starts with.
   const std::vector<std::pair<std::vector<std::string>, std::string>> refused{
       {{}, "l3tunnel: missing command\nusage:"},
       {{"run"}, "l3tunnel: run: missing scenario file\nusage:"},
       {{"play", file}, "l3tunnel: unknown command 'play'\nusage:"},
       {{"run", file, "--colour"}, "l3tunnel: unknown option '--colour'\nusage:"},
       {{"run", file, "--state-dir"}, "l3tunnel: --state-dir needs a value\nusage:"},
       {{"run", file, file}, "l3tunnel: run: unexpected argument"},
       {{"run", file, "--tunnel", "10.0.0.1"}, "l3tunnel: --tunnel: '10.0.0.1' is not SRC,DST"},
       {{"run", none}, "l3tunnel: " + none},
       {{"run", beyond}, "l3tunnel: " + beyond + tooLarge},
       {{"run", "/dev/zero"}, "l3tunnel: /dev/zero" + tooLarge},
       {{"run", atBound}, "l3tunnel: " + atBound + ": malformed JSON: "},
   };
   for (const auto& [args, err] : refused) {
      const Outcome r = run(args);
      const std::string what = ::testing::PrintToString(args);
      EXPECT_EQ(r.code, 2) << what;
      EXPECT_TRUE(r.out.empty()) << what << r.out;
      EXPECT_TRUE(r.err.starts_with(err)) << what << r.err;
   }
}

// ---- the state directory -------------------------------------------------------

// `saved` with `from` replaced by `to` in the first row of `table` whose text
// or key holds it (a drop next hop's row aside), sealed again; `row` is set
// to that row's index. A row is "row INDEX" and three strings, each
// "LENGTH:TEXT"; saved rows hold no line ends of their own.
std::string savedWith(const std::string& saved, const std::string& table, const std::string& from,
                      const std::string& to, std::string& row) {
   std::istringstream in(saved);
   std::string line, body, current;
   while (std::getline(in, line) && !line.starts_with("end ")) {
      if (line.starts_with("table ")) current = line.substr(line.find(':') + 1);
      if (row.empty() && line.starts_with("row ") && current == "MeridL3Tunnel::" + table &&
          line.find("'drop': True") == std::string::npos && line.find(from) != std::string::npos) {
         row = line.substr(4, line.find(' ', 4) - 4);
         // The length of the string that holds `from` changes with it.
         const size_t f = line.find(from);
         size_t at = 5 + row.size(), colon = 0, n = 0;
         for (;; at = colon + 1 + n + 1) {
            colon = line.find(':', at);
            n = std::stoul(line.substr(at, colon - at));
            if (f < colon + 1 + n) break;
         }
         line.replace(f, from.size(), to);
         line.replace(at, colon - at, std::to_string(n + to.size() - from.size()));
      }
      body += line + "\n";
   }
   EXPECT_FALSE(row.empty()) << table << " has no row holding " << from;
   uint64_t h = 0xcbf29ce484222325ull;
   for (unsigned char c : body) h = (h ^ c) * 0x100000001b3ull;
   char sum[32];
   std::snprintf(sum, sizeof sum, "%016llx", static_cast<unsigned long long>(h));
   return body + "end " + sum + "\n";
}

// State that cannot be used is refused before any step, in one line naming
// it, and left as it was: a damaged file or one of another version, one whose
// rows name indices beyond the tables they name (its checksum good), one
// sized apart from the scenario, one that cannot be opened (never taken for
// no state and replaced), a directory that is no directory.
TEST_F(L3TunnelTool, UnusableStateIsRefusedAndKept) {
   const std::string input =
       scenarioFile(scenario({program("a", {via("10.9.0.1", 2), via("10.9.0.2")})}));
   const fs::path state = dir_ / "state", file = state / "chip.state";
   const std::vector<std::string> args{"run", input, "--state-dir", state.string()};
   ASSERT_EQ(run(args).code, 0);
   const std::string good = fileText(file);
   ASSERT_TRUE(good.starts_with("l3tunnel-chip-state 1\n")) << "the format's header changed";
   std::string flipped = good;
   flipped[good.size() / 2] ^= 0x01;
   struct Case {
      std::string what, text;
      std::string message;  // what the line starts with after "l3tunnel: FILE: "
   };
   // `from` replaced by `to` in a row of `table`; `message` follows "TABLE row N: ".
   auto naming = [&](const std::string& table, const std::string& from, const std::string& to,
                     const std::string& message) {
      std::string row;
      const std::string text = savedWith(good, table, from, to, row);
      return Case{to, text, table + " row " + row + ": " + message + "\n"};
   };
   const std::vector<Case> cases{
       {"garbage", "not a chip state\n", ""},
       {"other version", "l3tunnel-chip-state 2" + good.substr(good.find('\n')), ""},
       {"cut short", good.substr(0, good.size() / 2), ""},
       {"one bit flipped", flipped, ""},
       {"empty", "", ""},
       naming("L3TunnelIngL3NextHopTable", "'l3Oif1': 1,", "'l3Oif1': 4000000000,",
              "'l3Oif1' names 4000000000, outside IngL3Iif (4096 rows) and L3TunnelEgrL3Oif1Table "
              "(4096 rows)"),
       naming("L3TunnelIngL3NextHopTable", "'l3Oif1': 1,", "'l3Oif1': 99999999999,",
              "'l3Oif1' holds 99999999999, not an index"),
       // The refusal stays one line whatever the field holds.
       naming("L3TunnelIngL3NextHopTable", "'l3Oif1': 1,", "'l3Oif1': 1\x1b[31m\nend ,",
              "'l3Oif1' holds 1\\x1b[31m\\nend , not an index"),
       naming("L3EcmpMember0Table", "'nextHopIdx': 1,", "'nextHopIdx': 4096,",
              "'nextHopIdx' names 4096, outside L3TunnelIngL3NextHopTable (4096 rows)"),
       naming("L3EcmpMember0Table", "'underlayIdx': 0,", "'underlayIdx': 4096,",
              "'underlayIdx' names 4096, outside EcmpGroup1Table (4096 rows)"),
       naming("EgrL3Oif1Table", "'tunnelIdx': 1,", "'tunnelIdx': 70000,",
              "'tunnelIdx' names 70000, outside L3EgrL3Ipv4TunnelTable (4096 rows)"),
       naming("L3EcmpMember0Table", "RowKey(0, 0, 3)", "RowKey(0, 0, 5000)",
              "its key RowKey(0, 0, 5000) names rows 0 to 4999, outside L3EcmpMember0Table "
              "(4096 rows)"),
       naming("L3EcmpMember0Table", "RowKey(0, 0, 3)", "RowKey(1, 0, 3)",
              "its key RowKey(1, 0, 3) is not of this row"),
   };
   for (const Case& c : cases) {
      SCOPED_TRACE(c.what);
      write("state/chip.state", c.text);
      expectRefused(run(args), "l3tunnel: " + file.string() + ": " + c.message);
      EXPECT_EQ(fileText(file), c.text);
   }

   write("state/chip.state", good);
   Json smaller = scenario({});
   smaller["chip"] = {{"tableSizes", {{"L3EcmpMember0Table", 8}}}};
   expectRefused(run({"run", scenarioFile(smaller, "small.json"), "--state-dir", state.string()}),
                 "l3tunnel: " + file.string() +
                     ": L3EcmpMember0Table has 4096 rows there, the scenario gives it 8\n");
   EXPECT_EQ(fileText(file), good);
   EXPECT_EQ(run(args).code, 0) << "each case changed only what it names";

   const std::vector<std::pair<std::string, std::function<void()>>> unopenable{
       {"dangling link", [&] { fs::create_symlink(dir_ / "nowhere", file); }},
       {"link loop", [&] { fs::create_symlink("chip.state", file); }},
       {"unreadable",
        [&] {
           std::ofstream(file) << "l3tunnel-chip-state 1\n";
           fs::permissions(file, fs::perms::none);
        }},
   };
   for (const auto& [what, make] : unopenable) {
      if (what == "unreadable" && geteuid() == 0) continue;  // root reads it all the same
      SCOPED_TRACE(what);
      fs::remove(file);
      make();
      const auto kind = fs::symlink_status(file).type();
      expectRefused(run(args), "l3tunnel: " + file.string() + ": cannot open the state file");
      EXPECT_EQ(fs::symlink_status(file).type(), kind) << "replaced";
   }

   const std::string notDir = write("afile", "x");
   for (const auto& [dir, message] :
        {std::pair{notDir, ": not a directory\n"},
         std::pair{notDir + "/sub", "/sub: cannot make the state directory: Not a directory\n"}})
      expectRefused(run({"run", input, "--state-dir", dir}), "l3tunnel: " + notDir + message);
}

// A run holds its state directory from before the state is read until after
// it is saved; a second run is refused at once and touches nothing. A run
// clears away the saves that never finished, and nothing else.
TEST_F(L3TunnelTool, AStateDirectoryIsHeldByOneRunAtATimeAndTidiedByIt) {
   const std::string file = scenarioFile(scenario({program("a", {via("10.10.0.1")})}));
   const fs::path state = dir_ / "state";
   ASSERT_EQ(run({"run", file, "--state-dir", state.string()}).code, 0);
   const std::string saved = fileText(state / "chip.state");
   EXPECT_TRUE(std::regex_match(fileText(state / "lock"), std::regex("[0-9]+\n")))
       << "the lock file names its holder";

   const int lock = open((state / "lock").c_str(), O_RDWR | O_CLOEXEC);
   ASSERT_GE(lock, 0);
   ASSERT_EQ(flock(lock, LOCK_EX | LOCK_NB), 0);  // as a run holds it
   const std::string pid = std::to_string(getpid());
   ASSERT_EQ(ftruncate(lock, 0), 0);
   ASSERT_EQ(pwrite(lock, pid.data(), pid.size(), 0), ssize_t(pid.size()));
   const std::string other =
       scenarioFile(scenario({program("b", {via("10.10.0.2")})}), "other.json");
   expectRefused(run({"run", other, "--state-dir", state.string()}),
                 "l3tunnel: " + state.string() + ": another l3tunnel run (pid " + pid +
                     ") holds this state directory\n",
                 1);
   EXPECT_EQ(fileText(state / "chip.state"), saved);
   close(lock);
   for (const char* name : {"chip.state.tmp.4242", "chip.state.tmp.x", "notes"})
      std::ofstream(state / name) << "x";
   EXPECT_EQ(run({"run", other, "--state-dir", state.string()}).code, 0)
       << "the lock goes with its holder";
   std::set<std::string> left;
   for (const auto& e : fs::directory_iterator(state)) left.insert(e.path().filename().string());
   EXPECT_EQ(left, (std::set<std::string>{"chip.state", "lock", "notes"}));
}

// ---- output ----------------------------------------------------------------------

// A write to standard output that fails is reported and fails the run; the
// run still goes to its end and saves its state.
TEST_F(L3TunnelTool, OutputThatCannotBeWrittenIsReportedAfterTheStateIsSaved) {
   const std::string file =
       scenarioFile(scenario({program("a", {via("10.13.0.1")}), program("b", {via("10.13.0.2")})}));
   struct Sink {
      const char* name;
      void (*setUp)();
      const char* reason;
   };
   const Sink sinks[] = {
       {"full disk", [] { dup2(open("/dev/full", O_WRONLY), STDOUT_FILENO); },
        "No space left on device"},
       {"reader gone",
        [] {
           int p[2];
           if (pipe(p) != 0) _exit(126);
           dup2(p[1], STDOUT_FILENO);
           close(p[0]);
           close(p[1]);
        },
        "Broken pipe"},
   };
   const std::vector<std::vector<std::string>> modes{
       {"--json"}, {"--each-step"}, {"--json", "--each-step"}, {"--each-step", "--changes"}};
   const fs::path state = dir_ / "state";
   for (const Sink& sink : sinks) {
      for (const auto& mode : modes) {
         fs::remove_all(state);
         std::vector<std::string> args{"run", file, "--state-dir", state.string()};
         args.insert(args.end(), mode.begin(), mode.end());
         const Outcome r = run(args, {}, sink.setUp);
         const std::string what = sink.name + ::testing::PrintToString(mode);
         EXPECT_EQ(r.code, 1) << what;
         const std::string message = std::string("standard output: ") + sink.reason;
         if (mode.front() == "--json")
            EXPECT_EQ(Json::parse(r.err).at("error"), message) << what;
         else
            EXPECT_EQ(r.err, "l3tunnel: " + message + "\n") << what;
         EXPECT_TRUE(fs::exists(state / "chip.state")) << what;
      }
      const Outcome r = run({"--help"}, {}, sink.setUp);
      EXPECT_EQ(r.code, 1) << sink.name;
      EXPECT_EQ(r.err, std::string("l3tunnel: standard output: ") + sink.reason + "\n");
   }
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define L3TUNNEL_TEST_ASAN 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define L3TUNNEL_TEST_ASAN 1
#endif

// Colour only on a terminal that takes it, and not when NO_COLOR asks; there
// a full table's mark is red.
TEST_F(L3TunnelTool, ColourOnlyOnATerminalThatTakesIt) {
   Json s = scenario({program("g", {via("10.14.0.1")})});
   s["chip"]["tableSizes"]["L3EcmpMember0Table"] = 1;
   const std::string file = scenarioFile(s);
   struct Case {
      std::vector<std::pair<std::string, std::string>> env;
      std::vector<std::string> extra;
      bool colour;
   };
   const std::vector<Case> cases{
       {{{"TERM", "xterm"}}, {}, true},
       {{}, {}, false},
       {{{"TERM", ""}}, {}, false},
       {{{"TERM", "dumb"}}, {}, false},
       {{{"TERM", "xterm"}, {"NO_COLOR", "1"}}, {}, false},
       {{{"TERM", "xterm"}}, {"--json"}, false},
   };
   for (const auto& c : cases) {
      std::vector<std::string> args{"run", file};
      args.insert(args.end(), c.extra.begin(), c.extra.end());
      const std::string shown = runOnTerminal(args, c.env);
      const std::string what = ::testing::PrintToString(c.env) + ::testing::PrintToString(c.extra);
      EXPECT_NE(shown.find("L3EcmpMember0Table"), std::string::npos) << what << shown;
      EXPECT_EQ(shown.find("\033[") != std::string::npos, c.colour) << what;
      EXPECT_EQ(shown.find("\033[31mFULL\033[0m") != std::string::npos, c.colour) << what;
   }
   const Outcome r = run({"run", file}, {{"TERM", "xterm"}});
   EXPECT_EQ(r.out.find('\033'), std::string::npos) << "not a terminal";
}

// Names reach the terminal escaped, so that a scenario cannot steer it; the
// JSON output has them as they are (escaped as JSON), with --each-step a line
// per step, the last the plain run's state.
TEST_F(L3TunnelTool, ControlCharactersInNamesArePrintedEscaped) {
   const std::string name =
       "a\x1b[2Jb\nc\\d\x7f\xc2\x9b"
       "e";
   const std::string shown = "a\\x1b[2Jb\\nc\\\\d\\x7f\\u009be";
   const Json s = scenario({program(name, {via("10.15.0.1")}), release(name)});
   const Outcome r = run({"run", scenarioFile(s), "--each-step"});
   ASSERT_EQ(r.code, 0) << r.err;
   for (const std::string& line :
        {"== step 1 of 2: program " + shown + " (1 via, 1 member)\n",
         "group " + shown + ": 1 member", "== step 2 of 2: release " + shown + "\n"})
      EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
   EXPECT_EQ(r.out.find('\x1b'), std::string::npos);
   const Json steps = runJson(s, {"--each-step"});
   ASSERT_EQ(steps.size(), 2u);
   EXPECT_EQ(steps[1].at("group"), name);
   EXPECT_TRUE(steps[0].at("groups").contains(name));
}

// ---- large inputs (a ctest entry of their own, with a timeout) ----------------

class LargeInput : public L3TunnelTool {};

// Every check of a scenario is linear: half a million underlay groups take
// about a second, where comparing each with all before took minutes.
TEST_F(LargeInput, HalfAMillionUnderlayGroupsAreCheckedInLinearTime) {
   constexpr uint32_t groups = 500000;
   std::string list;
   for (uint32_t i = 1; i <= groups; ++i)
      list += (i > 1 ? ",{\"adjId\":" : "{\"adjId\":") + std::to_string(i) + "}";
   const std::string file = write("large.json", R"({"underlay":[)" + list + R"(],"steps":[]})");
   EXPECT_EQ(run({"run", file}).code, 0);
   const std::string repeated =
       write("repeated.json", R"({"underlay":[)" + list + R"(,{"adjId":1,"type":1}],"steps":[]})");
   expectRefused(
       run({"run", repeated}),
       "l3tunnel: " + repeated + ": underlay[500000]: adjacency 1 of type 1 is listed twice\n");
}

// 50,000 steps with --each-step --json: one line each, written as the step
// ends, so the output costs the same memory however many steps there are.
TEST_F(LargeInput, FiftyThousandStepsStreamInBoundedMemory) {
#ifdef L3TUNNEL_TEST_ASAN
   GTEST_SKIP() << "AddressSanitizer keeps freed memory back";
#endif
   // Written a step at a time: a child's peak counts from the size of this
   // process when it forks, which must stay well below the program's.
   const std::string file = (dir_ / "long.json").string();
   std::ofstream out(file);
   Json s = scenario({});
   for (const char* t :
        {"L3EcmpMember0Table", "L3TunnelIngL3NextHopTable", "IngL3Iif", "EgrL3Oif1Table",
         "L3EgrL3Ipv4TunnelTable", "L3EgrL3Ipv6TunnelTable", "L3TunnelEgrL3Oif1Table"})
      s["chip"]["tableSizes"][t] = 16;
   s.erase("steps");
   const std::string head = s.dump();
   out << head.substr(0, head.size() - 1) << R"(,"steps":)";
   for (int i = 0; i < 50000; ++i) {
      const std::string group = "g" + std::to_string(i % 3);
      out << (i ? "," : "[")
          << (i % 6 < 3 ? program(group, {via("10.30." + std::to_string(i % 5) + ".1")})
                        : release(group));
   }
   out << "]}";
   out.close();
   // Half a gigabyte of lines, thrown away as they come.
   auto toNull = [] { dup2(open("/dev/null", O_WRONLY), STDOUT_FILENO); };
   // The scenario itself is held whole (it is checked before the first step);
   // against the same run printing once, the steps' lines cost nothing lasting.
   const Outcome once = run({"run", file, "--json"}, {}, toNull);
   const Outcome each = run({"run", file, "--json", "--each-step"}, {}, toNull);
   EXPECT_EQ(once.code, 0);
   EXPECT_EQ(each.code, 0);
   EXPECT_LT(each.peakKb - once.peakKb, 8 * 1024) << once.peakKb << " KB, then " << each.peakKb;
}

// ---- what an operator asks -----------------------------------------------------

// Why is this group not programmed? The group says, in both outputs, naming
// the table and what is missing; indices an entry does not have are null.
TEST_F(L3TunnelTool, AGroupThatIsNotProgrammedSaysWhy) {
   struct Case {
      std::string name;
      std::map<std::string, uint32_t> sizes;
      std::vector<Json> steps;  // the last program step's group is the one asked about
      std::string state;
      std::string reason;
   };
   const std::string nhFull = "L3TunnelIngL3NextHopTable is full (2 of 2 usable rows used)";
   const std::vector<Case> cases = {
       {"no range",
        {{"L3EcmpMember0Table", 4}},
        {program("a", {via("10.20.0.1", 3)}), program("b", {via("10.20.0.2", 2)})},
        "noHwIndex",
        "L3EcmpMember0Table: no free range of 2 members, largest free: 1"},
       {"tunnel table full",
        {{"L3EgrL3Ipv4TunnelTable", 2}, {"L3EgrL3Ipv6TunnelTable", 2}},
        {program("a", {via("10.21.0.1")}), program("b", {via("10.21.0.2")})},
        "failedNeededEntry",
        "member 0: L3EgrL3Ipv4TunnelTable is full (1 of 1 usable rows used): tunnel 10.0.0.1 -> "
        "10.21.0.2 has no index, its interface and next hop wait for it"},
       {"next-hop table full",
        {{"L3TunnelIngL3NextHopTable", 2}},
        {program("a", {via("10.22.0.1")}), program("b", {via("10.22.0.2"), via("10.22.0.3")})},
        "failedNeededEntry",
        "member 0: " + nhFull +
            ": next hop 10.0.0.1 -> 10.22.0.2 has no index (and 1 more members)"},
       {"missing underlay",
        {},
        {program("a", {via("10.23.0.1"), via("10.23.0.2", 1, 9)})},
        "success",
        "member 1: underlay adjacency 9 not resolved: EcmpGroup1Table has no such group"},
   };
   for (const Case& c : cases) {
      Json s = scenario(c.steps, false);
      for (const auto& [table, rows] : c.sizes) s["chip"]["tableSizes"][table] = rows;
      const std::string group = c.steps.back().at("group");
      const Json snap = runJson(s);
      const Json& g = snap.at("groups").at(group);
      EXPECT_EQ(g.at("state"), c.state) << c.name;
      EXPECT_EQ(g.at("reason"), c.reason) << c.name;
      EXPECT_EQ(g.at("size"), g.at("members").size()) << c.name;
      EXPECT_EQ(g.at("base").is_null(), c.state != "success") << c.name;
      for (const auto& m : g.at("members")) {
         // A link that is not programmed has no index, and neither does
         // anything that waits for it.
         for (const char* link : {"tunnel", "interface", "nextHop"}) {
            const std::string state = m.at(std::string(link) + "State");
            EXPECT_EQ(m.at(std::string(link) + "Index").is_null(), state != "success")
                << c.name << " " << link << " " << m;
         }
      }
      const Outcome text = run({"run", scenarioFile(s, "scenario.json")});
      EXPECT_EQ(linesStarting(text.out, "reason: "),
                std::vector<std::string>{"reason: " + c.reason})
          << c.name << "\n"
          << text.out;
   }
}

// Which groups use tunnel X? Each member shows its whole chain; the tunnel's
// entry lists its groups; --tunnel prints that tunnel alone.
TEST_P(ToggleTest, TheGroupsOfATunnelAndTheChainOfAMember) {
   const bool on = GetParam();
   const Json s = scenario(
       {program("a", {via("10.24.0.1"), via("10.24.0.2")}), program("b", {via("10.24.0.2", 2)})},
       on);
   const Json snap = runJson(s);
   const Json& tunnel = entryTo(snap, "L3EgrL3Ipv4TunnelTable", "10.24.0.2");
   EXPECT_EQ(tunnel.at("groups"), Json({"a", "b"}));
   EXPECT_EQ(tunnel.at("ttl"), 64);
   const std::string intfTable = on ? "L3InterfaceTable" : "L3TunnelEgrL3Oif1Table";
   const Json& intf = entryTo(snap, intfTable, "10.24.0.2");
   const Json& nextHop = entryTo(snap, "L3TunnelIngL3NextHopTable", "10.24.0.2");
   EXPECT_EQ(intf.at("tunnelIndex"), tunnel.at("hwIndex"));
   EXPECT_EQ(nextHop.at("interfaceIndex"), intf.at("hwIndex"));
   for (const auto& [group, slot] : {std::pair{"a", 1}, std::pair{"b", 0}, std::pair{"b", 1}}) {
      const Json& m = snap.at("groups").at(group).at("members").at(slot);
      EXPECT_EQ(m.at("dstIpAddr"), "10.24.0.2");
      EXPECT_EQ(m.at("tunnelIndex"), tunnel.at("hwIndex"));
      EXPECT_EQ(m.at("interfaceIndex"), intf.at("hwIndex"));
      EXPECT_EQ(m.at("nextHopIndex"), nextHop.at("hwIndex"));
      EXPECT_EQ(m.at("ttl"), 64);
   }

   const Json one = runJson(s, {"--tunnel", "10.0.0.1,10.24.0.2"});
   std::vector<std::string> tables;
   for (const auto& link : one.at("tunnel").at("chain")) tables.push_back(link.at("table"));
   EXPECT_EQ(tables, (std::vector<std::string>{"L3EgrL3Ipv4TunnelTable", intfTable,
                                               "L3TunnelIngL3NextHopTable"}));
   EXPECT_EQ(one.at("tunnel").at("groups"),
             Json::parse(R"([{"name": "a", "slots": [1]}, {"name": "b", "slots": [0, 1]}])"));

   const std::string file = scenarioFile(s);
   const Outcome text = run({"run", file, "--tunnel", "10.0.0.1,10.24.0.2"});
   EXPECT_EQ(linesStarting(text.out, "used by"), std::vector<std::string>{"used by 2 groups:"});
   EXPECT_EQ(linesStarting(text.out, "b ("), std::vector<std::string>{"b (slots 0, 1)"});
   EXPECT_NE(run({"run", file, "--tunnel", "10.0.0.1,10.99.0.9"}).out.find("no table holds it"),
             std::string::npos);
}

// Which table is full, and by how much? Usable rows leave a tunnel table's
// index 0 out; marks at 70% and 85%, and FULL; a warning when the tunnel
// tables that share one index space are sized apart.
TEST_F(L3TunnelTool, TablesSayHowFullTheyAre) {
   struct Case {
      uint32_t rows;
      uint32_t members;
      std::string level;
      std::string percent;
   };
   for (const Case& c : {Case{10, 6, "ok", "60.0"}, Case{10, 7, "high", "70.0"},
                         Case{20, 17, "critical", "85.0"}, Case{10, 10, "full", "100.0"}}) {
      Json s = scenario({program("g", {via("10.25.0.1", c.members)})});
      s["chip"]["tableSizes"]["L3EcmpMember0Table"] = c.rows;
      const Json snap = runJson(s);
      const Json& t = snap.at("tables").at("L3EcmpMember0Table");
      EXPECT_EQ(t.at("level"), c.level) << c.members << " of " << c.rows;
      EXPECT_EQ(t.at("percentUsed").dump(), c.percent);
      EXPECT_EQ(t.at("free"), c.rows - c.members);
      EXPECT_EQ(t.at("largestFree"), c.rows - c.members);
   }

   // Four IPv4 rows in a space of 4096: three tunnels fit (index 0 is not
   // given out), the next two get indices the table has no row for.
   std::vector<Json> steps;
   for (int i = 1; i <= 5; ++i)
      steps.push_back(program("g" + std::to_string(i), {via("10.26.0." + std::to_string(i))}));
   Json s = scenario(steps);
   s["chip"]["tableSizes"]["L3EgrL3Ipv4TunnelTable"] = 4;
   const Json snap = runJson(s);
   Json v4 = snap.at("tables").at("L3EgrL3Ipv4TunnelTable");
   v4.erase("entries");
   EXPECT_EQ(v4, Json::parse(R"({"capacity": 4, "usable": 3, "used": 3, "free": 0,
                                 "percentUsed": 100.0, "refused": 2, "level": "full"})"));
   EXPECT_EQ(snap.at("warnings"),
             Json({"L3EgrL3Ipv4TunnelTable has 4 rows and L3EgrL3Ipv6TunnelTable 4096, but they "
                   "share one index space of 4096 indices: entries given an index past 3 are "
                   "refused by L3EgrL3Ipv4TunnelTable"}));
   const Outcome text = run({"run", scenarioFile(s)});
   EXPECT_EQ(linesStarting(text.out, "L3EgrL3Ipv4TunnelTable:"),
             std::vector<std::string>{"L3EgrL3Ipv4TunnelTable: 3 of 3 usable rows used (100.0%), "
                                      "0 free of 4 rows, 2 refused  FULL; 5 entries"});
   EXPECT_EQ(linesStarting(text.out, "warning: ").size(), 1u);
}

// Did the restart change anything? A run from a state directory says how many
// rows it found there, and what it wrote, deleted and changed.
TEST_P(ToggleTest, ARestartSaysWhatItFoundAndWhatItChanged) {
   const Json s = scenario({program("a", {via("10.27.0.1", 2), via("10.27.0.2")})}, GetParam());
   const std::string file = scenarioFile(s);
   const std::string state = (dir_ / "state").string();
   const Json first = runJson(s, {"--state-dir", state});
   uint32_t rows = 0;
   for (const auto& [table, r] : first.at("hardware").items()) rows += uint32_t(r.size());
   EXPECT_EQ(first.at("run").at("changedRows"), first.at("run").at("hardwareWrites"));

   const Json second = runJson(s, {"--state-dir", state});
   EXPECT_EQ(second.at("run").at("recoveredRows"), rows);
   EXPECT_EQ(second.at("run").at("changedRows"), 0) << "the replay lands every key on its row";
   EXPECT_EQ(second.at("run").at("hardwareWrites"), 0) << "and finds it holding what it writes";
   EXPECT_EQ(second.at("run").at("hardwareDeletes"), 0);
   // Its changes are taken against the saved state: the group is new, no row.
   const Json replay = runJson(s, {"--changes", "--state-dir", state});
   EXPECT_TRUE(replay.at("changes").at("hardware").empty()) << replay;
   EXPECT_EQ(replay.at("changes").at("groups").at(0).at("change"), "added");

   const Outcome text = run({"run", file, "--state-dir", state});
   EXPECT_EQ(text.out.substr(0, text.out.find('\n')),
             "recovered " + std::to_string(rows) + " rows from " + state);
   EXPECT_NE(text.out.find(" deletes, 0 rows changed; "), std::string::npos) << text.out;
   const Outcome fresh = run({"run", file, "--state-dir", (dir_ / "new").string()});
   EXPECT_EQ(fresh.out.rfind("no saved state in " + (dir_ / "new").string(), 0), 0u);
}

// --changes: what each step added, changed and removed.
TEST_F(L3TunnelTool, ChangesAreWhatEachStepDid) {
   const Json s = scenario({program("a", {via("10.28.0.1")}), program("b", {via("10.28.0.2")}),
                            Json{{"op", "reconcile"}}, release("a")},
                           false);
   const Json steps = runJson(s, {"--each-step", "--changes"});
   ASSERT_EQ(steps.size(), 4u);
   // change kind -> count, per software table ("rows " and the name for
   // the chip's tables).
   using Counts = std::map<std::string, int>;
   auto counts = [](const Json& changes) {
      std::map<std::string, Counts> out;
      for (const char* section : {"tables", "hardware"})
         for (const auto& [table, list] : changes.at(section).items())
            for (const auto& c : list)
               ++out[(section[0] == 'h' ? "rows " : "") + table][c.at("change").get<std::string>()];
      return out;
   };
   const auto first = counts(steps[0].at("changes"));
   // The reserved drop next hop and a's chain.
   EXPECT_EQ(first.at("L3TunnelIngL3NextHopTable"), (Counts{{"added", 2}}));
   EXPECT_EQ(first.at("L3EgrL3Ipv4TunnelTable"), (Counts{{"added", 1}}));
   EXPECT_EQ(first.at("rows L3TunnelIngL3NextHopTable"), (Counts{{"added", 2}}));
   EXPECT_EQ(steps[0].at("changes").at("groups").at(0).at("change"), "added");
   EXPECT_TRUE(counts(steps[2].at("changes")).empty()) << steps[2];
   EXPECT_TRUE(steps[2].at("changes").at("groups").empty());
   const auto last = counts(steps[3].at("changes"));
   for (const char* table : {"L3EgrL3Ipv4TunnelTable", "L3TunnelEgrL3Oif1Table",
                             "L3TunnelIngL3NextHopTable", "L3EcmpMember0Table"}) {
      EXPECT_EQ(last.at(table), (Counts{{"removed", 1}})) << table;
      EXPECT_EQ(last.at(std::string("rows ") + table), (Counts{{"removed", 1}})) << table;
   }
   EXPECT_EQ(steps[3].at("changes").at("groups"),
             Json::parse(R"([{"change": "removed", "name": "a"}])"));

   const Outcome text = run({"run", scenarioFile(s), "--each-step", "--changes"});
   EXPECT_EQ(linesStarting(text.out, "- group").size(), 1u) << text.out;
   EXPECT_EQ(linesStarting(text.out, "no changes").size(), 1u) << text.out;
}

}  // namespace
