#include "AgentCommand.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "AgentDaemon.h"
#include "JsonOutput.h"
#include "Orb/Trace.h"
#include "Scenario.h"

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

std::string errnoText(const std::string& what) { return what + ": " + std::strerror(errno); }

std::string socketPathOf(const std::optional<std::string>& socket,
                         const std::optional<std::string>& stateDir) {
   if (socket) return *socket;
   return (stateDir ? *stateDir + "/" : std::string()) + std::string(socketName);
}

bool helpAsked(int argc, char** argv) {
   for (int i = 1; i < argc; ++i)
      if (std::string_view(argv[i]) == "--help" || std::string_view(argv[i]) == "-h") return true;
   return false;
}

}  // namespace

int agentMain(int argc, char** argv) {
   if (helpAsked(argc, argv)) {
      std::cout << agentUsage << agentHelp;
      return 0;
   }
   AgentConfig config;
   std::optional<std::string> chipFile, socket, trace;
   try {
      const Args a = argsRead(
          argc, argv,
          {"--state-dir", "--chip", "--socket", "--default-ttl", "--trace", "--netlink-buffer"},
          {});
      if (!a.positional.empty())
         throw UsageError{"agent: unexpected argument '" + a.positional[0] + "'"};
      config.stateDir = valueOf(a, "--state-dir");
      chipFile = valueOf(a, "--chip");
      socket = valueOf(a, "--socket");
      trace = valueOf(a, "--trace");
      if (auto t = valueOf(a, "--default-ttl"))
         config.defaultTtl = numberOf(*t, "--default-ttl", 1, 255);
      if (auto b = valueOf(a, "--netlink-buffer"))
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
   if (helpAsked(argc, argv)) {
      std::cout << showUsage << showHelp;
      return 0;
   }
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
   const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
   if (fd < 0) return fail(errnoText("socket"));
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   if (socketPath.size() >= sizeof address.sun_path) {
      close(fd);
      return fail("socket path '" + socketPath + "' is too long");
   }
   std::memcpy(address.sun_path, socketPath.data(), socketPath.size());
   if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
      const std::string what = errnoText("no agent answers on " + socketPath);
      close(fd);
      return fail(what);
   }
   for (std::string_view rest = request; !rest.empty();) {
      const ssize_t n = send(fd, rest.data(), rest.size(), MSG_NOSIGNAL);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      rest.remove_prefix(size_t(n));
   }
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
