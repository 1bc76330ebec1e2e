// l3tunnel: plays the forwarding agent on the simulated chip through a
// scenario and prints what the tables and the chip hold afterwards.
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agent.h"
#include "HumanOutput.h"
#include "JsonOutput.h"
#include "Orb/Trace.h"
#include "Scenario.h"
#include "Snapshot.h"

#ifndef L3TUNNEL_VERSION
#error "L3TUNNEL_VERSION must be defined by the build"
#endif

namespace {

using namespace L3TunnelTool;
using Clock = std::chrono::steady_clock;

constexpr int exitBadInput = 2;
constexpr int exitFailure = 1;

constexpr const char* usageLine =
    "usage: l3tunnel run SCENARIO.json [--json] [--each-step] [--state-dir DIR] [--trace SPEC]\n"
    "       l3tunnel --help | --version\n";

constexpr const char* helpText =
    "\n"
    "Plays the forwarding agent on a simulated chip: sets the overlay ECMP programmer up,\n"
    "applies the scenario's steps (program, release, restart, reconcile) and prints the\n"
    "tables, the chip's rows and each group's member block.\n"
    "\n"
    "  --json            print JSON for programs instead of text for people\n"
    "  --each-step       print the state after every step (JSON: an array, one per step)\n"
    "  --state-dir DIR   start from DIR/chip.state when it exists (as a restart) and save\n"
    "                    the chip there after a successful run\n"
    "  --trace SPEC      text trace, as in L3TUNNEL_TRACE (e.g. 'MeridL3Tunnel::*/5')\n"
    "  --help, --version\n"
    "\n"
    "Exit codes: 0 done, 1 failure while running, 2 bad scenario, state file or usage.\n";

struct Options {
   std::string file;
   bool json = false;
   bool eachStep = false;
   std::optional<std::string> stateDir;
   std::optional<std::string> trace;
};

struct UsageError {
   std::string what;
};

void error(const std::string& what) { std::cerr << "l3tunnel: " << what << std::endl; }

// Options may come before or after the file; "--" ends them.
std::optional<Options> optionsRead(int argc, char** argv, int& exitCode) {
   Options o;
   std::vector<std::string> positional;
   bool optionsDone = false;
   for (int i = 1; i < argc; ++i) {
      const std::string_view arg = argv[i];
      if (optionsDone || arg.empty() || arg[0] != '-' || arg == "-") {
         positional.emplace_back(arg);
         continue;
      }
      if (arg == "--") {
         optionsDone = true;
         continue;
      }
      if (arg == "--help" || arg == "-h") {
         std::cout << usageLine << helpText;
         exitCode = 0;
         return std::nullopt;
      }
      if (arg == "--version") {
         std::cout << "l3tunnel " << L3TUNNEL_VERSION << "\n";
         exitCode = 0;
         return std::nullopt;
      }
      if (arg == "--json") {
         o.json = true;
         continue;
      }
      if (arg == "--each-step") {
         o.eachStep = true;
         continue;
      }
      bool matched = false;
      for (auto [name, target] : {std::pair{std::string_view("--state-dir"), &o.stateDir},
                                  std::pair{std::string_view("--trace"), &o.trace}}) {
         if (arg == name) {
            if (i + 1 >= argc) throw UsageError{std::string(name) + " needs a value"};
            *target = argv[++i];
         } else if (arg.starts_with(name) && arg.size() > name.size() && arg[name.size()] == '=') {
            *target = std::string(arg.substr(name.size() + 1));
         } else {
            continue;
         }
         matched = true;
         break;
      }
      if (!matched) throw UsageError{"unknown option '" + std::string(arg) + "'"};
   }
   if (positional.empty()) throw UsageError{"missing command"};
   if (positional[0] != "run") throw UsageError{"unknown command '" + positional[0] + "'"};
   if (positional.size() < 2) throw UsageError{"run: missing scenario file"};
   if (positional.size() > 2) throw UsageError{"run: unexpected argument '" + positional[2] + "'"};
   if (o.stateDir && o.stateDir->empty()) throw UsageError{"--state-dir needs a directory"};
   o.file = positional[1];
   return o;
}

// Shown on a terminal once a run has taken long enough to be worth it.
class Progress {
public:
   explicit Progress(uint32_t steps) : steps_(steps), on_(isatty(STDERR_FILENO) == 1) {}
   ~Progress() {
      if (shown_) std::fputs("\r\033[K", stderr);
   }
   Progress(const Progress&) = delete;
   Progress& operator=(const Progress&) = delete;

   void stepIs(uint32_t step) {
      if (!on_) return;
      const auto now = Clock::now();
      if (now - start_ < std::chrono::milliseconds(500)) return;
      if (shown_ && now - last_ < std::chrono::milliseconds(100)) return;
      last_ = now;
      shown_ = true;
      std::fprintf(stderr, "\rl3tunnel: step %u of %u", step, steps_);
      std::fflush(stderr);
   }

private:
   uint32_t steps_;
   bool on_;
   bool shown_ = false;
   Clock::time_point start_ = Clock::now();
   Clock::time_point last_;
};

double msSince(Clock::time_point start) {
   return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

int run(const Options& o) {
   namespace fs = std::filesystem;
   if (o.trace) Orb::Trace::configIs(*o.trace);

   Scenario scenario;
   try {
      std::error_code ec;
      if (fs::is_directory(o.file, ec)) throw ScenarioError(o.file + ": is a directory");
      scenario = scenarioRead(o.file);
   } catch (const ScenarioError& e) {
      error(e.what());
      return exitBadInput;
   }

   std::string statePath;
   bool recover = false;
   if (o.stateDir) {
      std::error_code ec;
      if (fs::exists(*o.stateDir, ec) && !fs::is_directory(*o.stateDir, ec)) {
         error(*o.stateDir + ": not a directory");
         return exitBadInput;
      }
      statePath = (fs::path(*o.stateDir) / "chip.state").string();
      recover = fs::exists(statePath, ec);
   }

   Agent agent(scenario);
   if (recover) {
      try {
         agent.chipStateLoad(statePath);
      } catch (const std::runtime_error& e) {
         error(e.what());
         return exitBadInput;
      }
   }

   const bool colour = !o.json && isatty(STDOUT_FILENO) == 1 && !std::getenv("NO_COLOR");
   const HumanStyle style{colour};
   OrderedJson perStep = OrderedJson::array();
   const auto start = Clock::now();
   agent.start(recover);
   {
      Progress progress(uint32_t(scenario.steps.size()));
      for (size_t i = 0; i < scenario.steps.size(); ++i) {
         progress.stepIs(uint32_t(i + 1));
         agent.stepRun(scenario.steps[i]);
         // The agent's loop runs between configuration changes, as it would in
         // a switch; so the end state does not depend on what is printed.
         agent.settle();
         if (!o.eachStep) continue;
         const Snapshot s = snapshotOf(agent);
         if (o.json) {
            perStep.push_back(snapshotJson(s));
         } else {
            std::cout << (colour ? "\033[1m" : "") << "== step " << i + 1 << " of "
                      << scenario.steps.size() << ": " << stepText(scenario.steps[i])
                      << (colour ? "\033[0m" : "") << "\n\n";
            humanPrint(std::cout, s, msSince(start), style);
            if (i + 1 < scenario.steps.size()) std::cout << "\n";
         }
      }
   }
   agent.settle();
   if (o.json)
      std::cout << (o.eachStep ? perStep : snapshotJson(snapshotOf(agent))).dump(2) << "\n";
   else if (!o.eachStep || scenario.steps.empty())
      humanPrint(std::cout, snapshotOf(agent), msSince(start), style);
   std::cout.flush();

   if (o.stateDir) {
      std::error_code ec;
      fs::create_directories(*o.stateDir, ec);
      if (ec) {
         error("cannot make " + *o.stateDir + ": " + ec.message());
         return exitFailure;
      }
      agent.chipStateSave(statePath);
   }
   return 0;
}

}  // namespace

int main(int argc, char** argv) {
   try {
      int exitCode = 0;
      std::optional<Options> options;
      try {
         options = optionsRead(argc, argv, exitCode);
      } catch (const UsageError& e) {
         error(e.what);
         std::cerr << usageLine;
         return exitBadInput;
      }
      if (!options) return exitCode;
      return run(*options);
   } catch (const std::exception& e) {
      error(e.what());
      return exitFailure;
   }
}
