#pragma once
// The agent following the kernel: the state directory, the simulated chip,
// the netlink sockets, the follower and the socket `show` asks on, driven one
// poll at a time so that the program and the benchmarks run it alike.
//
// Phases (the follower's): syncing during start() and each dump again,
// following otherwise. The chip is saved (with the adjacency ids) once the
// changes read are applied and nothing is waiting, at most once per
// saveInterval while changes keep coming, and by finish().
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Agent.h"
#include "Follower.h"
#include "Scenario.h"
#include "Snapshot.h"

namespace L3TunnelTool {

struct AgentConfig {
   std::optional<std::string> stateDir;
   Scenario chip;  // chip and toggles only
   std::string socketPath;
   uint32_t defaultTtl = 64;
   // The notification socket's buffer: large, so that a burst of changes is
   // read without loss while the agent programs.
   uint32_t receiveBuffer = uint32_t(8) << 20;
};

// Why the agent cannot run: the exit code (1 busy or failing, 2 bad input)
// and one line.
struct AgentError : std::runtime_error {
   AgentError(const std::string& what, int code) : std::runtime_error(what), exitCode(code) {}
   int exitCode;
};

// A `show` request: one line, FORMAT VIEW [SRC DST] with FORMAT json, text or
// colour. Throws std::invalid_argument naming the fault.
struct ShowRequest {
   std::string format;
   ShowView view = ShowView::all;
   std::optional<MeridL3Tunnel::L3TunnelKey> tunnel;
};
ShowRequest showRequestOf(const std::vector<std::string>& words);
std::vector<std::string> wordsOf(std::string_view line);

class AgentDaemon {
public:
   static constexpr auto saveInterval = std::chrono::milliseconds(1000);

   // Locks the state directory, loads the chip and the adjacency ids,
   // subscribes to the kernel and listens on the socket. Throws AgentError.
   explicit AgentDaemon(const AgentConfig& config);
   ~AgentDaemon();
   AgentDaemon(const AgentDaemon&) = delete;
   AgentDaemon& operator=(const AgentDaemon&) = delete;

   // The start-up sync: dump, program, reconcile, save when anything changed.
   void start();
   // Waits for the kernel, a client or `wakeFd` at most `timeoutMs` (-1: no
   // bound, but a save due is waited for), and handles what came. True when
   // `wakeFd` is readable.
   bool step(int timeoutMs = -1, int wakeFd = -1);
   // Applies what is left and saves.
   void finish();

   // The answer to one request line: "ok\n" and the output, or "error\n"
   // and why.
   void answer(std::string_view line, std::ostream& out) const;

   const Agent& agent() const { return *agent_; }
   const KernelFollower& follower() const { return *follower_; }
   const std::string& socketPath() const { return config_.socketPath; }

private:
   class Io;
   void save();
   void dumpAgain(bool lost);
   // Answers the clients waiting on the socket, without waiting for more.
   void serveWaiting();
   void serve(int fd);
   int saveWaitMs() const;

   AgentConfig config_;
   std::unique_ptr<Io> io_;  // the lock, the sockets
   AdjacencyIds ids_;
   std::unique_ptr<Agent> agent_;
   std::unique_ptr<KernelFollower> follower_;
   RunView start_;
   std::optional<std::string> lastProblem_;
   std::chrono::steady_clock::time_point lastSave_;
   bool unsaved_ = false;
};

}  // namespace L3TunnelTool
