// The simulated chip's controls the sweeps stand on: the n-th write failed
// whatever its table, and a journal that records exactly the row changes.
#include <gtest/gtest.h>

#include <set>

#include "SweepSupport.h"

namespace sweep {
namespace {

Scenario twoGroups() {
   return scenarioOf(R"({
      "underlay": [{"adjId": 1}, {"adjId": 2}],
      "steps": [
        {"op": "program", "group": "a", "vias": [
          {"nhEntryType": "nextHopArpResolved", "srcIpAddr": "10.0.0.1", "dstIpAddr": "10.0.1.1",
           "weight": 2, "underlayAdjId": {"adjId": 1}},
          {"nhEntryType": "nextHopArpResolved", "srcIpAddr": "10.0.0.1", "dstIpAddr": "10.0.1.2",
           "underlayAdjId": {"adjId": 2}}]},
        {"op": "release", "group": "a"}]})",
                     "chip.json");
}

std::pair<std::string, uint32_t> where(const AsicSim::Chip::RowChange& c) {
   return {c.table, c.index};
}

TEST(ChipWriteFailureAt, FailsTheNthWritesCountedOverAllTablesUntilCancelled) {
   const Scenario s = twoGroups();
   // A fresh program writes only new rows, so its journal lists its writes.
   std::vector<AsicSim::Chip::RowChange> writes;
   {
      Agent agent(s);
      startFresh(agent);
      agent.chip().journalingIs(true);
      const uint32_t before = agent.chip().writes();
      runSteps(agent, s.steps, 0, 1);
      writes = agent.chip().journal();
      ASSERT_EQ(agent.chip().writes() - before, writes.size());
   }
   std::set<std::string> tables;
   for (const auto& w : writes) tables.insert(w.table);
   ASSERT_GE(tables.size(), 4u) << "the program writes too few tables to tell counts apart";

   for (uint32_t k = 1; k <= writes.size(); ++k) {
      SCOPED_TRACE("write " + std::to_string(k));
      Agent agent(s);
      startFresh(agent);
      AsicSim::Chip& chip = agent.chip();
      const uint32_t before = chip.writes();
      chip.journalingIs(true);
      chip.writeFailureAtIs(k);
      EXPECT_EQ(chip.writeFailuresPending(), 1u);
      runSteps(agent, s.steps, 0, 1);
      EXPECT_EQ(chip.writeFailuresPending(), 0u);
      ASSERT_EQ(chip.failedWrites().size(), 1u);
      const auto& f = chip.failedWrites()[0];
      EXPECT_EQ(f.ordinal, before + k);
      EXPECT_EQ(std::pair(f.table, f.index), where(writes[k - 1]));
      // Up to the refused write the run is the same; the refused row stays as it was.
      const auto& got = chip.journal();
      ASSERT_GE(got.size(), k - 1);
      for (uint32_t i = 0; i + 1 < k; ++i) EXPECT_EQ(where(got[i]), where(writes[i]));
      EXPECT_EQ(chip.table(f.table, f.unit)->row(f.index), nullptr);
   }

   // Several at once, nothing at 0 or past the step's writes, and cancelling.
   Agent agent(s);
   startFresh(agent);
   AsicSim::Chip& chip = agent.chip();
   const uint32_t before = chip.writes();
   chip.writeFailureAtIs(2);
   chip.writeFailureAtIs(3);
   chip.writeFailureAtIs(0);
   chip.writeFailureAtIs(40);
   EXPECT_EQ(chip.writeFailuresPending(), 3u);
   runSteps(agent, s.steps, 0, 1);
   ASSERT_EQ(chip.failedWrites().size(), 2u);
   EXPECT_EQ(chip.failedWrites()[0].ordinal, before + 2);
   EXPECT_EQ(chip.failedWrites()[1].ordinal, before + 3);
   chip.writeFailureAtDelAll();
   EXPECT_EQ(chip.writeFailuresPending(), 0u);
   chip.failedWritesDelAll();
   runSteps(agent, s.steps, 0, 1);  // the refused entries are written again
   EXPECT_TRUE(chip.failedWrites().empty());
   EXPECT_EQ(groupStates(agent).at("a"), "success");
}

TEST(ChipJournal, RecordsEveryRowChangeAndNothingElse) {
   const Scenario s = twoGroups();
   Agent agent(s);
   startFresh(agent, s.steps, 1);
   AsicSim::Chip& chip = agent.chip();
   EXPECT_TRUE(chip.journal().empty()) << "journaling is off by default";

   chip.journalingIs(true);
   const uint32_t before = chip.writes(), claims = chip.claims();
   restartAndReplay(agent);
   EXPECT_EQ(chip.writes(), before) << "the replay finds every row as it writes it";
   EXPECT_GT(chip.claims(), claims);
   EXPECT_EQ(changesOf(chip.journal()), Lines{});

   const Rows rows = rowsOf(chip);
   runSteps(agent, s.steps, 1, 2);  // the release deletes rows, and writes none
   const Rows left = rowsOf(chip);
   std::set<std::pair<std::string, uint32_t>> gone, journaled;
   for (const auto& [t, rs] : rows)
      for (const auto& [i, text] : rs)
         if (!left.count(t) || !left.at(t).count(i)) gone.emplace(t, i);
   for (const auto& c : chip.journal()) {
      const std::string t(L3TunnelTool::unqualifiedName(c.table));
      EXPECT_TRUE(journaled.emplace(t, c.index).second) << "twice: " << t << "[" << c.index << "]";
      EXPECT_EQ(c.before, rows.at(t).at(c.index));
      EXPECT_EQ(c.after, std::nullopt);
   }
   EXPECT_EQ(journaled, gone);
   EXPECT_EQ(left.count("L3EcmpMember0Table"), 0u);
   chip.journalingIs(true);
   EXPECT_TRUE(chip.journal().empty()) << "turning it on starts afresh";
   chip.journalingIs(false);
   runSteps(agent, s.steps, 0, 1);
   EXPECT_TRUE(chip.journal().empty());
}

}  // namespace
}  // namespace sweep
