#pragma once
// What every part of the table engine names. The engine is a set of parts,
// each a struct of static functions over the table `T` (handle store, value
// map, write path, index holding, programming, removal, resolution,
// recovery, lookups); `T::Engine` is their composition, and a part reaches
// another's functions through it, so that a table can compose only the parts
// it uses, and hide a part's function with its own where its shape differs
// (the stale purge's `rowsFound`, `rowClaimed`, `staleRowDel`).
//
// A table gives the parts its `Key`, `Entry`, `EntryHandle`, `traceHandle()`,
// `typeName`, the traits `knownIndex` (the key is the index) and
// `hasValueMap` (values live in a resolved-entry map kept with the handles),
// `UnresolvedEntry` and `unresolvedEntryAttr` for resolution, its
// `publisher_`, and in `data_` the collections the parts it uses keep:
// `entryHandle`, `resolvedEntry`, `unresolvedEntry`, `inFlight`.
#include <cstdint>
#include <string_view>
#include <vector>

#include "Asic/SwTable.h"
#include "AsicSwTable/EngineParts.h"
#include "Orb/Assert.h"
#include "Orb/Trace.h"

namespace Asic {

// Trace levels of the engine.
inline constexpr uint32_t traceWrite = 5;
inline constexpr uint32_t traceState = 6;
inline constexpr uint32_t traceVerbose = 7;
inline constexpr uint32_t traceHardware = 8;

namespace TableEngine {

// The framework's names, for the parts to use as the table classes do.
struct __attribute__((visibility("hidden"))) EngineNames : SwTableBase {
   using State = SwTableBase::EntryState;
   using Type = SwTableBase::EntryHandle::EntryType;
   using Util = SwTable::Util;
   using TableState = SwTable::TableState;
};

template <class T>
struct __attribute__((visibility("hidden"))) EnginePart {
   using Engine = typename T::Engine;
   using Key = typename T::Key;
   using Entry = typename T::Entry;
   using Handle = typename T::EntryHandle;
   using HandlePtr = Brio::Ptr<Handle>;
   using HandlePtrConst = Brio::Ptr<const SwTableBase::EntryHandle>;

   static const Orb::TraceHandle& trace() { return T::traceHandle(); }
   static std::string_view typeName() { return T::typeName; }

   // The keys of a collection, for walks that change it.
   template <class Map>
   static std::vector<Key> keysOf(const Map& map) {
      std::vector<Key> keys;
      keys.reserve(map.size());
      for (auto& [k, v] : map) keys.push_back(k);
      return keys;
   }
};

}  // namespace TableEngine
}  // namespace Asic
