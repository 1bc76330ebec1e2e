// The agent's replay after a restart against what the chip kept: rows that
// already hold what the replay writes are claimed, not written; only what
// changed while the agent was down is written or deleted.
#include <functional>
#include <map>
#include <vector>

#include "support/ProgrammerFixture.h"

namespace test {
namespace {

using Groups = std::vector<std::vector<L3TunnelOverlayViaEntry>>;

// Writes or deletes per hardware table; `interfaces` counts in each
// interface table of the running toggle.
struct Counts {
   uint32_t members = 0, nextHops = 0, interfaces = 0, tunnels = 0;
};

enum class Underlay { sameOrder, reversedAtTheirIndices, reversed };

struct ReplayCase {
   const char* name;
   std::function<void(Groups&)> edit;  // what the agent replays
   bool tunnelRowAltered = false;      // a tunnel row's content changed on the chip
   Underlay underlay = Underlay::sameOrder;
   bool failureArmed = false;  // the next write fails
   Counts writes{}, deletes{};
};

void PrintTo(const ReplayCase& c, std::ostream* os) { *os << c.name; }

Groups baseline() {
   return {{via("10.0.0.1", "11.0.0.1", 2, 1), via("10.0.0.1", "11.0.0.2", 1, 2)},
           {via("10.0.0.1", "11.0.0.2", 1, 2), via("10.0.0.1", "11.0.0.3", 1, 3), dropVia(1)},
           {via("10.0.0.1", "11.0.0.4", 3, 4)}};
}

const auto same = [](Groups&) {};

const ReplayCase cases[] = {
    {.name = "NoChange", .edit = same},
    {.name = "TunnelTtlChanged",
     .edit = [](Groups& g) { g[2][0].ttlIs(32); },
     .writes = {.tunnels = 1}},
    // A block of another size takes a new range; the old one is purged.
    {.name = "WeightChanged",
     .edit = [](Groups& g) { g[2][0].weightIs(4); },
     .writes = {.members = 4},
     .deletes = {.members = 3}},
    {.name = "GroupRemoved",
     .edit = [](Groups& g) { g.pop_back(); },
     .deletes = {.members = 3, .nextHops = 1, .interfaces = 1, .tunnels = 1}},
    {.name = "GroupAdded",
     .edit = [](Groups& g) { g.push_back({via("10.0.0.1", "11.0.0.5", 1, 1)}); },
     .writes = {.members = 1, .nextHops = 1, .interfaces = 1, .tunnels = 1}},
    {.name = "RowAlteredOnTheChip",
     .edit = same,
     .tunnelRowAltered = true,
     .writes = {.tunnels = 1}},
    {.name = "UnderlayRemadeAtItsIndices",
     .edit = same,
     .underlay = Underlay::reversedAtTheirIndices},
    // Every block names other underlay indices: all are written anew.
    {.name = "UnderlayRemadeInAnotherOrder",
     .edit = same,
     .underlay = Underlay::reversed,
     .writes = {.members = 9},
     .deletes = {.members = 9}},
    {.name = "FailureArmedNoChange", .edit = same, .failureArmed = true},
    // The refused write (a table counts none) fails the tunnel's chain: its
    // group's block waits, and the rows the block had are purged.
    {.name = "FailureArmedRowAltered",
     .edit = same,
     .tunnelRowAltered = true,
     .failureArmed = true,
     .deletes = {.members = 3}},
};

class ReplayClaim : public ProgrammerFixture, public ::testing::WithParamInterface<ReplayCase> {
protected:
   std::map<std::string_view, uint32_t> perTable(const Counts& c) const {
      std::map<std::string_view, uint32_t> m{{L3EcmpMember0Table::typeName, c.members},
                                             {L3TunnelIngL3NextHopTable::typeName, c.nextHops},
                                             {L3EgrL3Ipv4TunnelTable::typeName, c.tunnels}};
      if (L3TunnelOverlayEcmpProgrammer::commonIifOifIndex())
         m[IngL3Iif::typeName] = m[EgrL3Oif1Table::typeName] = c.interfaces;
      else
         m[L3TunnelEgrL3Oif1Table::typeName] = c.interfaces;
      return m;
   }
   std::map<std::string_view, AsicSim::HwTable::Stats> allStats() const {
      std::map<std::string_view, AsicSim::HwTable::Stats> m;
      for (auto& [name, n] : perTable({})) m[name] = stats(name);
      return m;
   }
   void programAll(const Groups& groups) {
      held.clear();
      for (auto& vias : groups) held.push_back(programmer->populateOverlayEcmpBlock(viaList(vias)));
      runLoop();
   }

   // The agent goes (the programmer first, so that its groups delete no row)
   // and its underlay component makes the groups again.
   void agentGone(Underlay order) {
      std::map<uint32_t, Asic::Index> had;
      for (uint32_t id = 1; id <= 4; ++id) had[id] = underlay->entryWeakRef(adj(id))->hwIndex();
      tablesDrop();
      held.clear();
      Brio::EventLoop::instance().clear();
      end();
      begin(std::vector<AdjKey>{});
      for (uint32_t n = 0; n < 4; ++n) {
         const uint32_t id = order == Underlay::sameOrder ? n + 1 : 4 - n;
         underlay->entryIs(
             adj(id), State::success,
             order == Underlay::reversedAtTheirIndices ? had[id] : Asic::invalidIndex);
      }
   }

   std::vector<HandlePtr> held;
};

TEST_P(ReplayClaim, OnlyWhatChangedIsWritten) {
   const ReplayCase& c = GetParam();
   start();
   programAll(baseline());
   const auto rowsBefore = chipRows();
   std::vector<Asic::Index> bases;
   for (auto& h : held) bases.push_back(block(h).baseIndex());
   const Asic::Index alteredRow =
       v4->entryHandle(L3TunnelKey(addr("10.0.0.1"), addr("11.0.0.1")))->hwIndex();

   agentGone(c.underlay);
   if (c.tunnelRowAltered) {
      auto t = hw(L3EgrL3Ipv4TunnelTable::typeName);
      std::string text = t->rowText(alteredRow);
      const size_t at = text.find("'ttlValue': 64");
      ASSERT_NE(at, std::string::npos) << text;
      t->rowTextIs(alteredRow, text.replace(at, 14, "'ttlValue': 9"));
   }
   uint32_t found = 0;
   for (auto& name : chip->tableNames()) found += hw(name)->usedRows();
   const auto before = allStats();
   const uint32_t writesBefore = chip->writes();
   if (c.failureArmed) chip->writeFailureAtIs(1);
   chip->journalingIs(true);

   tablesIs(true);
   Groups replay = baseline();
   c.edit(replay);
   programAll(replay);
   programmer->purgeStaleEntries();
   runLoop();

   std::map<std::string_view, uint32_t> writes, deletes;
   uint32_t claims = 0;
   for (auto& [name, s] : allStats()) {
      writes[name] = s.writes - before.at(name).writes;
      deletes[name] = s.deletes - before.at(name).deletes;
      claims += s.claims - before.at(name).claims;
   }
   EXPECT_EQ(writes, perTable(c.writes));
   EXPECT_EQ(deletes, perTable(c.deletes));
   // Every write changed its row, and every kept row that nothing changed
   // was claimed.
   uint32_t written = 0, keptRowsChanged = 0;
   for (auto& change : chip->journal()) {
      written += change.after ? 1 : 0;
      keptRowsChanged += change.before ? 1 : 0;
   }
   const uint32_t refused = uint32_t(chip->failedWrites().size());
   EXPECT_EQ(chip->writes() - writesBefore, written + refused);
   // Rows behind a refused write are neither claimed nor written, and its
   // groups wait.
   if (!refused) {
      EXPECT_EQ(claims, found - keptRowsChanged);
      for (auto& h : held) EXPECT_EQ(h->entryState(), State::success) << block(h).keyText();
   }
   if (c.failureArmed) {
      // Spent on the first real write, never on a claim.
      EXPECT_EQ(chip->writeFailuresPending(), c.tunnelRowAltered ? 0u : 1u);
      ASSERT_EQ(refused, c.tunnelRowAltered ? 1u : 0u);
      if (refused) {
         EXPECT_EQ(chip->failedWrites()[0].index, alteredRow);
      }
   }
   if (perTable(c.writes) == perTable({}) && perTable(c.deletes) == perTable({})) {
      EXPECT_EQ(chipRows(), rowsBefore);
      for (size_t g = 0; g < held.size(); ++g) EXPECT_EQ(block(held[g]).baseIndex(), bases[g]);
   }
   expectConsistent();
}

INSTANTIATE_TEST_SUITE_P(Restart, ReplayClaim, ::testing::ValuesIn(cases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace test
