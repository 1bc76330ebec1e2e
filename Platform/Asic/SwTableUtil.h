#pragma once
// The hardware-access object of a table: the plug-in that writes rows of one
// hardware table. Tables own one each; the plug-in loader supplies it.
#include <cstdint>
#include <string>
#include <string_view>

#include "Asic/EntryBase.h"
#include "Asic/EntryFields.h"
#include "Asic/HwTable.h"
#include "Asic/RecoverGroup.h"
#include "Asic/SwTable.h"
#include "Ledger/MountGroup.h"
#include "Orb/Optional.h"

#pragma GCC visibility push(default)
namespace Asic {

class SwTable::Util : public Brio::PtrInterface, public Orb::EntityPb {
public:
   // Mounts (creating when the chip has none yet) the hardware table for `table`.
   virtual Brio::Ptr<HwTable> doMountHwTable(const SwTable& table) = 0;
   // Writes `entry` at `index`; a null entry clears the row. Returns the
   // request whose response will confirm it.
   virtual HwRequestId hwTableEntryIs(HwTable& hwTable, Index index, const EntryBase* entry) = 0;
   virtual HwRequestId hwTableEntryDel(HwTable& hwTable, Index index) = 0;
   // Reads a row back: the content a row holds, or nothing when it is clear
   // (or the hardware cannot tell).
   virtual Orb::Optional<std::string> hwTableEntryText(const HwTable&, Index) const { return {}; }
   // Reads back the index a row's field holds (the entry of another table it
   // names): `read`, derived from the description of the table's entries,
   // finds the field in the row. Nothing when the row is clear, the field
   // holds no index, or the hardware cannot tell.
   virtual Orb::Optional<Index> hwTableEntryIndexField(const HwTable&, Index,
                                                       RowFieldRead /*read*/) const {
      return {};
   }
   // Marks in `allocator` every index the hardware table's rows use, with the
   // row's key, for rows whose key is of `keyType`.
   virtual void syncIndexAllocator(Orb::TypeId keyType, GenericIndexAllocator& allocator,
                                   HwTable& hwTable) = 0;
   // Whether the hardware table on `unit` holds rows, asked before any table
   // mounts it: after a restart, the tables of another configuration are
   // taken over (and their rows deleted) only when they do. Hardware that
   // cannot tell says true.
   virtual bool hwTableRowsFound(UnitId /*unit*/) const { return true; }
   virtual Index minIndex() const { return 0; }
   virtual Index maxIndex() const { return invalidIndex; }

   // Registers the state-database path of the hardware table behind `utilType`.
   static void doMountHwTableMountInfo(std::string_view utilType, Ledger::MountGroup& mg,
                                       std::string_view name);
   // Joins `table` into a recover group after a restart.
   static void doRecoverHwTable(Orb::TypeId tableType, SwTable& table, RecoverGroup& rg,
                                UnitId unit, Brio::Ptr<Ledger::EntityManager> ledgerEm,
                                Brio::Ptr<const MeridCentral::ChipInfo> chipInfo,
                                std::string_view name);

   static Index getHwIndex(const SwTableBase::EntryHandle& h) {
      return SwTableBase::getHwEntryIndex(h);
   }

   // Asks the engine to record a freshly written index in the handle at once,
   // instead of on the write response.
   bool recordHwIndexOnWrite() const { return recordHwIndexOnWrite_; }
   void recordHwIndexOnWriteIs(bool b) { recordHwIndexOnWrite_ = b; }
   // A needed entry counts as ready as soon as its hardware index is valid.
   bool hwIndexValidSuffices() const { return hwIndexValidSuffices_; }
   void hwIndexValidSufficesIs(bool b) { hwIndexValidSuffices_ = b; }

   SwTable* swTable() const { return swTable_; }
   void swTableIs(SwTable* t) { swTable_ = t; }

   // The plug-in reports the response to a request; the table hears it through
   // its write-response machine, if it has one.
   void doNotifyWriteResponse(HwRequestId id, Index index, WriteStatus status);
   uint32_t droppedResponses() const { return droppedResponses_; }

protected:
   ~Util() override = default;

private:
   SwTable* swTable_ = nullptr;
   uint32_t droppedResponses_ = 0;
   bool recordHwIndexOnWrite_ = false;
   bool hwIndexValidSuffices_ = false;
};

}  // namespace Asic
#pragma GCC visibility pop
