#include <algorithm>
#include <sstream>
#include <utility>

#include "AsicSwTable/EntryHandleStore.h"
#include "AsicSwTable/IndexHolding.h"
#include "AsicSwTable/Lookups.h"
#include "AsicSwTable/Recovery.h"
#include "AsicSwTable/Resolution.h"
#include "AsicSwTable/WritePath.h"
#include "MeridL3Tunnel/L3TunnelInterfaceTable.h"
#include "Orb/Assert.h"
#include "Orb/Strep.h"
#include "Orb/Trace.h"

namespace MeridL3Tunnel {

namespace {
using State = Asic::SwTableBase::EntryState;
using Type = Asic::SwTableBase::EntryHandle::EntryType;
constexpr uint32_t traceWrite = 5;
}  // namespace

const Orb::TraceHandle& L3InterfaceTable::traceHandle() {
   static const Orb::TraceHandle handle{typeName};
   return handle;
}

// The parts of the table engine the merged table is made of. It has no rows
// of its own: what recovery found of it are the indices the shared allocator
// learnt from the member rows, and a stale index goes with the member rows at
// it.
struct L3InterfaceTable::Engine : Asic::TableEngine::Handles<L3InterfaceTable>,
                                  Asic::TableEngine::WritePath<L3InterfaceTable>,
                                  Asic::TableEngine::Indices<L3InterfaceTable>,
                                  Asic::TableEngine::Recovery<L3InterfaceTable>,
                                  Asic::TableEngine::Resolution<L3InterfaceTable>,
                                  Asic::TableEngine::Lookups<L3InterfaceTable> {
   // A merged write that waits no more forgets the table: a client that the
   // write's states reach may remove the key while the write runs.
   static void unresolvedEntryGone(UnresolvedMergedEntry& ume) { ume.tableIs(nullptr); }

   static constexpr std::string_view staleRowsName = "indices";
   static const Brio::Ptr<Allocator>& rowsFound(const L3InterfaceTable& t) {
      return t.indexAllocator_;
   }
   // A member entry still at the index is on its way out: the deallocator
   // frees the index.
   static bool rowClaimed(const L3InterfaceTable& t, const Key& key, Asic::Index i) {
      return t.entryHandle(key) || t.mergedEntryHas(key) || t.unresolvedMergedEntryHas(key) ||
             t.ingL3Iif_->entryHandle(IngL3Iif::Index(i)) ||
             t.egrL3Oif1Table_->entryHandle(EgrL3Oif1Table::Index(i));
   }
   static void staleRowDel(L3InterfaceTable& t, Asic::Index i, const Key&,
                           const Orb::GenericValue& key) {
      for (Asic::SwTable* member : {static_cast<Asic::SwTable*>(t.ingL3Iif_.ptr()),
                                    static_cast<Asic::SwTable*>(t.egrL3Oif1Table_.ptr())}) {
         if (member->util() && member->hwTable())
            member->util()->hwTableEntryDel(*member->hwTable(), i);
         member->rowChanged(i);
      }
      t.indexAllocator_->releaseIndex(key);
   }
};

// ---- values ---------------------------------------------------------------------

L3InterfaceTable::MergedEntry::MergedEntry(Orb::CharRange&) {
   ORB_ASSERT(0) << "No String constructor for MergedEntry - has collection";
}

void L3InterfaceTable::MergedEntry::mergedEntryHandleIs(HandlePtrConst h) {
   const auto held = mergedEntryHandle();
   if (!h || std::find(held.begin(), held.end(), h) != held.end()) return;
   ORB_ASSERT(count_ < numMemberTables()) << "a merged entry holds one handle per member table";
   handles_[count_++] = std::move(h);
}

void L3InterfaceTable::MergedEntry::mergedEntryHandleDel(const HandlePtrConst& h) {
   for (uint8_t i = 0; i < count_; ++i) {
      if (handles_[i] != h) continue;
      for (uint8_t j = i; j + 1 < count_; ++j) handles_[j] = std::move(handles_[j + 1]);
      handles_[--count_] = nullptr;
      return;
   }
}

void L3InterfaceTable::MergedEntry::mergedEntryHandleDelAll() {
   for (auto& h : handles_) h = nullptr;
   count_ = 0;
}

bool L3InterfaceTable::MergedEntry::sameHandles(const MergedEntry& o) const {
   if (count_ != o.count_) return false;
   const auto theirs = o.mergedEntryHandle();
   for (auto& h : mergedEntryHandle())
      if (std::find(theirs.begin(), theirs.end(), h) == theirs.end()) return false;
   return true;
}

// ---- the index deallocator --------------------------------------------------------

// Frees a merged index when neither member table has a resolved-entry node at
// it. It hears every change of the members' resolved entries, after the
// member has written or deleted its row.
class L3InterfaceTable::IndexDeallocatorSm final : public Brio::PtrInterface {
public:
   explicit IndexDeallocatorSm(L3InterfaceTable* table)
       : table_(table), orbMergedTable_(this), ingL3IifIn_(this), egrL3Oif1TableIn_(this) {
      orbMergedTable_.notifierIs(&table->notifieeList());
      orb_MergedTable_IngL3IifInIs(table->ingL3Iif().ptr());
      orb_MergedTable_EgrL3Oif1TableInIs(table->egrL3Oif1Table().ptr());
   }

   void orb_MergedTable_IngL3IifInIs(Asic::SwTable* t) {
      ingL3IifIn_.notifierIs(t ? &t->notifieeList() : nullptr);
   }
   void orb_MergedTable_EgrL3Oif1TableInIs(Asic::SwTable* t) {
      egrL3Oif1TableIn_.notifierIs(t ? &t->notifieeList() : nullptr);
   }
   void orb_MergedTable_IngL3IifInDel() { ingL3IifIn_.notifierIs(nullptr); }
   void orb_MergedTable_EgrL3Oif1TableInDel() { egrL3Oif1TableIn_.notifierIs(nullptr); }

   void orbDoZombieReactors(bool zombie) {
      orbMergedTable_.zombieIs(zombie);
      ingL3IifIn_.zombieIs(zombie);
      egrL3Oif1TableIn_.zombieIs(zombie);
   }

   void handleResolvedEntry(Asic::Index index) {
      const auto& alloc = table_->indexAllocator();
      if (!alloc) return;
      auto key = alloc->keyForIndex(index);
      if (!key) return;
      const auto& trace = L3InterfaceTable::traceHandle();
      if (table_->ingL3Iif() && table_->ingL3Iif()->resolvedEntryHas(IngL3Iif::Index(index))) {
         ORB_TRACE(trace, traceWrite, "handleResolvedEntry") << ": index still used in ingL3Iif";
         return;
      }
      if (table_->egrL3Oif1Table() &&
          table_->egrL3Oif1Table()->resolvedEntryHas(EgrL3Oif1Table::Index(index))) {
         ORB_TRACE(trace, traceWrite, "handleResolvedEntry")
             << ": index still used in egrL3Oif1Table";
         return;
      }
      ORB_TRACE(trace, traceWrite, "handleResolvedEntry") << ": freeing index : " << index;
      if (alloc->releaseCheck() && !alloc->canReleaseIndex(alloc->getKey(*key), table_)) return;
      alloc->releaseIndex(*key);
   }

private:
   ~IndexDeallocatorSm() override {
      orbDoZombieReactors(true);
      orbMergedTable_.notifierIs(nullptr);
      orb_MergedTable_IngL3IifInDel();
      orb_MergedTable_EgrL3Oif1TableInDel();
   }

   // Follows the merged table's member attributes.
   struct OrbMergedTable final : Brio::Notifiee {
      explicit OrbMergedTable(IndexDeallocatorSm* sm) : sm(sm) {}
      void onAttribute(Brio::AttrId attr, Brio::KeyRef) override {
         if (attr == L3InterfaceTable::ingL3IifAttr)
            sm->orb_MergedTable_IngL3IifInIs(sm->table_->ingL3Iif().ptr());
         else if (attr == L3InterfaceTable::egrL3Oif1TableAttr)
            sm->orb_MergedTable_EgrL3Oif1TableInIs(sm->table_->egrL3Oif1Table().ptr());
      }
      IndexDeallocatorSm* sm;
   };
   // Hears a member table's resolved-entry changes.
   template <class Member>
   struct MemberIn final : Brio::Notifiee {
      explicit MemberIn(IndexDeallocatorSm* sm) : sm(sm) {}
      void onAttribute(Brio::AttrId attr, Brio::KeyRef key) override {
         if (attr != Asic::SwTable::resolvedEntryAttr) return;
         if (auto* index = key.as<typename Member::Index>())
            sm->handleResolvedEntry(index->value());
      }
      IndexDeallocatorSm* sm;
   };

   using OrbOrb_MergedTable_IngL3IifIn = MemberIn<IngL3Iif>;
   using OrbOrb_MergedTable_EgrL3Oif1TableIn = MemberIn<EgrL3Oif1Table>;

   L3InterfaceTable* table_;
   OrbMergedTable orbMergedTable_;
   OrbOrb_MergedTable_IngL3IifIn ingL3IifIn_;
   OrbOrb_MergedTable_EgrL3Oif1TableIn egrL3Oif1TableIn_;
};

// ---- life -----------------------------------------------------------------------

L3InterfaceTable::L3InterfaceTable() { doEnclosingInit(); }

void L3InterfaceTable::doEnclosingInit() {
   ingL3IifIs();
   egrL3Oif1TableIs();
}

// Member tables go first, keeping their rows for the next incarnation; the
// member handles the merged entries hold are then unlinked and delete nothing.
L3InterfaceTable::~L3InterfaceTable() {
   indexDeallocatorSmDel();
   ingL3IifDel();
   egrL3Oif1TableDel();
   unresolvedMergedEntryDelAll();
   std::vector<MergedEntry> merged;
   merged.reserve(mergedEntrys_);
   for (auto& [k, h] : data_.entryHandle) {
      if (!h->hasMergedEntry_) continue;
      merged.push_back(std::exchange(h->mergedEntry_, MergedEntry()));
      h->hasMergedEntry_ = false;
   }
   mergedEntrys_ = 0;
   merged.clear();
   mappedEntryHandle_.clear();
   std::vector<Brio::Ptr<EntryHandle>> held;
   held.reserve(data_.entryHandle.size());
   for (auto& [k, h] : data_.entryHandle) held.push_back(h);
   for (auto& h : held) {
      h->doAmendReferences();
      h->tableIs(nullptr);
   }
   data_.entryHandle.clear();
   Engine::indexAllocatorDel(*this);
}

void L3InterfaceTable::ingL3IifIs() {
   if (ingL3Iif_) return;
   ingL3Iif_ = ingL3IifFactory();
   publisher_.notify(ingL3IifAttr);
}

void L3InterfaceTable::egrL3Oif1TableIs() {
   if (egrL3Oif1Table_) return;
   egrL3Oif1Table_ = egrL3Oif1TableFactory();
   publisher_.notify(egrL3Oif1TableAttr);
}

void L3InterfaceTable::ingL3IifDel() {
   if (!ingL3Iif_) return;
   ingL3Iif_.reset();
   publisher_.notify(ingL3IifAttr);
}

void L3InterfaceTable::egrL3Oif1TableDel() {
   if (!egrL3Oif1Table_) return;
   egrL3Oif1Table_.reset();
   publisher_.notify(egrL3Oif1TableAttr);
}

void L3InterfaceTable::indexDeallocatorSmIs(L3InterfaceTable* table) {
   indexDeallocatorSm_ = Brio::makePtr<IndexDeallocatorSm>(table);
   publisher_.notify(indexDeallocatorSmAttr);
}

void L3InterfaceTable::indexDeallocatorSmDel() {
   if (!indexDeallocatorSm_) return;
   indexDeallocatorSm_.reset();
   publisher_.notify(indexDeallocatorSmAttr);
}

void L3InterfaceTable::indexAllocatorIs(Brio::Ptr<Allocator> allocator) {
   if (allocator == indexAllocator_) return;
   indexAllocator_ = std::move(allocator);
   publisher_.notify(Asic::SwTable::indexAllocatorAttr);
}

void L3InterfaceTable::doInit(Asic::UnitId unit, Brio::Ptr<Ledger::EntityManager> ledgerEm,
                              Brio::Ptr<const MeridCentral::ChipInfo> chipInfo) {
   ingL3Iif_->chipInfoIs(chipInfo);
   doInitAllocator();
   // Rows kept across a restart already use indices: the shared allocator
   // learns them from each member's rows.
   auto initMember = [&](Asic::SwKnownIndexTable& member) {
      member.indexKeySourceIs(indexAllocator_);
      member.doInit(unit, ledgerEm, chipInfo);
      if (member.hwTable() && member.util())
         member.util()->syncIndexAllocator(Orb::typeId<Key>(), *indexAllocator_, *member.hwTable());
      member.doInitComplete();
   };
   initMember(*ingL3Iif_);
   initMember(*egrL3Oif1Table_);
   indexDeallocatorSmIs(this);
}

void L3InterfaceTable::purgeStaleEntries() { Engine::purgeStaleEntries(*this); }

void L3InterfaceTable::doInitAllocator() {
   auto shalloc = Asic::GenericIndexAllocatorStub::createSharedAllocator<Allocator>(
       Orb::typeId<L3InterfaceTable>(), this);
   ORB_ASSERT(shalloc);
   shalloc->setTableAttr(this, mergedEntryAttr);
   shalloc->setTableAttr(this, unresolvedMergedEntryAttr);
   indexAllocatorIs(shalloc);
   shalloc->indexCountIs(ingL3Iif_ ? ingL3Iif_->numEntries() : 0);
   shalloc->initializedIs(true);
}

void L3InterfaceTable::doPublishHwTableMountInfo() {
   if (ingL3Iif_) ingL3Iif_->doPublishHwTableMountInfo();
   if (egrL3Oif1Table_) egrL3Oif1Table_->doPublishHwTableMountInfo();
}

void L3InterfaceTable::doMountHwTableMountInfo(Ledger::MountGroup& mountGroup) {
   IngL3Iif::doMountHwTableMountInfo(mountGroup);
   EgrL3Oif1Table::doMountHwTableMountInfo(mountGroup);
}

bool L3InterfaceTable::allocatorKeyHeld(uint32_t attrId, Orb::GenericValueRef key) const {
   const Key* k = key.as<Key>();
   if (!k) return false;
   if (attrId == mergedEntryAttr) return mergedEntryHas(*k);
   if (attrId == unresolvedMergedEntryAttr) return data_.unresolvedEntry.count(*k) != 0;
   return false;
}

// ---- collections ------------------------------------------------------------------

Brio::Ptr<L3InterfaceTable::EntryHandle> L3InterfaceTable::entryHandle(const Key& key) const {
   return Engine::entryHandle(*this, key);
}

L3InterfaceTable::MergedEntry L3InterfaceTable::mergedEntry(const Key& key) const {
   auto it = data_.entryHandle.find(key);
   if (it == data_.entryHandle.end() || !it->second->hasMergedEntry_) return MergedEntry();
   return it->second->mergedEntry_;
}

bool L3InterfaceTable::mergedEntryHas(const Key& key) const {
   auto it = data_.entryHandle.find(key);
   return it != data_.entryHandle.end() && it->second->hasMergedEntry_;
}

void L3InterfaceTable::mergedEntryIs(const Key& key, const MergedEntry& entry) {
   auto it = data_.entryHandle.find(key);
   ORB_ASSERT(it != data_.entryHandle.end()) << "no merged handle at key " << key;
   EntryHandle& eh = *it->second;
   if (eh.hasMergedEntry_ && eh.mergedEntry_ == entry) return;
   if (!eh.hasMergedEntry_) ++mergedEntrys_;
   eh.hasMergedEntry_ = true;
   eh.mergedEntry_ = entry;
   publisher_.notify(mergedEntryAttr, Brio::KeyRef(key));
}

void L3InterfaceTable::mergedEntryDel(const Key& key) {
   auto it = data_.entryHandle.find(key);
   if (it == data_.entryHandle.end() || !it->second->hasMergedEntry_) return;
   EntryHandle& eh = *it->second;
   // Member handles go after the table no longer names them.
   MergedEntry gone = std::exchange(eh.mergedEntry_, MergedEntry());
   eh.hasMergedEntry_ = false;
   --mergedEntrys_;
   publisher_.notify(mergedEntryAttr, Brio::KeyRef(key));
}

Brio::Ptr<L3InterfaceTable::UnresolvedMergedEntry> L3InterfaceTable::unresolvedMergedEntry(
    const Key& key) const {
   return Engine::unresolvedEntry(*this, key);
}

Brio::Ptr<L3InterfaceTable::UnresolvedMergedEntry> L3InterfaceTable::unresolvedMergedEntryIs(
    const Key& key) {
   return Engine::unresolvedEntryIs(*this, key);
}

Brio::Ptr<L3InterfaceTable::UnresolvedMergedEntry> L3InterfaceTable::unresolvedMergedEntryDel(
    const Key& key) {
   return Engine::unresolvedEntryDel(*this, key);
}

void L3InterfaceTable::unresolvedMergedEntryDelAll() { Engine::unresolvedEntryDelAll(*this); }

L3InterfaceTable::HandlePtrConst L3InterfaceTable::mappedEntryHandle(const Key& key) const {
   auto it = mappedEntryHandle_.find(key);
   return it == mappedEntryHandle_.end() ? nullptr : it->second;
}

void L3InterfaceTable::mappedEntryHandleIs(const Key& key, HandlePtrConst handle) {
   auto it = mappedEntryHandle_.find(key);
   if (!handle) {
      if (it == mappedEntryHandle_.end()) return;
      mappedEntryHandle_.erase(it);
   } else {
      if (it != mappedEntryHandle_.end() && it->second == handle) return;
      mappedEntryHandle_.insert_or_assign(key, std::move(handle));
   }
   publisher_.notify(mappedEntryHandleAttr, Brio::KeyRef(key));
}

IngL3Iif::Entry L3InterfaceTable::ingL3IifEntry(const Key& key) const {
   const Asic::Index i = indexAllocator_ ? indexAllocator_->indexForKey(key) : Asic::invalidIndex;
   return ingL3Iif_ ? ingL3Iif_->entry(IngL3Iif::Index(i)) : IngL3Iif::Entry();
}

EgrL3Oif1Table::Entry L3InterfaceTable::egrL3Oif1TableEntry(const Key& key) const {
   const Asic::Index i = indexAllocator_ ? indexAllocator_->indexForKey(key) : Asic::invalidIndex;
   return egrL3Oif1Table_ ? egrL3Oif1Table_->entry(EgrL3Oif1Table::Index(i))
                          : EgrL3Oif1Table::Entry();
}

// ---- writes -----------------------------------------------------------------------

L3InterfaceTable::HandlePtrConst L3InterfaceTable::entryRef(const Key& key, const Entry& entry) {
   return entryWrite(key, entry, Asic::autoRemove());
}

L3InterfaceTable::HandlePtrConst L3InterfaceTable::entryCommit(const Key& key, const Entry& entry) {
   return entryWrite(key, entry, Asic::needsExplicitRemove());
}

L3InterfaceTable::HandlePtrConst L3InterfaceTable::entryWriteAtIndex(Asic::Index index,
                                                                     const Key& key,
                                                                     const Entry& entry) {
   if (indexAllocator_) indexAllocator_->requestIndexForKey(index, key);
   return entryWrite(key, entry, Asic::needsExplicitRemove());
}

L3InterfaceTable::HandlePtrConst L3InterfaceTable::entryWrite(const Key& key, const Entry& entry,
                                                              Asic::AutoRemoveType mode) {
   Brio::Ptr<EntryHandle> eh = Engine::entryHandleIs(*this, key);
   Engine::entryTypeForWrite(*eh, mode);
   // A new key shares the handle's copy of it with the allocator.
   const Asic::Index index =
       indexAllocator_ ? indexAllocator_->newIndexForKey(eh->keyGeneric()) : Asic::invalidIndex;
   if (index == Asic::invalidIndex) {
      eh->entryStateIs(State::noHwIndex);
      return eh;
   }
   const IngL3Iif::Index ingIndex(index);
   const EgrL3Oif1Table::Index egrIndex(index);
   auto ingNode = ingL3Iif_->resolvedEntry(ingIndex);
   auto egrHandle = egrL3Oif1Table_->entryHandle(egrIndex);
   // Member rows stand for this key's write only while the key holds it: rows
   // that outlived its merged entry are taken over by a new write.
   const bool written = eh->hasMergedEntry_ || data_.unresolvedEntry.count(key) != 0;
   const bool repeat =
       written && ingL3Iif_->resolvedEntryHas(ingIndex) && ingNode &&
       IngL3Iif::Entry::isEq(*ingNode, entry.ingL3IifEntry()) && egrHandle &&
       egrHandle->entryType() != Type::inDeletion &&
       (egrL3Oif1Table_->unresolvedEntry(egrIndex) ||
        egrL3Oif1Table_->resolvedEntryHas(egrIndex)) &&
       EgrL3Oif1Table::Entry::isEq(egrL3Oif1Table_->entry(egrIndex), entry.egrL3Oif1TableEntry());
   // A failed entry is written afresh: members the chip refused are written again.
   const bool retry = eh->isFailed();
   if (repeat && !retry) {
      ORB_TRACE(traceHandle(), traceWrite, "entryWrite") << ": merged table entry already exists";
      return eh;
   }
   MergedEntry merged(entry.writeResponseFn());
   merged.mergedEntryHandleIs(ingL3Iif_->entryRef(ingIndex, entry.ingL3IifEntry()));
   merged.mergedEntryHandleIs(egrL3Oif1Table_->entryRef(egrIndex, entry.egrL3Oif1TableEntry()));
   // The old watchers give way to new ones only now that `merged` holds the
   // members: were they let go first, a refused member would go, and with it
   // the merged index.
   if (retry) unresolvedMergedEntryDel(key);
   auto ume = unresolvedMergedEntryIs(key);
   eh->entryStateIs(State::unresolved);
   ume->initUnresolvedMergedEntry(merged, retry);
   return eh;
}

L3InterfaceTable::HandlePtrConst L3InterfaceTable::entryMapToKey(
    const Key& existingKey, const Key& newKey, Asic::AutoRemoveType autoRemoveType) {
   ORB_ASSERT(existingKey != newKey) << "new and existing key can't be same";
   ORB_ASSERT(autoRemoveType == Asic::needsExplicitRemove())
       << " Only explicit remove supported with entryMapToKey";
   Brio::Ptr<EntryHandle> eh = entryHandle(existingKey);
   ORB_ASSERT(eh) << "Expected to see an entryhandle at existingKey";
   mappedEntryHandleIs(newKey, eh);
   return eh;
}

void L3InterfaceTable::entryRemove(const Key& key) {
   if (mappedEntryHandle(key)) {
      mappedEntryHandleDel(key);  // the aliased handle stays with its own key
      return;
   }
   Brio::Ptr<EntryHandle> eh = entryHandle(key);
   if (!eh || eh->entryType() != Type::committed) return;
   eh->entryTypeIs(Type::referenceOnly);
   eh->dropTableReference();
}

void L3InterfaceTable::entryRemoveAll() {
   std::vector<Key> keys;
   for (auto& [k, h] : mappedEntryHandle_) keys.push_back(k);
   for (auto& [k, h] : data_.entryHandle) keys.push_back(k);
   for (auto& k : keys) entryRemove(k);
}

L3InterfaceTable::HandlePtrConst L3InterfaceTable::entryWeakRef(const Key& key) {
   if (auto alias = mappedEntryHandle(key)) return alias;
   return Engine::entryHold(*this, key);
}

// ---- lookups for other agents --------------------------------------------------------

Asic::Index L3InterfaceTable::hwIndexOnlyForCrossAgentCommunication(const Key& key) const {
   if (auto alias = mappedEntryHandle(key))
      return Asic::SwTableBase::getHwIndexForDependentField(*alias);
   return Engine::hwIndexOnlyForCrossAgentCommunication(*this, key);
}

Orb::Optional<L3TunnelKey> L3InterfaceTable::swKeyFromHwIndex(Asic::Index index) const {
   return Engine::swKeyFromHwIndex(*this, index);
}

// ---- the merged handle --------------------------------------------------------------

void L3InterfaceTable::handleEntryState(EntryHandle& eh) {
   ORB_TRACE(traceHandle(), 6,
             "virtual void MeridL3Tunnel::L3InterfaceTable::EntryHandle::handleEntryState()")
       << " entryhandle state: " << eh.entryState() << " at key : " << eh.key();
   Asic::WriteResponseFn fn;
   if (auto ume = unresolvedMergedEntry(eh.key()))
      fn = ume->mergedEntry().writeResponseFn();
   else if (eh.hasMergedEntry_)
      fn = eh.mergedEntry_.writeResponseFn();
   if (fn) fn(eh.entryState());
}

// The last reference went: the merged state goes, and with the merged entry
// the member handles, whose entries then go by their own clean-up.
void L3InterfaceTable::cleanup(EntryHandle& eh) {
   const Key key = eh.key();
   // No counted pointer to `eh` may be made before the map's share counts
   // again: dropping it would end here once more.
   auto it = data_.entryHandle.find(key);
   if (it == data_.entryHandle.end() || it->second.ptr() != &eh) return;
   eh.doAmendReferences();
   unresolvedMergedEntryDel(key);
   mergedEntryDel(key);
   // Dropping the map's share reaches zero again inside this hook, which
   // finds the key gone; the handle is deleted only after the hook returns.
   Engine::entryHandleDel(*this, key);
   eh.tableIs(nullptr);
}

void L3InterfaceTable::EntryHandle::tableIs(L3InterfaceTable* t) {
   if (t == table_) return;
   table_ = t;
   publisher_.notify(swTableAttr);
}

std::string L3InterfaceTable::EntryHandle::keyText() const {
   std::ostringstream os;
   os << key();
   return os.str();
}

void L3InterfaceTable::EntryHandle::handleEntryState() {
   if (table_) table_->handleEntryState(*this);
}

void L3InterfaceTable::EntryHandle::zeroReferencesIs(bool zero) {
   if (zero && table_) table_->cleanup(*this);
}

bool L3InterfaceTable::memberIndexSuffices() const {
   for (const Asic::SwTable* t : {static_cast<const Asic::SwTable*>(ingL3Iif_.ptr()),
                                  static_cast<const Asic::SwTable*>(egrL3Oif1Table_.ptr())})
      if (!t || !t->util() || !t->util()->hwIndexValidSuffices()) return false;
   return true;
}

// ---- unresolved merged entries ---------------------------------------------------------

void L3InterfaceTable::UnresolvedMergedEntry::initUnresolvedMergedEntry(const MergedEntry& entry,
                                                                        bool awaitMembers) {
   ORB_ASSERT(entry.mergedEntryHandles() == MergedEntry::numMemberTables())
       << "All member tables are not filled";
   if (&entry != &mergedEntry_) mergedEntry_ = entry;
   Brio::Ptr<UnresolvedMergedEntry> keep(this);
   const bool indexSuffices = !awaitMembers && table_ && table_->memberIndexSuffices();
   bool failed = false;
   for (auto& h : mergedEntry_.mergedEntryHandle()) {
      if (h->entryState() == State::success) continue;
      neededEntryHandleSmIs(h.ptr(), indexSuffices);
      failed |= h->entryState() == State::failedNeededEntry || h->isFailed();
   }
   if (failed) markFailedNeededEntry();
   // Members carry their index from the write on, but a row the chip then
   // refuses is not there: next hops could name it. So, as for a single
   // table's needed entry, a member counts once it is programmed, unless its
   // table's util says a valid index suffices. The watchers resolve the rest.
   bool written = neededEntryHandleSms() == 0;
   if (indexSuffices) {
      written = true;
      for (auto& h : mergedEntry_.mergedEntryHandle()) written &= h->isHwIndexValid();
   }
   if (written && !failed && table_) doResolve();
}

void L3InterfaceTable::UnresolvedMergedEntry::doResolve() {
   L3InterfaceTable* table = table_;
   if (!table) return;
   const Asic::Index index = table->indexAllocator()->newIndexForKey(key_);
   Brio::Ptr<EntryHandle> eh = table->entryHandle(key_);
   ORB_ASSERT(eh) << "no merged handle at key " << key_;
   Brio::Ptr<UnresolvedMergedEntry> keep(this);
   eh->hwIndexIs(index);
   eh->entryStateIs(State::inProgress);
   table->mergedEntryIs(key_, mergedEntry_);
   table->unresolvedMergedEntryDel(key_);
   eh->entryStateIs(State::success);
}

void L3InterfaceTable::UnresolvedMergedEntry::markFailedNeededEntry() {
   setEntryState(State::failedNeededEntry);
}

void L3InterfaceTable::UnresolvedMergedEntry::setEntryState(Asic::SwTableBase::EntryState state) {
   if (!table_) return;
   if (auto eh = table_->entryHandle(key_)) eh->entryStateIs(state);
}

Brio::Ptr<L3InterfaceTable> l3InterfaceTableFactory() { return Brio::makePtr<L3InterfaceTable>(); }

}  // namespace MeridL3Tunnel
