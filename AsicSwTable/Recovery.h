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
   // which purges them.
   static void purgeStaleEntries(T& t) {
      if constexpr (!T::knownIndex) {
         Util* util = Engine::liveUtil(t);
         const auto& alloc = t.indexAllocator();
         if (!util || !alloc) return;
         auto rows = Brio::makePtr<FirstFreeIndexAllocator>();
         rows->indexCountIs(t.numEntries());
         rows->initializedIs(true);
         util->syncIndexAllocator(Orb::typeId<Key>(), *rows, *t.hwTable());
         std::vector<std::pair<Index, Key>> stale;
         // A plain loop: a lambda handed to the allocator's template would be
         // instantiated, and exported, with the platform's visibility.
         for (Index i = 0; i < rows->indexCount(); ++i) {
            const auto k = rows->keyForIndex(i);
            if (!k) continue;
            const Key& key = *k->template as<Key>();
            if (!Engine::entryHandle(t, key) && !t.data_.resolvedEntry.count(key))
               stale.emplace_back(i, key);
         }
         ORB_TRACE(trace(), traceWrite, "purgeStaleEntries")
             << " : rows nobody claimed: " << stale.size();
         for (auto& [i, key] : stale) {
            ORB_TRACE(trace(), traceState, "hwTableEntryDel") << " : stale key: " << key;
            util->hwTableEntryDel(*t.hwTable(), i);
            t.rowChanged(i);
            if (alloc->indexForKey(key) == i) Engine::doReleaseHwIndex(t, key);
         }
      }
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
