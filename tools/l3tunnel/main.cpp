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
#include "AgentCommand.h"
#include "Changes.h"
#include "CommandLine.h"
#include "HumanOutput.h"
#include "JsonOutput.h"
#include "JsonWriter.h"
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
    "usage: l3tunnel run SCENARIO.json [--json] [--each-step] [--changes] [--tunnel SRC,DST]\n"
    "                    [--state-dir DIR] [--trace SPEC]\n"
    "       l3tunnel agent [--state-dir DIR] [--chip FILE.json] [--socket PATH]\n"
    "                      [--default-ttl N] [--trace SPEC]\n"
    "       l3tunnel show [--socket PATH] [--json] [all | groups | tables | usage | tunnel SRC "
    "DST]\n"
    "       l3tunnel --help | --version\n";

// The scenario size is in the text, so that the help says what the program does.
const std::string helpText =
    "\n"
    "Plays the forwarding agent on a simulated chip: sets the overlay ECMP programmer up,\n"
    "applies the scenario's steps (program, release, restart, reconcile) and prints the\n"
    "tables, the chip's rows and each group's member block.\n"
    "\n"
    "agent follows the kernel's IP-in-IP nexthops, nexthop groups and routes in this network\n"
    "namespace until SIGTERM or SIGINT, saving the chip in DIR (default: no saving) and\n"
    "answering show on PATH (default DIR/agent.sock, or ./agent.sock); see the README.\n"
    "\n"
    "  --json            print JSON for programs instead of text for people (one object;\n"
    "                    errors too, on standard error)\n"
    "  --each-step       print the state after every step (JSON: one line per step)\n"
    "  --changes         print only what changed: since the start (or the saved state),\n"
    "                    and with --each-step since the step before\n"
    "  --tunnel SRC,DST  print only that tunnel: its chain and the groups that use it\n"
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
   bool changes = false;
   std::optional<std::string> stateDir;
   std::optional<std::string> trace;
   std::optional<std::string> tunnelText;
   std::optional<MeridL3Tunnel::L3TunnelKey> tunnel;
};

// Errors go to standard error as one line, or with --json as one object.
bool jsonErrors = false;

void error(const std::string& what, const std::optional<std::string>& file = std::nullopt) {
   if (jsonErrors)
      std::cerr << errorJson({what, file, std::nullopt, std::nullopt}) << std::flush;
   else
      std::cerr << "l3tunnel: " << what << std::endl;
}

void error(const ScenarioError& e) {
   if (!jsonErrors) return error(e.what());
   const auto& w = e.where();
   std::cerr << errorJson({e.fault(), w.file, w.step,
                           w.field.empty() ? std::nullopt : std::optional(w.field)})
             << std::flush;
}

// "SRC,DST": two addresses of one family.
MeridL3Tunnel::L3TunnelKey tunnelOf(const std::string& text) {
   const UsageError bad{"--tunnel: '" + text + "' is not SRC,DST (two IPv4 or two IPv6 addresses)"};
   const auto comma = text.find(',');
   if (comma == std::string::npos) throw bad;
   try {
      const Wire::IpGenAddr src(text.substr(0, comma));
      const Wire::IpGenAddr dst(text.substr(comma + 1));
      if (src.family() != dst.family()) throw bad;
      return {src, dst};
   } catch (const std::invalid_argument&) {
      throw bad;
   }
}

// Options may come before or after the file; "--" ends them.
std::optional<Options> optionsRead(int argc, char** argv, std::ostream& out, int& exitCode) {
   Options o;
   const Args a = argsRead(argc, argv, {"--state-dir", "--trace", "--tunnel"},
                           {"--json", "--each-step", "--changes"}, {"--help", "-h", "--version"});
   if (a.stop) {
      if (*a.stop == "--version")
         out << "l3tunnel " << L3TUNNEL_VERSION << "\n";
      else
         out << usageLine << helpText;
      exitCode = 0;
      return std::nullopt;
   }
   o.json = a.flag("--json");
   o.eachStep = a.flag("--each-step");
   o.changes = a.flag("--changes");
   o.stateDir = a.value("--state-dir");
   o.trace = a.value("--trace");
   o.tunnelText = a.value("--tunnel");
   const std::vector<std::string>& positional = a.positional;
   if (positional.empty()) throw UsageError{"missing command"};
   if (positional[0] != "run") throw UsageError{"unknown command '" + positional[0] + "'"};
   if (positional.size() < 2) throw UsageError{"run: missing scenario file"};
   if (positional.size() > 2) throw UsageError{"run: unexpected argument '" + positional[2] + "'"};
   if (o.stateDir && o.stateDir->empty()) throw UsageError{"--state-dir needs a directory"};
   if (o.tunnelText) o.tunnel = tunnelOf(*o.tunnelText);
   if (o.tunnel && o.changes) throw UsageError{"--tunnel and --changes do not go together"};
   o.file = positional[1];
   return o;
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

// Prints what the options ask for, after a step or at the end of the run.
class Report {
public:
   Report(const Options& o, std::ostream& out, const RunView& start, const HumanStyle& style,
          Clock::time_point t0)
       : o_(o), out_(out), json_(out), start_(start), style_(style), t0_(t0) {}

   // The state before the first step: what the first changes are taken against.
   void baseIs(const Agent& agent) {
      if (o_.changes) changes_.baseIs(Snapshot(agent));
   }

   void print(const Agent& agent, const StepView* step) {
      const Snapshot s(agent);
      const RunView run = s.run(start_);
      if (o_.json) {
         if (o_.tunnel)
            tunnelJsonWrite(json_, s, run, step, *o_.tunnel);
         else if (o_.changes)
            changesJsonWrite(json_, s, run, step, changes_);
         else
            snapshotJsonWrite(json_, s, run, step);
         return;
      }
      if (!o_.tunnel && !o_.changes) return humanPrint(out_, s, run, msSince(t0_), style_);
      if (const std::string start = humanStart(run); !start.empty() && !started_)
         out_ << start << "\n\n";
      started_ = true;
      if (o_.tunnel)
         humanTunnelPrint(out_, s, *o_.tunnel, style_);
      else
         humanChangesPrint(out_, s, changes_, style_);
   }

   // After the last step: the summary line that --changes and --tunnel leave
   // out of each step's print.
   void finish(const Agent& agent) {
      if (o_.json || (!o_.tunnel && !o_.changes)) return;
      const Snapshot s(agent);
      out_ << "\n" << humanSummary(s, s.run(start_), msSince(t0_)) << "\n";
   }

private:
   const Options& o_;
   std::ostream& out_;
   JsonWriter json_;
   RunView start_;
   const HumanStyle& style_;
   Clock::time_point t0_;
   ChangeTracker changes_;
   bool started_ = false;
};

int run(const Options& o, StdOutput& out) {
   if (o.trace) Orb::Trace::configIs(*o.trace);

   Scenario scenario;
   try {
      scenario = scenarioRead(o.file);
   } catch (const ScenarioError& e) {
      error(e);
      return exitBadInput;
   }

   // Held until the state is saved; made, locked and checked before any step.
   std::optional<StateDir> stateDir;
   bool recover = false;
   if (o.stateDir) {
      try {
         stateDir.emplace(*o.stateDir);
      } catch (const StateDirError& e) {
         error(e.what, *o.stateDir);
         return e.busy ? exitFailure : exitBadInput;
      }
      recover = stateDir->stateExists();
   }

   Agent agent(scenario);
   RunView start;
   start.stateDir = o.stateDir;
   if (recover) {
      try {
         agent.chipStateLoad(stateDir->statePath());
      } catch (const std::runtime_error& e) {
         error(e.what(), stateDir->statePath());
         return exitBadInput;
      }
      start.recoveredRows = agent.rowsHeld();
   }

   const bool colour = !o.json && capableTerminal(STDOUT_FILENO) && !std::getenv("NO_COLOR");
   const HumanStyle style{colour};
   const auto t0 = Clock::now();
   const size_t steps = scenario.steps.size();
   Report report(o, out, start, style, t0);
   report.baseIs(agent);
   agent.start(recover);
   {
      Progress progress{uint32_t(steps)};
      for (size_t i = 0; i < steps; ++i) {
         progress.stepIs(uint32_t(i + 1));
         const Step& step = scenario.steps[i];
         agent.stepRun(step);
         // The agent's loop runs between configuration changes, as it would in
         // a switch; so the end state does not depend on what is printed.
         agent.settle();
         // Output that failed is not made any more; the steps go on.
         if (!o.eachStep || out.error()) continue;
         StepView view{uint32_t(i + 1), opName(step.op), std::nullopt};
         if (step.op == Step::Op::program || step.op == Step::Op::release) view.group = step.group;
         if (!o.json) {
            out << (colour ? "\033[1m" : "") << "== step " << i + 1 << " of " << steps << ": "
                << stepText(step) << (colour ? "\033[0m" : "") << "\n\n";
         }
         report.print(agent, &view);
         if (!o.json && i + 1 < steps) out << "\n";
      }
   }
   agent.settle();
   if (!o.eachStep || (steps == 0 && !o.json)) report.print(agent, nullptr);
   report.finish(agent);
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
   if (argc > 1 && std::string_view(argv[1]) == "agent")
      return L3TunnelTool::agentMain(argc - 1, argv + 1);
   if (argc > 1 && std::string_view(argv[1]) == "show")
      return L3TunnelTool::showMain(argc - 1, argv + 1);
   // A reader that goes away (| head) must not stop the run before the state
   // is saved: the write fails with EPIPE instead, and is reported.
   std::signal(SIGPIPE, SIG_IGN);
   StdOutput out;
   int exitCode = 0;
   for (int i = 1; i < argc; ++i) {
      if (std::string_view(argv[i]) == "--") break;
      jsonErrors |= std::string_view(argv[i]) == "--json";
   }
   try {
      std::optional<Options> options;
      try {
         options = optionsRead(argc, argv, out, exitCode);
      } catch (const UsageError& e) {
         error(e.what);
         if (!jsonErrors) std::cerr << usageLine;
         return exitBadInput;
      }
      if (options) exitCode = run(*options, out);
   } catch (const std::exception& e) {
      error(e.what());
      exitCode = exitFailure;
   }
   return outputChecked(out, exitCode);
}
