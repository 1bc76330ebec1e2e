#pragma once
// The engine's handle store: the map from a key to its entry handle, kept
// with the table's value map (a keyed table's values live mostly in its
// handles), and the weak holds clients take on a key. A table with no value
// map of its own (`T::hasValueMap` false) keeps the handles alone.
#include "AsicSwTable/EnginePart.h"

namespace Asic::TableEngine {

template <class T>
struct __attribute__((visibility("hidden"))) Handles : EngineNames, EnginePart<T> {
   using Part = EnginePart<T>;
   using Part::keysOf;
   using typename Part::Engine, typename Part::Key, typename Part::Handle, typename Part::HandlePtr,
       typename Part::HandlePtrConst;

   static HandlePtr entryHandle(const T& t, const Key& key) {
      auto it = t.data_.entryHandle.find(key);
      return it == t.data_.entryHandle.end() ? nullptr : it->second;
   }

   // The element at `key`, made (and the change published) when absent.
   template <class Map, class Make>
   static typename Map::mapped_type elementIs(T& t, Map& map, const Key& key, Brio::AttrId attr,
                                              Make make) {
      if (auto it = map.find(key); it != map.end()) return it->second;
      typename Map::mapped_type made = make();
      map.emplace(key, made);
      t.publisher_.notify(attr, Brio::KeyRef(key));
      return made;
   }

   static HandlePtr entryHandleIs(T& t, const Key& key) {
      return elementIs(t, t.data_.entryHandle, key, SwTable::entryHandleAttr, [&] {
         HandlePtr h(new Handle(key, &t));
         if constexpr (T::hasValueMap) t.data_.resolvedEntry.adopt(*h);
         if (IndexPins* pins = t.indexPinsActive()) pins->handleIs(Engine::heldIndex(t, key), h);
         return h;
      });
   }

   // The map's pointer is counted again before it goes, so that removing it
   // releases exactly the table's share.
   static HandlePtr entryHandleDel(T& t, const Key& key) {
      auto& map = t.data_.entryHandle;
      auto it = map.find(key);
      if (it == map.end()) return nullptr;
      it->second->doAmendReferences();
      if constexpr (T::hasValueMap) t.data_.resolvedEntry.release(*it->second);
      HandlePtr h = std::move(it->second);
      map.erase(it);
      t.publisher_.notify(SwTable::entryHandleAttr, Brio::KeyRef(key));
      return h;
   }

   static void entryHandleDelAll(T& t) {
      for (auto& k : keysOf(t.data_.entryHandle)) entryHandleDel(t, k);
   }

   // For clients that only watch. An index-keyed table makes the handle when
   // there is none, held by the client alone.
   static HandlePtrConst entryWeakRef(const T& table, const Key& key) {
      if constexpr (!T::knownIndex)
         return entryHandle(table, key);
      else
         return entryHold(const_cast<T&>(table), key);
   }

   // A weak reference, the handle made when absent; what it holds stays
   // until the holder lets go.
   static HandlePtrConst entryHold(T& t, const Key& key) {
      HandlePtr eh = entryHandleIs(t, key);
      switch (eh->entryType()) {
         case Type::none:
            eh->entryTypeIs(Type::referenceOnly);
            eh->dropTableReference();
            break;
         case Type::inDeletion:
            eh->entryStateIs(State::unresolved);
            eh->entryTypeIs(Type::referenceOnly);
            eh->dropTableReference();
            break;
         case Type::referenceOnly:
         case Type::committed:
            break;
         default:
            ORB_ASSERT(0) << "entry type " << unsigned(eh->entryType());
      }
      return eh;
   }
};

}  // namespace Asic::TableEngine
