// The pool behind GenericValue::interned: the live interned holders, found by
// the hash each holder already carries. A holder leaves it when its last
// sharer lets go, so the pool never keeps a value alive.
#include "Orb/GenericValue.h"
#include "Orb/PointerSet.h"

namespace Orb {
namespace {

using GenericDetail::Holder;

// A value looked up without a holder of its own.
struct ValueProbe {
   const GenericDetail::Ops* ops;
   const void* value;
   uint32_t hash;
};

struct HolderTraits {
   static uint32_t hash(const Holder* h) { return h->hash; }
   static uint32_t hash(const ValueProbe& p) { return p.hash; }
   static bool isEq(const Holder* h, const Holder* p) { return h == p; }
   static bool isEq(const Holder* h, const ValueProbe& p) {
      return GenericDetail::sameValue(h->ops, h->ops->value(h), h->hash, p.ops, p.value, p.hash);
   }
};
using InternPool = PointerSet<Holder*, HolderTraits>;

InternPool& pool() {
   static auto* p = new InternPool;  // outlives every static holder of a value
   return *p;
}

}  // namespace

void GenericDetail::internedRelease(Holder* h) {
   pool().memberDel(pool().slotFind(h));
   h->ops->destroy(h);
}

GenericValue GenericValue::interned(GenericValueRef r) {
   if (!r) return {};
   InternPool& p = pool();
   if (const uint32_t i = p.slotFind(ValueProbe{r.ops_, r.value_, r.hash_});
       i != InternPool::noSlot) {
      Holder* h = p.slots()[i];
      ++h->refs;
      return GenericValue(h);
   }
   GenericValue v(r);
   v.holder_->interned = 1;
   p.memberIs(v.holder_);
   return v;
}

}  // namespace Orb
