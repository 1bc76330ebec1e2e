#pragma once
// The base of every table keyed by its own key type: the operations such a
// table offers, declared once. A table derives from
// `KeyedSwTable<Table, TableTypes>` and declares only its types (in
// `TableTypes`) and what is its own. The operations are defined with the
// engine (SwTableAccessor.h) and instantiated by each table's source file,
// inside the table library.
//
// The types stand apart from the table because a base cannot see into the
// class being derived from it while that class is still being defined.
// `Types` names `typeName`, `Index`, `Key`, `Entry`, `UnresolvedEntry` (void
// when the table's entries name no other table's entry), `CrossAgentIndex`
// (what hwIndexOnlyForCrossAgentCommunication answers) and, when the key is
// not the index, `Allocator`. What they imply is derived, never stated:
//  - a table whose key is its `Index` is index-keyed: a SwKnownIndexTable;
//    any other table is a SwAllocatedIndexTable over its `Allocator`;
//  - a table whose `UnresolvedEntry` is not void parks the values that wait
//    for the entry they name, and has the operations on them
//    (KeyedDependentTable).
#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <type_traits>

#include "Asic/EntryBase.h"
#include "Asic/RecoverGroup.h"
#include "Asic/SwTable.h"
#include "AsicSwTable/EngineParts.h"
#include "AsicSwTable/KeyedEntryHandle.h"
#include "AsicSwTable/KeyedTableData.h"
#include "AsicSwTable/KeyedUnresolvedEntry.h"
#include "AsicSwTable/SwAllocatedIndexTable.h"
#include "AsicSwTable/SwTableUtilLoader.h"
#include "Ledger/MountGroup.h"
#include "Orb/Optional.h"
#include "Orb/Trace.h"

#pragma GCC visibility push(default)
namespace Asic {

namespace Detail {

template <class Types>
concept NamesAllocator = requires {
   typename Types::Allocator;
};

template <class Types>
struct AllocatorOf {
   using type = void;
};
template <NamesAllocator Types>
struct AllocatorOf<Types> {
   using type = typename Types::Allocator;
};

// A key that is a hardware index.
template <class Key>
concept IndexKey = requires(const Key& k) {
   { k.value() } -> std::convertible_to<Index>;
};

// An entry that names the entry it needs and takes that entry's index.
template <class Entry>
concept DependentEntry = requires {
   Entry::Fields::dependentCount();
}
&&Entry::Fields::dependentCount() == 1;

// The handle's type name, "Table::EntryHandle" for the table "Ns::Table".
template <class Types>
struct EntryHandleTypeName {
   static constexpr std::string_view table = Types::typeName.substr(Types::typeName.rfind(':') + 1);
   static constexpr std::string_view suffix = "::EntryHandle";
   static constexpr std::array<char, table.size() + suffix.size()> text = [] {
      std::array<char, table.size() + suffix.size()> out{};
      std::size_t i = 0;
      for (char c : table) out[i++] = c;
      for (char c : suffix) out[i++] = c;
      return out;
   }();
   static constexpr std::string_view value{text.data(), text.size()};
};

}  // namespace Detail

// What a table's types imply about it.
template <class Types>
struct KeyedTableTraits {
   static constexpr bool knownIndex = std::is_same_v<typename Types::Key, typename Types::Index>;
   static constexpr bool hasDependentField = !std::is_void_v<typename Types::UnresolvedEntry>;
   // void for an index-keyed table.
   using Allocator = typename Detail::AllocatorOf<Types>::type;
};

// The operations on the unresolved entries of a table whose entries name
// another table's entry: a written value waits in one until the entry it
// names is ready (see Asic/UnresolvedEntry.h).
template <class T, class Types>
class KeyedDependentTable {
public:
   using Key = typename Types::Key;
   using Entry = typename Types::Entry;
   using UnresolvedEntry = typename Types::UnresolvedEntry;
   using UnresolvedEntryMap = typename KeyedTableData<Key, Entry, KeyedEntryHandle<T>,
                                                      UnresolvedEntry>::UnresolvedEntryMap;

   static_assert(std::is_same_v<UnresolvedEntry, KeyedUnresolvedEntry<T>>,
                 "a keyed table's unresolved entry is its KeyedUnresolvedEntry");
   static_assert(Detail::DependentEntry<Entry>,
                 "a dependent table's entry describes exactly one dependent field: the handle of "
                 "the entry it names and the index that entry resolves to");

   Brio::Ptr<UnresolvedEntry> unresolvedEntry(const Key& key) const;
   Brio::Ptr<UnresolvedEntry> unresolvedEntryIs(const Key& key);
   void unresolvedEntryDel(const Key& key);
   void unresolvedEntryDelAll();
   uint32_t unresolvedEntrys() const {
      return uint32_t(static_cast<const T&>(*this).data_.unresolvedEntry.size());
   }
   const UnresolvedEntryMap& unresolvedEntryIteratorConst() const {
      return static_cast<const T&>(*this).data_.unresolvedEntry;
   }
   void initUnresolvedEntry(UnresolvedEntry& ue, const Entry& entry);
   void doResolve(UnresolvedEntry& ue);
};

// The base of a table whose entries name nothing: no unresolved entries.
struct KeyedIndependentTable {};

template <class T, class Types>
class KeyedSwTable
    : public std::conditional_t<KeyedTableTraits<Types>::knownIndex, SwKnownIndexTable,
                                SwAllocatedIndexTable<typename KeyedTableTraits<Types>::Allocator>>,
      public std::conditional_t<KeyedTableTraits<Types>::hasDependentField,
                                KeyedDependentTable<T, Types>, KeyedIndependentTable> {
public:
   static constexpr std::string_view typeName = Types::typeName;
   using Index = typename Types::Index;
   using Key = typename Types::Key;
   using Entry = typename Types::Entry;
   using EntryHandle = KeyedEntryHandle<T>;
   using UnresolvedEntry = typename Types::UnresolvedEntry;
   using CrossAgentIndex = typename Types::CrossAgentIndex;
   using Util = SwTable::Util;
   using Engine = SwTable::Accessor<T>;
   using UtilLoader = SwTableUtilLoader<T>;
   static constexpr bool knownIndex = KeyedTableTraits<Types>::knownIndex;
   static constexpr bool hasDependentField = KeyedTableTraits<Types>::hasDependentField;
   static constexpr bool hasValueMap = true;

   using EntryHandlePtrConst = Brio::Ptr<const SwTableBase::EntryHandle>;
   using Data = KeyedTableData<Key, Entry, EntryHandle, UnresolvedEntry>;
   using EntryHandleMap = typename Data::EntryHandleMap;
   using ResolvedEntryMap = typename Data::ResolvedEntryMap;
   static constexpr std::string_view entryHandleTypeName =
       Detail::EntryHandleTypeName<Types>::value;

   static_assert(std::is_base_of_v<EntryBase, Entry>, "a table's entry is an entry value");
   static_assert(knownIndex == std::is_void_v<typename KeyedTableTraits<Types>::Allocator>,
                 "a table names an index allocator exactly when its key is not its index");
   static_assert(!knownIndex || Detail::IndexKey<Key>,
                 "an index-keyed table's key holds its hardware index");
   static_assert(std::is_same_v<CrossAgentIndex, Asic::Index> ||
                     std::is_same_v<CrossAgentIndex, Orb::Optional<Asic::Index>>,
                 "other agents are told a hardware index, or maybe one");

   EntryHandlePtrConst entryRef(const Key& key, const Entry& entry);
   EntryHandlePtrConst entryCommit(const Key& key, const Entry& entry);
   EntryHandlePtrConst entryWontProgram(const Key& key);
   EntryHandlePtrConst entryWriteAtIndex(Asic::Index index, const Key& key, const Entry& entry);
   EntryHandlePtrConst entryWeakRef(const Key& key) const;
   // A weak reference that makes the handle when there is none.
   EntryHandlePtrConst entryHold(const Key& key);
   void entryRemove(const Key& key);
   void entryRemoveAll();
   Entry entry(const Key& key) const;
   bool entryHas(const Key& key) const;
   uint32_t entrys() const;
   const ResolvedEntryMap& entryIteratorConst() const { return data_.resolvedEntry; }
   EntryCursor<Key, Entry> entryIteratorConst(const Key& key) const;

   Brio::Ptr<EntryHandle> entryHandle(const Key& key) const;
   Brio::Ptr<EntryHandle> entryHandleIs(const Key& key);
   Brio::Ptr<EntryHandle> entryHandleDel(const Key& key);
   void entryHandleDelAll();
   uint32_t entryHandles() const { return uint32_t(data_.entryHandle.size()); }
   const EntryHandleMap& entryHandleIteratorConst() const { return data_.entryHandle; }

   Orb::Optional<Entry> resolvedEntry(const Key& key) const;
   void resolvedEntryIs(const Key& key, const Orb::Optional<Entry>& entry);
   void resolvedEntryDel(const Key& key);
   void resolvedEntryDelAll();
   uint32_t resolvedEntrys() const { return uint32_t(data_.resolvedEntry.size()); }
   bool resolvedEntryHas(const Key& key) const { return data_.resolvedEntry.count(key) != 0; }

   void handleEntry(const Key& key);
   void doCompleteEntryHandleForTesting(const Key& key, Orb::Optional<Asic::Index> index);
   void cleanup();
   void syncEntries() override;
   void purgeStaleEntries();
   Orb::GenericValue hwRowKey(Asic::Index index) const override;
   static void doMountHwTableMountInfo(Ledger::MountGroup& mountGroup);
   void doRecoverHwTable(RecoverGroup& recoverGroup, UnitId unit,
                         Brio::Ptr<Ledger::EntityManager> ledgerEm,
                         Brio::Ptr<const MeridCentral::ChipInfo> chipInfo);
   void doReleaseHwIndex(const Key& key);
   CrossAgentIndex hwIndexOnlyForCrossAgentCommunication(const Key& key) const;
   Orb::Optional<Key> swKeyFromHwIndex(Asic::Index index) const;

   Orb::TypeId fwkType() const override { return Orb::typeId<T>(); }
   bool allocatorKeyHeld(uint32_t attrId, Orb::GenericValueRef key) const override;
   void doHandleWriteResponse(HwRequestId id, Asic::Index index, WriteStatus status) override;
   static const Orb::TraceHandle& traceHandle();

protected:
   KeyedSwTable() = default;
   ~KeyedSwTable() override = default;
   Brio::Ptr<Util> doLoadUtil() override;

private:
   friend struct SwTable::Accessor<T>;
   // The engine's parts, which the engine is composed of.
   friend struct TableEngine::Handles<T>;
   friend struct TableEngine::Values<T>;
   friend struct TableEngine::WritePath<T>;
   friend struct TableEngine::Indices<T>;
   friend struct TableEngine::Programming<T>;
   friend struct TableEngine::Removal<T>;
   friend struct TableEngine::Resolution<T>;
   friend struct TableEngine::Recovery<T>;
   friend struct TableEngine::Lookups<T>;
   friend class KeyedDependentTable<T, Types>;
   Data data_;
};

}  // namespace Asic
#pragma GCC visibility pop
