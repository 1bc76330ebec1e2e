// PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE is read once per process, so ctest runs
// this suite once per setting and tells it, through EXPECT_PROGRAMMED_STATE,
// which behaviour to expect ("1": entries complete at the write; otherwise
// they wait for the write response).
#include <gtest/gtest.h>

#include <cstdlib>

#include "Orb/Env.h"
#include "support/SimFixture.h"

namespace test {
namespace {

bool expectProgrammed() {
   const char* v = std::getenv("EXPECT_PROGRAMMED_STATE");
   return v && std::string(v) == "1";
}

class ProgrammedStateSwitch : public SimFixture {
protected:
   void SetUp() override {
      SimFixture::SetUp();
      makeTunnelTables();
   }
};

TEST_F(ProgrammedStateSwitch, WriteCompletesAtTheWriteOnlyWhenSwitchedOn) {
   EXPECT_EQ(Asic::publishEntryHandleProgrammedState(), expectProgrammed());
   auto k = tunnelKey(1);
   std::vector<State> heard;
   auto e = tunnelEntry<V4>(k);
   e.writeResponseFnIs([&](State s) { heard.push_back(s); });
   auto h = v4->entryRef(k, e);
   if (expectProgrammed()) {
      EXPECT_EQ(h->entryState(), State::success);
      EXPECT_EQ(h->hwIndex(), 1u);
      EXPECT_EQ(heard, (std::vector<State>{State::inProgress, State::success}));
   } else {
      EXPECT_EQ(h->entryState(), State::inProgress);
      EXPECT_EQ(h->hwIndex(), Asic::invalidIndex);
      EXPECT_EQ(heard, (std::vector<State>{State::inProgress}));
   }
   runLoop();
   EXPECT_EQ(h->entryState(), State::success);
   EXPECT_EQ(h->hwIndex(), 1u);
   EXPECT_EQ(heard.size(), 2u) << "the late response changes nothing when already complete";
}

TEST_F(ProgrammedStateSwitch, FullTableAndTheDeleteDance) {
   chip->tableSizeIs(V4::typeName, 2);
   chip->tableSizeIs(V6::typeName, 2);
   makeTunnelTables(2);
   auto a = v4->entryRef(tunnelKey(1), tunnelEntry<V4>(tunnelKey(1)));
   auto b = v4->entryRef(tunnelKey(2), tunnelEntry<V4>(tunnelKey(2)));
   EXPECT_EQ(b->entryState(), State::noHwIndex);
   a.reset();
   // Switched on, the dance ends within the call; otherwise it waits for the
   // delete's response.
   EXPECT_EQ(v4->entryHandle(tunnelKey(1)) == nullptr, expectProgrammed());
   runLoop();
   EXPECT_FALSE(v4->entryHandle(tunnelKey(1)));
   b.reset();
   EXPECT_FALSE(v4->entryHandle(tunnelKey(2))) << "a handle without an index goes at once";
   runLoop();
   expectConsistent();
}

}  // namespace
}  // namespace test
