// The programmer recovering from rows it did not write itself: rows of the
// other interface setting (the agent restarted with the toggle flipped), and
// rows naming indices beyond their tables.
#include "MeridL3Tunnel/RowReferences.h"
#include "support/ProgrammerFixture.h"

namespace test {
namespace {

using MeridL3Tunnel::rowReferences;

class Recovery : public ProgrammerFixture {
protected:
   // Chains 1..n written, as an agent with the other interface setting wrote
   // them, then that agent gone: its tables let go, the rows kept.
   void otherSettingRowsIs(uint32_t n) {
      if (expectedToggle()) {
         makeChainTables(rows);
      } else {
         makeInterfaceTable(rows);
         make(nh, MeridL3Tunnel::l3TunnelIngL3NextHopTableFactory, rows);
      }
      for (uint32_t k = 1; k <= n; ++k) {
         auto t = v4->entryCommit(tunnelKey(k), tunnelEntry<V4>(tunnelKey(k)));
         auto o = oif ? oif->entryCommit(tunnelKey(k), oifEntry(t))
                      : intf->entryCommit(tunnelKey(k), interfaceEntry(t));
         nh->entryCommit(tunnelKey(k), nextHopEntry(o));
      }
      runLoop();
      tablesDrop();
      Brio::EventLoop::instance().clear();
      ASSERT_EQ(hw(L3TunnelIngL3NextHopTable::typeName)->usedRows(), n);
   }

   // Rows of the interface tables of the setting this process does not run.
   uint32_t otherSettingRows() const {
      uint32_t n = 0;
      for (auto name :
           expectedToggle()
               ? std::vector<std::string_view>{L3TunnelEgrL3Oif1Table::typeName}
               : std::vector<std::string_view>{IngL3Iif::typeName, EgrL3Oif1Table::typeName})
         if (auto t = hw(name)) n += t->usedRows();
      return n;
   }

   bool rowWithKey(std::string_view table, const L3TunnelKey& key) const {
      auto t = hw(table);
      for (Asic::Index i = 0; t && i < t->numEntries(); ++i)
         if (t->row(i) && t->rowKey(i) == Orb::GenericValue::of(key)) return true;
      return false;
   }

   // Every index a row names has a row in one of the tables it may name
   // (the drop next hop names nothing).
   void expectNothingNamesAGoneRow(const std::string& where) {
      for (const auto& ref : rowReferences) {
         auto t = hw(ref.table);
         if (!t || ref.named == EcmpGroup1Table::typeName) continue;
         for (Asic::Index i = 0; i < t->numEntries(); ++i) {
            const auto index = t->rowIndexField(i, ref.field);
            if (!index || !Asic::isValidIndex(*index) || t->rowField(i, "drop") == "True") continue;
            bool found = false;
            for (const auto& alt : rowReferences) {
               if (alt.table != ref.table || alt.field != ref.field) continue;
               auto named = hw(alt.named);
               found = found || (named && named->row(*index));
            }
            EXPECT_TRUE(found) << where << ": " << ref.table << " row " << i << " '" << ref.field
                               << "' names " << *index << ", a row that is gone";
         }
      }
   }
};

// An agent that ran with the other interface setting left interface rows of
// tables this one does not use. Until the reconcile they pin the tunnels they
// name, as found rows do; the reconcile deletes them all.
TEST_F(Recovery, RowsOfTheOtherInterfaceSettingPinUntilTheReconcileDeletesThem) {
   otherSettingRowsIs(4);
   ASSERT_NE(otherSettingRows(), 0u);
   tablesIs(true);
   runLoop();
   expectNothingNamesAGoneRow("recovered");

   // Chains 1 and 2 replayed; chain 3 taken up and let go again, its tunnel
   // still named by its old interface row.
   HandlePtr kept = program({via("10.0.0.1", "11.0.0.1"), via("10.0.0.1", "11.0.0.2")});
   program({via("10.0.0.1", "11.0.0.3")});
   runLoop();
   expectNothingNamesAGoneRow("replayed");
   EXPECT_TRUE(rowWithKey(L3EgrL3Ipv4TunnelTable::typeName, tunnelKey(3)))
       << "the tunnel an old interface row names keeps its row";

   programmer->purgeStaleEntries();
   runLoop();
   expectNothingNamesAGoneRow("reconciled");
   EXPECT_EQ(otherSettingRows(), 0u);
   // What is left is the replayed chains' (and the drop next hop).
   EXPECT_EQ(hw(L3TunnelIngL3NextHopTable::typeName)->usedRows(), 3u);
   EXPECT_FALSE(rowWithKey(L3EgrL3Ipv4TunnelTable::typeName, tunnelKey(4)));
   EXPECT_TRUE(rowWithKey(L3EgrL3Ipv4TunnelTable::typeName, tunnelKey(2)));
   expectConsistent();
}

// Rows naming indices beyond their tables (a corrupt chip) pin nothing and
// allocate nothing by them: the replay writes the rows again, or the
// reconcile deletes them.
TEST_F(Recovery, RowsNamingBeyondTheirTablesPinNothing) {
   start();
   HandlePtr kept = program({via("10.0.0.1", "11.0.0.1"), via("10.0.0.1", "11.0.0.2")});
   HandlePtr stale = program({via("10.0.0.1", "11.0.0.3")});
   const auto before = hw(L3TunnelIngL3NextHopTable::typeName)->rowText(1);
   // The agent goes; the programmer lets its tables go in its own order, so
   // that the groups dropped after it delete no row.
   tablesDrop();
   kept = stale = nullptr;
   Brio::EventLoop::instance().clear();
   // Far beyond every table: pins sized by such an index would take
   // tens of gigabytes.
   auto corrupt = [&](std::string_view table, std::string_view field) {
      auto t = hw(table);
      for (Asic::Index i = 0; t && i < t->numEntries(); ++i) {
         const auto value = t->rowField(i, field);
         if (!value || t->rowField(i, "drop") == "True") continue;
         std::string text = t->rowText(i);
         text.replace(size_t(value->data() - t->row(i)->data()), value->size(), "4000000000");
         t->rowTextIs(i, text);
      }
   };
   for (const auto& ref : rowReferences) corrupt(ref.table, ref.field);
   ASSERT_NE(hw(L3TunnelIngL3NextHopTable::typeName)->rowText(1), before);

   tablesIs(true);
   runLoop();
   EXPECT_EQ(nh->recoveredRowPins(), 0u);
   EXPECT_EQ(members->recoveredRowPins(), 0u);
   kept = program({via("10.0.0.1", "11.0.0.1"), via("10.0.0.1", "11.0.0.2")});
   programmer->purgeStaleEntries();
   runLoop();
   expectNothingNamesAGoneRow("reconciled");
   EXPECT_EQ(hw(L3EcmpMember0Table::typeName)->usedRows(), 2u);
   expectConsistent();
}

}  // namespace
}  // namespace test
