#pragma once
// The overlay ECMP member table. An overlay group is a block of members in
// consecutive rows; each member names a tunnel next hop and an underlay group
// and carries their hardware indices once those are programmed.
//
// Blocks are installed whole (`entryBlockRef`) and shared: an equal block that
// is already installed is handed out again. The table counts no reference to
// a block; its clients' handles do, and when the last one goes the block's
// rows are deleted, its range freed and the handles its members named
// released, so that entries nothing else uses go through their own clean-up.
//
// A block handle's entry state, moved by `entryBlockRef`, by the watchers of
// the entries its members name, and by write responses:
//   unresolved        -> waiting for the named entries to be programmed; the
//                        block gets its range once they are;
//   failedNeededEntry -> one of them failed; still watching, so a later
//                        success resolves the block;
//   inProgress        -> rows written, responses outstanding;
//   success           -> every row acknowledged (an empty block at once);
//   noHwIndex         -> no free range of the block's size, or a row refused.
//                        Installing an equal block again retries.
//
// After a restart the rows the chip kept are found by `syncEntries`, grouped
// into the blocks that wrote them (each row's key names its block). A block
// programmed again with the same rows takes its old range back without
// changing a row; `purgeStaleEntries` deletes the rest.
#include <cstdint>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Asic/DescribedEntry.h"
#include "Asic/InFlightRequests.h"
#include "Asic/IndexValue.h"
#include "Asic/RangeIndexAllocator.h"
#include "Asic/SwTable.h"
#include "Ledger/MountGroup.h"
#include "Orb/Trace.h"
#include "SharedL3/EcmpGroup1Table.h"

#pragma GCC visibility push(default)
namespace MeridL3Tunnel {

// One member: the next hop and underlay group it forwards through, their
// indices (filled in when the block is programmed), and whether the member
// forwards (true) or drops (false).
class L3EcmpMember0Entry : public Asic::DescribedEntry<L3EcmpMember0Entry> {
public:
   using HandlePtr = Asic::SwTableBase::EntryHandle::PtrConst;
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3EcmpMember0Table::Entry";
   // The next-hop table is the tunnel component's, above this layer: named
   // by its type name only.
   static constexpr std::string_view nextHopTableName = "MeridL3Tunnel::L3TunnelIngL3NextHopTable";

   L3EcmpMember0Entry() = default;
   L3EcmpMember0Entry(HandlePtr nextHop, HandlePtr underlay, uint32_t nextHopIdx,
                      uint32_t underlayIdx, bool resolved)
       : nextHopHandle_(std::move(nextHop)),
         underlayHandle_(std::move(underlay)),
         nextHopIdx_(nextHopIdx),
         underlayIdx_(underlayIdx),
         resolved_(resolved) {}
   explicit L3EcmpMember0Entry(Orb::CharRange& r) { fieldsRead(r); }

   const HandlePtr& nextHopHandle() const { return nextHopHandle_; }
   void nextHopHandleIs(HandlePtr h) { nextHopHandle_ = std::move(h); }
   const HandlePtr& underlayHandle() const { return underlayHandle_; }
   void underlayHandleIs(HandlePtr h) { underlayHandle_ = std::move(h); }
   uint32_t nextHopIdx() const { return nextHopIdx_; }
   void nextHopIdxIs(uint32_t i) { nextHopIdx_ = i; }
   uint32_t underlayIdx() const { return underlayIdx_; }
   void underlayIdxIs(uint32_t i) { underlayIdx_ = i; }
   bool resolved() const { return resolved_; }
   void resolvedIs(bool r) { resolved_ = r; }

   uint32_t hash(uint32_t seed) const { return genericIfHash(seed); }
   std::string rowText() const override;

private:
   HandlePtr nextHopHandle_;
   HandlePtr underlayHandle_;
   uint32_t nextHopIdx_ = 0;
   uint32_t underlayIdx_ = 0;
   bool resolved_ = false;

public:
   static constexpr auto fields = std::tuple{
       Asic::handleField("nextHopHandle", &L3EcmpMember0Entry::nextHopHandle_),
       Asic::handleField("underlayHandle", &L3EcmpMember0Entry::underlayHandle_),
       Asic::dependentField("nextHopIdx", &L3EcmpMember0Entry::nextHopIdx_,
                            &L3EcmpMember0Entry::nextHopHandle_, nextHopTableName),
       Asic::dependentField("underlayIdx", &L3EcmpMember0Entry::underlayIdx_,
                            &L3EcmpMember0Entry::underlayHandle_, EcmpGroup1Table::typeName),
       Asic::valueField("resolved", &L3EcmpMember0Entry::resolved_)};
};

class L3EcmpMember0Table final : public Asic::SwKnownIndexTable {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3EcmpMember0Table";
   struct IndexName {
      static constexpr std::string_view typeName = "MeridL3Tunnel::L3EcmpMember0Table::Index";
   };
   using Index = Asic::IndexValue<IndexName>;
   using Entry = L3EcmpMember0Entry;
   using EntryHandlePtrConst = Asic::SwTableBase::EntryHandle::PtrConst;
   class EntryBlock;
   class EntryHandle;
   // The key the chip keeps with each row: the row and the block it belongs to.
   struct RowKey {
      static constexpr std::string_view typeName = "MeridL3Tunnel::L3EcmpMember0Table::RowKey";
      uint32_t index = 0;
      uint32_t base = 0;
      uint32_t size = 0;
      RowKey() = default;
      RowKey(uint32_t i, uint32_t b, uint32_t n) : index(i), base(b), size(n) {}
      explicit RowKey(Orb::CharRange& r);
      uint32_t hash(uint32_t seed) const;
      friend bool operator==(const RowKey&, const RowKey&) = default;
      friend std::ostream& operator<<(std::ostream& os, const RowKey& k);
   };

   L3EcmpMember0Table();
   ~L3EcmpMember0Table() override;

   Orb::TypeId fwkType() const override { return Orb::typeId<L3EcmpMember0Table>(); }

   // Installs `block` (or finds an equal one already installed) and returns a
   // counted handle to it.
   EntryHandlePtrConst entryBlockRef(const EntryBlock& block);
   // Uninstalls every block: rows deleted, ranges freed, named entries
   // released. Handles still held elsewhere are left detached (inDeletion).
   void entryBlockRemoveAll();
   uint32_t entryBlocks() const { return uint32_t(blocks_.size()); }
   // Visits the handle of every installed block, in no particular order.
   template <class F>
   void forEachEntryBlock(F&& f) const {
      for (auto& [hash, h] : blocks_) f(static_cast<const EntryHandle&>(*h));
   }

   const Asic::RangeIndexAllocator& indexAllocator() const { return ranges_; }
   // Rows found on the hardware at sync that no block has claimed since.
   uint32_t recoveredRows() const { return recoveredRows_; }
   // Deletes those rows and frees their indices.
   void purgeStaleEntries();

   static void doMountHwTableMountInfo(Ledger::MountGroup& mountGroup);
   void doInitAllocator() override;
   void syncEntries() override;
   Orb::GenericValue hwRowKey(Asic::Index index) const override;
   void doHandleWriteResponse(Asic::HwRequestId id, Asic::Index index,
                              Asic::WriteStatus status) override;
   std::string_view allocatorHolderName() const override { return typeName; }
   bool allocatorKeyHeld(uint32_t, Orb::GenericValueRef) const override { return false; }
   static const Orb::TraceHandle& traceHandle();

protected:
   Brio::Ptr<Util> doLoadUtil() override;

private:
   friend class EntryHandle;
   class Resolver;
   void place(EntryHandle& h);
   void program(EntryHandle& h);
   Asic::Index rangeFor(const EntryHandle& h);
   bool recoveredRowsEqual(Asic::Index base, const std::vector<std::string>& texts) const;
   bool recoveredRowHas(Asic::Index i) const;
   void recoveredRowDel(Asic::Index i);
   void rowsDel(EntryHandle& h);
   void requestsForget(EntryHandle& h);
   void entryBlockRelease(EntryHandle& h);

   Asic::RangeIndexAllocator ranges_;
   // Installed blocks by the hash of their members; not counted.
   std::unordered_multimap<uint32_t, EntryHandle*> blocks_;
   Asic::InFlightRequests<EntryHandle*, false> inFlight_;  // row writes, a node each
   std::map<Asic::Index, EntryHandle*> byBase_;            // blocks that hold a range
   // By index: found at the sync and not claimed since (a bitmap, as the
   // sync marks every row of a full chip).
   std::vector<bool> recoveredRow_;
   uint32_t recoveredRows_ = 0;
   // Whole blocks among the recovered rows, by the hash of their rows' text.
   std::unordered_multimap<uint32_t, RowKey> recoveredBlock_;
};

// The members of one group, in slot order.
class L3EcmpMember0Table::EntryBlock {
public:
   // Writes the member at `index`; an index equal to the size appends.
   void entryIs(Index index, const Entry& entry);
   const Entry& entry(Index index) const;
   uint32_t entrys() const { return uint32_t(entry_.size()); }
   auto begin() const { return entry_.begin(); }
   auto end() const { return entry_.end(); }

   static bool isEq(const EntryBlock& a, const EntryBlock& b) { return a.entry_ == b.entry_; }
   friend bool operator==(const EntryBlock& a, const EntryBlock& b) { return isEq(a, b); }
   uint32_t hash(uint32_t seed) const;

private:
   friend class L3EcmpMember0Table;
   std::vector<Entry> entry_;
};

class L3EcmpMember0Table::EntryHandle final : public Asic::SwTable::EntryHandle {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3EcmpMember0Table::EntryHandle";

   const EntryBlock& entryBlock() const { return block_; }
   // The first row of the block's range; invalidIndex while it has none.
   Asic::Index baseIndex() const { return base_; }
   uint32_t size() const { return block_.entrys(); }
   L3EcmpMember0Table* table() const { return table_; }

   Orb::TypeId fwkType() const override { return Orb::typeId<EntryHandle>(); }
   std::string keyText() const override;

protected:
   void zeroReferencesIs(bool zero) override;

private:
   friend class L3EcmpMember0Table;
   EntryHandle(L3EcmpMember0Table* table, const EntryBlock& block, uint32_t hash);
   ~EntryHandle() override;
   // The entry state and the resolved-entry state move together for a block.
   void statesIs(Asic::SwTableBase::EntryState s);
   void resolverDel();

   EntryBlock block_;
   L3EcmpMember0Table* table_;
   Brio::Ptr<Resolver> resolver_;
   Asic::Index base_ = Asic::invalidIndex;
   uint32_t hash_;
   uint32_t outstanding_ = 0;  // row writes awaiting their response
   bool rowsWritten_ = false;
   bool writeRefused_ = false;
};

extern "C" Brio::Ptr<L3EcmpMember0Table> l3EcmpMember0TableFactory();

}  // namespace MeridL3Tunnel
#pragma GCC visibility pop
