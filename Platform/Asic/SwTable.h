#pragma once
// The base of every software table: the shadow of one hardware table.
//
// Table state (moved by the framework's set-up and recovery):
//   active (0)             -> writes are programmed at once;
//   programmingDeferred (1)-> writes are stored but not programmed, while the
//                             table is being brought in line with hardware;
//   shuttingDown (2)       -> set by table clean-up.
#include <cstdint>
#include <iosfwd>
#include <string_view>
#include <vector>

#include "Asic/HwTable.h"
#include "Asic/IndexAllocator.h"
#include "Asic/IndexPins.h"
#include "Asic/SwTableBase.h"
#include "Asic/UnresolvedEntry.h"
#include "Brio/Ptr.h"
#include "Brio/Publisher.h"
#include "Ledger/EntityManager.h"
#include "MeridCentral/ChipInfo.h"
#include "Orb/EntityPb.h"

#pragma GCC visibility push(default)
namespace Asic {

class WriteResponseSm;

// How a write holds its key: `autoRemove` while clients hold the handle,
// `needsExplicitRemove` until removed.
enum class AutoRemoveType : uint8_t { autoRemove = 0, needsExplicitRemove = 1 };
constexpr AutoRemoveType autoRemove() { return AutoRemoveType::autoRemove; }
constexpr AutoRemoveType needsExplicitRemove() { return AutoRemoveType::needsExplicitRemove; }

class SwTable : public SwTableBase,
                public Brio::PtrInterface,
                public IndexKeyHolder,
                public IndexPinned,
                public Orb::EntityPb {
public:
   class EntryHandle;
   class UnresolvedEntry;
   class Util;
   // The table engine: the generic algorithms, instantiated per table inside
   // the table library and never exported from it.
   template <class T>
   struct __attribute__((visibility("hidden"))) Accessor;

   enum class TableState : uint8_t { active = 0, programmingDeferred = 1, shuttingDown = 2 };

   // Attributes published on the table's notifiee list.
   static constexpr Brio::AttrId entryHandleAttr = 520;
   static constexpr Brio::AttrId unresolvedEntryAttr = 521;
   static constexpr Brio::AttrId writeResponseSmAttr = 522;
   static constexpr Brio::AttrId resolvedEntryAttr = 523;
   static constexpr Brio::AttrId indexAllocatorAttr = 524;
   static constexpr Brio::AttrId tableStateAttr = 525;

   virtual Orb::TypeId fwkType() const = 0;
   std::string_view name() const { return fwkType().name(); }

   TableState tableState() const { return tableState_; }
   void tableStateIs(TableState s);

   UnitId unitId() const { return unitId_; }
   const Brio::Ptr<const MeridCentral::ChipInfo>& chipInfo() const { return chipInfo_; }
   void chipInfoIs(Brio::Ptr<const MeridCentral::ChipInfo> c) { chipInfo_ = std::move(c); }
   const Brio::Ptr<Ledger::EntityManager>& ldgrEm() const { return ldgrEm_; }

   const Brio::Ptr<HwTable>& hwTable() const { return hwTable_; }
   const Brio::Ptr<Util>& util() const { return util_; }
   // Rows of the hardware table; without one, what the chip says it has.
   uint32_t numEntries() const;

   bool hwResponseNeeded() const { return hwResponseNeeded_; }
   void hwResponseNeededIs(bool b) { hwResponseNeeded_ = b; }

   const Brio::Ptr<WriteResponseSm>& writeResponseSm() const { return writeResponseSm_; }
   Brio::Ptr<WriteResponseSm> writeResponseSmIs(SwTable* table);
   void writeResponseSmDel();

   const Brio::Publisher& notifieeList() const { return publisher_; }
   Brio::Publisher& notifieeList() { return publisher_; }

   // Set-up, driven by the agent: loads the hardware plug-in, mounts the
   // hardware table and readies the index allocator.
   virtual void doInit(UnitId unit, Brio::Ptr<Ledger::EntityManager> ledgerEm,
                       Brio::Ptr<const MeridCentral::ChipInfo> chipInfo);
   virtual void doCreateAllocator() {}
   virtual void doInitAllocator() {}
   virtual bool indexAllocatorBound() const { return false; }
   // Ends set-up: write responses are listened to from here on.
   virtual void doInitComplete();
   // Publishes where the hardware table is mounted, for other agents.
   virtual void doPublishHwTableMountInfo();
   // After a restart, before any write: learns from the hardware which indices
   // its rows already use.
   virtual void syncEntries() = 0;
   // The key a row at `index` belongs to, for the hardware's own record.
   virtual Orb::GenericValue hwRowKey(Index index) const = 0;

   // A hardware write response for this table, from the write-response machine.
   virtual void doHandleWriteResponse(HwRequestId id, Index index, WriteStatus status) = 0;

   std::string_view allocatorHolderName() const override { return name(); }

   // A row found at the recovery names `index` of the table `named` pins
   // (see IndexPins), until the row is written or deleted. A row may pin one
   // index in each of several tables. False, and nothing pinned, when the row
   // or the index lies outside its table.
   bool recoveredRowPinIs(Index row, Brio::Ptr<IndexPins> named, Index index);
   uint32_t recoveredRowPins() const { return recoveredRowPins_; }
   // Every write or delete of a row calls this once it is issued.
   void rowChanged(Index row) {
      if (recoveredRowPins_) recoveredRowPinDel(row);
   }

protected:
   SwTable();
   ~SwTable() override;
   uint32_t pinnableIndices() const override { return numEntries(); }

   // The table's hardware plug-in, found by its loader; null when none is installed.
   virtual Brio::Ptr<Util> doLoadUtil() = 0;
   // Drops the hardware side at destruction: no response may reach a dead table.
   void detachHardware();

   Brio::Publisher publisher_;

private:
   void recoveredRowPinDel(Index row);

   // The found rows' pins in one named table: by row, the index pinned.
   struct RowPins {
      Brio::Ptr<IndexPins> named;
      std::vector<Index> byRow;
      uint32_t rows = 0;
   };
   // One per named table; let go with their last pin.
   std::vector<RowPins> recoveredRowPin_;
   uint32_t recoveredRowPins_ = 0;
   Brio::Ptr<const MeridCentral::ChipInfo> chipInfo_;
   Brio::Ptr<Ledger::EntityManager> ldgrEm_;
   Brio::Ptr<HwTable> hwTable_;
   Brio::Ptr<Util> util_;
   Brio::Ptr<WriteResponseSm> writeResponseSm_;
   UnitId unitId_ = 0;
   TableState tableState_ = TableState::active;
   bool hwResponseNeeded_ = false;
};

std::ostream& operator<<(std::ostream& os, SwTable::TableState s);

// The handle as tables keep it: adds the resolved-entry state's writer.
class SwTable::EntryHandle : public SwTableBase::EntryHandle {
public:
   // Stores the state; on a change the table's reactor
   // (`handleResolvedEntryState`) runs, then the notifiees hear it.
   void resolvedEntryStateIs(EntryState s);
   virtual void handleResolvedEntryState() {}

   // The hardware operation whose response this handle waits for (0: none).
   HwRequestId outstandingRequest() const { return outstandingRequest_; }
   void outstandingRequestIs(HwRequestId id) { outstandingRequest_ = id; }

protected:
   ~EntryHandle() override = default;

private:
   HwRequestId outstandingRequest_ = 0;
};

class SwTable::UnresolvedEntry : public SwTableBase::UnresolvedEntry {
protected:
   ~UnresolvedEntry() override = default;
};

// Tables that choose the hardware index of each key themselves.
class SwUnknownIndexTable : public SwTable {};
// Tables whose key is the hardware index. Their indices are allocated by
// whoever writes them (a merged table); that allocator also knows which key
// each row belongs to.
class SwKnownIndexTable : public SwTable {
public:
   const Brio::Ptr<const GenericIndexAllocator>& indexKeySource() const { return indexKeySource_; }
   void indexKeySourceIs(Brio::Ptr<const GenericIndexAllocator> a) {
      indexKeySource_ = std::move(a);
   }
   // The index range of the hardware table; all indices while none is mounted.
   Index minIndex() const;
   Index maxIndex() const;

private:
   Brio::Ptr<const GenericIndexAllocator> indexKeySource_;
};

}  // namespace Asic
#pragma GCC visibility pop
