#pragma once
// The operations every key-keyed table offers, declared in the table class and
// defined in its source file as one-line forwarders to the engine. The macros
// keep the long, identical list in one place; the table header still shows
// its own types and traits.
#include <cstdint>

#include "Asic/RecoverGroup.h"
#include "Asic/SwTable.h"
#include "AsicSwTable/KeyedEntryHandle.h"
#include "AsicSwTable/KeyedTableData.h"
#include "AsicSwTable/KeyedUnresolvedEntry.h"
#include "AsicSwTable/SwTableUtilLoader.h"
#include "Ledger/MountGroup.h"
#include "Orb/Optional.h"
#include "Orb/Trace.h"

// Exports a table's public API from the table library, which hides the rest.
#define ASIC_EXPORT __attribute__((visibility("default")))

// Inside the class body of table T, after its nested Key, Entry, EntryHandle,
// UnresolvedEntry (void when its entries name no other entry), Allocator and
// CrossAgentIndex (what hwIndexOnlyForCrossAgentCommunication answers) types.
#define ASIC_KEYED_TABLE_OPERATIONS(T)                                                           \
public:                                                                                          \
   using EntryHandlePtrConst = Brio::Ptr<const Asic::SwTableBase::EntryHandle>;                  \
   using Data = Asic::KeyedTableData<Key, Entry, EntryHandle, UnresolvedEntry>;                  \
   using EntryHandleMap = typename Data::EntryHandleMap;                                         \
   using ResolvedEntryMap = typename Data::ResolvedEntryMap;                                     \
   static constexpr std::string_view entryHandleTypeName = #T "::EntryHandle";                   \
                                                                                                 \
   EntryHandlePtrConst entryRef(const Key& key, const Entry& entry);                             \
   EntryHandlePtrConst entryCommit(const Key& key, const Entry& entry);                          \
   EntryHandlePtrConst entryWontProgram(const Key& key);                                         \
   EntryHandlePtrConst entryWriteAtIndex(Asic::Index index, const Key& key, const Entry& entry); \
   EntryHandlePtrConst entryWeakRef(const Key& key) const;                                       \
   /* A weak reference that makes the handle when there is none. */                              \
   EntryHandlePtrConst entryHold(const Key& key);                                                \
   void entryRemove(const Key& key);                                                             \
   void entryRemoveAll();                                                                        \
   Entry entry(const Key& key) const;                                                            \
   bool entryHas(const Key& key) const;                                                          \
   uint32_t entrys() const;                                                                      \
   const ResolvedEntryMap& entryIteratorConst() const { return data_.resolvedEntry; }            \
   Asic::EntryCursor<Key, Entry> entryIteratorConst(const Key& key) const;                       \
                                                                                                 \
   Brio::Ptr<EntryHandle> entryHandle(const Key& key) const;                                     \
   Brio::Ptr<EntryHandle> entryHandleIs(const Key& key);                                         \
   Brio::Ptr<EntryHandle> entryHandleDel(const Key& key);                                        \
   void entryHandleDelAll();                                                                     \
   uint32_t entryHandles() const { return uint32_t(data_.entryHandle.size()); }                  \
   const EntryHandleMap& entryHandleIteratorConst() const { return data_.entryHandle; }          \
                                                                                                 \
   Orb::Optional<Entry> resolvedEntry(const Key& key) const;                                     \
   void resolvedEntryIs(const Key& key, const Orb::Optional<Entry>& entry);                      \
   void resolvedEntryDel(const Key& key);                                                        \
   void resolvedEntryDelAll();                                                                   \
   uint32_t resolvedEntrys() const { return uint32_t(data_.resolvedEntry.size()); }              \
   bool resolvedEntryHas(const Key& key) const { return data_.resolvedEntry.count(key) != 0; }   \
                                                                                                 \
   void handleEntry(const Key& key);                                                             \
   void doCompleteEntryHandleForTesting(const Key& key, Orb::Optional<Asic::Index> index);       \
   void cleanup();                                                                               \
   void syncEntries() override;                                                                  \
   void purgeStaleEntries();                                                                     \
   Orb::GenericValue hwRowKey(Asic::Index index) const override;                                 \
   static void doMountHwTableMountInfo(Ledger::MountGroup& mountGroup);                          \
   void doRecoverHwTable(Asic::RecoverGroup& recoverGroup, Asic::UnitId unit,                    \
                         Brio::Ptr<Ledger::EntityManager> ledgerEm,                              \
                         Brio::Ptr<const MeridCentral::ChipInfo> chipInfo);                      \
   void doReleaseHwIndex(const Key& key);                                                        \
   CrossAgentIndex hwIndexOnlyForCrossAgentCommunication(const Key& key) const;                  \
   Orb::Optional<Key> swKeyFromHwIndex(Asic::Index index) const;                                 \
                                                                                                 \
   const Brio::Ptr<Allocator>& indexAllocator() const { return data_.indexAllocator; }           \
   void indexAllocatorIs(Brio::Ptr<Allocator> allocator);                                        \
   bool indexAllocatorBound() const override { return bool(data_.indexAllocator); }              \
                                                                                                 \
   Orb::TypeId fwkType() const override { return Orb::typeId<T>(); }                             \
   bool allocatorKeyHeld(uint32_t attrId, Orb::GenericValueRef key) const override;              \
   void doHandleWriteResponse(Asic::HwRequestId id, Asic::Index index, Asic::WriteStatus status) \
       override;                                                                                 \
   static const Orb::TraceHandle& traceHandle();                                                 \
                                                                                                 \
protected:                                                                                       \
   Brio::Ptr<Util> doLoadUtil() override;                                                        \
                                                                                                 \
private:                                                                                         \
   friend struct Asic::SwTable::Accessor<T>;                                                     \
   friend class Asic::KeyedEntryHandle<T>;                                                       \
   struct DataWithAllocator : Data {                                                             \
      Brio::Ptr<Allocator> indexAllocator;                                                       \
   };                                                                                            \
   DataWithAllocator data_;                                                                      \
                                                                                                 \
public:

// At global scope after the class: the handle is instantiated by the library only.
#define ASIC_KEYED_TABLE_EXTERN(T) extern template class ASIC_EXPORT Asic::KeyedEntryHandle<T>

// In the table's source file at global scope (T fully qualified), after
// including AsicSwTable/SwTableAccessor.h.
#define ASIC_KEYED_TABLE_FORWARDERS(T)                                                             \
   T::EntryHandlePtrConst T::entryRef(const Key& k, const Entry& e) {                              \
      return Asic::SwTable::Accessor<T>::entryRef(*this, k, e);                                    \
   }                                                                                               \
   T::EntryHandlePtrConst T::entryCommit(const Key& k, const Entry& e) {                           \
      return Asic::SwTable::Accessor<T>::entryCommit(*this, k, e);                                 \
   }                                                                                               \
   T::EntryHandlePtrConst T::entryWontProgram(const Key& k) {                                      \
      return Asic::SwTable::Accessor<T>::entryWontProgram(*this, k);                               \
   }                                                                                               \
   T::EntryHandlePtrConst T::entryWriteAtIndex(Asic::Index i, const Key& k, const Entry& e) {      \
      return Asic::SwTable::Accessor<T>::entryWriteAtIndex(*this, i, k, e);                        \
   }                                                                                               \
   T::EntryHandlePtrConst T::entryWeakRef(const Key& k) const {                                    \
      return Asic::SwTable::Accessor<T>::entryWeakRef(*this, k);                                   \
   }                                                                                               \
   T::EntryHandlePtrConst T::entryHold(const Key& k) {                                             \
      return Asic::SwTable::Accessor<T>::entryHold(*this, k);                                      \
   }                                                                                               \
   void T::entryRemove(const Key& k) { Asic::SwTable::Accessor<T>::entryRemove(*this, k); }        \
   void T::entryRemoveAll() { Asic::SwTable::Accessor<T>::entryRemoveAll(*this); }                 \
   T::Entry T::entry(const Key& k) const { return Asic::SwTable::Accessor<T>::entry(*this, k); }   \
   bool T::entryHas(const Key& k) const { return Asic::SwTable::Accessor<T>::entryHas(*this, k); } \
   Asic::EntryCursor<T::Key, T::Entry> T::entryIteratorConst(const Key& k) const {                 \
      return Asic::SwTable::Accessor<T>::entryIteratorConst(*this, k);                             \
   }                                                                                               \
   uint32_t T::entrys() const { return Asic::SwTable::Accessor<T>::entrys(*this); }                \
   Brio::Ptr<T::EntryHandle> T::entryHandle(const Key& k) const {                                  \
      return Asic::SwTable::Accessor<T>::entryHandle(*this, k);                                    \
   }                                                                                               \
   Brio::Ptr<T::EntryHandle> T::entryHandleIs(const Key& k) {                                      \
      return Asic::SwTable::Accessor<T>::entryHandleIs(*this, k);                                  \
   }                                                                                               \
   Brio::Ptr<T::EntryHandle> T::entryHandleDel(const Key& k) {                                     \
      return Asic::SwTable::Accessor<T>::entryHandleDel(*this, k);                                 \
   }                                                                                               \
   void T::entryHandleDelAll() { Asic::SwTable::Accessor<T>::entryHandleDelAll(*this); }           \
   Orb::Optional<T::Entry> T::resolvedEntry(const Key& k) const {                                  \
      return Asic::SwTable::Accessor<T>::resolvedEntry(*this, k);                                  \
   }                                                                                               \
   void T::resolvedEntryIs(const Key& k, const Orb::Optional<Entry>& e) {                          \
      Asic::SwTable::Accessor<T>::resolvedEntryIs(*this, k, e);                                    \
   }                                                                                               \
   void T::resolvedEntryDel(const Key& k) {                                                        \
      Asic::SwTable::Accessor<T>::resolvedEntryDel(*this, k);                                      \
   }                                                                                               \
   void T::resolvedEntryDelAll() { Asic::SwTable::Accessor<T>::resolvedEntryDelAll(*this); }       \
   void T::handleEntry(const Key& k) { Asic::SwTable::Accessor<T>::handleEntry(*this, k); }        \
   void T::doCompleteEntryHandleForTesting(const Key& k, Orb::Optional<Asic::Index> i) {           \
      Asic::SwTable::Accessor<T>::doCompleteEntryHandleForTesting(*this, k, i);                    \
   }                                                                                               \
   void T::cleanup() { Asic::SwTable::Accessor<T>::cleanupTable(*this); }                          \
   void T::syncEntries() { Asic::SwTable::Accessor<T>::syncEntries(*this); }                       \
   void T::purgeStaleEntries() { Asic::SwTable::Accessor<T>::purgeStaleEntries(*this); }           \
   Orb::GenericValue T::hwRowKey(Asic::Index i) const {                                            \
      return Asic::SwTable::Accessor<T>::hwRowKey(*this, i);                                       \
   }                                                                                               \
   void T::doMountHwTableMountInfo(Ledger::MountGroup& mg) {                                       \
      Util::doMountHwTableMountInfo(std::string(T::typeName) + "::Util", mg, "");                  \
   }                                                                                               \
   void T::doRecoverHwTable(Asic::RecoverGroup& rg, Asic::UnitId unit,                             \
                            Brio::Ptr<Ledger::EntityManager> em,                                   \
                            Brio::Ptr<const MeridCentral::ChipInfo> chip) {                        \
      Util::doRecoverHwTable(Orb::typeId<T>(), *this, rg, unit, std::move(em), std::move(chip),    \
                             "");                                                                  \
   }                                                                                               \
   void T::doReleaseHwIndex(const Key& k) {                                                        \
      Asic::SwTable::Accessor<T>::doReleaseHwIndex(*this, k);                                      \
   }                                                                                               \
   T::CrossAgentIndex T::hwIndexOnlyForCrossAgentCommunication(const Key& k) const {               \
      return Asic::SwTable::Accessor<T>::hwIndexOnlyForCrossAgentCommunication(*this, k);          \
   }                                                                                               \
   Orb::Optional<T::Key> T::swKeyFromHwIndex(Asic::Index i) const {                                \
      return Asic::SwTable::Accessor<T>::swKeyFromHwIndex(*this, i);                               \
   }                                                                                               \
   void T::indexAllocatorIs(Brio::Ptr<Allocator> a) {                                              \
      Asic::SwTable::Accessor<T>::indexAllocatorIs(*this, std::move(a));                           \
   }                                                                                               \
   bool T::allocatorKeyHeld(uint32_t attrId, Orb::GenericValueRef k) const {                       \
      return Asic::SwTable::Accessor<T>::allocatorKeyHeld(*this, attrId, k);                       \
   }                                                                                               \
   void T::doHandleWriteResponse(Asic::HwRequestId id, Asic::Index i, Asic::WriteStatus s) {       \
      Asic::SwTable::Accessor<T>::doHandleWriteResponse(*this, id, i, s);                          \
   }                                                                                               \
   const Orb::TraceHandle& T::traceHandle() {                                                      \
      static const Orb::TraceHandle handle{T::typeName};                                           \
      return handle;                                                                               \
   }                                                                                               \
   Brio::Ptr<T::Util> T::doLoadUtil() { return UtilLoader::instance().util(); }                    \
   template class Asic::KeyedEntryHandle<T>

// Inside the class body of a table whose entries name another table's entry,
// after ASIC_KEYED_TABLE_OPERATIONS.
#define ASIC_DEPENDENT_TABLE_OPERATIONS(T)                                              \
   using UnresolvedEntryMap = typename Data::UnresolvedEntryMap;                        \
   Brio::Ptr<UnresolvedEntry> unresolvedEntry(const Key& key) const;                    \
   Brio::Ptr<UnresolvedEntry> unresolvedEntryIs(const Key& key);                        \
   void unresolvedEntryDel(const Key& key);                                             \
   void unresolvedEntryDelAll();                                                        \
   uint32_t unresolvedEntrys() const { return uint32_t(data_.unresolvedEntry.size()); } \
   const UnresolvedEntryMap& unresolvedEntryIteratorConst() const {                     \
      return data_.unresolvedEntry;                                                     \
   }                                                                                    \
   void initUnresolvedEntry(UnresolvedEntry& ue, const Entry& entry);                   \
   void doResolve(UnresolvedEntry& ue);

#define ASIC_DEPENDENT_TABLE_EXTERN(T) \
   extern template class ASIC_EXPORT Asic::KeyedUnresolvedEntry<T>

#define ASIC_DEPENDENT_TABLE_FORWARDERS(T)                                                       \
   Brio::Ptr<T::UnresolvedEntry> T::unresolvedEntry(const Key& k) const {                        \
      return Asic::SwTable::Accessor<T>::unresolvedEntry(*this, k);                              \
   }                                                                                             \
   Brio::Ptr<T::UnresolvedEntry> T::unresolvedEntryIs(const Key& k) {                            \
      return Asic::SwTable::Accessor<T>::unresolvedEntryIs(*this, k);                            \
   }                                                                                             \
   void T::unresolvedEntryDel(const Key& k) {                                                    \
      Asic::SwTable::Accessor<T>::unresolvedEntryDel(*this, k);                                  \
   }                                                                                             \
   void T::unresolvedEntryDelAll() { Asic::SwTable::Accessor<T>::unresolvedEntryDelAll(*this); } \
   void T::initUnresolvedEntry(UnresolvedEntry& ue, const Entry& e) {                            \
      Asic::SwTable::Accessor<T>::initUnresolvedEntry(*this, ue, e);                             \
   }                                                                                             \
   void T::doResolve(UnresolvedEntry& ue) { Asic::SwTable::Accessor<T>::doResolve(*this, ue); }  \
   template class Asic::KeyedUnresolvedEntry<T>
