// A write the chip refused is tried again when the agent hands the same
// configuration over again, whichever table refused it: the group then
// resolves and the chip holds what a run without the refusal holds.
#include <gtest/gtest.h>

#include "SweepSupport.h"

namespace sweep {
namespace {

using namespace MeridL3Tunnel;

// One group with a shared tunnel chain (two members) and a dropping member.
Scenario groupScenario() {
   return scenarioOf(R"({
      "underlay": [{"adjId": 1}],
      "steps": [{"op": "program", "group": "g", "vias": [
         {"nhEntryType": "nextHopArpResolved", "srcIpAddr": "10.0.0.1", "dstIpAddr": "10.0.1.1",
          "weight": 2, "underlayAdjId": {"adjId": 1}},
         {"nhEntryType": "nextHopDrop"}]}]})",
                     "retry.json");
}

using Tables = std::vector<std::string_view>;

// The tables whose next write the chip refuses, round by round: the group is
// programmed in each round, and once more without refusals at the end.
struct Refusal {
   const char* name;
   Tables first;
   Tables second;
   int toggle = -1;       // -1 either, else the toggle it needs
   bool atStart = false;  // the first round's refusals hit the set-up
};

const auto tunnel = L3EgrL3Ipv4TunnelTable::typeName;
const auto nextHop = L3TunnelIngL3NextHopTable::typeName;
const auto members = L3EcmpMember0Table::typeName;
const auto ingress = IngL3Iif::typeName;
const auto egress = EgrL3Oif1Table::typeName;
const auto separate = L3TunnelEgrL3Oif1Table::typeName;

const Refusal refusals[] = {
    {"tunnel", {tunnel}, {}},
    {"separate interface", {separate}, {}, 0},
    {"merged interface, ingress", {ingress}, {}, 1},
    {"merged interface, egress", {egress}, {}, 1},
    {"next hop", {nextHop}, {}},
    {"member row", {members}, {}},
    // Refused at set-up, before any group needed it.
    {"reserved drop next hop", {nextHop}, {}, -1, true},
    // The retry refused as well: the group must not look programmed.
    {"tunnel twice", {tunnel}, {tunnel}},
    {"next hop twice", {nextHop}, {nextHop}},
    {"member row twice", {members}, {members}},
    {"separate interface twice", {separate}, {separate}, 0},
    {"ingress twice", {ingress}, {ingress}, 1},
    {"egress twice", {egress}, {egress}, 1},
    // Both halves of one interface's chain refused: the retry must keep the
    // interface's index while it writes its members again.
    {"tunnel and ingress", {tunnel, ingress}, {}, 1},
    {"tunnel and ingress, then ingress", {tunnel, ingress}, {ingress}, 1},
};

TEST(RefusedWriteRetry, HandingTheSameGroupOverAgainRetriesTheRefusedWrites) {
   const Scenario scenario = groupScenario();
   const Canonical clean =
       afterSteps(scenario, 1, [](Agent& a) { return canonicalRows(a.chip()); });
   for (const auto& r : refusals) {
      if (r.toggle >= 0 && bool(r.toggle) != processToggle()) continue;
      SCOPED_TRACE(r.name);
      Agent agent(scenario);
      AsicSim::Chip& chip = agent.chip();
      auto refuse = [&](const Tables& tables) {
         for (auto t : tables) chip.writeFailuresIs(t, 1);
      };
      if (r.atStart) refuse(r.first);
      startFresh(agent);
      if (!r.atStart) refuse(r.first);
      runSteps(agent, scenario.steps, 0, 1);
      ASSERT_EQ(chip.failedWrites().size(), r.first.size());
      // A group that needs the reserved entry refused at set-up tries it again at once.
      EXPECT_TRUE(r.atStart || agent.groups().at("g")->isFailed());
      if (!r.second.empty()) {
         refuse(r.second);
         runSteps(agent, scenario.steps, 0, 1);
         ASSERT_EQ(chip.failedWrites().size(), r.first.size() + r.second.size());
         EXPECT_TRUE(agent.groups().at("g")->isFailed()) << groupStates(agent).at("g");
         EXPECT_EQ(test::agentViolations(agent), Lines{});
      }

      runSteps(agent, scenario.steps, 0, 1);
      EXPECT_EQ(groupStates(agent).at("g"), "success");
      EXPECT_EQ(chip.failedWrites().size(), r.first.size() + r.second.size());
      EXPECT_TRUE(canonicalRows(chip) == clean) << canonicalDiff(clean, canonicalRows(chip));
      std::vector<std::string> faults;
      blockChains(chip, agent.commonIifOifIndex(), faults);
      EXPECT_EQ(faults, Lines{});
      EXPECT_EQ(test::agentViolations(agent), Lines{});
      EXPECT_EQ(allocatorRowMismatches(agent), Lines{});
   }
}

}  // namespace
}  // namespace sweep
