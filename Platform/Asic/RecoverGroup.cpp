#include "Asic/RecoverGroup.h"

namespace Asic {

void RecoverGroup::tableIs(SwTable& table, UnitId unit, Brio::Ptr<Ledger::EntityManager> ledgerEm,
                           Brio::Ptr<const MeridCentral::ChipInfo> chipInfo) {
   for (auto& m : members_)
      if (m.table.ptr() == &table) return;
   table.tableStateIs(SwTable::TableState::programmingDeferred);
   members_.push_back({Brio::Ptr<SwTable>(&table), unit, std::move(ledgerEm), std::move(chipInfo)});
}

void RecoverGroup::recover() {
   auto members = std::move(members_);
   members_.clear();
   for (auto& m : members) {
      SwTable& t = *m.table;
      t.doInit(m.unit, m.ledgerEm, m.chipInfo);
      t.syncEntries();
      t.tableStateIs(SwTable::TableState::active);
      t.doInitComplete();
   }
}

}  // namespace Asic
