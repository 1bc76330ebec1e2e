// The life of one key, run over every keyed and index-keyed table: written,
// the table full, a write the chip refuses, removal, and an agent restart.
// What differs per table comes from its TableTraits; what differs between a
// table keyed by its rows and one that allocates them, from the table's own
// traits.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "Orb/Trace.h"
#include "support/TableTypes.h"

namespace test {
namespace {

// Hears every change a publisher announces.
struct Heard : Brio::Notifiee {
   uint32_t changes = 0;
   void onAttribute(Brio::AttrId, Brio::KeyRef) override { ++changes; }
};

template <class T>
class TableSuite : public SimFixture {
protected:
   using Traits = TableTraits<T>;
   static constexpr std::string_view name = T::typeName;

   void make(uint32_t rows = defaultRows) { Traits::make(*this, rows); }
   T& table() { return Traits::of(*this); }
   static typename T::Key key(uint32_t n) { return Traits::key(n); }
   // The entry of key `n`; with `heard`, its callable records the states it hears.
   typename T::Entry entry(uint32_t n, std::vector<State>* heard = nullptr) {
      auto e = Traits::entry(*this, n);
      if (heard) e.writeResponseFnIs([heard](State s) { heard->push_back(s); });
      return e;
   }
   AsicSim::HwTable& rows() { return *hw(name); }
   // How often the trace holds exactly `line`, prefixed by the table's name.
   static int traced(const Orb::TraceCapture& trace, const std::string& line) {
      return int(std::count(trace.lines().begin(), trace.lines().end(), std::string(name) + line));
   }
   static std::string text(const typename T::Key& k) {
      std::ostringstream os;
      os << k;
      return os.str();
   }
   // What other agents are told of a key: its index, or none.
   Asic::Index crossAgentIndex(uint32_t n) {
      const auto i = table().hwIndexOnlyForCrossAgentCommunication(key(n));
      if constexpr (std::is_same_v<decltype(i), const Asic::Index>)
         return i;
      else
         return i.value_or(Asic::invalidIndex);
   }
};

TYPED_TEST_SUITE(TableSuite, KeyedTables);

TYPED_TEST(TableSuite, WriteIsProgrammedAndCompletesOnTheResponse) {
   this->make();
   auto& t = this->table();
   std::vector<State> heard;
   const auto e = this->entry(1, &heard);
   Orb::TraceCapture trace(std::string(this->name) + "/9");
   auto h = t.entryCommit(this->key(1), e);
   EXPECT_EQ(h->entryState(), State::inProgress);
   EXPECT_EQ(this->rows().stats().writes, 1u) << "programmed within the write";
   // A table keyed by its rows knows the index at once, the others from the answer.
   EXPECT_EQ(Asic::isValidIndex(h->hwIndex()), TypeParam::knownIndex);
   EXPECT_EQ(this->runLoop(), 1u);
   EXPECT_EQ(h->entryState(), State::success);
   EXPECT_EQ(heard, (std::vector<State>{State::inProgress, State::success}));
   ASSERT_TRUE(this->rows().row(h->hwIndex()));
   EXPECT_EQ(*this->rows().row(h->hwIndex()), t.resolvedEntry(this->key(1))->rowText());
   EXPECT_EQ(this->crossAgentIndex(1), h->hwIndex());
   EXPECT_EQ(this->crossAgentIndex(8), Asic::invalidIndex);
   if constexpr (!TypeParam::knownIndex) {
      EXPECT_EQ(t.swKeyFromHwIndex(h->hwIndex()), this->key(1));
   }
   EXPECT_EQ(
       this->traced(trace, ": traceHwIndex Acquired hwIndex : " + std::to_string(h->hwIndex())), 1);

   // The same value again, committed or referenced, changes nothing.
   Heard onTable, onHandle;
   onTable.notifierIs(&t.notifieeList());
   onHandle.notifierIs(&const_cast<Asic::SwTableBase::EntryHandle&>(*h).notifieeList());
   EXPECT_EQ(t.entryCommit(this->key(1), e), h);
   EXPECT_EQ(t.entryRef(this->key(1), e), h);
   EXPECT_EQ(this->runLoop(), 0u);
   EXPECT_EQ(onTable.changes + onHandle.changes, 0u);
   EXPECT_EQ(this->rows().stats().writes, 1u);
   // So does one differing only in the index taken from the entry it names.
   if constexpr (TypeParam::hasDependentField) {
      auto other = e;
      Asic::dependentIndexIs(other, decltype(e)::Fields::dependent(), h->hwIndex() + 40);
      EXPECT_EQ(t.entryCommit(this->key(1), other), h);
      EXPECT_EQ(this->runLoop(), 0u);
      EXPECT_EQ(this->rows().stats().writes, 1u);
      EXPECT_EQ(*this->rows().row(h->hwIndex()), t.resolvedEntry(this->key(1))->rowText());
      const std::string found = ": entryCommit : Found already existing resolved entry at key : " +
                                this->text(this->key(1)) + ", entry : " + other.stringValue();
      EXPECT_EQ(this->traced(trace, found), 1) << found;
   }
}

// An entry naming one whose write is in flight waits for it with one
// watcher and resolves once, with the named entry's index; the same value
// again keeps the waiting one. A new value naming another entry in flight
// stands behind the programmed one, and one more replaces it; a new value
// over a programmed one leaves the old pending until the chip answers.
TYPED_TEST(TableSuite, WaitsForWhatItNamesAndResolvesOnce) {
   if constexpr (!TypeParam::hasDependentField) {
      GTEST_SKIP() << "names no entry";
   } else {
      using Entry = typename TypeParam::Entry;
      this->make();
      auto& t = this->table();
      const auto k = this->key(1);
      this->chip->holdResponsesIs(true);
      const auto e = this->entry(1);
      Orb::TraceCapture trace(std::string(this->name) + "/9");
      auto h = t.entryRef(k, e);
      auto ue = t.unresolvedEntry(k);
      ASSERT_TRUE(ue);
      EXPECT_EQ(ue->neededEntryHandleSms(), 1u);
      EXPECT_EQ(h->entryState(), State::unresolved);
      EXPECT_FALSE(t.resolvedEntryHas(k));
      // A table keyed by its rows shows the waiting value, the others only a
      // resolved one.
      EXPECT_EQ(t.entryHas(k), TypeParam::knownIndex);
      EXPECT_TRUE(Entry::isEq(t.entry(k), TypeParam::knownIndex ? e : Entry()));
      EXPECT_EQ(t.entryCommit(k, e), h);
      EXPECT_EQ(t.unresolvedEntry(k), ue);
      EXPECT_EQ(linesWith(trace.lines(), " : Found existing unresolved entry at key : "), 1);
      this->settle();
      EXPECT_EQ(ue->neededEntryHandleSms(), 0u);
      EXPECT_FALSE(t.unresolvedEntry(k));
      EXPECT_EQ(linesWith(trace.lines(), " UnresolvedEntry resolved at key  : "), 1);
      EXPECT_EQ(h->entryState(), State::success);
      this->expectConsistent("resolved: ");

      this->chip->holdResponsesIs(true);
      const auto programmed = *t.resolvedEntry(k);
      const auto other = this->entry(2), third = this->entry(3);
      t.entryCommit(k, other);
      EXPECT_TRUE(Entry::isEq(t.entry(k), TypeParam::knownIndex ? other : programmed));
      EXPECT_TRUE(Entry::isEq(*t.resolvedEntry(k), programmed));
      t.entryCommit(k, third);
      EXPECT_EQ(linesWith(trace.lines(), " : Deleting existing unresolved entry at key : "), 1);
      EXPECT_EQ(t.unresolvedEntrys(), 1u);
      this->settle();
      EXPECT_FALSE(t.unresolvedEntry(k));
      EXPECT_TRUE(Entry::isEq(*t.resolvedEntry(k), third));

      this->chip->holdResponsesIs(true);
      t.entryCommit(k, e);
      ASSERT_EQ(t.entryHandle(k)->pendingEntrys(), 1u);
      EXPECT_TRUE(Entry::isEq(t.entryHandle(k)->pendingEntryFront(), third));
      this->settle();
      EXPECT_EQ(t.entryHandle(k)->pendingEntrys(), 0u);
      EXPECT_TRUE(Entry::isEq(*t.resolvedEntry(k), e));
      EXPECT_FALSE(t.entryHas(this->key(9)));
      EXPECT_FALSE(bool(t.entry(this->key(9))));
   }
}

// Two rows: as many keys as the table hands indices out for are written, the
// next finds no index and its writer hears so. A table that allocates its
// indices gives a freed one to the key that found none, when it is written
// again; a table keyed by its rows has none beyond them.
TYPED_TEST(TableSuite, FullAtCapacityTwo) {
   this->make(2);
   auto& t = this->table();
   const uint32_t fit = 2 - TestFixture::Traits::firstIndex;
   std::vector<HandlePtr> held;
   for (uint32_t n = 0; n < fit; ++n) held.push_back(t.entryRef(this->key(n), this->entry(n)));
   this->settle();
   for (auto& h : held) EXPECT_EQ(h->entryState(), State::success);
   std::vector<State> heard;
   auto over = t.entryRef(this->key(fit), this->entry(fit, &heard));
   this->settle();
   EXPECT_EQ(over->entryState(), State::noHwIndex);
   EXPECT_EQ(heard.back(), State::noHwIndex);
   EXPECT_EQ(this->rows().usedRows(), fit);
   if constexpr (!TypeParam::knownIndex) {
      const Asic::Index freed = held.front()->hwIndex();
      held.front() = nullptr;
      this->settle();
      heard.clear();
      t.entryRef(this->key(fit), this->entry(fit, &heard));
      this->settle();
      EXPECT_EQ(over->entryState(), State::success);
      EXPECT_EQ(over->hwIndex(), freed);
      EXPECT_EQ(heard, (std::vector<State>{State::inProgress, State::success}));
   }
}

// The chip refuses the row: the writer hears noHwIndex and no row changes;
// the same value written again is written afresh.
TYPED_TEST(TableSuite, RefusedWriteIsNoHwIndexAndTheSameValueAgainRetries) {
   this->make();
   auto& t = this->table();
   std::vector<State> heard;
   const auto e = this->entry(1, &heard);
   this->chip->writeFailuresIs(this->name, 1);
   auto h = t.entryCommit(this->key(1), e);
   this->settle();
   EXPECT_EQ(h->entryState(), State::noHwIndex);
   EXPECT_EQ(heard, (std::vector<State>{State::inProgress, State::noHwIndex}));
   EXPECT_EQ(this->rows().usedRows(), 0u);
   ASSERT_EQ(this->chip->failedWrites().size(), 1u);
   EXPECT_EQ(this->chip->failedWrites()[0].table, this->name);
   heard.clear();
   EXPECT_EQ(t.entryCommit(this->key(1), e), h);
   this->settle();
   EXPECT_EQ(h->entryState(), State::success);
   EXPECT_EQ(heard, (std::vector<State>{State::inProgress, State::success}));
   EXPECT_EQ(*this->rows().row(h->hwIndex()), t.resolvedEntry(this->key(1))->rowText());
}

// A table keyed by its rows never programs the invalid index: the key is
// refused, its removal deletes nothing, and no index is kept for it.
TYPED_TEST(TableSuite, InvalidIndexIsNeverProgrammed) {
   if constexpr (!TypeParam::knownIndex) {
      GTEST_SKIP() << "hands out its own indices";
   } else {
      this->make();
      auto& t = this->table();
      const typename TypeParam::Key k(Asic::invalidIndex);
      const auto e = this->entry(1);
      const auto before = this->rows().stats();
      Orb::TraceCapture trace(std::string(this->name) + "/9");
      auto bad = t.entryCommit(k, e);
      EXPECT_EQ(bad->entryState(), State::noHwIndex);
      EXPECT_EQ(bad->hwIndex(), Asic::invalidIndex);
      t.entryRemove(k);
      bad.reset();
      this->settle();
      EXPECT_EQ(this->rows().stats().writes, before.writes);
      EXPECT_EQ(this->rows().stats().deletes, before.deletes);
      EXPECT_FALSE(t.entryHandle(k));
      EXPECT_EQ(
          this->traced(trace, ": handleEntry : No entry in HwTable for this key. Skip delete"), 1);
   }
}

// A removed entry stays while it is referenced. Its last reference clears the
// row at once; the handle waits for the delete's answer, then goes with the
// value, and the index is free for the next key.
TYPED_TEST(TableSuite, RemovedEntryGoesWithItsLastReference) {
   this->make();
   auto& t = this->table();
   const auto k = this->key(1);
   Orb::TraceCapture trace(std::string(this->name) + "/9");
   auto h = t.entryCommit(k, this->entry(1));
   this->runLoop();
   const Asic::Index index = h->hwIndex();
   t.entryRemove(k);
   t.entryRemove(k);
   this->runLoop();
   EXPECT_TRUE(this->rows().row(index)) << "still referenced here";
   this->chip->holdResponsesIs(true);
   h = nullptr;
   auto kept = t.entryHandle(k);
   ASSERT_TRUE(kept) << "the handle waits for the delete's answer";
   EXPECT_EQ(kept->entryType(), Type::inDeletion);
   EXPECT_FALSE(this->rows().row(index)) << "the row is cleared at once";
   kept = nullptr;
   this->settle();
   EXPECT_FALSE(t.entryHandle(k));
   EXPECT_FALSE(t.resolvedEntryHas(k));
   EXPECT_EQ(this->rows().stats().deletes, 1u);
   const std::string key = this->text(k);
   for (const std::string& line : {": entryRemove : Removing entry at key : " + key,
                                   ": entryRemove : Found no committed entry at key : " + key,
                                   ": cleanup begin delete dance, key :" + key,
                                   ": cleanup delete dance complete, key : " + key})
      EXPECT_EQ(this->traced(trace, line), 1) << line;
   if constexpr (!TypeParam::knownIndex) {
      t.resolvedEntryDel(k);  // the key holds no index: nothing to delete
      EXPECT_EQ(this->rows().stats().deletes, 1u);
      EXPECT_EQ(
          this->traced(trace, ": handleEntry : No entry in HwTable for this key. Skip delete"), 1);
      auto next = t.entryRef(this->key(2), this->entry(2));
      this->settle();
      EXPECT_EQ(next->hwIndex(), index) << "the freed index is handed out again";
   }
}

// Let go while its write is in flight, the delete waits for the write's
// answer, and the key then goes. Taken up again while its delete is in
// flight, the entry stays, and goes with one more delete when let go again.
// A watcher holding it through the delete, or one of a key nobody wrote,
// deletes nothing.
TYPED_TEST(TableSuite, LetGoDuringItsWriteOrTakenUpDuringItsDelete) {
   this->make();
   auto& t = this->table();
   const auto e1 = this->entry(1), e2 = this->entry(2);
   this->chip->holdResponsesIs(true);
   auto h = t.entryRef(this->key(1), e1);
   h = nullptr;
   EXPECT_EQ(this->rows().stats().deletes, 0u) << "no delete overtakes the write";
   this->settle();
   EXPECT_EQ(this->rows().stats().deletes, 1u);
   EXPECT_FALSE(t.entryHandle(this->key(1)));

   h = t.entryRef(this->key(1), e1);
   auto watched = t.entryRef(this->key(2), e2);
   this->runLoop();
   this->chip->holdResponsesIs(true);
   h = watched = nullptr;
   auto back = t.entryRef(this->key(1), e1);
   EXPECT_EQ(back->entryType(), Type::referenceOnly);
   auto watcher = t.entryWeakRef(this->key(2));
   this->settle();
   EXPECT_EQ(back->entryState(), State::success);
   EXPECT_EQ(t.entryHandle(this->key(1)), back);
   const uint32_t deletes = this->rows().stats().deletes;
   back = watcher = nullptr;
   t.entryWeakRef(this->key(5));
   this->settle();
   EXPECT_FALSE(t.entryHandle(this->key(1)));
   EXPECT_FALSE(t.entryHandle(this->key(2)));
   EXPECT_EQ(this->rows().stats().deletes, deletes + 1);
}

// The tables go and come back over the chip's rows: recovery changes no row,
// the same writes land on the rows they had without changing one, and a new
// key takes an index no survivor holds.
TYPED_TEST(TableSuite, RestartRewritesLandOnTheRowsTheyHad) {
   this->make();
   auto& t = this->table();
   std::map<uint32_t, HandlePtr> held;
   for (uint32_t n : {1u, 2u, 3u}) held[n] = t.entryCommit(this->key(n), this->entry(n));
   this->settle();
   t.entryRemove(this->key(2));  // a hole a first-free allocator would fill
   held.erase(2);
   this->settle();
   std::map<uint32_t, Asic::Index> index;
   for (auto& [n, h] : held) index[n] = h->hwIndex();
   held.clear();
   const auto before = this->chipRows();
   const uint32_t changes = this->chipChanges();

   this->restart();
   EXPECT_EQ(this->chipRows(), before) << "recovery alone touches no row";
   auto& again = this->table();
   for (uint32_t n : {3u, 1u}) held[n] = again.entryCommit(this->key(n), this->entry(n));
   this->settle();
   EXPECT_EQ(this->chipRows(), before);
   EXPECT_EQ(this->chipChanges(), changes) << "every rewrite writes what its row holds";
   for (auto& [n, h] : held) {
      EXPECT_EQ(h->entryState(), State::success) << n;
      EXPECT_EQ(h->hwIndex(), index[n]) << n;
   }
   if constexpr (!TypeParam::knownIndex) {
      auto fresh = again.entryCommit(this->key(9), this->entry(9));
      this->settle();
      for (auto& [n, i] : index) EXPECT_NE(fresh->hwIndex(), i);
   }
}

TEST_F(SimFixture, HandlesOutliveTheirTableUnlinked) {
   makeTunnelTables();
   auto h = v4->entryRef(tunnelKey(1), tunnelEntry<V4>(tunnelKey(1)));
   runLoop();
   tablesDrop();
   EXPECT_EQ(h->swTable(), nullptr);
   EXPECT_TRUE(hw(V4::typeName)->row(1)) << "rows stay for a restart";
   h.reset();
   EXPECT_EQ(runLoop(), 0u);
}

}  // namespace
}  // namespace test
