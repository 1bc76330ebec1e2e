#pragma once
// The engine's lookups for other agents: a key's index and an index's key.
#include "AsicSwTable/EnginePart.h"
#include "Orb/Optional.h"

namespace Asic::TableEngine {

template <class T>
struct __attribute__((visibility("hidden"))) Lookups : EngineNames, EnginePart<T> {
   using Part = EnginePart<T>;
   using typename Part::Engine, typename Part::Key, typename Part::HandlePtr;

   static typename T::CrossAgentIndex hwIndexOnlyForCrossAgentCommunication(const T& t,
                                                                            const Key& key) {
      HandlePtr h = Engine::entryHandle(t, key);
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

}  // namespace Asic::TableEngine
