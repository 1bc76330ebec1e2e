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
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <random>
#include <sstream>
#include <string>

#include "Model/ModelRun.h"

namespace {

bool dumpEach = false;  // --dump: the chip's rows after every op of a shown run

[[noreturn]] void usage(const std::string& why) {
   std::cerr << "model_soak: " << why << "\n"
             << "usage: model_soak [--seconds S] [--first-seed N] [--ops N] [--keep-going]\n"
             << "       model_soak --seed N [--ops N] [--only I,J,...] [--dump]\n";
   std::exit(2);
}

uint64_t number(const std::string& text, const char* option) {
   uint64_t v = 0;
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), v);
   if (text.empty() || error != std::errc() || end != text.data() + text.size())
      usage(std::string(option) + ": not a number: " + text);
   return v;
}

std::vector<uint32_t> indices(const std::string& list, uint32_t count) {
   std::vector<uint32_t> out;
   if (list == "none") return out;
   for (size_t p = 0; p <= list.size();) {
      const size_t comma = std::min(list.find(',', p), list.size());
      const uint64_t i = number(list.substr(p, comma - p), "--only");
      if (i >= count) usage("--only: op " + std::to_string(i) + " is past the last op");
      out.push_back(uint32_t(i));
      p = comma + 1;
   }
   return out;
}

void writeAll(int fd, const std::string& s) {
   for (size_t done = 0; done < s.size();) {
      const ssize_t n = ::write(fd, s.data() + done, s.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      done += size_t(n);
   }
}

// The last lines the child wrote to standard error: an assertion's text.
std::string tail(const std::string& path) {
   std::ifstream in(path);
   std::string line, last;
   while (std::getline(in, line))
      if (!line.empty()) last = line;
   return last;
}

// Runs the ops in a child process. The child reports each op before it runs
// it and the result at the end; a child that dies failed at its last op.
model::RunResult runIsolated(const model::RunConfig& config, const std::vector<model::Op>& ops) {
   int fd[2];
   if (::pipe(fd) != 0) throw std::runtime_error("pipe: " + std::string(std::strerror(errno)));
   char errPath[] = "/tmp/model-soak-XXXXXX";
   const int errFd = ::mkstemp(errPath);
   std::cout.flush();
   const pid_t pid = ::fork();
   if (pid == 0) {
      ::close(fd[0]);
      if (errFd >= 0) ::dup2(errFd, STDERR_FILENO);
      model::RunOptions options;
      options.progress = [&](uint32_t step) {
         writeAll(fd[1], "step " + std::to_string(step) + "\n");
      };
      const model::RunResult r = model::runOps(config, ops, options);
      std::string out = "result " + std::to_string(r.failed) + " " + std::to_string(r.step) + " " +
                        std::to_string(r.fullChecks) + " " + std::to_string(r.excused) + " " +
                        std::to_string(r.strictChecks) + " " + std::to_string(r.flapChecks) + "\n";
      for (auto& v : r.violations) out += "v " + v + "\n";
      writeAll(fd[1], out);
      ::_exit(0);
   }
   ::close(fd[1]);
   std::string text;
   char buf[4096];
   for (ssize_t n; (n = ::read(fd[0], buf, sizeof buf)) != 0;) {
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) break;
      text.append(buf, size_t(n));
   }
   ::close(fd[0]);
   int status = 0;
   ::waitpid(pid, &status, 0);
   model::RunResult r;
   std::istringstream in(text);
   bool finished = false;
   for (std::string line; std::getline(in, line);) {
      if (line.rfind("step ", 0) == 0) {
         std::from_chars(line.data() + 5, line.data() + line.size(), r.step);
      } else if (line.rfind("result ", 0) == 0) {
         std::istringstream fields(line.substr(7));
         int failed = 0;
         fields >> failed >> r.step >> r.fullChecks >> r.excused >> r.strictChecks >> r.flapChecks;
         r.failed = failed != 0;
         finished = true;
      } else if (line.rfind("v ", 0) == 0) {
         r.violations.push_back(line.substr(2));
      }
   }
   if (!finished) {
      r.failed = true;
      std::string why = WIFSIGNALED(status) ? "killed by signal " + std::to_string(WTERMSIG(status))
                                            : "exited with " + std::to_string(WEXITSTATUS(status));
      const std::string last = errFd >= 0 ? tail(errPath) : "";
      r.violations = {"crash: " + why + (last.empty() ? "" : ": " + last)};
   }
   if (errFd >= 0) {
      ::close(errFd);
      ::unlink(errPath);
   }
   return r;
}

// Runs one seed; prints the report of a failure. False when it failed.
bool runSeed(uint64_t seed, uint32_t opCount, const std::vector<uint32_t>* only, bool verbose,
             model::RunResult& r) {
   const auto config =
       model::runConfig(seed, MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer::commonIifOifIndex());
   const auto all = model::generateOps(config, opCount);
   std::vector<model::Op> ops;
   std::vector<uint32_t> original;
   for (uint32_t i = 0; i < all.size(); ++i) {
      if (only && std::find(only->begin(), only->end(), i) == only->end()) continue;
      ops.push_back(all[i]);
      original.push_back(i);
   }
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
   uint64_t seconds = 60, firstSeed = std::random_device{}(), seed = 0;
   uint32_t opCount = 120;
   bool oneSeed = false, keepGoing = false;
   std::string only;
   for (int i = 1; i < argc; ++i) {
      const std::string a = argv[i];
      auto value = [&]() -> std::string {
         if (i + 1 >= argc) usage(a + " needs a value");
         return argv[++i];
      };
      if (a == "--seconds")
         seconds = number(value(), "--seconds");
      else if (a == "--first-seed")
         firstSeed = number(value(), "--first-seed");
      else if (a == "--ops")
         opCount = uint32_t(number(value(), "--ops"));
      else if (a == "--seed")
         oneSeed = true, seed = number(value(), "--seed");
      else if (a == "--only")
         only = value();
      else if (a == "--keep-going")
         keepGoing = true;
      else if (a == "--verbose")
         ;  // a single seed is always shown op by op
      else if (a == "--dump")
         dumpEach = true;
      else
         usage("unknown argument " + a);
   }
   const bool toggle = MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer::commonIifOifIndex();
   model::RunResult r;
   if (oneSeed) {
      std::vector<uint32_t> subset;
      if (!only.empty()) subset = indices(only, opCount);
      return runSeed(seed, opCount, only.empty() ? nullptr : &subset, true, r) ? 0 : 1;
   }
   if (!only.empty()) usage("--only goes with --seed");

   const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
   uint64_t runs = 0, failed = 0, checks = 0, excused = 0, strict = 0, flap = 0;
   for (uint64_t s = firstSeed; std::chrono::steady_clock::now() < end; ++s) {
      ++runs;
      if (!runSeed(s, opCount, nullptr, false, r)) {
         ++failed;
         if (keepGoing) continue;
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
