#pragma once
// The engine's removal: a removed key is held by references only, and when
// the last goes the delete dance clears its row before the value and the
// handle go. Table-wide clean-up and destruction leave the rows in hardware.
#include "Asic/SwTableUtil.h"
#include "AsicSwTable/EnginePart.h"
#include "Flit/Flit.h"

namespace Asic::TableEngine {

template <class T>
struct __attribute__((visibility("hidden"))) Removal : EngineNames, EnginePart<T> {
   using Part = EnginePart<T>;
   using Part::trace, Part::typeName;
   using typename Part::Engine, typename Part::Key, typename Part::Entry, typename Part::Handle,
       typename Part::HandlePtr;

   static uint32_t refCnt(const Handle& h) { return h.references() & 0x1fffffff; }

   static void entryRemove(T& t, const Key& key) {
      HandlePtr eh = Engine::entryHandle(t, key);
      // The pointer above is ours, not the caller's.
      const int type = eh ? int(eh->entryType()) : -1;
      const uint32_t n = eh ? refCnt(*eh) - 1 : 0;
      FLIT(trace(), traceWrite, "{}: {} entryType: {}, refCnt: {}", typeName(), "entryRemove", type,
           n);
      ORB_TRACE(trace(), traceWrite, "entryRemove")
          << ": key:" << key << ", entryType:" << type << ", refCnt:" << n;
      if (!eh) {
         ORB_TRACE(trace(), traceWrite, "entryRemove")
             << " : Found no committed entry at key : " << key;
         return;
      }
      switch (eh->entryType()) {
         case Type::none:
            Engine::entryHandleDel(t, key);
            return;
         case Type::committed:
            ORB_TRACE(trace(), traceWrite, "entryRemove") << " : Removing entry at key : " << key;
            Engine::removeUnresolvedEntry(t, key);
            eh->entryTypeIs(Type::referenceOnly);
            eh->dropTableReference();
            return;  // the clean-up starts when `eh` goes, if it was the last
         default:
            ORB_TRACE(trace(), traceWrite, "entryRemove")
                << " : Found no committed entry at key : " << key;
            return;
      }
   }

   static void entryRemoveAll(T& t) {
      std::vector<HandlePtr> held;
      held.reserve(t.data_.entryHandle.size());
      for (auto& [k, h] : t.data_.entryHandle) held.push_back(h);
      for (auto& h : held) entryRemove(t, h->key());
   }

   // Runs when the handle's last reference goes, and again when its delete is
   // acknowledged.
   static void cleanup(T& t, Handle& handle) {
      Handle* const eh = &handle;
      eh->doAmendReferences();
      const Key key = eh->key();
      ORB_TRACE(trace(), traceWrite, "cleanup") << " : entryhandle cleanup, eh : " << eh
                                                << ", key :" << key << ", refCnt:" << refCnt(*eh);
      Engine::removeUnresolvedEntry(t, key);
      const bool inMap = Engine::entryHandle(t, key).ptr() == eh;
      if (inMap) {
         ORB_ASSERT(eh->entryType() == EntryHandle::referenceOnly()) << "unexpected entryType";
      }
      if (eh->entryType() == Type::inDeletion) {
         ORB_TRACE(trace(), traceWrite, "cleanup") << " delete dance complete, key : " << key;
         return;
      }
      if (!inMap) return;
      auto node = t.data_.resolvedEntry.find(key);
      // No value, or one whose row is already gone, and nothing in flight:
      // there is no row to delete.
      const bool engaged = node != t.data_.resolvedEntry.end() && node->second;
      const bool nothingInHardware =
          eh->entryState() == State::noHwIndex || (!engaged && !eh->outstandingRequest());
      if (nothingInHardware) {
         eh->swTableIs(nullptr);
         Engine::entryHandleDel(t, key);
         if (engaged) {
            Engine::resolvedEntryDel(t, key);  // a refused value: the index it took goes back
            return;
         }
         node = t.data_.resolvedEntry.find(key);  // the value left the handle with it
         if (node != t.data_.resolvedEntry.end()) {
            t.data_.resolvedEntry.erase(node);
            Engine::publishResolvedEntry(t, key);
         }
         // A key holding an index without a value (its row found at the
         // recovery, or kept for a value that never came) gives both back, or
         // the index would be handed out again under a row still on the chip.
         Util* util = Engine::liveUtil(t);
         const Index held = Engine::heldIndex(t, key);
         bool recovered = held != invalidIndex;
         if constexpr (T::knownIndex)
            recovered = util && util->hwTableEntryText(*t.hwTable(), held).has_value();
         if (recovered) Engine::deleteRow(t, key, util);
         return;
      }
      ORB_TRACE(trace(), traceWrite, "cleanup") << "begin delete dance, key :" << key;
      eh->entryTypeIs(Type::inDeletion);
      eh->entryStateIs(State::unresolved);
      node = t.data_.resolvedEntry.find(key);
      if (node != t.data_.resolvedEntry.end() && node->second) {
         // The value stays queued, and what it names alive, until the row's
         // delete is answered: a named row never goes before the row naming it.
         eh->pendingEntryEnq(*node->second);
         Engine::resolvedEntryIs(t, key, Orb::Optional<Entry>());
         return;
      }
      ORB_ASSERT(eh->resolvedEntryState() == inProgress());
      eh->entryStateIs(State::inProgress);
   }

   // Table-wide clean-up at shutdown. Rows stay in hardware.
   static void cleanupTable(T& t) {
      // Listeners run here; the map must not move under the walk.
      std::vector<HandlePtr> held;
      held.reserve(t.data_.entryHandle.size());
      for (auto& [k, h] : t.data_.entryHandle) held.push_back(h);
      for (auto& h : held) {
         h->notifieeList().notify(SwTableBase::EntryHandle::swTableAttr);
         h->doAmendReferences();
      }
      Engine::resolvedEntryDelAll(t);
      t.data_.inFlight.requestDelAll();
      if constexpr (!T::knownIndex) Engine::indexAllocatorDel(t);
   }

   // Destruction: handles that clients still hold outlive the table unlinked.
   static void destroy(T& t) {
      t.tableStateIs(TableState::shuttingDown);
      cleanupTable(t);
      for (auto& [k, h] : t.data_.entryHandle) {
         t.data_.resolvedEntry.release(*h);
         h->swTableIs(nullptr);
      }
      t.data_.entryHandle.clear();
      t.detachHardware();
   }
};

}  // namespace Asic::TableEngine
