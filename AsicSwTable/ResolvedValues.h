#pragma once
// The engine's value map: the resolved value of each key, the one the chip
// is given, and what stands for a key to its readers.
#include "Asic/WriteResponseFn.h"
#include "AsicSwTable/EnginePart.h"

namespace Asic::TableEngine {

template <class T>
struct __attribute__((visibility("hidden"))) Values : EngineNames, EnginePart<T> {
   using Part = EnginePart<T>;
   using Part::keysOf;
   using typename Part::Engine, typename Part::Key, typename Part::Entry, typename Part::HandlePtr;

   static Orb::Optional<Entry> resolvedEntry(const T& t, const Key& key) {
      auto it = t.data_.resolvedEntry.find(key);
      return it == t.data_.resolvedEntry.end() ? Orb::Optional<Entry>() : it->second;
   }

   static void publishResolvedEntry(T& t, const Key& key) {
      t.publisher_.notify(SwTable::resolvedEntryAttr, Brio::KeyRef(key));
   }

   static void resolvedEntryIs(T& t, const Key& key, const Orb::Optional<Entry>& e) {
      t.data_.resolvedEntry.insert_or_assign(key, e);
      Engine::handleEntry(t, key);
      publishResolvedEntry(t, key);
   }

   static void resolvedEntryDel(T& t, const Key& key) {
      const bool erased = t.data_.resolvedEntry.erase(key) != 0;
      Engine::handleEntry(t, key);
      if (erased) publishResolvedEntry(t, key);
   }

   // Forgets the values without touching hardware: rows stay for the next
   // incarnation of the table to find.
   static void resolvedEntryDelAll(T& t) {
      for (auto& k : keysOf(t.data_.resolvedEntry)) {
         t.data_.resolvedEntry.erase(k);
         publishResolvedEntry(t, k);
      }
   }

   // What stands for the key: in an index-keyed table a value still waiting
   // for its needed entry comes first.
   static Entry entry(const T& t, const Key& key) {
      if constexpr (T::knownIndex && T::hasDependentField) {
         if (auto ue = Engine::unresolvedEntry(t, key)) return ue->entry();
      } else if constexpr (T::knownIndex) {
         return Entry();
      }
      auto it = t.data_.resolvedEntry.find(key);
      if (it == t.data_.resolvedEntry.end() || !it->second) return Entry();
      return *it->second;
   }

   // Positions on the value standing for the key: in an index-keyed table
   // whose entries name others, a waiting value first.
   static EntryCursor<Key, Entry> entryIteratorConst(const T& t, const Key& key) {
      if constexpr (T::knownIndex && T::hasDependentField) {
         auto ue = t.data_.unresolvedEntry.find(key);
         if (ue != t.data_.unresolvedEntry.end()) return {&ue->first, &ue->second->entry()};
      }
      auto it = t.data_.resolvedEntry.find(key);
      if (it == t.data_.resolvedEntry.end() || !it->second) return {};
      return {&it->first, &*it->second};
   }

   static bool entryHas(const T& t, const Key& key) {
      auto it = t.data_.resolvedEntry.find(key);
      if constexpr (T::knownIndex && T::hasDependentField) {
         HandlePtr h = Engine::entryHandle(t, key);
         if (!h || h->entryType() == Type::inDeletion) return false;
         return Engine::unresolvedEntry(t, key) || it != t.data_.resolvedEntry.end();
      } else if constexpr (T::knownIndex) {
         return it != t.data_.resolvedEntry.end();
      } else {
         return it != t.data_.resolvedEntry.end() && it->second;
      }
   }

   static uint32_t entrys(const T& t) {
      uint32_t n = 0;
      for (auto& [k, e] : t.data_.resolvedEntry)
         if (e) ++n;
      return n;
   }

   // The callable of the key's resolved value. A value still waiting for its
   // needed entry has not been handed to the chip: its writer hears nothing
   // until it is resolved.
   static WriteResponseFn writeResponseFn(const T& t, const Key& key) {
      auto it = t.data_.resolvedEntry.find(key);
      if (it == t.data_.resolvedEntry.end() || !it->second) return {};
      return it->second->writeResponseFn();
   }
};

}  // namespace Asic::TableEngine
