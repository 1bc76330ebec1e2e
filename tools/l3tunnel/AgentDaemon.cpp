#include "AgentDaemon.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include "CommandLine.h"
#include "HumanOutput.h"
#include "JsonOutput.h"
#include "JsonWriter.h"
#include "Netlink.h"
#include "Output.h"
#include "StateDir.h"
#include "UnixSocket.h"

namespace L3TunnelTool {

namespace {

constexpr std::string_view adjacencyFile = "adjacencies.json";
constexpr size_t maxRequest = 4096;

int listenOn(const std::string& path) {
   const auto found = unixAddress(path);
   if (!found) throw AgentError("socket path '" + path + "' is too long", 2);
   const sockaddr_un& address = *found;
   const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
   if (fd < 0) throw AgentError(errnoText("socket"), 1);
   // A socket file nobody answers on is left from an agent that died.
   if (const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); probe >= 0) {
      const bool answered =
          connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
      close(probe);
      if (answered) {
         close(fd);
         throw AgentError(path + ": another agent answers on this socket", 1);
      }
   }
   unlink(path.c_str());
   const mode_t old = umask(0177);
   const int bound = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
   umask(old);
   if (bound != 0 || chmod(path.c_str(), 0600) != 0 || listen(fd, 16) != 0) {
      const std::string what = errnoText(path);
      close(fd);
      throw AgentError(what, 1);
   }
   return fd;
}

}  // namespace

std::vector<std::string> wordsOf(std::string_view line) {
   std::vector<std::string> words;
   size_t at = 0;
   while (at < line.size()) {
      const size_t start = line.find_first_not_of(' ', at);
      if (start == std::string_view::npos) break;
      const size_t end = std::min(line.find(' ', start), line.size());
      words.emplace_back(line.substr(start, end - start));
      at = end;
   }
   return words;
}

ShowRequest showRequestOf(const std::vector<std::string>& words) {
   using Bad = std::invalid_argument;
   ShowRequest r;
   if (words.empty() || (words[0] != "json" && words[0] != "text" && words[0] != "colour"))
      throw Bad("a request starts with json, text or colour");
   r.format = words[0];
   const std::string view = words.size() > 1 ? words[1] : "all";
   size_t expected = 2;
   static const std::pair<std::string_view, ShowView> views[] = {{"all", ShowView::all},
                                                                 {"groups", ShowView::groups},
                                                                 {"tables", ShowView::tables},
                                                                 {"usage", ShowView::usage},
                                                                 {"tunnel", ShowView::tunnel}};
   const auto* v = std::find_if(std::begin(views), std::end(views),
                                [&](const auto& p) { return p.first == view; });
   if (v == std::end(views))
      throw Bad("unknown view '" + printableText(view) +
                "' (all, groups, tables, usage, tunnel SRC DST)");
   r.view = v->second;
   if (r.view == ShowView::tunnel) {
      expected = 4;
      if (words.size() < 4) throw Bad("tunnel needs SRC and DST");
      const Bad bad("tunnel: '" + printableText(words[2]) + " " + printableText(words[3]) +
                    "' is not SRC DST (two IPv4 or two IPv6 addresses)");
      try {
         const Wire::IpGenAddr src(words[2]), dst(words[3]);
         if (src.family() != dst.family()) throw bad;
         r.tunnel = MeridL3Tunnel::L3TunnelKey(src, dst);
      } catch (const std::invalid_argument&) {
         throw bad;
      }
   }
   if (words.size() > expected) throw Bad("unexpected '" + printableText(words[expected]) + "'");
   return r;
}

// What the agent holds open: the state directory's lock, the kernel's
// sockets and the listening socket.
class AgentDaemon::Io {
public:
   std::optional<StateDir> stateDir;
   std::optional<Netlink> netlink;
   int listenFd = -1;
   std::string socketPath;

   ~Io() {
      if (listenFd < 0) return;
      close(listenFd);
      unlink(socketPath.c_str());
   }
};

AgentDaemon::AgentDaemon(const AgentConfig& config) : config_(config), io_(std::make_unique<Io>()) {
   bool recover = false;
   if (config_.stateDir) {
      try {
         io_->stateDir.emplace(*config_.stateDir);
      } catch (const StateDirError& e) {
         throw AgentError(e.what, e.busy ? 1 : 2);
      }
      recover = io_->stateDir->stateExists();
      const std::string idsPath = *config_.stateDir + "/" + std::string(adjacencyFile);
      if (std::ifstream in(idsPath); in) {
         std::stringstream text;
         text << in.rdbuf();
         try {
            ids_.textIs(text.str());
         } catch (const std::runtime_error& e) {
            throw AgentError(idsPath + ": " + e.what(), 2);
         }
      }
   }
   agent_ = std::make_unique<Agent>(config_.chip);
   start_.stateDir = config_.stateDir;
   if (recover) {
      try {
         agent_->chipStateLoad(io_->stateDir->statePath());
      } catch (const std::runtime_error& e) {
         throw AgentError(e.what(), 2);
      }
      start_.recoveredRows = agent_->rowsHeld();
   }
   agent_->start(recover);
   follower_ = std::make_unique<KernelFollower>(*agent_, ids_, config_.defaultTtl);
   try {
      // Subscribed before the dump, so that no change falls between them.
      io_->netlink.emplace(config_.receiveBuffer);
   } catch (const NetlinkError& e) {
      throw AgentError(e.what(), 1);
   }
   io_->listenFd = listenOn(config_.socketPath);
   io_->socketPath = config_.socketPath;
}

AgentDaemon::~AgentDaemon() = default;

void AgentDaemon::start() {
   const std::string ids = ids_.text();
   follower_->dumpBegin(false);
   io_->netlink->dump([&](KernelEvent&& e) { follower_->apply(e); });
   serveWaiting();
   follower_->dumpEnd(true, [this] { serveWaiting(); });
   // A restart that changed nothing leaves the saved state as it is.
   if (agent_->chipTouched() || !start_.recoveredRows || ids != ids_.text()) save();
   lastSave_ = std::chrono::steady_clock::now();
   follower_->changedTake();
}

void AgentDaemon::dumpAgain(bool lost) {
   follower_->dumpBegin(lost);
   io_->netlink->dump([&](KernelEvent&& e) { follower_->apply(e); });
   follower_->dumpEnd(false, [this] { serveWaiting(); });
}

void AgentDaemon::save() {
   if (!io_->stateDir) return;
   try {
      ids_.retain(follower_->usedAdjacencies());
      const std::string ids = *config_.stateDir + "/" + std::string(adjacencyFile);
      {
         std::ofstream out(ids + ".tmp");
         out << ids_.text();
         if (!out.flush()) throw std::runtime_error(ids + ".tmp: cannot be written");
      }
      if (std::rename((ids + ".tmp").c_str(), ids.c_str()) != 0)
         throw std::runtime_error(errnoText(ids));
      agent_->chipStateSave(io_->stateDir->statePath());
   } catch (const std::exception& e) {
      lastProblem_ = std::string("saving the state: ") + e.what();
      std::cerr << "l3tunnel agent: " << *lastProblem_ << std::endl;
   }
   lastSave_ = std::chrono::steady_clock::now();
   unsaved_ = false;
}

int AgentDaemon::saveWaitMs() const {
   if (!unsaved_ || !io_->stateDir) return -1;
   const auto due = lastSave_ + saveInterval - std::chrono::steady_clock::now();
   return int(std::max<int64_t>(
       0, std::chrono::duration_cast<std::chrono::milliseconds>(due).count() + 1));
}

bool AgentDaemon::step(int timeoutMs, int wakeFd) {
   const int saveWait = saveWaitMs();
   if (saveWait >= 0 && (timeoutMs < 0 || saveWait < timeoutMs)) timeoutMs = saveWait;
   pollfd fds[3] = {
       {io_->netlink->fd(), POLLIN, 0}, {io_->listenFd, POLLIN, 0}, {wakeFd, POLLIN, 0}};
   if (poll(fds, wakeFd >= 0 ? 3 : 2, timeoutMs) < 0 && errno != EINTR)
      throw AgentError(errnoText("poll"), 1);
   if (fds[0].revents) {
      auto apply = [&](KernelEvent&& e) { follower_->apply(e); };
      if (io_->netlink->read(apply) == Netlink::ReadResult::overflowed) {
         lastProblem_ =
             "the kernel dropped notifications (netlink receive buffer full); dumped everything "
             "again";
         // What is still queued is older than the dump: dropped.
         while (io_->netlink->read([](KernelEvent&&) {}) == Netlink::ReadResult::overflowed) {
         }
         dumpAgain(true);
      } else if (follower_->mirror().linkDownTake()) {
         // The kernel flushes nexthops and IPv4 routes of a device going down
         // without a word: only a dump tells what is left.
         dumpAgain(false);
      } else {
         follower_->flush();
      }
      agent_->settle();
      if (follower_->changedTake()) unsaved_ = true;
   }
   if (fds[1].revents) serveWaiting();
   if (unsaved_ && saveWaitMs() == 0) save();
   return wakeFd >= 0 && fds[2].revents;
}

void AgentDaemon::serveWaiting() {
   for (;;) {
      const int fd = accept4(io_->listenFd, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) return;
      serve(fd);
      close(fd);
   }
}

// One request line, one answer; a client that sends nothing in time is
// answered with an error.
void AgentDaemon::serve(int fd) {
   const timeval timeout{2, 0};
   setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
   const timeval sendTimeout{10, 0};
   setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, sizeof sendTimeout);
   std::string line;
   char buf[512];
   while (line.find('\n') == std::string::npos && line.size() <= maxRequest) {
      const ssize_t n = recv(fd, buf, sizeof buf, 0);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      line.append(buf, size_t(n));
   }
   const size_t eol = line.find('\n');
   // Written as it is made: a whole state can be large.
   StdOutput out(fd);
   if (line.size() > maxRequest && eol > maxRequest)
      out << "error\na request is one line of at most " << maxRequest << " bytes\n";
   else if (eol == std::string::npos)
      out << "error\na request is one line ending in a newline\n";
   else
      answer(std::string_view(line).substr(0, eol), out);
   out.finish();
}

void AgentDaemon::finish() {
   follower_->flush();
   agent_->settle();
   save();
}

void AgentDaemon::answer(std::string_view line, std::ostream& out) const {
   ShowRequest r;
   try {
      r = showRequestOf(wordsOf(line));
   } catch (const std::invalid_argument& e) {
      out << "error\n" << e.what() << "\n";
      return;
   }
   out << "ok\n";
   const Snapshot s(*agent_);
   const RunView run = s.run(start_);
   AgentView a;
   a.phase = follower_->phase();
   a.nexthops = follower_->mirror().nexthops();
   a.groups = follower_->mirror().groups();
   a.routes = follower_->mirror().routes();
   a.changesApplied = follower_->changesApplied();
   a.resyncs = follower_->resyncs();
   a.hardwareWrites = run.hardwareWrites;
   a.hardwareDeletes = run.hardwareDeletes;
   a.lastProblem = lastProblem_;
   const MeridL3Tunnel::L3TunnelKey* key = r.tunnel ? &*r.tunnel : nullptr;
   if (r.format == "json") {
      JsonWriter w(out);
      showJsonWrite(w, s, run, a, r.view, key);
   } else {
      humanShowPrint(out, s, a, r.view, key, HumanStyle{r.format == "colour"});
   }
}

}  // namespace L3TunnelTool
