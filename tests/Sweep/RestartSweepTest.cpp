// An agent restart after every step of every example scenario, in this
// process: the replay lands every entry on its row without changing one, the
// run goes on as if nothing had happened, and a replay that leaves a group
// out, followed by the reconcile, keeps exactly the replayed groups' rows.
#include <gtest/gtest.h>

#include <algorithm>

#include "SharedL3/L3EcmpMember0Table.h"
#include "SweepSupport.h"

namespace sweep {
namespace {

// The run without a restart, but with the configuration replayed after step
// k as the restarted run replays it: each later step's row changes, and the
// end. Replaying a group whose block is placed changes nothing; a group the
// chip had no room for tries again.
struct Reference {
   std::vector<std::string> replayChanges;
   std::vector<std::vector<std::string>> changes;  // of steps k+1..n
   Rows rows;
   std::map<std::string, std::string> groups;
   bool refusedBefore = false;  // a group had no range when the replay came
};

Reference referenceRun(const Scenario& scenario, size_t k) {
   Agent agent(scenario);
   startFresh(agent, scenario.steps, k);
   Reference r;
   for (const auto& [name, h] : agent.groups())
      r.refusedBefore |= h->entryState() == Asic::SwTableBase::noHwIndex();
   agent.chip().journalingIs(true);
   const auto replay = replaySteps(agent.groupVias());
   runSteps(agent, replay, 0, replay.size());
   r.replayChanges = changesOf(agent.chip().journal());
   for (size_t i = k; i < scenario.steps.size(); ++i) {
      agent.chip().journalDelAll();
      runSteps(agent, scenario.steps, i, i + 1);
      r.changes.push_back(changesOf(agent.chip().journal()));
   }
   r.rows = rowsOf(agent.chip());
   r.groups = groupStates(agent);
   return r;
}

class RestartSweep : public ::testing::TestWithParam<std::string> {};

TEST_P(RestartSweep, RestartAndReplayAfterEveryStepChangeNoRowAndTheRunGoesOnAsBefore) {
   const Scenario scenario = scenarioFor(GetParam());
   const size_t n = scenario.steps.size();
   const Rows straight = afterSteps(scenario, n, [](Agent& a) { return rowsOf(a.chip()); });
   for (size_t k = 1; k < n && !HasFailure(); ++k) {
      const std::string where = GetParam() + ", restart after step " + std::to_string(k) + ": ";
      const Reference ref = referenceRun(scenario, k);
      // Unless a group had no room, the reference is the plain run.
      EXPECT_TRUE(ref.refusedBefore || ref.replayChanges.empty())
          << where << "replaying placed groups changed rows";
      EXPECT_TRUE(ref.refusedBefore || ref.rows == straight)
          << where << rowsDiff(straight, ref.rows);

      Agent agent(scenario);
      startFresh(agent, scenario.steps, k);
      AsicSim::Chip& chip = agent.chip();
      chip.journalingIs(true);
      restartAndReplay(agent);
      EXPECT_EQ(changesOf(chip.journal()), ref.replayChanges)
          << where << "the restart changed rows";
      EXPECT_EQ(test::agentViolations(agent), Lines{}) << where;
      for (size_t s = k; s < n; ++s) {
         chip.journalDelAll();
         runSteps(agent, scenario.steps, s, s + 1);
         EXPECT_EQ(changesOf(chip.journal()), ref.changes[s - k])
             << where << "step " << s + 1 << " changed other rows than without the restart";
         EXPECT_EQ(test::agentViolations(agent), Lines{}) << where << "step " << s + 1 << ": ";
      }
      EXPECT_TRUE(rowsOf(chip) == ref.rows) << where << rowsDiff(ref.rows, rowsOf(chip));
      EXPECT_EQ(groupStates(agent), ref.groups) << where;
   }
}

// What a fresh agent holds after programming just these groups.
struct Fresh {
   Canonical canonical;  // one line per row, so the row counts as well
   std::vector<std::vector<std::string>> blocks;
   std::map<std::string, std::string> groups;
};

Fresh freshRun(const Scenario& scenario, const std::vector<Step>& programs) {
   Agent agent(scenario);
   startFresh(agent, programs, programs.size());
   std::vector<std::string> faults;
   Fresh f{canonicalRows(agent.chip()),
           blockChains(agent.chip(), agent.commonIifOifIndex(), faults), groupStates(agent)};
   EXPECT_EQ(faults, Lines{});
   return f;
}

TEST_P(RestartSweep, ReconcileAfterAPartialReplayKeepsExactlyTheReplayedGroups) {
   const Scenario scenario = scenarioFor(GetParam());
   const size_t n = scenario.steps.size();
   const Step reconcile{Step::Op::reconcile, {}, {}};
   uint32_t cases = 0;
   for (size_t k = 1; k <= n && !HasFailure(); ++k) {
      const auto live = afterSteps(scenario, k, [](Agent& a) { return a.groupVias(); });
      for (const auto& [left, vias] : live) {
         const std::string where = GetParam() + ", restart after step " + std::to_string(k) + ", " +
                                   left + " not replayed: ";
         ++cases;
         Agent agent(scenario);
         startFresh(agent, scenario.steps, k);
         restartAndReplay(agent, left);
         agent.stepRun(reconcile);
         agent.settle();
         // A group the unclaimed rows left no room for tries again, as the
         // agent hands over a refused list once more.
         std::map<std::string, Agent::Vias> refused;
         for (const auto& [name, h] : agent.groups())
            if (h->entryState() == Asic::SwTableBase::noHwIndex())
               refused.emplace(name, agent.groupVias().at(name));
         const auto retry = replaySteps(refused);
         runSteps(agent, retry, 0, retry.size());
         const Fresh fresh = freshRun(scenario, replaySteps(live, left));

         const AsicSim::Chip& chip = agent.chip();
         std::vector<std::string> faults;
         EXPECT_EQ(blockChains(chip, agent.commonIifOifIndex(), faults), fresh.blocks) << where;
         EXPECT_EQ(faults, Lines{}) << where;
         EXPECT_TRUE(canonicalRows(chip) == fresh.canonical)
             << where << canonicalDiff(fresh.canonical, canonicalRows(chip));
         EXPECT_EQ(allocatorRowMismatches(agent), Lines{}) << where;
         EXPECT_EQ(agent.programmer()->l3EcmpMember0Table()->recoveredRows(), 0u) << where;
         EXPECT_EQ(test::agentViolations(agent), Lines{}) << where;
         EXPECT_EQ(groupStates(agent), fresh.groups) << where;
         if (HasFailure()) return;
      }
   }
   // Every example leaves some group live at some step, or the sweep is idle.
   EXPECT_GT(cases, 0u);
}

INSTANTIATE_TEST_SUITE_P(Examples, RestartSweep, ::testing::ValuesIn(scenarioFiles()),
                         [](const auto& info) { return testName(info.param, info.index); });

}  // namespace
}  // namespace sweep
