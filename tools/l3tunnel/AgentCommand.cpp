#include "AgentCommand.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AgentDaemon.h"
#include "CommandLine.h"
#include "JsonOutput.h"
#include "Orb/Trace.h"
#include "Output.h"
#include "Scenario.h"
#include "UnixSocket.h"

namespace L3TunnelTool {

namespace {

constexpr int exitFailure = 1;
constexpr int exitBadInput = 2;
constexpr std::string_view socketName = "agent.sock";

constexpr const char* agentUsage =
    "usage: l3tunnel agent [--state-dir DIR] [--chip FILE.json] [--socket PATH]\n"
    "                      [--default-ttl N] [--trace SPEC]\n";
constexpr const char* showUsage =
    "usage: l3tunnel show [--socket PATH] [--json] [all | groups | tables | usage | tunnel SRC "
    "DST]\n";

constexpr const char* agentHelp =
    "\n"
    "Follows the kernel's IP-in-IP nexthops, nexthop groups and routes in this network\n"
    "namespace and programs them on the simulated chip, until SIGTERM or SIGINT.\n"
    "\n"
    "  --state-dir DIR   recover the chip from DIR/chip.state and save it there (with\n"
    "                    DIR/adjacencies.json); one agent or run at a time holds DIR\n"
    "  --chip FILE.json  the chip and toggles, as a scenario gives them\n"
    "  --socket PATH     where show asks (default DIR/agent.sock, or ./agent.sock)\n"
    "  --default-ttl N   the TTL of an encapsulation that inherits it (default 64)\n"
    "  --trace SPEC      text trace, as in L3TUNNEL_TRACE\n"
    "\n"
    "Exit codes: 0 stopped by a signal, 1 failure (the state directory or the socket is\n"
    "held, netlink cannot be read), 2 bad chip file, state or usage.\n";
constexpr const char* showHelp =
    "\n"
    "Asks the running agent for one view: all (the default), groups, tables, usage, or\n"
    "one tunnel. --json prints one document of the versioned format with an agent object.\n"
    "--state-dir DIR means --socket DIR/agent.sock.\n"
    "Exit codes: 0 answered, 1 no agent answers or it refused the request, 2 usage.\n";

std::string socketPathOf(const std::optional<std::string>& socket,
                         const std::optional<std::string>& stateDir) {
   if (socket) return *socket;
   return (stateDir ? *stateDir + "/" : std::string()) + std::string(socketName);
}

}  // namespace

int agentMain(int argc, char** argv) {
   // A client that goes away mid-answer fails that write, not the agent.
   std::signal(SIGPIPE, SIG_IGN);
   AgentConfig config;
   std::optional<std::string> chipFile, socket, trace;
   try {
      const Args a = argsRead(
          argc, argv,
          {"--state-dir", "--chip", "--socket", "--default-ttl", "--trace", "--netlink-buffer"},
          {});
      if (a.stop) {
         std::cout << agentUsage << agentHelp;
         return 0;
      }
      if (!a.positional.empty())
         throw UsageError{"agent: unexpected argument '" + a.positional[0] + "'"};
      config.stateDir = a.value("--state-dir");
      chipFile = a.value("--chip");
      socket = a.value("--socket");
      trace = a.value("--trace");
      if (auto t = a.value("--default-ttl"))
         config.defaultTtl = numberOf(*t, "--default-ttl", 1, 255);
      if (auto b = a.value("--netlink-buffer"))
         config.receiveBuffer = numberOf(*b, "--netlink-buffer", 1, 1u << 30);
      if (config.stateDir && config.stateDir->empty())
         throw UsageError{"--state-dir needs a directory"};
   } catch (const UsageError& e) {
      std::cerr << "l3tunnel agent: " << e.what << "\n" << agentUsage;
      return exitBadInput;
   }
   if (trace) Orb::Trace::configIs(*trace);
   auto fail = [](const std::string& what, int code) {
      std::cerr << "l3tunnel agent: " << what << std::endl;
      return code;
   };
   config.socketPath = socketPathOf(socket, config.stateDir);
   // Without a file: the chip and toggles a scenario gets by default.
   config.chip = scenarioParse("{}", "(defaults)");
   if (chipFile) {
      try {
         config.chip = scenarioRead(*chipFile);
      } catch (const ScenarioError& e) {
         return fail(e.what(), exitBadInput);
      }
      if (!config.chip.steps.empty() || !config.chip.underlay.empty())
         return fail(
             *chipFile + ": the agent takes chip and toggles from it, not steps or underlay",
             exitBadInput);
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
      AgentDaemon daemon(config);
      daemon.start();
      std::cerr << "l3tunnel agent: following the kernel; " << daemon.follower().mirror().groups()
                << " nexthop groups, socket " << daemon.socketPath() << std::endl;
      while (!daemon.step(-1, signalFd)) {
      }
      daemon.finish();
   } catch (const AgentError& e) {
      return fail(e.what(), e.exitCode);
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
      if (a.stop) {
         std::cout << showUsage << showHelp;
         return 0;
      }
      json = a.flag("--json");
      socketPath = socketPathOf(a.value("--socket"), a.value("--state-dir"));
      const bool colour = !json && capableTerminal(STDOUT_FILENO) && !std::getenv("NO_COLOR");
      std::vector<std::string> words = {json ? "json" : colour ? "colour" : "text"};
      words.insert(words.end(), a.positional.begin(), a.positional.end());
      try {
         showRequestOf(words);  // refused here already, with the usage
      } catch (const std::invalid_argument& e) {
         throw UsageError{e.what()};
      }
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
   const auto address = unixAddress(socketPath);
   if (!address) return fail("socket path '" + socketPath + "' is too long");
   const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
   if (fd < 0) return fail(errnoText("socket"));
   if (connect(fd, reinterpret_cast<const sockaddr*>(&*address), sizeof *address) != 0) {
      const std::string what = errnoText("no agent answers on " + socketPath);
      close(fd);
      return fail(what);
   }
   sendAll(fd, request);
   // The status line, then the output passed on as it comes (a whole state
   // can be large); an error's text is kept for the message.
   std::string status, error;
   bool statusRead = false;
   char buf[65536];
   for (;;) {
      const ssize_t n = recv(fd, buf, sizeof buf, 0);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      std::string_view data(buf, size_t(n));
      if (!statusRead) {
         const size_t eol = data.find('\n');
         status.append(data.substr(0, eol));
         if (eol == std::string_view::npos) continue;
         statusRead = true;
         data.remove_prefix(eol + 1);
      }
      if (status == "ok")
         std::cout.write(data.data(), std::streamsize(data.size()));
      else
         error.append(data);
   }
   close(fd);
   if (statusRead && status == "ok") {
      std::cout.flush();
      return std::cout ? 0 : exitFailure;
   }
   if (statusRead && status == "error") {
      while (!error.empty() && error.back() == '\n') error.pop_back();
      return fail("the agent refused the request: " + error);
   }
   return fail("the agent's answer was cut short");
}

}  // namespace L3TunnelTool
