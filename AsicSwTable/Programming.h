#pragma once
// The engine's programming: a key's value goes to its row, the requests
// whose responses are awaited are tracked, and the responses, or the
// programmed-state switch when responses are not awaited, move the handle's
// states. The handle's reactors copy the resolved-entry state to the entry
// state and finish the delete dance.
#include "Asic/ProgrammedStateSwitch.h"
#include "Asic/SwTableUtil.h"
#include "Asic/WriteResponseFn.h"
#include "AsicSwTable/EnginePart.h"
#include "Flit/Flit.h"

namespace Asic::TableEngine {

template <class T>
struct __attribute__((visibility("hidden"))) Programming : EngineNames, EnginePart<T> {
   using Part = EnginePart<T>;
   using Part::trace, Part::typeName;
   using typename Part::Engine, typename Part::Key, typename Part::Handle, typename Part::HandlePtr;

   static Util* liveUtil(const T& t) { return t.util() && t.hwTable() ? t.util().ptr() : nullptr; }

   static void requestIs(T& t, Handle* h, const Key& key, HwRequestId id, bool isDelete) {
      if (!id) return;
      t.data_.inFlight.requestIs(id, key, isDelete);
      if (h) h->outstandingRequestIs(id);
   }

   static bool writeInFlight(const T& t, const Handle& h) {
      return h.outstandingRequest() && t.data_.inFlight.writeInFlight(h.outstandingRequest());
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
      HandlePtr h = Engine::entryHandle(t, key);
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
      const Index index = Engine::programIndex(t, key);
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
      const Index index = Engine::heldIndex(t, key);
      ORB_TRACE(trace(), traceHardware, "traceHwIndex") << " Acquired hwIndex : " << index;
      if (!util) {
         if (index != invalidIndex) Engine::doReleaseHwIndex(t, key);
         return;
      }
      if (index == invalidIndex) {
         ORB_TRACE(trace(), traceHardware, "handleEntry")
             << " : No entry in HwTable for this key. Skip delete";
         return;
      }
      ORB_TRACE(trace(), traceState, "hwTableEntryDel") << " : key: " << key;
      HandlePtr h = Engine::entryHandle(t, key);
      requestIs(t, h.ptr(), key, util->hwTableEntryDel(*t.hwTable(), index), true);
      t.rowChanged(index);
      Engine::doReleaseHwIndex(t, key);
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
      const Index index = Engine::heldIndex(t, key);
      ORB_TRACE(trace(), traceHardware, "traceHwIndex") << " Acquired hwIndex : " << index;
      HwRequestId id = 0;
      if (util && index != invalidIndex) {
         ORB_TRACE(trace(), traceState, "hwTableEntryDel") << " : key: " << key;
         id = util->hwTableEntryDel(*t.hwTable(), index);
         t.rowChanged(index);
         requestIs(t, h.ptr(), key, id, true);
      }
      if (index != invalidIndex) Engine::doReleaseHwIndex(t, key);
      if (!h) return;
      if (!programmedAtIssue(id != 0)) return;
      // Nothing to wait for: no row, or responses are not awaited.
      forgetRequest(t, *h);
      h->resolvedEntryStateIs(State::success);
   }

   static void forgetRequest(T& t, Handle& h) {
      if (HwRequestId id = h.outstandingRequest()) {
         t.data_.inFlight.requestDel(id);
         h.outstandingRequestIs(0);
      }
   }

   static void doCompleteEntryHandleForTesting(T& t, const Key& key, Orb::Optional<Index> index) {
      if (!programmedAtIssue()) return;
      HandlePtr h = Engine::entryHandle(t, key);
      ORB_ASSERT(h) << "no entry handle at key " << key;
      forgetRequest(t, *h);
      const Index i = index.value_or(invalidIndex);
      h->hwIndexIs(i);
      h->resolvedEntryStateIs(i == invalidIndex ? State::noHwIndex : State::success);
   }

   // The hardware confirmed (or refused) a request.
   static void doHandleWriteResponse(T& t, HwRequestId id, Index index, WriteStatus status) {
      auto request = t.data_.inFlight.requestDel(id);
      if (!request) return;
      const Key& key = request->waiter;
      const bool isDelete = request->isDelete;
      HandlePtr h = Engine::entryHandle(t, key);
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
            util->hwTableEntryDel(*t.hwTable(), Engine::heldIndex(t, key));
            t.rowChanged(Engine::heldIndex(t, key));
         }
         return;
      }
      const bool ok = isDelete || status == WriteStatus::ok;
      if (!isDelete && ok) h->hwIndexIs(index);
      h->resolvedEntryStateIs(ok ? State::success : State::noHwIndex);
   }

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
      WriteResponseFn fn = Engine::writeResponseFn(t, key);
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
         if (t.data_.resolvedEntry.erase(key)) Engine::publishResolvedEntry(t, key);
         if (Engine::entryHandle(t, key) == keep) Engine::entryHandleDel(t, key);
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
};

}  // namespace Asic::TableEngine
