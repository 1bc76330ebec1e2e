// l3tunnel: plays the forwarding agent on the simulated chip through a
// scenario and prints what the tables and the chip hold afterwards.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agent.h"
#include "HumanOutput.h"
#include "JsonOutput.h"
#include "Orb/Trace.h"
#include "Output.h"
#include "Scenario.h"
#include "Snapshot.h"
#include "StateDir.h"

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

// The scenario size is in the text, so that the help says what the program does.
const std::string helpText =
    "\n"
    "Plays the forwarding agent on a simulated chip: sets the overlay ECMP programmer up,\n"
    "applies the scenario's steps (program, release, restart, reconcile) and prints the\n"
    "tables, the chip's rows and each group's member block.\n"
    "\n"
    "  --json            print JSON for programs instead of text for people\n"
    "  --each-step       print the state after every step (JSON: an array, one per step)\n"
    "  --state-dir DIR   start from DIR/chip.state when it exists (as a restart) and save\n"
    "                    the chip there after the run; one run at a time holds DIR\n"
    "  --trace SPEC      text trace, as in L3TUNNEL_TRACE (e.g. 'MeridL3Tunnel::*/5')\n"
    "  --help, --version\n"
    "\n"
    "A scenario is at most " +
    std::string(L3TunnelTool::maxScenarioText) +
    ".\n"
    "Exit codes: 0 done, 1 failure while running (the state directory is held by another\n"
    "run, standard output or the state cannot be written), 2 bad scenario, state file,\n"
    "state directory or usage.\n";

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
std::optional<Options> optionsRead(int argc, char** argv, std::ostream& out, int& exitCode) {
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
         out << usageLine << helpText;
         exitCode = 0;
         return std::nullopt;
      }
      if (arg == "--version") {
         out << "l3tunnel " << L3TUNNEL_VERSION << "\n";
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

// A terminal that takes escape sequences: TERM names one ("dumb" takes none).
bool capableTerminal(int fd) {
   const char* term = std::getenv("TERM");
   return isatty(fd) == 1 && term && *term && std::strcmp(term, "dumb") != 0;
}

// Shown on a terminal once a run has taken long enough to be worth it.
class Progress {
public:
   explicit Progress(uint32_t steps) : steps_(steps), on_(capableTerminal(STDERR_FILENO)) {}
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

// One step's snapshot as an element of the --each-step array: the array is
// printed as the steps go, and looks as one array printed whole would.
void eachStepJsonPrint(std::ostream& out, const Snapshot& s, bool first) {
   const std::string text = snapshotJson(s).dump(2);
   out << (first ? "\n" : ",\n");
   for (size_t at = 0; at < text.size();) {
      const size_t end = std::min(text.find('\n', at), text.size() - 1) + 1;
      out << "  ";
      out.write(text.data() + at, std::streamsize(end - at));
      at = end;
   }
}

int run(const Options& o, StdOutput& out) {
   if (o.trace) Orb::Trace::configIs(*o.trace);

   Scenario scenario;
   try {
      scenario = scenarioRead(o.file);
   } catch (const ScenarioError& e) {
      error(e.what());
      return exitBadInput;
   }

   // Held until the state is saved; made, locked and checked before any step.
   std::optional<StateDir> stateDir;
   bool recover = false;
   if (o.stateDir) {
      try {
         stateDir.emplace(*o.stateDir);
      } catch (const StateDirError& e) {
         error(e.what);
         return e.busy ? exitFailure : exitBadInput;
      }
      recover = stateDir->stateExists();
   }

   Agent agent(scenario);
   if (recover) {
      try {
         agent.chipStateLoad(stateDir->statePath());
      } catch (const std::runtime_error& e) {
         error(e.what());
         return exitBadInput;
      }
   }

   const bool colour = !o.json && capableTerminal(STDOUT_FILENO) && !std::getenv("NO_COLOR");
   const HumanStyle style{colour};
   const auto start = Clock::now();
   const size_t steps = scenario.steps.size();
   agent.start(recover);
   if (o.eachStep && o.json) out << "[";
   {
      Progress progress{uint32_t(steps)};
      for (size_t i = 0; i < steps; ++i) {
         progress.stepIs(uint32_t(i + 1));
         agent.stepRun(scenario.steps[i]);
         // The agent's loop runs between configuration changes, as it would in
         // a switch; so the end state does not depend on what is printed.
         agent.settle();
         // Output that failed is not made any more; the steps go on.
         if (!o.eachStep || out.error()) continue;
         const Snapshot s = snapshotOf(agent);
         if (o.json) {
            eachStepJsonPrint(out, s, i == 0);
         } else {
            out << (colour ? "\033[1m" : "") << "== step " << i + 1 << " of " << steps << ": "
                << stepText(scenario.steps[i]) << (colour ? "\033[0m" : "") << "\n\n";
            humanPrint(out, s, msSince(start), style);
            if (i + 1 < steps) out << "\n";
         }
      }
   }
   agent.settle();
   if (o.json && o.eachStep)
      out << (steps ? "\n]\n" : "]\n");
   else if (o.json)
      out << snapshotJson(snapshotOf(agent)).dump(2) << "\n";
   else if (!o.eachStep || steps == 0)
      humanPrint(out, snapshotOf(agent), msSince(start), style);
   out.finish();

   // Saved whatever became of the output.
   if (stateDir) agent.chipStateSave(stateDir->statePath());
   return 0;
}

// A failed write to standard output is reported once, at the end.
int outputChecked(StdOutput& out, int exitCode) {
   if (out.finish()) return exitCode;
   error(std::string("standard output: ") + std::strerror(out.error()));
   return exitCode == 0 ? exitFailure : exitCode;
}

}  // namespace

int main(int argc, char** argv) {
   // A reader that goes away (| head) must not stop the run before the state
   // is saved: the write fails with EPIPE instead, and is reported.
   std::signal(SIGPIPE, SIG_IGN);
   StdOutput out;
   int exitCode = 0;
   try {
      std::optional<Options> options;
      try {
         options = optionsRead(argc, argv, out, exitCode);
      } catch (const UsageError& e) {
         error(e.what);
         std::cerr << usageLine;
         return exitBadInput;
      }
      if (options) exitCode = run(*options, out);
   } catch (const std::exception& e) {
      error(e.what());
      exitCode = exitFailure;
   }
   return outputChecked(out, exitCode);
}
