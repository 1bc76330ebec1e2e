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

TEST(UnderlayWantedIndex, IsTakenOnlyWhenFree) {
   const struct {
      const char* name;
      uint32_t adjId;  // groups 1 and 2 hold 0 and 1; group 2 is removed but held
      Asic::Index wanted;
      Asic::Index got;
   } cases[] = {
       {"free", 5, 3, 3},
       {"taken by a group", 5, 0, 2},
       {"held by a removed group's handle", 5, 1, 2},
       {"beyond the table", 5, 4, 2},
       {"none asked", 5, Asic::invalidIndex, 2},
       {"a group keeps its index", 1, 3, 0},
   };
   for (const auto& c : cases) {
      SCOPED_TRACE(c.name);
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
}

}  // namespace
}  // namespace test
