// End-to-end: the installed `l3tunnel agent` follows the kernel in a private
// network namespace while iproute2 changes it; `l3tunnel show --json` says
// what it holds.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "support/Installed.h"
#include "support/KernelNamespaceTest.h"

namespace {

using Json = nlohmann::json;
namespace fs = std::filesystem;

const std::string program = L3TUNNEL_INSTALLED;

// iproute2 commands, one per line, in one `ip -batch`.
void ipBatch(const fs::path& dir, const std::vector<std::string>& lines) {
   const fs::path file = dir / "batch";
   std::ofstream out(file);
   for (const auto& l : lines) out << l << "\n";
   out.close();
   ASSERT_EQ(std::system(("ip -batch " + file.string()).c_str()), 0) << lines.front();
}

const std::vector<std::string> exampleSetUp = {
    "nexthop add id 1 encap ip src 192.0.2.1 dst 198.51.100.1 ttl 64 via 172.16.0.2 dev veth0",
    "nexthop add id 2 encap ip src 192.0.2.1 dst 198.51.100.2 ttl 64 via 172.16.0.2 dev veth0",
    "nexthop add id 3 blackhole",
    "nexthop add id 100 group 1,2/2,1",
    "route add 10.1.0.0/16 nhid 100",
    "route add 10.2.0.0/16 nexthop encap ip src 192.0.2.1 dst 198.51.100.3 via 172.16.0.2 dev "
    "veth0 weight 3 nexthop encap ip src 192.0.2.1 dst 198.51.100.1 via 172.16.0.2 dev veth0",
};

bool has(const Json& s, const std::string& group) { return s["groups"].contains(group); }
bool programmed(const Json& s, const std::string& group, uint32_t size) {
   return has(s, group) && s["groups"][group]["state"] == "success" &&
          s["groups"][group]["size"] == size && s["groups"][group]["reason"].is_null();
}
// The destinations of a group's members, slot by slot ("drop" for drops).
std::vector<std::string> dsts(const Json& s, const std::string& group) {
   std::vector<std::string> out;
   for (const auto& m : s["groups"][group]["members"])
      out.push_back(m["drop"].get<bool>() ? "drop" : m["dstIpAddr"].get<std::string>());
   return out;
}

class Agent : public ::testing::Test {
protected:
   void SetUp() override {
      if (!support::kernelNamespaceReady()) GTEST_SKIP();
      ASSERT_FALSE(scratch_.path.empty());
   }

   void TearDown() override {
      if (pid_ > 0) stop(SIGKILL);
   }

   // The agent on the state directory, its errors logged, not waited for.
   void launch(const std::vector<std::string>& extra = {}) {
      std::vector<std::string> args = {program, "agent", "--state-dir", state_};
      args.insert(args.end(), extra.begin(), extra.end());
      pid_ = fork();
      ASSERT_GE(pid_, 0);
      if (pid_ == 0) {
         freopen((dir_ / "agent.log").c_str(), "a", stderr);
         std::vector<char*> argv;
         for (auto& a : args) argv.push_back(a.data());
         argv.push_back(nullptr);
         execv(argv[0], argv.data());
         _exit(127);
      }
   }

   // Up once it answers and has finished its start-up sync.
   void start(const std::vector<std::string>& extra = {}) {
      launch(extra);
      waitFor([](const Json& s) { return s["agent"]["phase"] == "following"; }, "start");
   }

   // The agent's exit status after `sig`.
   int stop(int sig = SIGTERM) {
      kill(pid_, sig);
      int status = 0;
      waitpid(pid_, &status, 0);
      pid_ = -1;
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
   }

   test::Outcome l3tunnel(const std::vector<std::string>& args) {
      std::vector<std::string> argv{program};
      argv.insert(argv.end(), args.begin(), args.end());
      return test::runProgram(dir_, argv);
   }

   Json show(const std::string& view = "all") {
      const test::Outcome r = l3tunnel({"show", "--socket", socket_, "--json", view});
      return r.code == 0 ? Json::parse(r.out, nullptr, false) : Json();
   }

   // Polls `show` until `ready` holds; fails the test with the last answer.
   Json waitFor(const std::function<bool(const Json&)>& ready, const std::string& what) {
      Json s;
      for (int i = 0; i < 1000; ++i) {
         s = show();
         if (s.is_object() && s.contains("agent") && ready(s)) return s;
         std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
      Json brief = s.is_object() ? Json{{"agent", s["agent"]}, {"groups", s["groups"]}} : s;
      ADD_FAILURE() << "timed out waiting for " << what << "; last answer: " << brief.dump() << "\n"
                    << test::fileText(dir_ / "agent.log");
      return s;
   }

   test::ScratchDir scratch_{"l3tunnel-agent-test"};
   const fs::path& dir_ = scratch_.path;
   const std::string state_ = (dir_ / "state").string(), socket_ = state_ + "/agent.sock";
   pid_t pid_ = -1;
};

TEST_F(Agent, TheExampleAndChangesMadeWhileStoppedAreProgrammedAndPurgedAtStart) {
   ipBatch(dir_, exampleSetUp);
   start();
   const Json s = waitFor(
       [](const Json& s) {
          return programmed(s, "nhid:100", 3) && programmed(s, "route:10.2.0.0/16", 4);
       },
       "the example's groups");
   EXPECT_EQ(dsts(s, "nhid:100"),
             (std::vector<std::string>{"198.51.100.1", "198.51.100.1", "198.51.100.2"}));
   EXPECT_EQ(
       dsts(s, "route:10.2.0.0/16"),
       (std::vector<std::string>{"198.51.100.3", "198.51.100.3", "198.51.100.3", "198.51.100.1"}));
   EXPECT_EQ(s["groups"]["nhid:100"]["routes"], Json::array({"10.1.0.0/16"}));
   EXPECT_EQ(s["groups"]["nhid:100"]["members"][0]["ttl"], 64);
   EXPECT_EQ(s["groups"]["route:10.2.0.0/16"]["members"][0]["ttl"], 64) << "inherit: default";
   const Json& a = s["agent"];
   EXPECT_EQ(a["nexthops"], 3);
   EXPECT_EQ(a["groups"], 1);
   EXPECT_GE(a["routes"], 2);
   EXPECT_TRUE(a["lastProblem"].is_null());
   EXPECT_GT(a["hardwareWrites"], 0);
   // Both groups run through the one neighbour: one underlay group.
   EXPECT_EQ(s["groups"]["nhid:100"]["members"][0]["underlayIndex"],
             s["groups"]["route:10.2.0.0/16"]["members"][0]["underlayIndex"]);

   struct stat st {};
   ASSERT_EQ(stat(socket_.c_str(), &st), 0);
   EXPECT_EQ(st.st_mode & 0777, 0600u);
   ASSERT_EQ(stop(), 0);
   EXPECT_TRUE(fs::exists(fs::path(state_) / "chip.state"));

   // Changes made while it is stopped are programmed, and what they took
   // away purged, when it starts again.
   ipBatch(dir_, {"route del 10.2.0.0/16", "nexthop replace id 100 group 2",
                  "nexthop add id 101 group 3"});
   start();
   const Json again = show();
   EXPECT_TRUE(programmed(again, "nhid:100", 1));
   EXPECT_TRUE(programmed(again, "nhid:101", 1));
   EXPECT_FALSE(has(again, "route:10.2.0.0/16"));
   // Only the remaining groups' rows are left: 1 + 1 members.
   EXPECT_EQ(again["tables"]["L3EcmpMember0Table"]["used"], 2);
   EXPECT_EQ(again["tables"]["L3EgrL3Ipv4TunnelTable"]["used"], 1) << "198.51.100.2 only";
}

// Each change, made while the agent runs, and what the groups show after it.
struct Change {
   std::string name;
   std::vector<std::string> commands;
   std::function<bool(const Json&)> after;
};

void PrintTo(const Change& c, std::ostream* os) { *os << c.name; }

class AgentChange : public Agent, public ::testing::WithParamInterface<Change> {};

TEST_P(AgentChange, IsMirrored) {
   ipBatch(dir_, exampleSetUp);
   start();
   waitFor([](const Json& s) { return programmed(s, "nhid:100", 3); }, "the example");
   ipBatch(dir_, GetParam().commands);
   const Json s = waitFor(GetParam().after, GetParam().name);
   EXPECT_GT(s["agent"]["changesApplied"], 0);
   EXPECT_EQ(s["agent"]["resyncs"], 0);
}

// A group shown but not programmed, for a reason that says `text`.
bool notProgrammed(const Json& s, const std::string& group, const std::string& text) {
   return has(s, group) && s["groups"][group]["state"] == "notProgrammed" &&
          s["groups"][group]["reason"].get<std::string>().find(text) != std::string::npos;
}

bool memberReasons(const Json& s, const std::string& group, const std::string& text) {
   if (!s["groups"].contains(group)) return false;
   for (const auto& m : s["groups"][group]["members"])
      if (!m["reason"].is_string() ||
          m["reason"].get<std::string>().find(text) == std::string::npos)
         return false;
   return !s["groups"][group]["members"].empty();
}

INSTANTIATE_TEST_SUITE_P(
    Kernel, AgentChange,
    ::testing::Values(
        Change{"GroupReplaced",
               {"nexthop replace id 100 group 2/1"},
               [](const Json& s) {
                  return programmed(s, "nhid:100", 2) && programmed(s, "route:10.2.0.0/16", 4);
               }},
        Change{"MemberDeleted",
               {"nexthop del id 2"},
               [](const Json& s) { return programmed(s, "nhid:100", 2); }},
        Change{"NeighbourLost",
               {"neigh del 172.16.0.2 dev veth0"},
               [](const Json& s) {
                  return memberReasons(s, "nhid:100", "not resolved") &&
                         memberReasons(s, "route:10.2.0.0/16", "not resolved");
               }},
        Change{"DeviceDown",
               {"link set veth0 down"},
               [](const Json& s) {
                  return !has(s, "nhid:100") && !has(s, "route:10.2.0.0/16") &&
                         s["agent"]["nexthops"] == 1;
               }},
        Change{"RoutesSharingAViaList",
               {"route add 10.4.0.0/16 nexthop encap ip src 192.0.2.1 dst 198.51.100.3 via "
                "172.16.0.2 dev veth0 weight 3 nexthop encap ip src 192.0.2.1 dst 198.51.100.1 "
                "via 172.16.0.2 dev veth0",
                "route add 10.5.0.0/16 encap ip src 192.0.2.1 dst 198.51.100.7 via 172.16.0.2 "
                "dev veth0 table 100"},
               [](const Json& s) {
                  return programmed(s, "route:10.4.0.0/16", 4) &&
                         s["groups"]["route:10.4.0.0/16"]["base"] ==
                             s["groups"]["route:10.2.0.0/16"]["base"] &&
                         programmed(s, "route:10.5.0.0/16@100", 1);
               }},
        Change{"NonTunnelGroup",
               {"nexthop add id 4 via 172.16.0.2 dev veth0", "nexthop add id 104 group 1/4"},
               [](const Json& s) {
                  return notProgrammed(s, "nhid:104", "member nexthop 4 is not an IP-in-IP tunnel");
               }},
        Change{"NoSourceAddress",
               {"nexthop add id 6 encap ip dst 198.51.100.6 via 172.16.0.2 dev veth0",
                "nexthop add id 106 group 6"},
               [](const Json& s) { return notProgrammed(s, "nhid:106", "no source address"); }},
        Change{"ARouteUsingOneTunnelNexthop",
               {"route add 10.6.0.0/16 nhid 1"},
               [](const Json& s) {
                  return programmed(s, "nhid:1", 1) &&
                         s["groups"]["nhid:1"]["routes"] == Json::array({"10.6.0.0/16"});
               }},
        Change{"Ipv6Tunnel",
               {"nexthop add id 8 encap ip6 src 2001:db8::1 dst 2001:db8::2 hoplimit 9 via "
                "172.16.0.2 dev veth0",
                "nexthop add id 108 group 8/1"},
               [](const Json& s) {
                  return programmed(s, "nhid:108", 2) &&
                         s["groups"]["nhid:108"]["members"][0]["srcIpAddr"] == "2001:db8::1" &&
                         s["groups"]["nhid:108"]["members"][0]["ttl"] == 9;
               }},
        Change{"ResilientGroup",
               {"nexthop add id 107 group 1/2 type resilient buckets 8"},
               [](const Json& s) { return programmed(s, "nhid:107", 8); }}),
    [](const auto& info) { return info.param.name; });

TEST_F(Agent, AGroupFollowsItsNeighbourBeingResolvedAndLost) {
   start();
   ipBatch(dir_, {"nexthop add id 5 encap ip src 192.0.2.1 dst 198.51.100.5 via 172.16.0.3 dev "
                  "veth0",
                  "nexthop add id 105 group 5"});
   waitFor(
       [](const Json& s) {
          return memberReasons(s, "nhid:105",
                               "underlay adjacency 1 (172.16.0.3 dev veth0) not resolved: "
                               "EcmpGroup1Table has no such group") &&
                 s["groups"]["nhid:105"]["members"][0]["underlayIndex"].is_null();
       },
       "unresolved");
   ipBatch(dir_, {"neigh add 172.16.0.3 lladdr 02:00:00:00:00:03 dev veth0 nud reachable"});
   waitFor(
       [](const Json& s) {
          return programmed(s, "nhid:105", 1) &&
                 s["groups"]["nhid:105"]["members"][0]["underlayIndex"] == 1;
       },
       "resolved");
   ipBatch(dir_, {"neigh change 172.16.0.3 dev veth0 nud failed"});
   waitFor([](const Json& s) { return memberReasons(s, "nhid:105", "not resolved"); },
           "a failed neighbour");
}

TEST_F(Agent, RefusalsAtStartAndBadRequestsSayWhyAndTheAgentGoesOn) {
   const std::string steps = (dir_ / "steps.json").string(), bad = (dir_ / "bad.json").string();
   std::ofstream(steps) << R"({"steps": [{"op": "reconcile"}]})";
   std::ofstream(bad) << R"({"chip": {"tableSizes": {"Nope": 4}}})";
   start();
   const struct {
      std::vector<std::string> args;
      int code;
      std::string says;
   } cases[] = {
       {{"--default-ttl", "0"}, 2, "--default-ttl: '0' is not a number from 1 to 255"},
       {{"--chip", steps}, 2, "the agent takes chip and toggles from it"},
       {{"--chip", bad}, 2, "Nope"},
       {{"--state-dir", state_}, 1, "holds this state directory"},
       {{"--socket", socket_}, 1, "another agent answers on this socket"},
       {{"extra"}, 2, "agent: unexpected argument 'extra'"},
   };
   for (const auto& c : cases) {
      std::vector<std::string> args{"agent"};
      args.insert(args.end(), c.args.begin(), c.args.end());
      const test::Outcome r = l3tunnel(args);
      EXPECT_EQ(r.code, c.code) << r.err;
      EXPECT_TRUE(r.out.empty()) << r.out;
      EXPECT_TRUE(r.err.starts_with("l3tunnel agent: ")) << r.err;
      EXPECT_NE(r.err.find(c.says), std::string::npos) << r.err;
   }
   // Bad requests to the running agent get an error answer.
   for (const std::string& request : std::vector<std::string>{
            "nonsense\n", "json frobnicate\n", "json tunnel 1.2.3.4\n", "json groups extra\n",
            "text tunnel 1.2.3.4 ::1\n", std::string(5000, 'x'), ""}) {
      const int fd = socket(AF_UNIX, SOCK_STREAM, 0);
      sockaddr_un a{};
      a.sun_family = AF_UNIX;
      std::strcpy(a.sun_path, socket_.c_str());
      ASSERT_EQ(connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a), 0);
      if (!request.empty()) {
         ASSERT_GT(write(fd, request.data(), request.size()), 0);
      }
      shutdown(fd, SHUT_WR);
      std::string reply;
      char buf[4096];
      ssize_t n;
      while ((n = read(fd, buf, sizeof buf)) > 0) reply.append(buf, size_t(n));
      close(fd);
      EXPECT_EQ(reply.substr(0, 6), "error\n") << request.substr(0, 40);
   }
   EXPECT_EQ(show()["agent"]["phase"], "following");
   // The program refuses a bad view before asking, with the usage.
   const test::Outcome view = l3tunnel({"show", "--socket", socket_, "frobnicate"});
   EXPECT_EQ(view.code, 2);
   EXPECT_NE(view.err.find("unknown view 'frobnicate'"), std::string::npos) << view.err;
   const test::Outcome text = l3tunnel({"show", "--socket", socket_, "groups"});
   EXPECT_EQ(text.code, 0);
   EXPECT_NE(text.out.find("agent following:"), std::string::npos) << text.out;
}

// The state of the groups without indices, which depend on the history.
Json shape(const Json& s) {
   Json out = Json::object();
   for (const auto& [name, g] : s["groups"].items()) {
      Json members = Json::array();
      for (const auto& m : g["members"])
         members.push_back({m["dstIpAddr"], m["drop"], m["reason"].is_null()});
      out[name] = {g["state"], g["size"], members};
   }
   Json used = Json::object();
   for (const auto& [name, t] : s["tables"].items()) used[name] = t["used"];
   return {out, used};
}

TEST_F(Agent, AKillDuringABurstThenARestartEndsWhereACleanRunDoes) {
   ipBatch(dir_, exampleSetUp);
   start();
   std::vector<std::string> burst;
   constexpr int tunnels = 1000;
   for (int i = 0; i < tunnels; ++i) {
      const std::string id = std::to_string(1000 + i);
      burst.push_back("nexthop add id " + id + " encap ip src 192.0.2.1 dst 198.51." +
                      std::to_string(101 + i / 250) + "." + std::to_string(i % 250) +
                      " via 172.16.0.2 dev veth0");
      burst.push_back("nexthop add id " + std::to_string(5000 + i) + " group 1/" + id);
      if (i % 3 == 0) burst.push_back("nexthop del id " + std::to_string(5000 + i));
   }
   // The agent is killed as soon as the kernel has taken the burst's first
   // third, most likely while it is still reading it; the rest comes while
   // it is down. Nothing here depends on how fast the machine is.
   const auto third = burst.begin() + std::ptrdiff_t(burst.size() / 3);
   ipBatch(dir_, {burst.begin(), third});
   EXPECT_EQ(stop(SIGKILL), 128 + SIGKILL);
   ipBatch(dir_, {third, burst.end()});

   start();
   const Json restarted =
       waitFor([](const Json& s) { return s["agent"]["groups"] == 1 + tunnels - 334; },
               "the burst's groups");
   const Json restartedShape = shape(restarted);
   ASSERT_EQ(stop(), 0);
   // A clean run over the same kernel state.
   fs::remove_all(state_);
   start();
   EXPECT_EQ(shape(show()), restartedShape);
}

TEST_F(Agent, LostNotificationsAreRecoveredByDumpingAgain) {
   start({"--netlink-buffer", "1"});
   std::vector<std::string> lines;
   for (int i = 0; i < 300; ++i)
      lines.push_back("nexthop add id " + std::to_string(10 + i) + " encap ip src 192.0.2.1 dst " +
                      "198.51.102." + std::to_string(i % 250) + " via 172.16.0.2 dev veth0");
   for (int i = 0; i < 50; ++i)
      lines.push_back("nexthop add id " + std::to_string(2000 + i) + " group " +
                      std::to_string(10 + i) + "/" + std::to_string(60 + i));
   // Stopped while the kernel talks, so that its tiny buffer surely overflows.
   kill(pid_, SIGSTOP);
   ipBatch(dir_, lines);
   kill(pid_, SIGCONT);
   const Json s = waitFor(
       [](const Json& s) {
          return s["agent"]["resyncs"] >= 1 && s["agent"]["groups"] == 50 &&
                 s["groups"].size() == 50;
       },
       "a resync");
   for (const auto& [name, g] : s["groups"].items()) EXPECT_EQ(g["state"], "success") << name;
   EXPECT_NE(s["agent"]["lastProblem"].get<std::string>().find("dropped notifications"),
             std::string::npos);
}

}  // namespace
