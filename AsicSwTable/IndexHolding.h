#pragma once
// The engine's side of the index allocator: which index a key is given and
// holds, when it gives it back, and whether a shared allocator may free it.
#include "AsicSwTable/EnginePart.h"

namespace Asic::TableEngine {

template <class T>
struct __attribute__((visibility("hidden"))) Indices : EngineNames, EnginePart<T> {
   using Part = EnginePart<T>;
   using Part::trace, Part::typeName;
   using typename Part::Engine, typename Part::Key, typename Part::HandlePtr;

   template <class A>
   static void initAllocator(T& t) {
      auto alloc = GenericIndexAllocatorStub::createSharedAllocator<A>(Orb::typeId<T>(), &t);
      t.indexAllocatorIs(alloc);
      alloc->setTableAttr(&t, SwTable::resolvedEntryAttr);
      alloc->indexCountIs(t.numEntries());
      t.doReserveIndicesAtTableInit();
      ORB_TRACE(trace(), traceState, "initAllocator")
          << "Creating shared allocator of type:" << Orb::typeId<A>().name();
   }

   // The table lets go of its shared allocator, which goes with the last
   // table sharing it.
   static void indexAllocatorDel(T& t) {
      if (const auto& alloc = t.indexAllocator()) {
         ORB_TRACE(trace(), traceState, "cleanup")
             << "Trying to delete shared allocator for table:" << typeName();
         GenericIndexAllocatorStub::freeSharedAllocator(alloc->allocatorType(), Orb::typeId<T>(),
                                                        &t);
         t.indexAllocatorIs(nullptr);
      }
   }

   // An index-keyed table holds no index of its own to give back.
   static void doReleaseHwIndex(T& t, const Key& key) {
      if constexpr (!T::knownIndex) {
         const auto& alloc = t.indexAllocator();
         if (!alloc) return;
         auto allocatorKey = alloc->getKey(key);
         if (alloc->canReleaseIndex(allocatorKey, &t))
            alloc->releaseIndexFromTable(allocatorKey, &t);
      }
   }

   // A key stands in the table for its allocator while it holds a value, and
   // while the write of a value withdrawn since is in flight: that row stays
   // until the write is answered and the row deleted, and another table
   // sharing the allocator must not free the index under it.
   static bool allocatorKeyHeld(const T& t, uint32_t attrId, Orb::GenericValueRef key) {
      if (attrId != SwTable::resolvedEntryAttr) return false;
      const Key* k = key.template as<Key>();
      if (!k) return false;
      auto it = t.data_.resolvedEntry.find(*k);
      if (it == t.data_.resolvedEntry.end()) return false;
      if (it->second) return true;
      const HandlePtr h = Engine::entryHandle(t, *k);
      return h && Engine::writeInFlight(t, *h);
   }

   // The index a key's value goes to: the key itself in an index-keyed table.
   static Index programIndex(T& t, const Key& key) {
      if constexpr (T::knownIndex) {
         return key.value();
      } else {
         const auto& alloc = t.indexAllocator();
         if (!alloc) return invalidIndex;
         // A key held already keeps its index; a new one shares the handle's
         // copy of the key with the allocator.
         if (HandlePtr h = Engine::entryHandle(t, key))
            return alloc->newIndexForKey(h->keyGeneric());
         return alloc->newIndexForKey(key);
      }
   }

   static Index heldIndex(const T& t, const Key& key) {
      if constexpr (T::knownIndex) {
         return key.value();
      } else {
         return t.indexAllocator() ? t.indexAllocator()->indexForKey(key) : invalidIndex;
      }
   }
};

}  // namespace Asic::TableEngine
