#pragma once
// The engine's write path: a write takes the key's handle into the type the
// write asks for and hands the value to programming, or, in a table whose
// entries name another's, to resolution first.
#include "AsicSwTable/EnginePart.h"
#include "Flit/Flit.h"

namespace Asic::TableEngine {

template <class T>
struct __attribute__((visibility("hidden"))) WritePath : EngineNames, EnginePart<T> {
   using Part = EnginePart<T>;
   using Part::trace, Part::typeName;
   using typename Part::Engine, typename Part::Key, typename Part::Entry, typename Part::Handle,
       typename Part::HandlePtr, typename Part::HandlePtrConst;

   static HandlePtrConst entryRef(T& t, const Key& key, const Entry& e) {
      FLIT(trace(), traceWrite, "{}: {}", typeName(), "entryRef");
      if constexpr (T::hasDependentField) {
         return Engine::dependentWrite(t, key, e, AutoRemoveType::autoRemove, "entryRef");
      } else {
         ORB_TRACE(trace(), traceWrite, "entryRef")
             << " : Writing entry : " << e << ", at key : " << key;
         return entryWriteHelper(t, key, e, AutoRemoveType::autoRemove);
      }
   }

   static HandlePtrConst entryCommit(T& t, const Key& key, const Entry& e) {
      FLIT(trace(), traceWrite, "{}: {}", typeName(), "entryCommit");
      if constexpr (T::hasDependentField) {
         return Engine::dependentWrite(t, key, e, AutoRemoveType::needsExplicitRemove,
                                       "entryCommit");
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
      HandlePtr eh = Engine::entryHandleIs(t, key);
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
      Engine::handleEntry(t, key);
      Engine::publishResolvedEntry(t, key);
      return eh;
   }

   static HandlePtrConst entryWontProgram(T& t, const Key& key) {
      HandlePtr eh = Engine::entryHandleIs(t, key);
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
};

}  // namespace Asic::TableEngine
