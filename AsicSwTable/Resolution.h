#pragma once
// The engine's resolution of entries that name another table's entry: a
// written value waits as an unresolved entry until the entry it names is
// ready, and is then resolved with that entry's index.
#include <stdexcept>

#include "Asic/SwTableUtil.h"
#include "AsicSwTable/EnginePart.h"
#include "Flit/Flit.h"

namespace Asic::TableEngine {

template <class T>
struct __attribute__((visibility("hidden"))) Resolution : EngineNames, EnginePart<T> {
   using Part = EnginePart<T>;
   using Part::trace, Part::typeName, Part::keysOf;
   using typename Part::Engine, typename Part::Key, typename Part::Entry, typename Part::HandlePtr,
       typename Part::HandlePtrConst;

   // Tables whose entries name nothing have no unresolved entries; the
   // functions below are then never instantiated.
   struct NoUnresolvedEntry : Brio::PtrInterface {};

   using Ue = std::conditional_t<std::is_void_v<typename T::UnresolvedEntry>, NoUnresolvedEntry,
                                 typename T::UnresolvedEntry>;

   using UePtr = Brio::Ptr<Ue>;

   static void removeUnresolvedEntry(T& t, const Key& key) {
      if constexpr (T::hasDependentField) unresolvedEntryDel(t, key);
   }

   static UePtr unresolvedEntry(const T& t, const Key& key) {
      auto it = t.data_.unresolvedEntry.find(key);
      return it == t.data_.unresolvedEntry.end() ? nullptr : it->second;
   }

   static UePtr unresolvedEntryIs(T& t, const Key& key) {
      return Engine::elementIs(t, t.data_.unresolvedEntry, key, T::unresolvedEntryAttr,
                               [&] { return UePtr(new Ue(key, &t)); });
   }

   // The entry dies after the map no longer names it, and its watchers have
   // stopped; the table's Engine has the last word on it (`unresolvedEntryGone`).
   static UePtr unresolvedEntryDel(T& t, const Key& key) {
      auto& map = t.data_.unresolvedEntry;
      auto it = map.find(key);
      if (it == map.end()) return nullptr;
      UePtr gone = std::move(it->second);
      map.erase(it);
      gone->neededEntryHandleSmDelAll();
      Engine::unresolvedEntryGone(*gone);
      t.publisher_.notify(T::unresolvedEntryAttr, Brio::KeyRef(key));
      return gone;
   }

   static void unresolvedEntryGone(Ue&) {}

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
            HandlePtr eh = Engine::entryHandle(t, key);
            ORB_ASSERT(eh) << "expect a valid entryHandle, key: " << key;
            Engine::entryTypeForWrite(*eh, mode);
            return eh;
         }
         ORB_TRACE(trace(), traceWrite, op)
             << " : Deleting existing unresolved entry at key : " << key;
         unresolvedEntryDel(t, key);
      }
      auto node = t.data_.resolvedEntry.find(key);
      // A value the chip refused is written afresh below.
      const HandlePtr refused = Engine::entryHandle(t, key);
      if (node != t.data_.resolvedEntry.end() && node->second && Entry::isEq(*node->second, e) &&
          !(refused && refused->resolvedEntryState() == State::noHwIndex)) {
         ORB_TRACE(trace(), traceWrite, op)
             << " : Found already existing resolved entry at key : " << key << ", entry : " << e;
         HandlePtr eh = Engine::entryHandleIs(t, key);
         if (eh->entryType() != Type::none) eh->entryStateIs(eh->resolvedEntryState());
         Engine::entryTypeForWrite(*eh, mode);
         return eh;
      }
      ORB_TRACE(trace(), traceWrite, op) << " : Writing new entry at key: " << key;
      HandlePtr eh = Engine::entryHandleIs(t, key);
      Engine::entryTypeForWrite(*eh, mode);
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
      HandlePtr eh = Engine::entryHandle(t, key);
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
      Engine::resolvedEntryIs(t, key, resolved);
      unresolvedEntryDel(t, key);
   }

   static void markFailedNeededEntry(T& t, Ue& ue) {
      HandlePtr eh = Engine::entryHandle(t, ue.key());
      ORB_ASSERT(eh) << "expect a valid entryHandle, key: " << ue.key();
      eh->entryStateIs(State::failedNeededEntry);
   }
};

}  // namespace Asic::TableEngine
