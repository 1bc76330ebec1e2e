// A row the chip kept across a restart is claimed by the first write of its
// content and row key: no write, no journal entry, no failure spent, and
// the same answer a write gets. Anything else about the row makes it a write.
#include "Asic/RecoverGroup.h"
#include "support/SimFixture.h"

namespace test {
namespace {

struct ClaimCase {
   const char* name;
   // Done to the kept row while no table holds it.
   std::function<void(AsicSim::HwTable&, Asic::Index)> whileDown;
   bool failureArmed;  // the table's next write fails
   bool claimed;
};

void PrintTo(const ClaimCase& c, std::ostream* os) { *os << c.name; }

const ClaimCase claimCases[] = {
    {"Kept", [](AsicSim::HwTable&, Asic::Index) {}, false, true},
    {"ContentChanged",
     [](AsicSim::HwTable& t, Asic::Index i) { t.rowTextIs(i, t.rowText(i) + " "); }, false, false},
    // Found by no key: the replay takes the row's index, but the key differs.
    {"KeyLost", [](AsicSim::HwTable& t, Asic::Index i) { t.rowKeyIs(i, {}); }, false, false},
    {"KeptWithAFailureArmed", [](AsicSim::HwTable&, Asic::Index) {}, true, true},
};

class ChipClaim : public SimFixture, public ::testing::WithParamInterface<ClaimCase> {};

TEST_P(ChipClaim, TheFirstWriteOfWhatAKeptRowHoldsIsNoWrite) {
   const ClaimCase& c = GetParam();
   makeTunnelTables();
   const auto entry = tunnelEntry<V4>(tunnelKey(1));
   HandlePtr first = v4->entryCommit(tunnelKey(1), entry);
   runLoop();
   const Asic::Index row = first->hwIndex();
   tablesDrop();
   auto t = hw(V4::typeName);
   c.whileDown(*t, row);
   const std::string kept = t->rowText(row);
   const auto before = t->stats();

   v4 = MeridL3Tunnel::l3EgrL3Ipv4TunnelTableFactory();
   Asic::RecoverGroup group;
   v4->doRecoverHwTable(group, 0, ledger, chipInfo);
   group.recover();
   if (c.failureArmed) chip->writeFailuresIs(V4::typeName, 1);
   chip->journalingIs(true);
   chip->holdResponsesIs(true);
   const uint32_t writes = chip->writes();
   HandlePtr h = v4->entryCommit(tunnelKey(1), entry);
   EXPECT_EQ(chip->heldResponses(), 1u) << "answered as a write";
   settle();
   EXPECT_EQ(h->entryState(), State::success);
   EXPECT_EQ(h->hwIndex(), row);
   EXPECT_EQ(t->stats().claims - before.claims, c.claimed ? 1u : 0u);
   EXPECT_EQ(t->stats().writes - before.writes, c.claimed ? 0u : 1u);
   EXPECT_EQ(chip->writes() - writes, c.claimed ? 0u : 1u);
   EXPECT_EQ(chip->claims(), c.claimed ? 1u : 0u);
   EXPECT_EQ(chip->journal().size(), t->rowText(row) == kept ? 0u : 1u);

   // A row is claimed once: the same write again goes to the row, and meets
   // the failure the claim left.
   v4->util()->hwTableEntryIs(*v4->hwTable(), row, &entry);
   EXPECT_EQ(chip->writes() - writes, c.claimed ? 1u : 2u);
   EXPECT_EQ(chip->failedWrites().size(), c.failureArmed ? 1u : 0u);
   EXPECT_EQ(t->stats().claims - before.claims, c.claimed ? 1u : 0u);
   settle();
}

INSTANTIATE_TEST_SUITE_P(Restart, ChipClaim, ::testing::ValuesIn(claimCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace test
