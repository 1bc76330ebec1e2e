// The follower without a kernel: events as the netlink reader makes them.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/neighbour.h>
#include <sys/socket.h>

#include "Agent.h"
#include "Follower.h"
#include "support/AgentInvariants.h"

namespace {

using namespace L3TunnelTool;

KernelAddr v4(const char* text) {
   KernelAddr a;
   a.family = AF_INET;
   inet_pton(AF_INET, text, a.bytes.data());
   return a;
}

KernelEvent tunnelNexthop(uint32_t id, const char* dst, const char* gateway) {
   KernelNexthop nh;
   nh.id = id;
   nh.path.ifindex = 3;
   nh.path.gateway = v4(gateway);
   nh.path.encap = {KernelEncap::Kind::ip, 2, v4("192.0.2.1"), v4(dst), 64};
   return {false, nh};
}

KernelEvent group(uint32_t id, std::vector<KernelNexthop::Member> members, bool deleted = false) {
   KernelNexthop nh;
   nh.id = id;
   nh.group = std::move(members);
   return {deleted, nh};
}

TEST(Follower, AnUnderlayGroupGoesWithTheLastGroupUsingIt) {
   Agent agent(scenarioParse("{}", "(test)"));
   agent.start(false);
   AdjacencyIds ids;
   KernelFollower follower(agent, ids, 64);
   follower.dumpBegin(false);
   for (const KernelEvent& e :
        {KernelEvent{false, KernelLink{3, "veth0", true}},
         KernelEvent{false, KernelNeigh{3, v4("172.16.0.3"), true, NUD_PERMANENT}},
         tunnelNexthop(5, "198.51.100.5", "172.16.0.3"),
         tunnelNexthop(6, "198.51.100.6", "172.16.0.3"), group(105, {{5, 1}}),
         group(106, {{5, 1}, {6, 1}})})
      follower.apply(e);
   follower.dumpEnd(true);
   const auto key = AdjacencyIds::key(1);
   ASSERT_TRUE(agent.underlayHas(key));

   // Each step, and whether the adjacency's underlay group is there after it.
   const struct {
      KernelEvent event;
      bool underlay;
   } steps[] = {{group(105, {}, true), true},
                {group(106, {{6, 1}}), true},
                {group(106, {}, true), false},
                {group(107, {{6, 2}}), true}};
   for (const auto& s : steps) {
      follower.apply(s.event);
      follower.flush();
      agent.settle();
      EXPECT_EQ(agent.underlayHas(key), s.underlay) << std::get<KernelNexthop>(s.event.object).id;
   }
   EXPECT_EQ(test::agentViolations(agent), test::Lines{});
}

}  // namespace
