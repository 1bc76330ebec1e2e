#pragma once
// The engine's recovery after a restart: the allocator learns the rows the
// chip kept, and once the agent's replay is done the rows nobody claimed go.
#include "Asic/SwTableUtil.h"
#include "AsicSwTable/EnginePart.h"

namespace Asic::TableEngine {

template <class T>
struct __attribute__((visibility("hidden"))) Recovery : EngineNames, EnginePart<T> {
   using Part = EnginePart<T>;
   using Part::trace, Part::typeName;
   using typename Part::Engine, typename Part::Key;

   // First thing after the hardware table is taken over on a restart, before
   // any write: the allocator learns the indices the rows already use, so a
   // rewrite lands on the row it had.
   static void syncEntries(T& t) {
      ORB_TRACE(trace(), traceState, "syncEntries") << " " << typeName();
      auto hwTable = [&t] { return t.hwTable(); };
      T* swTable_ = &t;
      ORB_ASSERT(hwTable());
      ORB_ASSERT(!swTable_->resolvedEntrys());
      if constexpr (!T::knownIndex) {
         if (t.util() && t.indexAllocator())
            t.util()->syncIndexAllocator(Orb::typeId<Key>(), *t.indexAllocator(), *t.hwTable());
      }
   }

   // The agent's replay after a restart is done: rows the sync found whose key
   // no entry has claimed since are deleted and their indices given back. An
   // index-keyed table's rows belong to the table that allocates its indices,
   // which purges them. Where the rows are found, what claims one and how one
   // goes are the table's Engine's: `rowsFound`, `rowClaimed`, `staleRowDel`.
   static void purgeStaleEntries(T& t) {
      if constexpr (!T::knownIndex) {
         const auto rows = Engine::rowsFound(t);
         if (!rows) return;
         std::vector<std::pair<Index, Orb::GenericValue>> stale;
         // A plain loop: a lambda handed to the allocator's template would be
         // instantiated, and exported, with the platform's visibility.
         for (Index i = 0; i < rows->indexCount(); ++i) {
            auto k = rows->keyForIndex(i);
            const Key* key = k ? k->template as<Key>() : nullptr;
            if (key && !Engine::rowClaimed(t, *key, i)) stale.emplace_back(i, std::move(*k));
         }
         ORB_TRACE(trace(), traceWrite, "purgeStaleEntries")
             << " : " << Engine::staleRowsName << " nobody claimed: " << stale.size();
         for (auto& [i, key] : stale) Engine::staleRowDel(t, i, *key.template as<Key>(), key);
      }
   }

   // What the sync found: the table's own rows, read again from the chip.
   static constexpr std::string_view staleRowsName = "rows";
   static Brio::Ptr<FirstFreeIndexAllocator> rowsFound(const T& t) {
      Util* util = Engine::liveUtil(t);
      if (!util || !t.indexAllocator()) return nullptr;
      auto rows = Brio::makePtr<FirstFreeIndexAllocator>();
      rows->indexCountIs(t.numEntries());
      rows->initializedIs(true);
      util->syncIndexAllocator(Orb::typeId<Key>(), *rows, *t.hwTable());
      return rows;
   }

   static bool rowClaimed(const T& t, const Key& key, Index) {
      return Engine::entryHandle(t, key) || t.data_.resolvedEntry.count(key);
   }

   static void staleRowDel(T& t, Index i, const Key& key, const Orb::GenericValue&) {
      ORB_TRACE(trace(), traceState, "hwTableEntryDel") << " : stale key: " << key;
      Engine::liveUtil(t)->hwTableEntryDel(*t.hwTable(), i);
      t.rowChanged(i);
      if (t.indexAllocator()->indexForKey(key) == i) Engine::doReleaseHwIndex(t, key);
   }

   static Orb::GenericValue hwRowKey(const T& t, Index index) {
      if constexpr (T::knownIndex) {
         return t.indexKeySource()
                    ? t.indexKeySource()->keyForIndex(index).value_or(Orb::GenericValue())
                    : Orb::GenericValue();
      } else {
         if (!t.indexAllocator()) return {};
         return t.indexAllocator()->keyForIndex(index).value_or(Orb::GenericValue());
      }
   }
};

}  // namespace Asic::TableEngine
