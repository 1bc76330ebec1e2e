// The merged interface table: one index per tunnel key, used in both member
// tables, freed only when both have let it go.
#include <gtest/gtest.h>

#include "Orb/Trace.h"
#include "support/SimFixture.h"

namespace test {
namespace {

class MergedInterface : public SimFixture {
protected:
   void SetUp() override {
      SimFixture::SetUp();
      makeInterfaceTable();
   }
   HandlePtr tunnel(uint32_t n) {
      auto h = v4->entryCommit(tunnelKey(n), tunnelEntry<V4>(tunnelKey(n)));
      runLoop();
      return h;
   }
   bool ingRow(Asic::Index i) { return hw(IngL3Iif::typeName)->row(i) != nullptr; }
   bool egrRow(Asic::Index i) { return hw(EgrL3Oif1Table::typeName)->row(i) != nullptr; }
};

TEST_F(MergedInterface, OneIndexInBothMembersAndAnIdenticalRewriteProgramsNothing) {
   auto t1 = tunnel(1), t2 = tunnel(2);
   auto a = intf->entryCommit(tunnelKey(1), interfaceEntry(t1));
   auto b = intf->entryCommit(tunnelKey(2), interfaceEntry(t2));
   runLoop();
   EXPECT_EQ(a->entryState(), State::success);
   EXPECT_EQ(b->entryState(), State::success);
   EXPECT_NE(a->hwIndex(), b->hwIndex());
   for (auto& h : {a, b}) {
      EXPECT_TRUE(ingRow(h->hwIndex()));
      EXPECT_TRUE(egrRow(h->hwIndex()));
   }
   EXPECT_EQ(intf->egrL3Oif1TableEntry(tunnelKey(2)).tunnelIdx(), t2->hwIndex());
   EXPECT_EQ(intf->hwIndexOnlyForCrossAgentCommunication(tunnelKey(2)), b->hwIndex());
   EXPECT_EQ(intf->swKeyFromHwIndex(b->hwIndex()), tunnelKey(2));
   EXPECT_FALSE(intf->swKeyFromHwIndex(12));
   EXPECT_EQ(intf->hwIndexOnlyForCrossAgentCommunication(tunnelKey(9)), Asic::invalidIndex);

   Orb::TraceCapture trace("MeridL3Tunnel::L3InterfaceTable/9");
   const auto writes = stats(EgrL3Oif1Table::typeName).writes + stats(IngL3Iif::typeName).writes;
   EXPECT_EQ(intf->entryCommit(tunnelKey(1), interfaceEntry(t1)), a);
   EXPECT_EQ(stats(EgrL3Oif1Table::typeName).writes + stats(IngL3Iif::typeName).writes, writes);
   EXPECT_EQ(linesWith(trace.lines(),
                       "MeridL3Tunnel::L3InterfaceTable: entryWrite: merged table "
                       "entry already exists"),
             1);
   expectConsistent();
}

// A member row counts once the chip has taken it: next hops naming the
// merged index must not be written before that, since the chip may refuse it.
TEST_F(MergedInterface, MembersCountOnceTheChipHasAnsweredThem) {
   auto t = tunnel(1);
   std::vector<State> heard;
   auto e = interfaceEntry(t);
   e.writeResponseFnIs([&](State s) { heard.push_back(s); });
   auto h = intf->entryCommit(tunnelKey(1), e);
   EXPECT_TRUE(heard.empty());
   EXPECT_EQ(h->entryState(), State::unresolved);
   runLoop();
   EXPECT_EQ(heard, (std::vector<State>{State::inProgress, State::success}));
   EXPECT_FALSE(intf->unresolvedMergedEntry(tunnelKey(1)));
   EXPECT_TRUE(intf->mergedEntryHas(tunnelKey(1)));

   // A refused member row fails the merged entry instead.
   chip->writeFailuresIs(EgrL3Oif1Table::typeName, 1);
   auto r = intf->entryCommit(tunnelKey(3), interfaceEntry(t));
   runLoop();
   EXPECT_EQ(r->entryState(), State::failedNeededEntry);
   EXPECT_FALSE(intf->mergedEntryHas(tunnelKey(3)));
   chip->writeFailuresIs(EgrL3Oif1Table::typeName, 0);
   intf->entryRemove(tunnelKey(3));
   runLoop();

   // With the tunnel not programmed yet, the egress member waits, and so does
   // the merged entry.
   chip->holdResponsesIs(true);
   auto t2 = v4->entryCommit(tunnelKey(2), tunnelEntry<V4>(tunnelKey(2)));
   auto w = intf->entryCommit(tunnelKey(2), interfaceEntry(t2));
   EXPECT_EQ(w->entryState(), State::unresolved);
   // The egress member positions on the waiting value first.
   const EgrL3Oif1Table::Index egrIndex(intf->indexAllocator()->indexForKey(tunnelKey(2)));
   auto cursor = intf->egrL3Oif1Table()->entryIteratorConst(egrIndex);
   ASSERT_TRUE(cursor);
   EXPECT_EQ(*cursor.key, egrIndex);
   EXPECT_EQ(cursor.entry, &intf->egrL3Oif1Table()->unresolvedEntry(egrIndex)->entry());
   EXPECT_FALSE(intf->egrL3Oif1Table()->entryIteratorConst(EgrL3Oif1Table::Index(15)));
   ASSERT_TRUE(intf->unresolvedMergedEntry(tunnelKey(2)));
   EXPECT_EQ(intf->unresolvedMergedEntry(tunnelKey(2))->neededEntryHandleSms(), 2u);
   settle();
   EXPECT_EQ(w->entryState(), State::success);
   expectConsistent();
}

// Member rows that outlived their key's merged entry (someone else holds
// them) are taken over by the key's next write, which resolves at once: the
// chip has answered them already.
TEST_F(MergedInterface, WriteOverProgrammedMembersResolvesAtOnce) {
   auto t = tunnel(1);
   intf->entryCommit(tunnelKey(1), interfaceEntry(t));
   runLoop();
   const Asic::Index index = intf->entryHandle(tunnelKey(1))->hwIndex();
   auto ing = intf->ingL3Iif()->entryWeakRef(IngL3Iif::Index(index));
   auto egr = intf->egrL3Oif1Table()->entryWeakRef(EgrL3Oif1Table::Index(index));
   intf->entryRemove(tunnelKey(1));
   runLoop();
   ASSERT_FALSE(intf->entryHandle(tunnelKey(1)));
   ASSERT_EQ(ing->entryState(), State::success);
   ASSERT_EQ(egr->entryState(), State::success);
   const auto writes = stats(EgrL3Oif1Table::typeName).writes + stats(IngL3Iif::typeName).writes;

   std::vector<State> heard;
   auto e = interfaceEntry(t);
   e.writeResponseFnIs([&](State s) { heard.push_back(s); });
   auto h = intf->entryCommit(tunnelKey(1), e);
   EXPECT_EQ(heard, (std::vector<State>{State::inProgress, State::success}));
   EXPECT_EQ(h->entryState(), State::success);
   EXPECT_EQ(h->hwIndex(), index);
   EXPECT_TRUE(intf->mergedEntryHas(tunnelKey(1)));
   EXPECT_EQ(stats(EgrL3Oif1Table::typeName).writes + stats(IngL3Iif::typeName).writes, writes);
   expectConsistent();
}

// The merged index is freed only with its last member row: once both
// deletes are answered, or, when someone else still holds a member entry,
// once that one goes, whichever member it is. Meanwhile a new key never gets
// the index.
TEST_F(MergedInterface, IndexWaitsForTheLastMemberWhicheverItIs) {
   enum Kept { none, egress, ingress };
   auto t = tunnel(1);
   for (Kept kept : {none, egress, ingress}) {
      SCOPED_TRACE(kept == none ? "none kept" : kept == egress ? "egress kept" : "ingress kept");
      Orb::TraceCapture trace("MeridL3Tunnel::L3InterfaceTable/9");
      const auto k = tunnelKey(10 + kept);
      intf->entryCommit(k, interfaceEntry(t));
      runLoop();
      const Asic::Index index = intf->entryHandle(k)->hwIndex();
      HandlePtr holder;
      if (kept == egress)
         holder = intf->egrL3Oif1Table()->entryWeakRef(EgrL3Oif1Table::Index(index));
      if (kept == ingress) holder = intf->ingL3Iif()->entryWeakRef(IngL3Iif::Index(index));
      chip->holdResponsesIs(true);
      intf->entryRemove(k);
      EXPECT_FALSE(intf->entryHandle(k));
      EXPECT_TRUE(intf->indexAllocator()->keyForIndex(index)) << "member rows still hold it";
      auto fresh = intf->entryCommit(tunnelKey(20 + kept), interfaceEntry(t));
      settle();
      EXPECT_NE(fresh->hwIndex(), index) << "a new key never gets an index a member row uses";
      const std::string stillUsed = kept == egress    ? ": index still used in egrL3Oif1Table"
                                    : kept == ingress ? ": index still used in ingL3Iif"
                                                      : ": index still used in";
      EXPECT_GE(linesWith(trace.lines(), stillUsed), 1);
      if (kept != none) {
         EXPECT_TRUE(intf->indexAllocator()->keyForIndex(index)) << "one member still programmed";
         EXPECT_TRUE(kept == egress ? egrRow(index) : ingRow(index));
         holder.reset();
         runLoop();
      }
      EXPECT_FALSE(ingRow(index));
      EXPECT_FALSE(egrRow(index));
      EXPECT_FALSE(intf->indexAllocator()->keyForIndex(index));
      EXPECT_EQ(linesWith(trace.lines(), ": freeing index : " + std::to_string(index)), 1);
      expectConsistent();
   }
}

// The agent goes and comes back over the chip's rows: the same writes land
// on the indices they had, and a new key never takes a survivor's.
TEST_F(MergedInterface, KeepTheirIndexAcrossARestart) {
   for (uint32_t n = 1; n <= 4; ++n) intf->entryCommit(tunnelKey(n), interfaceEntry(tunnel(n)));
   runLoop();
   intf->entryRemove(tunnelKey(1));
   runLoop();
   std::map<uint32_t, Asic::Index> index;
   for (uint32_t n = 2; n <= 4; ++n) index[n] = intf->entryHandle(tunnelKey(n))->hwIndex();
   const auto before = chipRows();
   const uint32_t changesBefore = chipChanges();

   restart();
   EXPECT_EQ(chipRows(), before);
   for (uint32_t n : {4u, 2u, 3u}) intf->entryCommit(tunnelKey(n), interfaceEntry(tunnel(n)));
   runLoop();
   for (uint32_t n = 2; n <= 4; ++n)
      EXPECT_EQ(intf->entryHandle(tunnelKey(n))->hwIndex(), index[n]) << n;
   EXPECT_EQ(chipRows(), before);
   EXPECT_EQ(chipChanges(), changesBefore);
   auto fresh = intf->entryCommit(tunnelKey(9), interfaceEntry(tunnel(2)));
   for (uint32_t n = 2; n <= 4; ++n) EXPECT_NE(fresh->hwIndex(), index[n]);
}

TEST_F(MergedInterface, AliasSharesTheHandleAndItsIndex) {
   auto t = tunnel(1);
   auto a = intf->entryCommit(tunnelKey(1), interfaceEntry(t));
   runLoop();
   EXPECT_EQ(intf->entryMapToKey(tunnelKey(1), tunnelKey(5), Asic::needsExplicitRemove()), a);
   EXPECT_EQ(intf->hwIndexOnlyForCrossAgentCommunication(tunnelKey(5)), a->hwIndex());
   EXPECT_EQ(intf->entryWeakRef(tunnelKey(5)), a);
   intf->entryRemove(tunnelKey(5));
   EXPECT_FALSE(intf->mappedEntryHandle(tunnelKey(5)));
   EXPECT_EQ(a->entryState(), State::success) << "the aliased entry stays in place";
   EXPECT_EQ(a->entryType(), Type::committed);
}

using MergedInterfaceDeathTest = MergedInterface;

TEST_F(MergedInterfaceDeathTest, AliasMisuseAborts) {
   auto t = tunnel(1);
   intf->entryCommit(tunnelKey(1), interfaceEntry(t));
   EXPECT_DEATH(intf->entryMapToKey(tunnelKey(1), tunnelKey(1), Asic::needsExplicitRemove()),
                "assertion \"existingKey != newKey\" failed: new and existing key can't be same");
   EXPECT_DEATH(intf->entryMapToKey(tunnelKey(1), tunnelKey(2), Asic::autoRemove()),
                "assertion \"autoRemoveType == Asic::needsExplicitRemove\\(\\)\" failed:  Only "
                "explicit remove supported with entryMapToKey");
   EXPECT_DEATH(intf->entryMapToKey(tunnelKey(3), tunnelKey(2), Asic::needsExplicitRemove()),
                "assertion \"eh\" failed: Expected to see an entryhandle at existingKey");
}

}  // namespace
}  // namespace test
