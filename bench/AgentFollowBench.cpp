// `l3tunnel agent` following the kernel, in a private network namespace (root
// only; skipped elsewhere). The kernel gets 1,024 IP-in-IP nexthops (one per
// tunnel endpoint, all through one neighbour) and nexthop groups of 16 of
// them: group g holds nexthops 1 + (g + v (61 + 2 (g / 1024))) mod 1024, so
// every nexthop is in 64 groups and no two groups hold the same set (the
// member table shares a block between groups of equal members).
//
//   agent/sync/N      N groups installed with one `ip -batch` while the
//                     agent runs: time from the end of the batch until every
//                     group is programmed with success. Counters resyncs
//                     (must be 0 at the agent's default buffer), batch_ms
//                     (the batch itself, the agent following as it runs) and
//                     rows (on the chip at the end).
//   agent/delete/N    one nexthop deleted with `ip nexthop del`: time until
//                     its 64 groups are programmed again without it. The
//                     member table needs room for their new blocks before the
//                     old ones go, so N leaves that room.
//   agent/restart/N   the agent stopped and started again with nothing
//                     changed: time from its start until it follows.
//                     Counters hw_writes and hw_deletes (must be 0).
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>

#include "AgentDaemon.h"
#include "BenchRig.h"
#include "Scenario.h"
#include "support/KernelNamespace.h"

namespace bench {
namespace {

using L3TunnelTool::AgentConfig;
using L3TunnelTool::AgentDaemon;
using Clock = std::chrono::steady_clock;

constexpr uint32_t endpoints = 1024;
constexpr uint32_t membersPerGroup = 16;
constexpr uint32_t groupIdBase = 10000;

uint32_t memberOf(uint32_t g, uint32_t v) {
   return 1 + (g + v * (61 + 2 * (g / endpoints))) % endpoints;
}

std::string endpoint(uint32_t n) {
   return "10.200." + std::to_string(n / 256) + "." + std::to_string(n % 256);
}

bool sh(const std::string& command) { return std::system(command.c_str()) == 0; }

// A namespace of its own with the neighbour every nexthop goes through
// (see KernelNamespace.h), and a state directory; `why` says what failed.
struct Namespace {
   std::string dir;
   std::string why;

   Namespace() : why(support::kernelNamespaceIs()) {
      if (!why.empty()) return;
      char pattern[] = "/tmp/l3tunnel-agent-bench-XXXXXX";
      if (mkdtemp(pattern))
         dir = pattern;
      else
         why = "no temporary directory";
   }
   ~Namespace() {
      if (!dir.empty()) std::filesystem::remove_all(dir);
   }

   // The nexthops and `groups` groups, as one batch file.
   std::string batch(uint32_t groups) const {
      const std::string file = dir + "/batch";
      std::ofstream out(file);
      for (uint32_t n = 1; n <= endpoints; ++n)
         out << "nexthop add id " << n << " encap ip src 192.0.2.1 dst " << endpoint(n)
             << " ttl 64 via 172.16.0.2 dev veth0\n";
      for (uint32_t g = 0; g < groups; ++g) {
         out << "nexthop add id " << groupIdBase + g << " group ";
         for (uint32_t v = 0; v < membersPerGroup; ++v) out << (v ? "/" : "") << memberOf(g, v);
         out << "\n";
      }
      return file;
   }

   AgentConfig config() const {
      AgentConfig c;
      c.stateDir = dir + "/state";
      c.socketPath = dir + "/agent.sock";
      c.chip = L3TunnelTool::scenarioParse(
          R"({"chip": {"tableSizes": {"L3EcmpMember0Table": 65536}}})", "(bench)");
      return c;
   }
};

bool allProgrammed(const AgentDaemon& d, uint32_t groups) {
   const auto& held = d.agent().groups();
   if (held.size() != groups) return false;
   for (const auto& [name, block] : held)
      if (block->entryState() != Asic::SwTableBase::success()) return false;
   return true;
}

// Runs `ip -batch FILE` while the agent follows; true when it succeeded.
bool batchWhileFollowing(AgentDaemon& d, const std::string& file, double* seconds = nullptr) {
   const auto t0 = Clock::now();
   const pid_t ip = fork();
   if (ip == 0) {
      execlp("ip", "ip", "-batch", file.c_str(), nullptr);
      _exit(127);
   }
   int status = 0;
   while (waitpid(ip, &status, WNOHANG) == 0) d.step(1);
   if (seconds) *seconds = std::chrono::duration<double>(Clock::now() - t0).count();
   return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// A namespace with the agent following `groups` groups.
std::unique_ptr<AgentDaemon> followed(benchmark::State& state, const Namespace& ns,
                                      uint32_t groups) {
   if (!check(state, ns.why.empty(), ns.why.c_str())) return nullptr;
   auto d = std::make_unique<AgentDaemon>(ns.config());
   d->start();
   if (!check(state, batchWhileFollowing(*d, ns.batch(groups)), "ip -batch failed")) return nullptr;
   while (!allProgrammed(*d, groups)) d->step(1);
   return d;
}

double secondsSince(Clock::time_point t) {
   return std::chrono::duration<double>(Clock::now() - t).count();
}

void BM_Sync(benchmark::State& state) {
   const auto groups = uint32_t(state.range(0));
   uint64_t resyncs = 0;
   double batch = 0;
   for (auto _ : state) {
      Namespace ns;
      if (!check(state, ns.why.empty(), ns.why.c_str())) return;
      AgentDaemon d(ns.config());
      d.start();
      if (!check(state, batchWhileFollowing(d, ns.batch(groups), &batch), "ip -batch failed"))
         return;
      const auto t0 = Clock::now();
      while (!allProgrammed(d, groups)) d.step(1);
      state.SetIterationTime(secondsSince(t0));
      resyncs += d.follower().resyncs();
      state.counters["rows"] = double(d.agent().rowsHeld());
   }
   state.counters["resyncs"] = double(resyncs);
   state.counters["batch_ms"] = batch * 1000;
}

void BM_Delete(benchmark::State& state) {
   const auto groups = uint32_t(state.range(0));
   Namespace ns;
   auto d = followed(state, ns, groups);
   if (!d) return;
   uint32_t victim = 0;
   for (auto _ : state) {
      ++victim;
      // The groups holding the victim.
      std::set<std::string> affected;
      for (uint32_t g = 0; g < groups; ++g)
         for (uint32_t v = 0; v < membersPerGroup; ++v)
            if (memberOf(g, v) == victim)
               affected.insert("nhid:" + std::to_string(groupIdBase + g));
      const std::string gone = endpoint(victim);
      auto done = [&] {
         for (const auto& name : affected) {
            auto it = d->agent().groups().find(name);
            if (it == d->agent().groups().end() ||
                it->second->entryState() != Asic::SwTableBase::success())
               return false;
            for (const auto& via : d->agent().groupVias().at(name))
               if (via.dstIpAddr().stringValue() == gone) return false;
         }
         return true;
      };
      if (!check(state, sh("ip nexthop del id " + std::to_string(victim)), "ip nexthop del"))
         return;
      const auto t0 = Clock::now();
      while (!done()) d->step(1);
      state.SetIterationTime(secondsSince(t0));
      state.counters["groups_reprogrammed"] = double(affected.size());
   }
}

void BM_Restart(benchmark::State& state) {
   const auto groups = uint32_t(state.range(0));
   Namespace ns;
   auto d = followed(state, ns, groups);
   if (!d) return;
   L3TunnelTool::RunView run;
   for (auto _ : state) {
      d->finish();
      d = nullptr;  // saved; the chip's rows stay in the state directory
      const auto t0 = Clock::now();
      d = std::make_unique<AgentDaemon>(ns.config());
      d->start();
      state.SetIterationTime(secondsSince(t0));
      run = L3TunnelTool::Snapshot(d->agent()).run({});
      if (!check(state, allProgrammed(*d, groups), "groups lost in the restart")) return;
   }
   state.counters["hw_writes"] = double(run.hardwareWrites);
   state.counters["hw_deletes"] = double(run.hardwareDeletes);
}

const bool registered = [] {
   benchmark::RegisterBenchmark("agent/sync", BM_Sync)
       ->Arg(4096)
       ->Iterations(1)
       ->UseManualTime()
       ->Unit(benchmark::kMillisecond);
   // 4032 groups leave 1,024 member rows free: room for 64 new blocks of 15.
   benchmark::RegisterBenchmark("agent/delete", BM_Delete)
       ->Arg(4032)
       ->Iterations(8)
       ->UseManualTime()
       ->Unit(benchmark::kMillisecond);
   benchmark::RegisterBenchmark("agent/restart", BM_Restart)
       ->Arg(4096)
       ->Iterations(3)
       ->UseManualTime()
       ->Unit(benchmark::kMillisecond);
   return true;
}();

}  // namespace
}  // namespace bench
