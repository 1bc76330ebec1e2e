// The pool behind GenericValue::interned: an open-addressing set of live
// interned holders (linear probing, deletion by backward shift), found by the
// hash each holder already carries. A holder leaves it when its last sharer
// lets go, so the pool never keeps a value alive.
#include <algorithm>
#include <bit>
#include <vector>

#include "Orb/GenericValue.h"

namespace Orb {
namespace {

using GenericDetail::Holder;

class InternPool {
public:
   Holder* find(GenericValueRef r, const void* value, const GenericDetail::Ops* ops) const {
      if (count_ == 0) return nullptr;
      for (size_t i = home(r.hash());; i = (i + 1) & mask()) {
         Holder* h = slots_[i];
         if (!h) return nullptr;
         if (GenericDetail::sameValue(h->ops, h->ops->value(h), h->hash, ops, value, r.hash()))
            return h;
      }
   }
   void insert(Holder* h) {
      if ((count_ + 1) * 4 > slots_.size() * 3) grow();
      size_t i = home(h->hash);
      while (slots_[i]) i = (i + 1) & mask();
      slots_[i] = h;
      ++count_;
   }
   void erase(const Holder* h) {
      size_t i = home(h->hash);
      while (slots_[i] != h) i = (i + 1) & mask();
      for (size_t j = (i + 1) & mask(); slots_[j]; j = (j + 1) & mask()) {
         const size_t k = home(slots_[j]->hash);
         const bool stays = i <= j ? (i < k && k <= j) : (i < k || k <= j);
         if (stays) continue;
         slots_[i] = slots_[j];
         i = j;
      }
      slots_[i] = nullptr;
      --count_;
   }

private:
   size_t mask() const { return slots_.size() - 1; }
   size_t home(uint32_t hash) const { return size_t((hash * 0x9e3779b1u) >> shift_); }
   void grow() {
      std::vector<Holder*> old(std::max<size_t>(16, slots_.size() * 2));
      old.swap(slots_);
      shift_ = 32 - uint32_t(std::countr_zero(slots_.size()));
      count_ = 0;
      for (Holder* h : old)
         if (h) insert(h);
   }

   std::vector<Holder*> slots_;
   size_t count_ = 0;
   uint32_t shift_ = 32;
};

InternPool& pool() {
   static auto* p = new InternPool;  // outlives every static holder of a value
   return *p;
}

}  // namespace

void GenericDetail::internedRelease(Holder* h) {
   pool().erase(h);
   h->ops->destroy(h);
}

GenericValue GenericValue::interned(GenericValueRef r) {
   if (!r) return {};
   if (Holder* h = pool().find(r, r.value_, r.ops_)) {
      ++h->refs;
      return GenericValue(h);
   }
   GenericValue v(r);
   v.holder_->interned = 1;
   pool().insert(v.holder_);
   return v;
}

}  // namespace Orb
