#pragma once
// The collections a key-keyed table owns. Each map hashes the key with the
// process-wide seed XORed with a constant of its own, so one key falls into
// different buckets in different maps.
#include <cstdint>
#include <type_traits>
#include <unordered_map>

#include "Asic/HwTable.h"
#include "Asic/InFlightRequests.h"
#include "AsicSwTable/HandleMap.h"
#include "AsicSwTable/ResolvedEntryMap.h"
#include "Brio/IsEq.h"
#include "Brio/Ptr.h"
#include "Orb/Hash.h"
#include "Orb/Optional.h"

namespace Asic {

inline constexpr uint32_t entryHandleSeed = 0x3be3390e;
inline constexpr uint32_t resolvedEntrySeed = 0x1c976be5;
inline constexpr uint32_t unresolvedEntrySeed = 0x2d6a1f47;

template <class Key, uint32_t Seed>
struct SeededHash {
   uint32_t seed = Orb::HashHelper::hashSeed32() ^ Seed;
   std::size_t operator()(const Key& k) const { return k.hash(seed); }
};

template <class Key>
struct KeyIsEq {
   bool operator()(const Key& a, const Key& b) const { return Brio::Util::IsEq<Key>::isEq(a, b); }
};

template <class Key, class Value, uint32_t Seed>
using KeyedMap = std::unordered_map<Key, Value, SeededHash<Key, Seed>, KeyIsEq<Key>>;

struct NoUnresolvedEntries {};

// A position on one entry of a table: the key and the value that stands for
// it, or nothing. Valid until the table changes.
template <class Key, class Entry>
struct EntryCursor {
   const Key* key = nullptr;
   const Entry* entry = nullptr;
   explicit operator bool() const { return entry != nullptr; }
};

// `Ue` is the table's unresolved-entry type, or void for a table whose
// entries name no other entries.
template <class Key, class Entry, class Handle, class Ue = void>
struct KeyedTableData {
   using EntryHandleMap = HandleMap<Key, Handle, SeededHash<Key, entryHandleSeed>>;
   using ResolvedEntryMap =
       Asic::ResolvedEntryMap<Key, Entry, EntryHandleMap,
                              KeyedMap<Key, Orb::Optional<Entry>, resolvedEntrySeed>>;
   using UnresolvedEntryMap = std::conditional_t<std::is_void_v<Ue>, NoUnresolvedEntries,
                                                 KeyedMap<Key, Brio::Ptr<Ue>, unresolvedEntrySeed>>;

   KeyedTableData() : resolvedEntry(entryHandle) {}

   EntryHandleMap entryHandle;
   ResolvedEntryMap resolvedEntry;  // in the handles of `entryHandle`, mostly
   [[no_unique_address]] UnresolvedEntryMap unresolvedEntry;
   // Hardware operations whose responses are awaited, by the key they are for.
   InFlightRequests<Key> inFlight;
};

}  // namespace Asic
