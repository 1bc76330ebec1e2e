// The index a new underlay group takes: the one its owner asks for when that
// is free, else the lowest free one.
#include <gtest/gtest.h>

#include <set>

#include "SharedL3/EcmpGroup1Table.h"
#include "support/Setup.h"

namespace test {
namespace {

using MeridL3Tunnel::EcmpGroup1Table;
using State = Asic::SwTableBase::EntryState;

struct WantedCase {
   const char* name;
   uint32_t adjId;  // groups 1 and 2 hold 0 and 1; group 2 is removed but held
   Asic::Index wanted;
   Asic::Index got;
};

void PrintTo(const WantedCase& c, std::ostream* os) { *os << c.name; }

const WantedCase wantedCases[] = {
    {"Free", 5, 3, 3},
    {"TakenByAGroup", 5, 0, 2},
    {"HeldByARemovedGroupsHandle", 5, 1, 2},
    {"BeyondTheTable", 5, 4, 2},
    {"NoneAsked", 5, Asic::invalidIndex, 2},
    {"AGroupKeepsItsIndex", 1, 3, 0},
};

class UnderlayWantedIndex : public ::testing::TestWithParam<WantedCase> {};

TEST_P(UnderlayWantedIndex, IsTakenOnlyWhenFree) {
   const WantedCase& c = GetParam();
   EcmpGroup1Table table(4);
   table.entryIs(adj(1));
   auto removed = table.entryIs(adj(2));
   table.entryDel(adj(2));
   auto h = table.entryIs(adj(c.adjId), State::success, c.wanted);
   EXPECT_EQ(h->hwIndex(), c.got);
   EXPECT_EQ(h->entryState(), State::success);
   EXPECT_TRUE(table.indexTaken(c.got));
   // Groups asking for nothing fill the lowest free indices around it.
   std::set<Asic::Index> taken{0, 1, c.got};
   for (uint32_t id = 10; taken.size() < 4; ++id) {
      Asic::Index lowest = 0;
      while (taken.count(lowest)) ++lowest;
      EXPECT_EQ(table.entryIs(adj(id))->hwIndex(), lowest);
      taken.insert(lowest);
   }
   EXPECT_EQ(table.entryIs(adj(20), State::success, 3)->entryState(), State::noHwIndex);
}

INSTANTIATE_TEST_SUITE_P(EcmpGroup1Table, UnderlayWantedIndex, ::testing::ValuesIn(wantedCases),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace test
