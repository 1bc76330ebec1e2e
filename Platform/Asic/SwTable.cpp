#include "Asic/SwTable.h"

#include <ostream>

#include "Asic/SwTableUtil.h"
#include "Asic/WriteResponseSm.h"

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

void SwTable::recoveredRowHoldIs(Index row, Brio::Ptr<const SwTableBase::EntryHandle> held) {
   if (!held || row >= numEntries()) return;
   if (recoveredRowHold_.empty()) recoveredRowHold_.resize(numEntries());
   if (!recoveredRowHold_[row]) ++recoveredRowHolds_;
   recoveredRowHold_[row] = std::move(held);
}

// The hold goes after the table no longer has it: letting go may start the
// held entry's clean-up, which may change other rows.
void SwTable::recoveredRowHoldRelease(Index row) {
   if (row >= recoveredRowHold_.size() || !recoveredRowHold_[row]) return;
   Brio::Ptr<const SwTableBase::EntryHandle> gone = std::move(recoveredRowHold_[row]);
   recoveredRowHold_[row] = nullptr;
   if (--recoveredRowHolds_ == 0)
      std::vector<Brio::Ptr<const SwTableBase::EntryHandle>>().swap(recoveredRowHold_);
}

}  // namespace Asic
