// model_soak: the model-checked random runs for as long as asked, or one seed
// replayed op by op.
//
//   model_soak [--seconds S] [--first-seed N] [--ops N] [--keep-going]
//   model_soak --seed N [--ops N] [--only I,J,...] [--dump]
//
// Every run goes in a child process, so that a crash (an assertion of the
// library) is reported and shrunk like any failed check. With --seed the run
// is also played here, op by op on standard output. The interface-table
// toggle is this process's (L3TUNNEL_TOGGLE_DIR). Exit code 0 when every run
// held, 1 when one failed (its report on standard output), 2 on a usage error.
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>

#include "Model/ModelRun.h"
#include "support/Installed.h"

namespace {

bool dumpEach = false;  // --dump: the chip's rows after every op of a shown run

[[noreturn]] void usage(const std::string& why) {
   std::cerr << "model_soak: " << why << "\n"
             << "usage: model_soak [--seconds S] [--first-seed N] [--ops N] [--keep-going]\n"
             << "       model_soak --seed N [--ops N] [--only I,J,...] [--dump]\n";
   std::exit(2);
}

uint64_t number(const std::string& text, const std::string& option) {
   uint64_t v = 0;
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), v);
   if (text.empty() || error != std::errc() || end != text.data() + text.size())
      usage(option + ": not a number: " + text);
   return v;
}

std::vector<uint32_t> indices(const std::string& list, uint32_t count) {
   std::vector<uint32_t> out;
   if (list == "none") return out;
   std::istringstream in(list);
   for (std::string item; std::getline(in, item, ',');) {
      const uint64_t i = number(item, "--only");
      if (i >= count) usage("--only: op " + std::to_string(i) + " is past the last op");
      out.push_back(uint32_t(i));
   }
   return out;
}

// Runs the ops in a child process, which exits where the program would
// start. It reports each op before it runs it and the result at the end; a
// child that dies failed at its last op.
model::RunResult runIsolated(const model::RunConfig& config, const std::vector<model::Op>& ops) {
   const test::ScratchDir dir("model-soak");
   std::cout.flush();
   const test::Outcome o = test::runProgram(dir.path, {"/bin/true"}, {}, [&] {
      model::RunOptions options;
      options.progress = [](uint32_t step) { std::cout << "step " << step << std::endl; };
      const model::RunResult r = model::runOps(config, ops, options);
      std::cout << "result " << r.failed << " " << r.step << " " << r.fullChecks << " " << r.excused
                << " " << r.strictChecks << " " << r.flapChecks << "\n";
      for (auto& v : r.violations) std::cout << "v " << v << "\n";
      std::cout.flush();
      ::_exit(0);
   });
   model::RunResult r;
   bool finished = false;
   std::istringstream in(o.out);
   for (std::string line; std::getline(in, line);) {
      std::istringstream fields(line.substr(line.find(' ') + 1));
      if (line.rfind("step ", 0) == 0)
         fields >> r.step;
      else if (line.rfind("result ", 0) == 0)
         finished = bool(fields >> r.failed >> r.step >> r.fullChecks >> r.excused >>
                         r.strictChecks >> r.flapChecks);
      else if (line.rfind("v ", 0) == 0)
         r.violations.push_back(line.substr(2));
   }
   if (finished) return r;
   // The last line the child wrote to standard error: an assertion's text.
   std::string last;
   std::istringstream err(o.err);
   for (std::string line; std::getline(err, line);)
      if (!line.empty()) last = line;
   r.failed = true;
   r.violations = {"crash: " +
                   (o.code >= 128 ? "killed by signal " + std::to_string(o.code - 128)
                                  : "exited with " + std::to_string(o.code)) +
                   (last.empty() ? "" : ": " + last)};
   return r;
}

// Runs one seed; prints the report of a failure. False when it failed.
bool runSeed(uint64_t seed, uint32_t opCount, const std::vector<uint32_t>* only, bool verbose,
             model::RunResult& r) {
   const auto config =
       model::runConfig(seed, MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer::commonIifOifIndex());
   const auto all = model::generateOps(config, opCount);
   std::vector<uint32_t> original;  // the seed's op number of each op run
   for (uint32_t i = 0; i < all.size(); ++i)
      if (!only || std::ranges::count(*only, i)) original.push_back(i);
   const auto ops = model::opsAt(all, original);
   if (verbose) {
      std::cout << config.describe() << "\n";
      model::RunOptions options;
      options.log = &std::cout;
      options.dumpEach = dumpEach;
      const auto shown = model::runOps(config, ops, options);
      if (!shown.failed)
         std::cout << "held: " << shown.fullChecks << " full checks, " << shown.excused
                   << " excused entries\n";
   }
   r = runIsolated(config, ops);
   if (!r.failed) return true;
   model::Shrunk s = model::shrink(
       ops, r, [&](const std::vector<model::Op>& sub) { return runIsolated(config, sub); });
   // Back to the seed's own op numbers.
   for (auto& i : s.prefix) i = original[i];
   for (auto& i : s.kept) i = original[i];
   s.original.step = r.step < ops.size() ? original[r.step] : uint32_t(all.size());
   std::cout << model::failureReport(config, opCount, all, s) << std::flush;
   return false;
}

}  // namespace

int main(int argc, char** argv) {
   const std::set<std::string> flags{"--keep-going", "--dump", "--verbose"};
   const std::set<std::string> valued{"--seconds", "--first-seed", "--ops", "--seed", "--only"};
   std::map<std::string, std::string> given;  // a flag maps to ""
   for (int i = 1; i < argc; ++i) {
      const std::string a = argv[i];
      if (!flags.count(a) && !valued.count(a)) usage("unknown argument " + a);
      if (valued.count(a) && i + 1 >= argc) usage(a + " needs a value");
      given[a] = valued.count(a) ? argv[++i] : "";
   }
   auto num = [&](const std::string& o, uint64_t fallback) {
      return given.count(o) ? number(given[o], o) : fallback;
   };
   const uint32_t opCount = uint32_t(num("--ops", 120));
   dumpEach = given.count("--dump");  // a single seed is always shown op by op: --verbose
   model::RunResult r;
   if (given.count("--seed")) {
      std::vector<uint32_t> subset;
      if (given.count("--only")) subset = indices(given["--only"], opCount);
      return !runSeed(num("--seed", 0), opCount, given.count("--only") ? &subset : nullptr, true,
                      r);
   }
   if (given.count("--only")) usage("--only goes with --seed");

   const bool toggle = MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer::commonIifOifIndex();
   const uint64_t firstSeed = num("--first-seed", std::random_device{}());
   const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(num("--seconds", 60));
   uint64_t runs = 0, failed = 0, checks = 0, excused = 0, strict = 0, flap = 0;
   for (uint64_t s = firstSeed; std::chrono::steady_clock::now() < end; ++s) {
      ++runs;
      if (!runSeed(s, opCount, nullptr, false, r)) {
         ++failed;
         if (given.count("--keep-going")) continue;
         break;
      }
      checks += r.fullChecks;
      excused += r.excused;
      strict += r.strictChecks;
      flap += r.flapChecks;
   }
   std::cout << "runs: " << runs << " (seeds " << firstSeed << ".." << firstSeed + runs - 1
             << ", toggle " << (toggle ? "on" : "off") << ", " << opCount << " ops each, " << checks
             << " full checks (" << strict << " strict after a settle), " << excused
             << " excused entries, " << flap << " replays that changed no row), failed: " << failed
             << "\n";
   return failed ? 1 : 0;
}
