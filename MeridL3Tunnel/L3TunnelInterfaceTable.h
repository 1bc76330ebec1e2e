#pragma once
// The merged L3 interface table. On the chip an L3 interface owns one index
// used twice, as the ingress interface index and as the egress one. Under one
// tunnel key this table takes one index from a shared allocator and writes an
// entry at that index into each member table (IngL3Iif, EgrL3Oif1Table). The
// index goes back to the allocator only when neither member table has an entry
// at it any longer.
//
// Per key, the merged handle's entry state moves:
//   unresolved (members written) -> inProgress -> success once both member
//   entries are programmed (UnresolvedMergedEntry::doResolve);
//   noHwIndex when the allocator is full; failedNeededEntry when a member
//   fails. Removal and the handle's last reference drop the merged entry; the
//   member entries then go by their own clean-up, and the index deallocator
//   frees the index when the last member row is gone.
#include <array>
#include <span>
#include <tuple>
#include <vector>

#include "Asic/DescribedEntry.h"
#include "Asic/IndexAllocator.h"
#include "Asic/SwMergedTable.h"
#include "AsicSwTable/EngineParts.h"
#include "AsicSwTable/KeyedTableData.h"
#include "MeridL3Tunnel/EgrL3Oif1Table.h"
#include "MeridL3Tunnel/Export.h"
#include "MeridL3Tunnel/IngL3Iif.h"
#include "MeridL3Tunnel/L3TunnelKey.h"

namespace MeridL3Tunnel {

class MERID_API L3InterfaceTable final : public Asic::SwMergedTable {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3InterfaceTable";
   using Key = L3TunnelKey;
   using HandlePtrConst = Brio::Ptr<const Asic::SwTableBase::EntryHandle>;
   using Allocator = MeridL3Common::L3InterfaceSharedAllocator;
   using CrossAgentIndex = Asic::Index;
   // For the engine's parts: the key is not an index, and values live in the
   // member tables, not in a value map of this table's.
   static constexpr bool knownIndex = false;
   static constexpr bool hasValueMap = false;
   // The engine's name for the attribute of merged writes waiting for their
   // members.
   static constexpr Brio::AttrId unresolvedEntryAttr = 534;

   static constexpr Brio::AttrId ingL3IifAttr = 530;
   static constexpr Brio::AttrId egrL3Oif1TableAttr = 531;
   static constexpr Brio::AttrId indexDeallocatorSmAttr = 532;
   static constexpr Brio::AttrId mergedEntryAttr = 533;
   static constexpr Brio::AttrId unresolvedMergedEntryAttr = unresolvedEntryAttr;
   static constexpr Brio::AttrId mappedEntryHandleAttr = 535;

   // The value a caller writes: one value per member table.
   class MERID_API Entry : public Asic::DescribedEntry<Entry> {
   public:
      static constexpr std::string_view typeName = "MeridL3Tunnel::L3InterfaceTable::Entry";
      Entry() = default;
      Entry(const IngL3Iif::Entry& ing, const EgrL3Oif1Table::Entry& egr)
          : ingL3IifEntry_(ing), egrL3Oif1TableEntry_(egr) {}
      explicit Entry(Orb::CharRange& r) { fieldsRead(r); }

      const IngL3Iif::Entry& ingL3IifEntry() const { return ingL3IifEntry_; }
      void ingL3IifEntryIs(const IngL3Iif::Entry& e) { ingL3IifEntry_ = e; }
      const EgrL3Oif1Table::Entry& egrL3Oif1TableEntry() const { return egrL3Oif1TableEntry_; }
      void egrL3Oif1TableEntryIs(const EgrL3Oif1Table::Entry& e) { egrL3Oif1TableEntry_ = e; }

   private:
      IngL3Iif::Entry ingL3IifEntry_;
      EgrL3Oif1Table::Entry egrL3Oif1TableEntry_;

   public:
      static constexpr auto fields =
          std::tuple{Asic::valueField("ingL3IifEntry", &Entry::ingL3IifEntry_),
                     Asic::valueField("egrL3Oif1TableEntry", &Entry::egrL3Oif1TableEntry_)};
   };

   // What the table keeps per key: the member handles its write made, and the
   // caller's callable.
   class MERID_API MergedEntry {
   public:
      static constexpr uint32_t numMemberTables() { return 2; }
      MergedEntry() = default;
      explicit MergedEntry(Asic::WriteResponseFn fn) : writeResponseFn_(std::move(fn)) {}
      // A collection has no text form to be built from.
      explicit MergedEntry(Orb::CharRange& r);

      std::span<const HandlePtrConst> mergedEntryHandle() const {
         return {handles_.data(), count_};
      }
      uint32_t mergedEntryHandles() const { return count_; }
      void mergedEntryHandleIs(HandlePtrConst h);
      void mergedEntryHandleDel(const HandlePtrConst& h);
      void mergedEntryHandleDelAll();
      const Asic::WriteResponseFn& writeResponseFn() const { return writeResponseFn_; }

      // The same member handles, in any order.
      bool sameHandles(const MergedEntry& o) const;
      friend bool operator==(const MergedEntry& a, const MergedEntry& b) {
         return a.sameHandles(b) && a.writeResponseFn_ == b.writeResponseFn_;
      }

   private:
      // A set of at most one handle per member table, kept in place: every
      // merged key has one, and a vector would allocate for it.
      std::array<HandlePtrConst, 2> handles_;
      uint8_t count_ = 0;
      Asic::WriteResponseFn writeResponseFn_;
   };

   class EntryHandle;
   class UnresolvedMergedEntry;
   using UnresolvedEntry = UnresolvedMergedEntry;  // the engine's name for it
   class IndexDeallocatorSm;
   struct __attribute__((visibility("hidden"))) Engine;

   L3InterfaceTable();
   ~L3InterfaceTable() override;
   Orb::TypeId fwkType() const override { return Orb::typeId<L3InterfaceTable>(); }

   // Writes.
   HandlePtrConst entryWrite(const Key& key, const Entry& entry, Asic::AutoRemoveType mode);
   HandlePtrConst entryRef(const Key& key, const Entry& entry);
   HandlePtrConst entryCommit(const Key& key, const Entry& entry);
   HandlePtrConst entryWriteAtIndex(Asic::Index index, const Key& key, const Entry& entry);
   // Makes `newKey` stand for the handle, and so the index, of `existingKey`.
   HandlePtrConst entryMapToKey(const Key& existingKey, const Key& newKey,
                                Asic::AutoRemoveType autoRemoveType);
   void entryRemove(const Key& key);
   void entryRemoveAll();
   HandlePtrConst entryWeakRef(const Key& key);

   // Lookups.
   Brio::Ptr<EntryHandle> entryHandle(const Key& key) const;
   bool entryHandleHas(const Key& key) const { return bool(entryHandle(key)); }
   uint32_t entryHandles() const { return uint32_t(data_.entryHandle.size()); }
   MergedEntry mergedEntry(const Key& key) const;
   bool mergedEntryHas(const Key& key) const;
   uint32_t mergedEntrys() const { return mergedEntrys_; }
   void mergedEntryIs(const Key& key, const MergedEntry& entry);
   void mergedEntryDel(const Key& key);
   Brio::Ptr<UnresolvedMergedEntry> unresolvedMergedEntry(const Key& key) const;
   bool unresolvedMergedEntryHas(const Key& key) const { return bool(unresolvedMergedEntry(key)); }
   uint32_t unresolvedMergedEntrys() const { return uint32_t(data_.unresolvedEntry.size()); }
   Brio::Ptr<UnresolvedMergedEntry> unresolvedMergedEntryIs(const Key& key);
   Brio::Ptr<UnresolvedMergedEntry> unresolvedMergedEntryDel(const Key& key);
   void unresolvedMergedEntryDelAll();
   HandlePtrConst mappedEntryHandle(const Key& key) const;
   void mappedEntryHandleIs(const Key& key, HandlePtrConst handle);
   void mappedEntryHandleDel(const Key& key) { mappedEntryHandleIs(key, nullptr); }
   IngL3Iif::Entry ingL3IifEntry(const Key& key) const;
   EgrL3Oif1Table::Entry egrL3Oif1TableEntry(const Key& key) const;
   template <class F>
   void forEachEntryHandle(F&& f) const {
      for (auto& [k, h] : data_.entryHandle) f(k, h);
   }

   // Lookups for other agents.
   Asic::Index hwIndexOnlyForCrossAgentCommunication(const Key& key) const;
   Orb::Optional<Key> swKeyFromHwIndex(Asic::Index index) const;

   // Set-up.
   void doInit(Asic::UnitId unit, Brio::Ptr<Ledger::EntityManager> ledgerEm,
               Brio::Ptr<const MeridCentral::ChipInfo> chipInfo) override;
   void doInitAllocator();
   void doPublishHwTableMountInfo() override;
   void doEnclosingInit();
   // The agent's replay after a restart is done: indices found in the member
   // rows whose key no merged entry has claimed since are freed, their member
   // rows deleted.
   void purgeStaleEntries();
   static void doMountHwTableMountInfo(Ledger::MountGroup& mountGroup);

   // Members.
   const Brio::Ptr<IngL3Iif>& ingL3Iif() const { return ingL3Iif_; }
   const Brio::Ptr<EgrL3Oif1Table>& egrL3Oif1Table() const { return egrL3Oif1Table_; }
   template <class M>
   const Brio::Ptr<M>& memberTable() const {
      static_assert(std::is_same_v<M, IngL3Iif> || std::is_same_v<M, EgrL3Oif1Table>);
      if constexpr (std::is_same_v<M, IngL3Iif>)
         return ingL3Iif_;
      else
         return egrL3Oif1Table_;
   }
   // Whether a member with a valid index counts as written: only when both
   // member tables' utils say so (the chip may still refuse the row).
   bool memberIndexSuffices() const;
   void ingL3IifIs();
   void egrL3Oif1TableIs();
   void ingL3IifDel();
   void egrL3Oif1TableDel();
   const Brio::Ptr<IndexDeallocatorSm>& indexDeallocatorSm() const { return indexDeallocatorSm_; }
   void indexDeallocatorSmIs(L3InterfaceTable* table);
   void indexDeallocatorSmDel();
   const Brio::Ptr<Allocator>& indexAllocator() const { return indexAllocator_; }
   void indexAllocatorIs(Brio::Ptr<Allocator> allocator);

   bool allocatorKeyHeld(uint32_t attrId, Orb::GenericValueRef key) const override;
   static const Orb::TraceHandle& traceHandle();

private:
   friend class EntryHandle;
   friend class UnresolvedMergedEntry;
   friend struct Asic::TableEngine::Handles<L3InterfaceTable>;
   friend struct Asic::TableEngine::WritePath<L3InterfaceTable>;
   friend struct Asic::TableEngine::Indices<L3InterfaceTable>;
   friend struct Asic::TableEngine::Recovery<L3InterfaceTable>;
   friend struct Asic::TableEngine::Resolution<L3InterfaceTable>;
   friend struct Asic::TableEngine::Lookups<L3InterfaceTable>;
   uint32_t pinnableIndices() const override {
      return indexAllocator_ ? indexAllocator_->indexCount() : 0;
   }
   void handleEntryState(EntryHandle& eh);
   void cleanup(EntryHandle& eh);

   template <class V, uint32_t Seed>
   using Map = Asic::KeyedMap<Key, V, Seed>;
   using HandleMap =
       Asic::HandleMap<Key, EntryHandle, Asic::SeededHash<Key, Asic::entryHandleSeed>>;
   Brio::Ptr<IngL3Iif> ingL3Iif_;
   Brio::Ptr<EgrL3Oif1Table> egrL3Oif1Table_;
   Brio::Ptr<IndexDeallocatorSm> indexDeallocatorSm_;
   Brio::Ptr<Allocator> indexAllocator_;
   struct Data {
      HandleMap entryHandle;
      Map<Brio::Ptr<UnresolvedMergedEntry>, Asic::unresolvedEntrySeed> unresolvedEntry;
   } data_;
   // Merged entries live in their handles: one exists only while its key has
   // a handle, and a collection of its own would cost a node per key.
   uint32_t mergedEntrys_ = 0;
   Map<HandlePtrConst, 0x6e2f0b91> mappedEntryHandle_;
};

class MERID_API L3InterfaceTable::EntryHandle final : public Asic::SwTable::EntryHandle {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3InterfaceTable::EntryHandle";
   EntryHandle(const Key& key, L3InterfaceTable* table) : key_(key), table_(table) {}

   const Key& key() const { return key_.get(); }
   const Orb::GenericValue& keyGeneric() const { return key_.generic(); }
   L3InterfaceTable* table() const { return table_; }
   void tableIs(L3InterfaceTable* t);

   Orb::TypeId fwkType() const override { return Orb::typeId<EntryHandle>(); }
   std::string keyText() const override;
   void handleEntryState() override;
   // The merged index, once resolution has set it.
   Asic::Index hwIndexForDependentField() const override { return hwIndex(); }

protected:
   void zeroReferencesIs(bool zero) override;

private:
   friend class L3InterfaceTable;
   ~EntryHandle() override = default;
   Asic::HandleKey<Key> key_;
   L3InterfaceTable* table_;
   MergedEntry mergedEntry_;  // the table's merged entry at the key, if `hasMergedEntry_`
   bool hasMergedEntry_ = false;
};

class MERID_API L3InterfaceTable::UnresolvedMergedEntry final
    : public Asic::SwMergedTable::UnresolvedMergedEntry {
public:
   UnresolvedMergedEntry(const Key& key, L3InterfaceTable* table) : key_(key), table_(table) {}

   const Key& key() const { return key_; }
   const MergedEntry& mergedEntry() const { return mergedEntry_; }
   // With `awaitMembers` the entry resolves only once its members are
   // programmed, not when they are written: a retry must hear a refusal.
   void initUnresolvedMergedEntry(const MergedEntry& entry, bool awaitMembers = false);
   void doResolve() override;
   void markFailedNeededEntry() override;
   void setEntryState(Asic::SwTableBase::EntryState state) override;
   void tableIs(L3InterfaceTable* t) { table_ = t; }

private:
   ~UnresolvedMergedEntry() override = default;
   Key key_;
   MergedEntry mergedEntry_;
   L3InterfaceTable* table_;
};

extern "C" MERID_API Brio::Ptr<L3InterfaceTable> l3InterfaceTableFactory();

}  // namespace MeridL3Tunnel
