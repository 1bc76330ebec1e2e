#include "AgentCommand.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Agent.h"
#include "Follower.h"
#include "HumanOutput.h"
#include "JsonOutput.h"
#include "JsonWriter.h"
#include "Netlink.h"
#include "Orb/Trace.h"
#include "Scenario.h"
#include "Snapshot.h"
#include "StateDir.h"

namespace L3TunnelTool {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int exitFailure = 1;
constexpr int exitBadInput = 2;
constexpr std::string_view socketName = "agent.sock";
constexpr std::string_view adjacencyFile = "adjacencies.json";
// Saves are at most this often while changes keep coming; one follows the
// last change of a burst, and one the stop.
constexpr auto saveInterval = std::chrono::milliseconds(1000);
constexpr size_t maxRequest = 4096;

constexpr const char* agentUsage =
    "usage: l3tunnel agent [--state-dir DIR] [--chip FILE.json] [--socket PATH]\n"
    "                      [--default-ttl N] [--trace SPEC]\n";
constexpr const char* showUsage =
    "usage: l3tunnel show [--socket PATH] [--json] [all | groups | tables | usage | tunnel SRC "
    "DST]\n";

struct UsageError {
   std::string what;
};

// Options of the form --name VALUE or --name=VALUE; the rest is positional.
struct Args {
   std::vector<std::pair<std::string, std::string>> values;
   std::vector<std::string> flags;
   std::vector<std::string> positional;
};

Args argsRead(int argc, char** argv, std::initializer_list<std::string_view> valued,
              std::initializer_list<std::string_view> flags) {
   Args a;
   for (int i = 1; i < argc; ++i) {
      const std::string_view arg = argv[i];
      if (arg.size() < 2 || arg[0] != '-') {
         a.positional.emplace_back(arg);
         continue;
      }
      bool matched = false;
      for (const auto name : valued) {
         if (arg == name) {
            if (i + 1 >= argc) throw UsageError{std::string(name) + " needs a value"};
            a.values.emplace_back(name, argv[++i]);
         } else if (arg.starts_with(name) && arg.size() > name.size() && arg[name.size()] == '=') {
            a.values.emplace_back(name, arg.substr(name.size() + 1));
         } else {
            continue;
         }
         matched = true;
         break;
      }
      for (const auto name : flags)
         if (!matched && arg == name) {
            a.flags.emplace_back(name);
            matched = true;
         }
      if (!matched) throw UsageError{"unknown option '" + std::string(arg) + "'"};
   }
   return a;
}

std::optional<std::string> valueOf(const Args& a, std::string_view name) {
   std::optional<std::string> v;
   for (const auto& [n, value] : a.values)
      if (n == name) v = value;
   return v;
}

uint32_t numberOf(const std::string& text, std::string_view name, uint32_t min, uint32_t max) {
   uint32_t n = 0;
   const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
   if (ec != std::errc() || end != text.data() + text.size() || n < min || n > max)
      throw UsageError{std::string(name) + ": '" + text + "' is not a number from " +
                       std::to_string(min) + " to " + std::to_string(max)};
   return n;
}

std::string socketPathOf(const std::optional<std::string>& socket,
                         const std::optional<std::string>& stateDir) {
   if (socket) return *socket;
   return (stateDir ? *stateDir + "/" : std::string()) + std::string(socketName);
}

sockaddr_un addressOf(const std::string& path) {
   sockaddr_un a{};
   a.sun_family = AF_UNIX;
   if (path.size() >= sizeof a.sun_path)
      throw UsageError{"socket path '" + path + "' is longer than " +
                       std::to_string(sizeof a.sun_path - 1) + " bytes"};
   std::memcpy(a.sun_path, path.data(), path.size());
   return a;
}

std::string errnoText(const std::string& what) { return what + ": " + std::strerror(errno); }

// ---- requests ---------------------------------------------------------------
//
// One line: FORMAT VIEW [SRC DST], FORMAT being json, text or colour. The
// answer is "ok\n" or "error\n", then the output or the error's text.

struct Request {
   std::string format;
   ShowView view = ShowView::all;
   std::optional<MeridL3Tunnel::L3TunnelKey> tunnel;
};

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

// The view a request's words name; throws UsageError naming the fault.
Request requestOf(const std::vector<std::string>& words) {
   Request r;
   if (words.empty() || (words[0] != "json" && words[0] != "text" && words[0] != "colour"))
      throw UsageError{"a request starts with json, text or colour"};
   r.format = words[0];
   const std::string view = words.size() > 1 ? words[1] : "all";
   size_t expected = 2;
   if (view == "all") {
      r.view = ShowView::all;
   } else if (view == "groups") {
      r.view = ShowView::groups;
   } else if (view == "tables") {
      r.view = ShowView::tables;
   } else if (view == "usage") {
      r.view = ShowView::usage;
   } else if (view == "tunnel") {
      r.view = ShowView::tunnel;
      expected = 4;
      if (words.size() < 4) throw UsageError{"tunnel needs SRC and DST"};
      try {
         const Wire::IpGenAddr src(words[2]), dst(words[3]);
         if (src.family() != dst.family()) throw std::invalid_argument("families");
         r.tunnel = MeridL3Tunnel::L3TunnelKey(src, dst);
      } catch (const std::invalid_argument&) {
         throw UsageError{"tunnel: '" + printableText(words[2]) + " " + printableText(words[3]) +
                          "' is not SRC DST (two IPv4 or two IPv6 addresses)"};
      }
   } else {
      throw UsageError{"unknown view '" + printableText(view) +
                       "' (all, groups, tables, usage, tunnel SRC DST)"};
   }
   if (words.size() > expected)
      throw UsageError{"unexpected '" + printableText(words[expected]) + "'"};
   return r;
}

// ---- the agent ------------------------------------------------------------------

class Daemon {
public:
   Daemon(Agent& agent, KernelFollower& follower, AdjacencyIds& ids, const RunView& start,
          std::optional<StateDir>& stateDir)
       : agent_(agent), follower_(follower), ids_(ids), start_(start), stateDir_(stateDir) {}

   std::optional<std::string> lastProblem;

   void save() {
      if (!stateDir_) return;
      try {
         ids_.retain(follower_.usedAdjacencies());
         const std::string path = stateDir_->statePath();
         const std::string dir = path.substr(0, path.rfind('/') + 1);
         const std::string ids = dir + std::string(adjacencyFile);
         {
            std::ofstream out(ids + ".tmp");
            out << ids_.text();
            if (!out.flush()) throw std::runtime_error(ids + ".tmp: cannot be written");
         }
         if (std::rename((ids + ".tmp").c_str(), ids.c_str()) != 0)
            throw std::runtime_error(errnoText(ids));
         agent_.chipStateSave(path);
      } catch (const std::exception& e) {
         lastProblem = std::string("saving the state: ") + e.what();
         std::cerr << "l3tunnel agent: " << *lastProblem << std::endl;
      }
      lastSave_ = Clock::now();
      unsaved_ = false;
   }

   void changedIs() { unsaved_ = true; }
   // How long poll may wait before a save is due; -1: none is.
   int saveWaitMs() const {
      if (!unsaved_ || !stateDir_) return -1;
      const auto due = lastSave_ + saveInterval - Clock::now();
      return int(std::max<int64_t>(
          0, std::chrono::duration_cast<std::chrono::milliseconds>(due).count() + 1));
   }
   void saveIfDue() {
      if (unsaved_ && saveWaitMs() == 0) save();
   }

   std::string answer(std::string_view line) {
      Request r;
      try {
         r = requestOf(wordsOf(line));
      } catch (const UsageError& e) {
         return "error\n" + e.what + "\n";
      }
      std::ostringstream out;
      out << "ok\n";
      const Snapshot s(agent_);
      const RunView run = s.run(start_);
      AgentView a;
      a.phase = follower_.phase();
      a.nexthops = follower_.mirror().nexthops();
      a.groups = follower_.mirror().groups();
      a.routes = follower_.mirror().routes();
      a.changesApplied = follower_.changesApplied();
      a.resyncs = follower_.resyncs();
      a.hardwareWrites = run.hardwareWrites;
      a.hardwareDeletes = run.hardwareDeletes;
      a.lastProblem = lastProblem;
      const MeridL3Tunnel::L3TunnelKey* key = r.tunnel ? &*r.tunnel : nullptr;
      if (r.format == "json") {
         JsonWriter w(out);
         showJsonWrite(w, s, run, a, r.view, key);
      } else {
         humanShowPrint(out, s, a, r.view, key, HumanStyle{r.format == "colour"});
      }
      return out.str();
   }

private:
   Agent& agent_;
   KernelFollower& follower_;
   AdjacencyIds& ids_;
   RunView start_;
   std::optional<StateDir>& stateDir_;
   Clock::time_point lastSave_ = Clock::now();
   bool unsaved_ = false;
};

// Sends all of `data`, or gives up when the peer stops reading.
void sendAll(int fd, std::string_view data) {
   while (!data.empty()) {
      const ssize_t n = send(fd, data.data(), data.size(), MSG_NOSIGNAL);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      data.remove_prefix(size_t(n));
   }
}

// One client: one request line, one answer. A client that sends nothing
// within the timeout is answered with an error.
void serve(int listenFd, Daemon& daemon) {
   const int fd = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
   if (fd < 0) return;
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
   std::string reply;
   if (line.size() > maxRequest)
      reply = "error\na request is one line of at most " + std::to_string(maxRequest) + " bytes\n";
   else if (line.find('\n') == std::string::npos)
      reply = "error\na request is one line ending in a newline\n";
   else
      reply = daemon.answer(std::string_view(line).substr(0, line.find('\n')));
   sendAll(fd, reply);
   close(fd);
}

int listenOn(const std::string& path) {
   const sockaddr_un address = addressOf(path);
   const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
   if (fd < 0) throw std::runtime_error(errnoText("socket"));
   // A socket file nobody answers on is left from an agent that died.
   if (const int probe = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); probe >= 0) {
      const bool answered =
          connect(probe, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
      close(probe);
      if (answered) {
         close(fd);
         throw std::runtime_error(path + ": another agent answers on this socket");
      }
   }
   unlink(path.c_str());
   const mode_t old = umask(0177);
   const int bound = bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address);
   umask(old);
   if (bound != 0 || chmod(path.c_str(), 0600) != 0 || listen(fd, 16) != 0) {
      const std::string what = errnoText(path);
      close(fd);
      throw std::runtime_error(what);
   }
   return fd;
}

}  // namespace

int agentMain(int argc, char** argv) {
   std::optional<std::string> stateDirPath, chipFile, socket, trace;
   uint32_t defaultTtl = 64;
   uint32_t receiveBuffer = 0;
   try {
      const Args a = argsRead(
          argc, argv,
          {"--state-dir", "--chip", "--socket", "--default-ttl", "--trace", "--netlink-buffer"},
          {});
      if (!a.positional.empty())
         throw UsageError{"agent: unexpected argument '" + a.positional[0] + "'"};
      stateDirPath = valueOf(a, "--state-dir");
      chipFile = valueOf(a, "--chip");
      socket = valueOf(a, "--socket");
      trace = valueOf(a, "--trace");
      if (auto t = valueOf(a, "--default-ttl")) defaultTtl = numberOf(*t, "--default-ttl", 1, 255);
      if (auto b = valueOf(a, "--netlink-buffer"))
         receiveBuffer = numberOf(*b, "--netlink-buffer", 1, 1u << 30);
      if (stateDirPath && stateDirPath->empty()) throw UsageError{"--state-dir needs a directory"};
   } catch (const UsageError& e) {
      std::cerr << "l3tunnel agent: " << e.what << "\n" << agentUsage;
      return exitBadInput;
   }
   if (trace) Orb::Trace::configIs(*trace);
   auto fail = [](const std::string& what, int code) {
      std::cerr << "l3tunnel agent: " << what << std::endl;
      return code;
   };

   // Without a file: the chip and toggles a scenario gets by default.
   Scenario chip = scenarioParse("{}", "(defaults)");
   if (chipFile) {
      try {
         chip = scenarioRead(*chipFile);
      } catch (const ScenarioError& e) {
         return fail(e.what(), exitBadInput);
      }
      if (!chip.steps.empty() || !chip.underlay.empty())
         return fail(
             *chipFile + ": the agent takes chip and toggles from it, not steps or underlay",
             exitBadInput);
   }

   std::optional<StateDir> stateDir;
   bool recover = false;
   AdjacencyIds ids;
   if (stateDirPath) {
      try {
         stateDir.emplace(*stateDirPath);
      } catch (const StateDirError& e) {
         return fail(e.what, e.busy ? exitFailure : exitBadInput);
      }
      recover = stateDir->stateExists();
      const std::string idsPath = *stateDirPath + "/" + std::string(adjacencyFile);
      if (std::ifstream in(idsPath); in) {
         std::stringstream text;
         text << in.rdbuf();
         try {
            ids.textIs(text.str());
         } catch (const std::runtime_error& e) {
            return fail(idsPath + ": " + e.what(), exitBadInput);
         }
      }
   }

   // Signals are read from a descriptor, so the loop sees them between requests.
   sigset_t stopSignals;
   sigemptyset(&stopSignals);
   sigaddset(&stopSignals, SIGTERM);
   sigaddset(&stopSignals, SIGINT);
   sigprocmask(SIG_BLOCK, &stopSignals, nullptr);
   const int signalFd = signalfd(-1, &stopSignals, SFD_CLOEXEC | SFD_NONBLOCK);
   if (signalFd < 0) return fail(errnoText("signalfd"), exitFailure);

   try {
      Agent agent(chip);
      RunView start;
      start.stateDir = stateDirPath;
      if (recover) {
         try {
            agent.chipStateLoad(stateDir->statePath());
         } catch (const std::runtime_error& e) {
            return fail(e.what(), exitBadInput);
         }
         start.recoveredRows = agent.rowsHeld();
      }
      // Subscribed before the dump, so that no change falls between them.
      Netlink netlink(receiveBuffer);
      const int listenFd = listenOn(socketPathOf(socket, stateDirPath));
      const std::string socketPath = socketPathOf(socket, stateDirPath);

      KernelFollower follower(agent, ids, defaultTtl);
      Daemon daemon(agent, follower, ids, start, stateDir);
      auto apply = [&](KernelEvent&& e) { follower.apply(e); };
      agent.start(recover);
      follower.dumpBegin(false);
      netlink.dump(apply);
      follower.dumpEnd(true);
      daemon.save();
      std::cerr << "l3tunnel agent: following the kernel; " << follower.mirror().groups()
                << " nexthop groups, socket " << socketPath << std::endl;

      bool stop = false;
      while (!stop) {
         pollfd fds[3] = {{netlink.fd(), POLLIN, 0}, {listenFd, POLLIN, 0}, {signalFd, POLLIN, 0}};
         const int ready = poll(fds, 3, daemon.saveWaitMs());
         if (ready < 0 && errno != EINTR) throw std::runtime_error(errnoText("poll"));
         if (fds[2].revents) stop = true;
         if (fds[0].revents) {
            if (netlink.read(apply) == Netlink::ReadResult::overflowed) {
               daemon.lastProblem =
                   "the kernel dropped notifications (netlink receive buffer full); "
                   "dumped everything again";
               // What is still queued is older than the dump: dropped.
               while (netlink.read([](KernelEvent&&) {}) == Netlink::ReadResult::overflowed) {
               }
               follower.dumpBegin(true);
               netlink.dump(apply);
               follower.dumpEnd(false);
            } else if (follower.mirror().linkDownTake()) {
               follower.dumpBegin(false);
               netlink.dump(apply);
               follower.dumpEnd(false);
            } else {
               follower.flush();
            }
            agent.settle();
            if (follower.changedTake()) daemon.changedIs();
         }
         if (fds[1].revents) serve(listenFd, daemon);
         daemon.saveIfDue();
      }
      follower.flush();
      agent.settle();
      daemon.save();
      close(listenFd);
      unlink(socketPath.c_str());
   } catch (const UsageError& e) {
      return fail(e.what, exitBadInput);
   } catch (const std::exception& e) {
      return fail(e.what(), exitFailure);
   }
   return 0;
}

int showMain(int argc, char** argv) {
   std::string socketPath;
   std::string request;
   bool json = false;
   try {
      const Args a = argsRead(argc, argv, {"--socket", "--state-dir"}, {"--json"});
      json = !a.flags.empty();
      socketPath = socketPathOf(valueOf(a, "--socket"), valueOf(a, "--state-dir"));
      std::vector<std::string> words = {json ? "json" : "text"};
      if (!json && isatty(STDOUT_FILENO) && !std::getenv("NO_COLOR")) {
         const char* term = std::getenv("TERM");
         if (term && *term && std::strcmp(term, "dumb") != 0) words[0] = "colour";
      }
      words.insert(words.end(), a.positional.begin(), a.positional.end());
      requestOf(words);  // refused here already, with the usage
      for (const auto& w : words) request += (request.empty() ? "" : " ") + w;
      request += "\n";
   } catch (const UsageError& e) {
      if (json)
         std::cerr << errorJson({e.what, std::nullopt, std::nullopt, std::nullopt});
      else
         std::cerr << "l3tunnel show: " << e.what << "\n" << showUsage;
      return exitBadInput;
   }
   auto fail = [&](const std::string& what) {
      if (json)
         std::cerr << errorJson({what, std::nullopt, std::nullopt, std::nullopt});
      else
         std::cerr << "l3tunnel show: " << what << std::endl;
      return exitFailure;
   };
   const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
   if (fd < 0) return fail(errnoText("socket"));
   sockaddr_un address;
   try {
      address = addressOf(socketPath);
   } catch (const UsageError& e) {
      close(fd);
      return fail(e.what);
   }
   if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      const std::string what = errnoText("no agent answers on " + socketPath);
      close(fd);
      return fail(what);
   }
   sendAll(fd, request);
   std::string reply;
   char buf[65536];
   for (;;) {
      const ssize_t n = recv(fd, buf, sizeof buf, 0);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      reply.append(buf, size_t(n));
   }
   close(fd);
   const size_t eol = reply.find('\n');
   const std::string status = reply.substr(0, eol);
   const std::string body = eol == std::string::npos ? std::string() : reply.substr(eol + 1);
   if (status == "ok") {
      std::cout << body << std::flush;
      return std::cout ? 0 : exitFailure;
   }
   if (status == "error") {
      std::string what = body;
      while (!what.empty() && what.back() == '\n') what.pop_back();
      return fail("the agent refused the request: " + what);
   }
   return fail("the agent's answer was cut short");
}

}  // namespace L3TunnelTool
