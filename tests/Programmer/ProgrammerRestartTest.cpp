// Agent restarts: the tables recover from the rows the chip kept, a replay
// lands every entry on its old row without changing one, and the purge after
// a partial replay leaves exactly the replayed groups' rows.
#include <filesystem>

#include "support/ProgrammerFixture.h"

namespace test {
namespace {

class ProgrammerRestart : public ProgrammerFixture, public ::testing::WithParamInterface<bool> {
protected:
   // In the same process, or through the chip's state file.
   std::string statePath() const {
      if (!GetParam()) return "";
      return (std::filesystem::temp_directory_path() /
              ("programmer-restart-" + std::to_string(::getpid()) + ".state"))
          .string();
   }
   void TearDown() override {
      if (GetParam()) std::filesystem::remove(statePath());
      ProgrammerFixture::TearDown();
   }
};

const auto shared = [] { return via("10.0.0.1", "10.0.0.2", 2, 1); };

TEST_P(ProgrammerRestart, ReplayLandsOnTheOldRowsWithoutChangingThem) {
   start();
   HandlePtr web = program({shared(), via("10.0.0.1", "10.0.0.3", 1, 2), dropVia(1)});
   HandlePtr db = program({shared(), via("2001:db8::1", "2001:db8::2", 1, 3)});
   const Asic::Index webBase = block(web).baseIndex(), dbBase = block(db).baseIndex();
   const Asic::Index sharedNextHop = block(web).entryBlock().begin()->nextHopHandle()->hwIndex();
   const uint32_t before = changes();

   restart({&web, &db}, statePath());
   // A new process counts from zero.
   const uint32_t recovered = changes();
   EXPECT_EQ(recovered, GetParam() ? 0u : before) << "recovery alone changes no row";
   db = program({shared(), via("2001:db8::1", "2001:db8::2", 1, 3)});
   web = program({shared(), via("10.0.0.1", "10.0.0.3", 1, 2), dropVia(1)});
   EXPECT_EQ(web->entryState(), State::success);
   EXPECT_EQ(block(web).baseIndex(), webBase);
   EXPECT_EQ(block(db).baseIndex(), dbBase);
   EXPECT_EQ(block(web).entryBlock().begin()->nextHopHandle()->hwIndex(), sharedNextHop);
   EXPECT_EQ(changes(), recovered);
   expectConsistent();
   programmer->purgeStaleEntries();
   runLoop();
   EXPECT_EQ(changes(), recovered) << "a full replay leaves nothing stale";
   expectConsistent();
}

TEST_P(ProgrammerRestart, PurgeAfterAPartialReplayKeepsOnlyTheReplayedGroups) {
   start();
   HandlePtr web = program({shared(), via("10.0.0.1", "10.0.0.3", 1, 2)});
   HandlePtr db = program({shared(), via("10.0.0.1", "10.0.0.4", 2, 3)});
   const uint32_t dbRows = block(db).size();  // and one next hop of its own
   const uint32_t memberRows = hw(L3EcmpMember0Table::typeName)->usedRows();
   const uint32_t nextHopRows = hw(L3TunnelIngL3NextHopTable::typeName)->usedRows();

   restart({&web, &db}, statePath());
   web = program({shared(), via("10.0.0.1", "10.0.0.3", 1, 2)});
   EXPECT_EQ(members->recoveredRows(), dbRows);
   programmer->purgeStaleEntries();
   runLoop();
   EXPECT_EQ(hw(L3EcmpMember0Table::typeName)->usedRows(), memberRows - dbRows);
   EXPECT_EQ(hw(L3TunnelIngL3NextHopTable::typeName)->usedRows(), nextHopRows - 1);
   EXPECT_EQ(members->indexAllocator().used(), memberRows - dbRows);
   EXPECT_EQ(members->recoveredRows(), 0u);
   const L3TunnelKey gone{addr("10.0.0.1"), addr("10.0.0.4")};
   EXPECT_EQ(nh->indexAllocator()->indexForKey(gone), Asic::invalidIndex);
   EXPECT_EQ(v4->indexAllocator()->indexForKey(gone), Asic::invalidIndex);
   expectConsistent();

   // Freed indices are handed out again.
   HandlePtr next = program({via("10.0.0.1", "10.0.0.9", 3, 1)});
   EXPECT_EQ(next->entryState(), State::success);
   expectConsistent();
}

INSTANTIATE_TEST_SUITE_P(InProcessAndAcross, ProgrammerRestart, ::testing::Bool(),
                         [](const auto& info) {
                            return std::string(info.param ? "AcrossProcesses" : "InProcess");
                         });

}  // namespace
}  // namespace test
