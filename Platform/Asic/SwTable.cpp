#include "Asic/SwTable.h"

#include <algorithm>
#include <ostream>
#include <utility>

#include "Asic/SwTableUtil.h"
#include "Asic/WriteResponseSm.h"
#include "Orb/Assert.h"

namespace Asic {

SwTable::SwTable() = default;

SwTable::~SwTable() { detachHardware(); }

void SwTable::detachHardware() {
   if (util_) util_->swTableIs(nullptr);
   if (writeResponseSm_) writeResponseSm_->table_ = nullptr;
   writeResponseSm_.reset();
}

void SwTable::tableStateIs(TableState s) {
   if (s == tableState_) return;
   tableState_ = s;
   publisher_.notify(tableStateAttr);
}

uint32_t SwTable::numEntries() const {
   if (hwTable_) return hwTable_->numEntries();
   return chipInfo_ ? chipInfo_->tableSize(name()) : 0;
}

Brio::Ptr<WriteResponseSm> SwTable::writeResponseSmIs(SwTable* table) {
   if (writeResponseSm_ && writeResponseSm_->table() == table) return writeResponseSm_;
   if (writeResponseSm_) writeResponseSm_->table_ = nullptr;
   writeResponseSm_ = WriteResponseSm::WriteResponseSmIs(table);
   publisher_.notify(writeResponseSmAttr);
   return writeResponseSm_;
}

void SwTable::writeResponseSmDel() {
   if (!writeResponseSm_) return;
   writeResponseSm_->table_ = nullptr;
   writeResponseSm_.reset();
   publisher_.notify(writeResponseSmAttr);
}

void SwTable::doInit(UnitId unit, Brio::Ptr<Ledger::EntityManager> ledgerEm,
                     Brio::Ptr<const MeridCentral::ChipInfo> chipInfo) {
   unitId_ = unit;
   ldgrEm_ = std::move(ledgerEm);
   chipInfo_ = std::move(chipInfo);
   if (util_) util_->swTableIs(nullptr);
   util_ = doLoadUtil();
   hwTable_.reset();
   if (util_) {
      util_->swTableIs(this);
      hwTable_ = util_->doMountHwTable(*this);
   }
   doCreateAllocator();
   if (!indexAllocatorBound()) doInitAllocator();
}

void SwTable::doPublishHwTableMountInfo() {
   if (!ldgrEm_ || !hwTable_) return;
   ldgrEm_->entityIs("hardware/table/" + std::string(name()), hwTable_);
}

void SwTable::doInitComplete() {
   if (!hwTable_) return;
   writeResponseSmIs(this);
}

std::ostream& operator<<(std::ostream& os, SwTable::TableState s) {
   switch (s) {
      case SwTable::TableState::active:
         return os << "active";
      case SwTable::TableState::programmingDeferred:
         return os << "programmingDeferred";
      case SwTable::TableState::shuttingDown:
         return os << "shuttingDown";
   }
   return os << "invalid(" << unsigned(s) << ")";
}

Index SwKnownIndexTable::minIndex() const { return hwTable() && util() ? util()->minIndex() : 0; }

Index SwKnownIndexTable::maxIndex() const {
   return hwTable() && util() ? util()->maxIndex() : invalidIndex;
}

void SwTable::EntryHandle::resolvedEntryStateIs(EntryState s) {
   if (s == resolvedEntryState_) return;
   Brio::Ptr<EntryHandle> self(references() ? this : nullptr);
   resolvedEntryState_ = s;
   handleResolvedEntryState();
   publisher_.notify(resolvedEntryStateAttr);
}

void SwTable::Util::doMountHwTableMountInfo(std::string_view utilType, Ledger::MountGroup& mg,
                                            std::string_view name) {
   std::string path = "hardware/table/";
   path.append(utilType).append(name);
   mg.mountIs(path, utilType);
}

void SwTable::Util::doRecoverHwTable(Orb::TypeId, SwTable& table, RecoverGroup& rg, UnitId unit,
                                     Brio::Ptr<Ledger::EntityManager> ledgerEm,
                                     Brio::Ptr<const MeridCentral::ChipInfo> chipInfo,
                                     std::string_view) {
   rg.tableIs(table, unit, std::move(ledgerEm), std::move(chipInfo));
}

void SwTable::Util::doNotifyWriteResponse(HwRequestId id, Index index, WriteStatus status) {
   if (!swTable_ || !swTable_->writeResponseSm()) {
      ++droppedResponses_;
      return;
   }
   swTable_->writeResponseSm()->writeResponseIs(id, index, status);
}

Brio::Ptr<WriteResponseSm> WriteResponseSm::WriteResponseSmIs(SwTable* table) {
   return Brio::Ptr<WriteResponseSm>(new WriteResponseSm(table));
}

void WriteResponseSm::writeResponseIs(HwRequestId id, Index index, WriteStatus status) {
   if (!table_) return;
   ++responses_;
   Brio::Ptr<SwTable> keep(table_);
   table_->doHandleWriteResponse(id, index, status);
}

bool SwTable::recoveredRowPinIs(Index row, Brio::Ptr<IndexPins> named, Index index) {
   if (!named || row >= numEntries() || index >= named->indices() || !isValidIndex(index))
      return false;
   auto pins = std::find_if(recoveredRowPin_.begin(), recoveredRowPin_.end(),
                            [&](const RowPins& p) { return p.named == named; });
   if (pins == recoveredRowPin_.end())
      pins = recoveredRowPin_.insert(
          pins, RowPins{named, std::vector<Index>(numEntries(), invalidIndex), 0});
   Index& pin = pins->byRow[row];
   if (pin == index) return true;
   named->pinIs(index);
   if (isValidIndex(pin)) {
      named->pinDel(std::exchange(pin, index));
   } else {
      pin = index;
      ++pins->rows;
      ++recoveredRowPins_;
   }
   return true;
}

// The pins go after the table no longer has them: letting go may start a
// named entry's clean-up, which may change other rows.
void SwTable::recoveredRowPinDel(Index row) {
   std::vector<std::pair<Brio::Ptr<IndexPins>, Index>> gone;
   for (auto pins = recoveredRowPin_.begin(); pins != recoveredRowPin_.end();) {
      if (row < pins->byRow.size() && isValidIndex(pins->byRow[row])) {
         gone.emplace_back(pins->named, std::exchange(pins->byRow[row], invalidIndex));
         --recoveredRowPins_;
         if (--pins->rows == 0) {
            pins = recoveredRowPin_.erase(pins);
            continue;
         }
      }
      ++pins;
   }
   if (recoveredRowPin_.empty()) std::vector<RowPins>().swap(recoveredRowPin_);
   for (auto& [named, index] : gone) named->pinDel(index);
}

}  // namespace Asic
