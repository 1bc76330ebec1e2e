#pragma once
// The table engine: every generic algorithm of a software table, written once
// and instantiated per table from the table's traits (nested `Key`, `Entry`,
// `EntryHandle`, `Allocator`, the trace handle and the reserved index range).
// The operations of KeyedSwTable, of its handle and of its unresolved entry are
// defined at the end, each forwarding here in one line. Only table sources
// include this header, and each instantiates those classes for its table, so
// the engine stays inside the table library.
//
// One key's life, as the engine moves it:
//   write (entryWriteHelper) stores the value in `resolvedEntry` and calls
//   handleEntry, which takes an index and writes the row; the write response
//   sets the resolved-entry state, and handleResolvedEntryState copies it to the
//   entry state. Removal withdraws the commitment; when the handle's last
//   reference goes, cleanup empties the value (the "delete dance"): the row is
//   cleared and its index released, and the delete's response drops the value
//   node and the handle.
#include <stdexcept>
#include <string>
#include <vector>

#include "Asic/SwTable.h"
#include "Asic/SwTableUtil.h"
#include "Asic/WriteResponseSm.h"
#include "AsicSwTable/KeyedEntryHandle.h"
#include "AsicSwTable/KeyedSwTable.h"
#include "AsicSwTable/KeyedUnresolvedEntry.h"
#include "Flit/Flit.h"
#include "Orb/Assert.h"
#include "Orb/Env.h"
#include "Orb/Trace.h"

namespace Asic {

// Trace levels of the engine.
inline constexpr uint32_t traceWrite = 5;
inline constexpr uint32_t traceState = 6;
inline constexpr uint32_t traceVerbose = 7;
inline constexpr uint32_t traceHardware = 8;

template <class T>
struct SwTable::Accessor {
   using Key = typename T::Key;
   using Entry = typename T::Entry;
   using Handle = typename T::EntryHandle;
   using HandlePtr = Brio::Ptr<Handle>;
   using HandlePtrConst = Brio::Ptr<const SwTableBase::EntryHandle>;
   using State = SwTableBase::EntryState;
   using Type = SwTableBase::EntryHandle::EntryType;

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

   // ---- handles -----------------------------------------------------------

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
         t.data_.resolvedEntry.adopt(*h);
         if (IndexPins* pins = t.indexPinsActive()) pins->handleIs(heldIndex(t, key), h);
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
      t.data_.resolvedEntry.release(*it->second);
      HandlePtr h = std::move(it->second);
      map.erase(it);
      t.publisher_.notify(SwTable::entryHandleAttr, Brio::KeyRef(key));
      return h;
   }

   static void entryHandleDelAll(T& t) {
      for (auto& k : keysOf(t.data_.entryHandle)) entryHandleDel(t, k);
   }

   // ---- resolved entries ----------------------------------------------------

   static Orb::Optional<Entry> resolvedEntry(const T& t, const Key& key) {
      auto it = t.data_.resolvedEntry.find(key);
      return it == t.data_.resolvedEntry.end() ? Orb::Optional<Entry>() : it->second;
   }

   static void publishResolvedEntry(T& t, const Key& key) {
      t.publisher_.notify(SwTable::resolvedEntryAttr, Brio::KeyRef(key));
   }

   static void resolvedEntryIs(T& t, const Key& key, const Orb::Optional<Entry>& e) {
      t.data_.resolvedEntry.insert_or_assign(key, e);
      handleEntry(t, key);
      publishResolvedEntry(t, key);
   }

   static void resolvedEntryDel(T& t, const Key& key) {
      const bool erased = t.data_.resolvedEntry.erase(key) != 0;
      handleEntry(t, key);
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
         if (auto ue = unresolvedEntry(t, key)) return ue->entry();
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
         HandlePtr h = entryHandle(t, key);
         if (!h || h->entryType() == Type::inDeletion) return false;
         return unresolvedEntry(t, key) || it != t.data_.resolvedEntry.end();
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

   // ---- write path ----------------------------------------------------------

   static HandlePtrConst entryRef(T& t, const Key& key, const Entry& e) {
      FLIT(trace(), traceWrite, "{}: {}", typeName(), "entryRef");
      if constexpr (T::hasDependentField) {
         return dependentWrite(t, key, e, AutoRemoveType::autoRemove, "entryRef");
      } else {
         ORB_TRACE(trace(), traceWrite, "entryRef")
             << " : Writing entry : " << e << ", at key : " << key;
         return entryWriteHelper(t, key, e, AutoRemoveType::autoRemove);
      }
   }

   static HandlePtrConst entryCommit(T& t, const Key& key, const Entry& e) {
      FLIT(trace(), traceWrite, "{}: {}", typeName(), "entryCommit");
      if constexpr (T::hasDependentField) {
         return dependentWrite(t, key, e, AutoRemoveType::needsExplicitRemove, "entryCommit");
      } else {
         ORB_TRACE(trace(), traceWrite, "entryCommit")
             << " : Writing entry : " << e << ", at key : " << key;
         return entryWriteHelper(t, key, e, AutoRemoveType::needsExplicitRemove);
      }
   }

   static void entryTypeForWrite(Handle& eh, AutoRemoveType mode) {
      if (mode == AutoRemoveType::needsExplicitRemove) {
         if (eh.entryType() == Type::referenceOnly) eh.doAmendReferences();
         eh.entryTypeIs(Type::committed);
      } else if (eh.entryType() == Type::none || eh.entryType() == Type::inDeletion) {
         eh.entryTypeIs(Type::referenceOnly);
         eh.dropTableReference();
      }
   }

   static HandlePtrConst entryWriteHelper(T& t, const Key& key, const Entry& e,
                                          AutoRemoveType mode) {
      HandlePtr eh = entryHandleIs(t, key);
      entryTypeForWrite(*eh, mode);
      auto& map = t.data_.resolvedEntry;
      auto it = map.find(key);
      if (it != map.end()) {
         // The same value again is a no-op, unless the chip refused it: then
         // it is written afresh.
         if (it->second && Entry::isEq(*it->second, e) &&
             eh->resolvedEntryState() != State::noHwIndex)
            return eh;
         ORB_TRACE(trace(), traceWrite, "entryWriteHelper")
             << " : Writing new entry : " << e << ", at key : " << key
             << "; setting entryState to unresolved"
             << " to ensure callback gets triggered by entryState change.";
         eh->entryStateIs(State::unresolved);
         // The state change may have run client code that rehashed the map.
         map.insert_or_assign(key, e);
      } else {
         map.emplace(key, e);
      }
      handleEntry(t, key);
      publishResolvedEntry(t, key);
      return eh;
   }

   static HandlePtrConst entryWontProgram(T& t, const Key& key) {
      HandlePtr eh = entryHandleIs(t, key);
      if (eh->entryType() == Type::referenceOnly) eh->doAmendReferences();
      eh->entryTypeIs(Type::committed);
      eh->hwIndexIs(wontProgramIndex);
      eh->entryStateIs(State::wontProgram);
      return eh;
   }

   static HandlePtrConst entryWriteAtIndex(T& t, Index index, const Key& key, const Entry& e) {
      if constexpr (!T::knownIndex) {
         if (const auto& alloc = t.indexAllocator()) alloc->requestIndexForKey(index, key);
      }
      return entryCommit(t, key, e);
   }

   // ---- allocator -----------------------------------------------------------

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
      const HandlePtr h = entryHandle(t, *k);
      return h && writeInFlight(t, *h);
   }

   // ---- programming ---------------------------------------------------------

   static Util* liveUtil(const T& t) { return t.util() && t.hwTable() ? t.util().ptr() : nullptr; }

   // The index a key's value goes to: the key itself in an index-keyed table.
   static Index programIndex(T& t, const Key& key) {
      if constexpr (T::knownIndex) {
         return key.value();
      } else {
         const auto& alloc = t.indexAllocator();
         if (!alloc) return invalidIndex;
         // A key held already keeps its index; a new one shares the handle's
         // copy of the key with the allocator.
         if (HandlePtr h = entryHandle(t, key)) return alloc->newIndexForKey(h->keyGeneric());
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

   static void requestIs(T& t, Handle* h, const Key& key, HwRequestId id, bool isDelete) {
      if (!id) return;
      t.data_.inFlight.insert_or_assign(id, typename T::Data::InFlight{key, isDelete});
      if (h) h->outstandingRequestIs(id);
   }

   static bool writeInFlight(const T& t, const Handle& h) {
      if (!h.outstandingRequest()) return false;
      auto it = t.data_.inFlight.find(h.outstandingRequest());
      return it != t.data_.inFlight.end() && !it->second.isDelete;
   }

   static void handleEntry(T& t, const Key& key) {
      ORB_TRACE(trace(), traceHardware, "handleEntry")
          << " : key: " << key << ", tableState: " << t.tableState();
      Util* util = liveUtil(t);
      const auto node = t.data_.resolvedEntry.find(key);
      if (node == t.data_.resolvedEntry.end()) {
         deleteRow(t, key, util);
         return;
      }
      if (t.tableState() == TableState::programmingDeferred) return;
      HandlePtr h = entryHandle(t, key);
      if (!node->second) {
         withdraw(t, key, h, util);
         return;
      }
      if (h) {
         // Whatever was in flight for the key answers for an older value now.
         forgetRequest(t, *h);
         h->entryStateIs(State::inProgress);
         h->resolvedEntryStateIs(State::inProgress);
      }
      const Index index = programIndex(t, key);
      ORB_TRACE(trace(), traceHardware, "traceHwIndex") << " Acquired hwIndex : " << index;
      // Reactors above may have changed the value; program what stands now.
      auto it = t.data_.resolvedEntry.find(key);
      if (util && index == invalidIndex) {
         if (h) h->resolvedEntryStateIs(State::noHwIndex);
      } else if (util && it != t.data_.resolvedEntry.end()) {
         ORB_TRACE(trace(), traceHardware, "hwTableEntryIs") << " : key: " << key;
         const EntryBase* value = it->second ? &*it->second : nullptr;
         HwRequestId id = util->hwTableEntryIs(*t.hwTable(), index, value);
         requestIs(t, h.ptr(), key, id, false);
         t.rowChanged(index);
         // An index-keyed table knows the index at once.
         if (h && (util->recordHwIndexOnWrite() || (T::knownIndex && t.hwResponseNeeded())))
            h->hwIndexIs(index);
      }
      if (h) doCompleteEntryHandleForTesting(t, key, index);
   }

   // No value node: clear the row the key holds and give its index back.
   static void deleteRow(T& t, const Key& key, Util* util) {
      const Index index = heldIndex(t, key);
      ORB_TRACE(trace(), traceHardware, "traceHwIndex") << " Acquired hwIndex : " << index;
      if (!util) {
         if (index != invalidIndex) doReleaseHwIndex(t, key);
         return;
      }
      if (index == invalidIndex) {
         ORB_TRACE(trace(), traceHardware, "handleEntry")
             << " : No entry in HwTable for this key. Skip delete";
         return;
      }
      ORB_TRACE(trace(), traceState, "hwTableEntryDel") << " : key: " << key;
      HandlePtr h = entryHandle(t, key);
      requestIs(t, h.ptr(), key, util->hwTableEntryDel(*t.hwTable(), index), true);
      t.rowChanged(index);
      doReleaseHwIndex(t, key);
   }

   // An empty value node: the value was withdrawn by the delete dance. The
   // row is cleared and its index released at once; the handle goes when the
   // delete is acknowledged. A write still in flight is answered first, so the
   // delete never overtakes it.
   static void withdraw(T& t, const Key& key, const HandlePtr& h, Util* util) {
      if (h) {
         // A write that takes the handle up again must not pass for written
         // before it has an index of its own.
         h->hwIndexIs(invalidIndex);
         h->entryStateIs(State::inProgress);
         h->resolvedEntryStateIs(State::inProgress);
         if (writeInFlight(t, *h)) return;
      }
      const Index index = heldIndex(t, key);
      ORB_TRACE(trace(), traceHardware, "traceHwIndex") << " Acquired hwIndex : " << index;
      HwRequestId id = 0;
      if (util && index != invalidIndex) {
         ORB_TRACE(trace(), traceState, "hwTableEntryDel") << " : key: " << key;
         id = util->hwTableEntryDel(*t.hwTable(), index);
         t.rowChanged(index);
         requestIs(t, h.ptr(), key, id, true);
      }
      if (index != invalidIndex) doReleaseHwIndex(t, key);
      if (!h) return;
      if (id && !publishEntryHandleProgrammedState()) return;
      // Nothing to wait for: no row, or responses are not awaited.
      forgetRequest(t, *h);
      h->resolvedEntryStateIs(State::success);
   }

   static void forgetRequest(T& t, Handle& h) {
      if (HwRequestId id = h.outstandingRequest()) {
         t.data_.inFlight.erase(id);
         h.outstandingRequestIs(0);
      }
   }

   static void doCompleteEntryHandleForTesting(T& t, const Key& key, Orb::Optional<Index> index) {
      if (!publishEntryHandleProgrammedState()) return;
      HandlePtr h = entryHandle(t, key);
      ORB_ASSERT(h) << "no entry handle at key " << key;
      forgetRequest(t, *h);
      const Index i = index.value_or(invalidIndex);
      h->hwIndexIs(i);
      h->resolvedEntryStateIs(i == invalidIndex ? State::noHwIndex : State::success);
   }

   // The hardware confirmed (or refused) a request.
   static void doHandleWriteResponse(T& t, HwRequestId id, Index index, WriteStatus status) {
      auto it = t.data_.inFlight.find(id);
      if (it == t.data_.inFlight.end()) return;
      const Key key = it->second.key;
      const bool isDelete = it->second.isDelete;
      t.data_.inFlight.erase(it);
      HandlePtr h = entryHandle(t, key);
      // A newer request of the key supersedes this one.
      if (!h || h->outstandingRequest() != id) return;
      h->outstandingRequestIs(0);
      auto node = t.data_.resolvedEntry.find(key);
      if (!isDelete && node != t.data_.resolvedEntry.end() && !node->second) {
         // Withdrawn while the write was in flight: now the row can go. A key
         // taken up again since keeps its index for the value it now waits
         // for; only the old row goes.
         if (h->entryType() == Type::inDeletion)
            handleEntry(t, key);
         else if (Util* util = liveUtil(t)) {
            util->hwTableEntryDel(*t.hwTable(), heldIndex(t, key));
            t.rowChanged(heldIndex(t, key));
         }
         return;
      }
      const bool ok = isDelete || status == WriteStatus::ok;
      if (!isDelete && ok) h->hwIndexIs(index);
      h->resolvedEntryStateIs(ok ? State::success : State::noHwIndex);
   }

   // ---- reactors ------------------------------------------------------------

   static void handleEntryState(T& t, Handle& eh, const Key& key) {
      const State state = eh.entryState();
      ORB_TRACE(trace(), traceState, "handleEntryState")
          << " entryhandle state: " << state << " at key : " << key;
      FLIT(trace(), traceState, "{}: {} entryState: {}", typeName(), "handleEntryState", state);
      auto* entryHandle = &eh;
      switch (state) {
         case State::unresolved:
            return;
         case State::inProgress:
         case State::success:
            break;
         case State::wontProgram:
            ORB_ASSERT(entryHandle->entryType() != EntryHandle::inDeletion());
            return;
         case State::failedNeededEntry:
         case State::noHwIndex:
            ORB_ASSERT(entryHandle->entryType() != EntryHandle::inDeletion());
            break;
         default:
            ORB_ASSERT(0) << "entry state " << unsigned(state);
            return;
      }
      if (eh.entryType() != Type::referenceOnly && eh.entryType() != Type::committed) return;
      WriteResponseFn fn = writeResponseFn(t, key);
      if (fn) fn(state);
   }

   static void handleResolvedEntryState(T& t, Handle& eh) {
      const State resolvedEntryState = eh.resolvedEntryState();
      if (resolvedEntryState == State::inProgress) return;
      const State entryState = eh.entryState();
      const Key& key = eh.key();
      auto node = t.data_.resolvedEntry.find(key);
      if (node == t.data_.resolvedEntry.end() || !node->second) {
         ORB_ASSERT(resolvedEntryState == success());
         eh.pendingEntryDelAll();
         if (entryState != State::inProgress) return;
         // The delete is acknowledged: the value node and then the handle go.
         HandlePtr keep(&eh);
         // Found again: the listeners above may have changed the handles.
         if (t.data_.resolvedEntry.erase(key)) publishResolvedEntry(t, key);
         if (entryHandle(t, key) == keep) entryHandleDel(t, key);
         return;
      }
      eh.pendingEntryDelAll();
      if (entryState == State::inProgress) {
         eh.entryStateIs(resolvedEntryState);
         return;
      }
      if (entryState == State::unresolved || entryState == State::success ||
          entryState == State::failedNeededEntry) {
         // A refused write whose value a newer write has already replaced.
         if (resolvedEntryState == State::noHwIndex) return;
         ORB_ASSERT(resolvedEntryState == success());
         return;
      }
      ORB_ASSERT(entryState == unresolved() || entryState == failedNeededEntry() ||
                 entryState == success());
   }

   static Index hwIndexForDependentField(const T& t, const Handle& eh) {
      return t.util() ? Util::getHwIndex(eh) : eh.hwIndex();
   }

   // ---- removal ---------------------------------------------------------------

   static uint32_t refCnt(const Handle& h) { return h.references() & 0x1fffffff; }

   static void entryRemove(T& t, const Key& key) {
      HandlePtr eh = entryHandle(t, key);
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
            entryHandleDel(t, key);
            return;
         case Type::committed:
            ORB_TRACE(trace(), traceWrite, "entryRemove") << " : Removing entry at key : " << key;
            removeUnresolvedEntry(t, key);
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
      removeUnresolvedEntry(t, key);
      const bool inMap = entryHandle(t, key).ptr() == eh;
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
         entryHandleDel(t, key);
         if (engaged) {
            resolvedEntryDel(t, key);  // a refused value: the index it took goes back
            return;
         }
         node = t.data_.resolvedEntry.find(key);  // the value left the handle with it
         if (node != t.data_.resolvedEntry.end()) {
            t.data_.resolvedEntry.erase(node);
            publishResolvedEntry(t, key);
         }
         // A key holding an index without a value (its row found at the
         // recovery, or kept for a value that never came) gives both back, or
         // the index would be handed out again under a row still on the chip.
         Util* util = liveUtil(t);
         const Index held = heldIndex(t, key);
         bool recovered = held != invalidIndex;
         if constexpr (T::knownIndex)
            recovered = util && util->hwTableEntryText(*t.hwTable(), held).has_value();
         if (recovered) deleteRow(t, key, util);
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
         resolvedEntryIs(t, key, Orb::Optional<Entry>());
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
      resolvedEntryDelAll(t);
      t.data_.inFlight.clear();
      if constexpr (!T::knownIndex) {
         if (const auto& alloc = t.indexAllocator()) {
            ORB_TRACE(trace(), traceState, "cleanup")
                << "Trying to delete shared allocator for table:" << typeName();
            GenericIndexAllocatorStub::freeSharedAllocator(alloc->allocatorType(), Orb::typeId<T>(),
                                                           &t);
            t.indexAllocatorIs(nullptr);
         }
      }
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

   // ---- entries that name another table's entry --------------------------------

   // Tables whose entries name nothing have no unresolved entries; the
   // functions below are then never instantiated.
   struct NoUnresolvedEntry : Brio::PtrInterface {};
   using Ue =
       std::conditional_t<T::hasDependentField, typename T::UnresolvedEntry, NoUnresolvedEntry>;
   using UePtr = Brio::Ptr<Ue>;

   static void removeUnresolvedEntry(T& t, const Key& key) {
      if constexpr (T::hasDependentField) unresolvedEntryDel(t, key);
   }

   // The callable of the key's resolved value. A value still waiting for its
   // needed entry has not been handed to the chip: its writer hears nothing
   // until it is resolved.
   static WriteResponseFn writeResponseFn(const T& t, const Key& key) {
      auto it = t.data_.resolvedEntry.find(key);
      if (it == t.data_.resolvedEntry.end() || !it->second) return {};
      return it->second->writeResponseFn();
   }

   static UePtr unresolvedEntry(const T& t, const Key& key) {
      auto it = t.data_.unresolvedEntry.find(key);
      return it == t.data_.unresolvedEntry.end() ? nullptr : it->second;
   }

   static UePtr unresolvedEntryIs(T& t, const Key& key) {
      return elementIs(t, t.data_.unresolvedEntry, key, SwTable::unresolvedEntryAttr,
                       [&] { return UePtr(new Ue(key, &t)); });
   }

   static void unresolvedEntryDel(T& t, const Key& key) {
      auto& map = t.data_.unresolvedEntry;
      auto it = map.find(key);
      if (it == map.end()) return;
      UePtr gone = std::move(it->second);  // dies after the map no longer names it
      map.erase(it);
      gone->neededEntryHandleSmDelAll();
      t.publisher_.notify(SwTable::unresolvedEntryAttr, Brio::KeyRef(key));
   }

   static void unresolvedEntryDelAll(T& t) {
      for (auto& k : keysOf(t.data_.unresolvedEntry)) unresolvedEntryDel(t, k);
   }

   // Every new value of a dependent table waits as an unresolved entry, and is
   // resolved at once when the entry it names is ready.
   static HandlePtrConst dependentWrite(T& t, const Key& key, const Entry& e, AutoRemoveType mode,
                                        const char* op) {
      if (UePtr ue = unresolvedEntry(t, key)) {
         if (Entry::isEq(ue->entry(), e)) {
            ORB_TRACE(trace(), traceWrite, op)
                << " : Found existing unresolved entry at key : " << key << ", entry : " << e;
            HandlePtr eh = entryHandle(t, key);
            ORB_ASSERT(eh) << "expect a valid entryHandle, key: " << key;
            entryTypeForWrite(*eh, mode);
            return eh;
         }
         ORB_TRACE(trace(), traceWrite, op)
             << " : Deleting existing unresolved entry at key : " << key;
         unresolvedEntryDel(t, key);
      }
      auto node = t.data_.resolvedEntry.find(key);
      // A value the chip refused is written afresh below.
      const HandlePtr refused = entryHandle(t, key);
      if (node != t.data_.resolvedEntry.end() && node->second && Entry::isEq(*node->second, e) &&
          !(refused && refused->resolvedEntryState() == State::noHwIndex)) {
         ORB_TRACE(trace(), traceWrite, op)
             << " : Found already existing resolved entry at key : " << key << ", entry : " << e;
         HandlePtr eh = entryHandleIs(t, key);
         if (eh->entryType() != Type::none) eh->entryStateIs(eh->resolvedEntryState());
         entryTypeForWrite(*eh, mode);
         return eh;
      }
      ORB_TRACE(trace(), traceWrite, op) << " : Writing new entry at key: " << key;
      HandlePtr eh = entryHandleIs(t, key);
      entryTypeForWrite(*eh, mode);
      eh->entryStateIs(State::unresolved);
      UePtr ue = unresolvedEntryIs(t, key);
      initUnresolvedEntry(t, *ue, e);
      return eh;
   }

   static void initUnresolvedEntry(T& t, Ue& ue, const Entry& e) {
      ue.entryIs(e);
      initUnresolvedEntry(t, ue);
   }

   static void initUnresolvedEntry(T& t, Ue& ue) {
      ORB_TRACE(trace(), traceVerbose, "initUnresolvedEntry") << " : at key : " << ue.key();
      FLIT(trace(), traceVerbose, "{}: {}", typeName(), "initUnresolvedEntry");
      const auto& needed = ue.entry().neededEntryHandle();
      if (!needed) throw std::invalid_argument(unassignedHandle);
      const Util* util = t.util().ptr();
      const bool hwIndexSuffices = util && util->hwIndexValidSuffices();
      const bool ready = hwIndexSuffices ? (needed->isHwIndexValid() || needed->isComplete())
                                         : needed->isComplete();
      if (!ready) {
         ue.neededEntryHandleSmIs(needed.ptr(), hwIndexSuffices);
         // A needed entry that has already failed fails this one now.
         if (needed->isFailed()) ue.markFailedNeededEntry();
      }
      if (ue.neededEntryHandleSms() != 0) return;
      ORB_TRACE(trace(), traceVerbose, "initUnresolvedEntry")
          << "All needed entryHandles are already resolved, _ue :" << &ue;
      FLIT(trace(), traceVerbose, "{}: {}: All needed entryHandles are already resolved",
           typeName(), "initUnresolvedEntry");
      doResolve(t, ue);
   }

   static constexpr const char* unassignedHandle =
       "Initializing unresolved entry or entry block: entry handle was not yet assigned.";

   static void doResolve(T& t, Ue& unresolved) {
      Ue* const ue = &unresolved;
      ORB_ASSERT(ue->neededEntryHandleSms() == 0) << "function should not have been called"
                                                  << " " << &t;
      FLIT(trace(), traceState, "{}: {}", typeName(), "doResolve");
      const Key key = ue->key();
      UePtr keepUe(ue);
      HandlePtr eh = entryHandle(t, key);
      ORB_ASSERT(eh) << "expect a valid entryHandle, key: " << key;
      auto node = t.data_.resolvedEntry.find(key);
      if (node != t.data_.resolvedEntry.end() && node->second && bool(*node->second))
         eh->pendingEntryEnq(*node->second);
      Entry resolved = ue->entry();
      const auto& field = Entry::Fields::dependent();
      const auto& needed = resolved.*field.handle;
      if (!needed) throw std::invalid_argument(unassignedHandle);
      // At the width the entry's description gives the field; a placeholder's
      // index is no row's and is only truncated.
      dependentIndexIs(resolved, field, getHwIndexForDependentField(*needed),
                       needed->entryState() == State::wontProgram);
      ORB_TRACE(trace(), traceVerbose, "doResolve")
          << " UnresolvedEntry resolved at key  : " << key;
      resolvedEntryIs(t, key, resolved);
      unresolvedEntryDel(t, key);
   }

   static void markFailedNeededEntry(T& t, Ue& ue) {
      HandlePtr eh = entryHandle(t, ue.key());
      ORB_ASSERT(eh) << "expect a valid entryHandle, key: " << ue.key();
      eh->entryStateIs(State::failedNeededEntry);
   }

   // ---- recovery ------------------------------------------------------------------

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
         Util* util = liveUtil(t);
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
            if (!entryHandle(t, key) && !t.data_.resolvedEntry.count(key))
               stale.emplace_back(i, key);
         }
         ORB_TRACE(trace(), traceWrite, "purgeStaleEntries")
             << " : rows nobody claimed: " << stale.size();
         for (auto& [i, key] : stale) {
            ORB_TRACE(trace(), traceState, "hwTableEntryDel") << " : stale key: " << key;
            util->hwTableEntryDel(*t.hwTable(), i);
            t.rowChanged(i);
            if (alloc->indexForKey(key) == i) doReleaseHwIndex(t, key);
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

   // ---- lookups ---------------------------------------------------------------

   static typename T::CrossAgentIndex hwIndexOnlyForCrossAgentCommunication(const T& t,
                                                                            const Key& key) {
      HandlePtr h = entryHandle(t, key);
      if constexpr (std::is_same_v<typename T::CrossAgentIndex, Index>) {
         return h ? getHwIndexForDependentField(*h) : invalidIndex;
      } else {
         if (!h) return {};
         return getHwIndexForDependentField(*h);
      }
   }

   // An index-keyed table's keys are named by the table that allocates its
   // indices.
   static Orb::Optional<Key> swKeyFromHwIndex(const T& t, Index index) {
      if constexpr (!T::knownIndex) {
         if (!t.indexAllocator()) return {};
         auto k = t.indexAllocator()->keyForIndex(index);
         if (!k) return {};
         if (const Key* key = k->template as<Key>()) return *key;
      }
      return {};
   }
};

template <class Table>
void KeyedUnresolvedEntry<Table>::doResolve() {
   SwTable::Accessor<Table>::doResolve(*table_, *this);
}

template <class Table>
void KeyedUnresolvedEntry<Table>::markFailedNeededEntry() {
   SwTable::Accessor<Table>::markFailedNeededEntry(*table_, *this);
}

// The handle's reactors, instantiated with the engine.
template <class Table>
void KeyedEntryHandle<Table>::handleEntryState() {
   if (Table* t = table()) SwTable::Accessor<Table>::handleEntryState(*t, *this, key());
}

template <class Table>
void KeyedEntryHandle<Table>::handleResolvedEntryState() {
   if (Table* t = table()) SwTable::Accessor<Table>::handleResolvedEntryState(*t, *this);
}

template <class Table>
Index KeyedEntryHandle<Table>::hwIndexForDependentField() const {
   if (Table* t = table()) return SwTable::Accessor<Table>::hwIndexForDependentField(*t, *this);
   return hwIndex();
}

template <class Table>
void KeyedEntryHandle<Table>::zeroReferencesIs(bool zero) {
   if (!zero) return;
   if (Table* t = table()) SwTable::Accessor<Table>::cleanup(*t, *this);
}

// The table a member of its keyed base runs on.
template <class T, class Base>
T& tableOf(Base& base) {
   return static_cast<T&>(base);
}
template <class T, class Base>
const T& tableOf(const Base& base) {
   return static_cast<const T&>(base);
}

// The table's operations, instantiated with the engine.
template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryRef(const Key& k, const Entry& e) -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryRef(tableOf<T>(*this), k, e);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryCommit(const Key& k, const Entry& e) -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryCommit(tableOf<T>(*this), k, e);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryWontProgram(const Key& k) -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryWontProgram(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryWriteAtIndex(Asic::Index i, const Key& k, const Entry& e)
    -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryWriteAtIndex(tableOf<T>(*this), i, k, e);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryWeakRef(const Key& k) const -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryWeakRef(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryHold(const Key& k) -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryHold(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::entryRemove(const Key& k) {
   SwTable::Accessor<T>::entryRemove(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::entryRemoveAll() {
   SwTable::Accessor<T>::entryRemoveAll(tableOf<T>(*this));
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entry(const Key& k) const -> Entry {
   return SwTable::Accessor<T>::entry(tableOf<T>(*this), k);
}

template <class T, class Ty>
bool KeyedSwTable<T, Ty>::entryHas(const Key& k) const {
   return SwTable::Accessor<T>::entryHas(tableOf<T>(*this), k);
}

template <class T, class Ty>
uint32_t KeyedSwTable<T, Ty>::entrys() const {
   return SwTable::Accessor<T>::entrys(tableOf<T>(*this));
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryIteratorConst(const Key& k) const -> EntryCursor<Key, Entry> {
   return SwTable::Accessor<T>::entryIteratorConst(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryHandle(const Key& k) const -> Brio::Ptr<EntryHandle> {
   return SwTable::Accessor<T>::entryHandle(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryHandleIs(const Key& k) -> Brio::Ptr<EntryHandle> {
   return SwTable::Accessor<T>::entryHandleIs(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryHandleDel(const Key& k) -> Brio::Ptr<EntryHandle> {
   return SwTable::Accessor<T>::entryHandleDel(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::entryHandleDelAll() {
   SwTable::Accessor<T>::entryHandleDelAll(tableOf<T>(*this));
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::resolvedEntry(const Key& k) const -> Orb::Optional<Entry> {
   return SwTable::Accessor<T>::resolvedEntry(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::resolvedEntryIs(const Key& k, const Orb::Optional<Entry>& e) {
   SwTable::Accessor<T>::resolvedEntryIs(tableOf<T>(*this), k, e);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::resolvedEntryDel(const Key& k) {
   SwTable::Accessor<T>::resolvedEntryDel(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::resolvedEntryDelAll() {
   SwTable::Accessor<T>::resolvedEntryDelAll(tableOf<T>(*this));
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::handleEntry(const Key& k) {
   SwTable::Accessor<T>::handleEntry(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doCompleteEntryHandleForTesting(const Key& k,
                                                          Orb::Optional<Asic::Index> i) {
   SwTable::Accessor<T>::doCompleteEntryHandleForTesting(tableOf<T>(*this), k, i);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::cleanup() {
   SwTable::Accessor<T>::cleanupTable(tableOf<T>(*this));
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::syncEntries() {
   SwTable::Accessor<T>::syncEntries(tableOf<T>(*this));
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::purgeStaleEntries() {
   SwTable::Accessor<T>::purgeStaleEntries(tableOf<T>(*this));
}

template <class T, class Ty>
Orb::GenericValue KeyedSwTable<T, Ty>::hwRowKey(Asic::Index i) const {
   return SwTable::Accessor<T>::hwRowKey(tableOf<T>(*this), i);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doMountHwTableMountInfo(Ledger::MountGroup& mg) {
   Util::doMountHwTableMountInfo(std::string(typeName) + "::Util", mg, "");
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doRecoverHwTable(RecoverGroup& rg, UnitId unit,
                                           Brio::Ptr<Ledger::EntityManager> em,
                                           Brio::Ptr<const MeridCentral::ChipInfo> chip) {
   Util::doRecoverHwTable(Orb::typeId<T>(), tableOf<T>(*this), rg, unit, std::move(em),
                          std::move(chip), "");
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doReleaseHwIndex(const Key& k) {
   SwTable::Accessor<T>::doReleaseHwIndex(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::hwIndexOnlyForCrossAgentCommunication(const Key& k) const
    -> CrossAgentIndex {
   return SwTable::Accessor<T>::hwIndexOnlyForCrossAgentCommunication(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::swKeyFromHwIndex(Asic::Index i) const -> Orb::Optional<Key> {
   return SwTable::Accessor<T>::swKeyFromHwIndex(tableOf<T>(*this), i);
}

template <class T, class Ty>
bool KeyedSwTable<T, Ty>::allocatorKeyHeld(uint32_t attrId, Orb::GenericValueRef k) const {
   return SwTable::Accessor<T>::allocatorKeyHeld(tableOf<T>(*this), attrId, k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doHandleWriteResponse(HwRequestId id, Asic::Index i, WriteStatus s) {
   SwTable::Accessor<T>::doHandleWriteResponse(tableOf<T>(*this), id, i, s);
}

template <class T, class Ty>
const Orb::TraceHandle& KeyedSwTable<T, Ty>::traceHandle() {
   static const Orb::TraceHandle handle{typeName};
   return handle;
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::doLoadUtil() -> Brio::Ptr<Util> {
   return UtilLoader::instance().util();
}

template <class T, class Ty>
auto KeyedDependentTable<T, Ty>::unresolvedEntry(const Key& k) const -> Brio::Ptr<UnresolvedEntry> {
   return SwTable::Accessor<T>::unresolvedEntry(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedDependentTable<T, Ty>::unresolvedEntryIs(const Key& k) -> Brio::Ptr<UnresolvedEntry> {
   return SwTable::Accessor<T>::unresolvedEntryIs(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedDependentTable<T, Ty>::unresolvedEntryDel(const Key& k) {
   SwTable::Accessor<T>::unresolvedEntryDel(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedDependentTable<T, Ty>::unresolvedEntryDelAll() {
   SwTable::Accessor<T>::unresolvedEntryDelAll(tableOf<T>(*this));
}

template <class T, class Ty>
void KeyedDependentTable<T, Ty>::initUnresolvedEntry(UnresolvedEntry& ue, const Entry& e) {
   SwTable::Accessor<T>::initUnresolvedEntry(tableOf<T>(*this), ue, e);
}

template <class T, class Ty>
void KeyedDependentTable<T, Ty>::doResolve(UnresolvedEntry& ue) {
   SwTable::Accessor<T>::doResolve(tableOf<T>(*this), ue);
}

}  // namespace Asic
