#pragma once
// The map from a key to its entry handle. Every handle carries its own key,
// so the map keeps only the handle and the key's hash: one slot of a pointer
// set (Orb/PointerSet.h) instead of a node holding a second copy of the key.
// A table of 64k tunnel keys saves a node allocation and a key copy per key.
//
// Iterating yields slots that bind as `auto& [key, handle]`, like map
// entries; `it->second` is the handle. Inserting or erasing invalidates
// iterators (backward shift moves slots), so no caller changes the map while
// it walks it.
#include <cstddef>
#include <cstdint>
#include <span>
#include <tuple>
#include <utility>

#include "Brio/IsEq.h"
#include "Brio/Ptr.h"
#include "Orb/PointerSet.h"

namespace Asic {

template <class Key, class Handle>
struct HandleSlot {
   Brio::Ptr<Handle> second;  // null: the slot is empty
   // The key's: a probe reads a handle's key only when the hashes match, and
   // moving slots reads none. Without it a slot is half the size, but
   // recovering 64k rows took about a third longer.
   uint32_t hash = 0;

   explicit operator bool() const { return bool(second); }
   const Key& key() const { return second->key(); }
   template <std::size_t I>
   decltype(auto) get() const {
      if constexpr (I == 0)
         return key();
      else
         return (second);
   }
   template <std::size_t I>
   decltype(auto) get() {
      if constexpr (I == 0)
         return key();
      else
         return (second);
   }
};

template <class Key, class Handle, class Hash>
class HandleMap {
public:
   using key_type = Key;
   using mapped_type = Brio::Ptr<Handle>;
   using Slot = HandleSlot<Key, Handle>;

   template <class S>
   class Iter {
   public:
      Iter(S* at, S* end) : at_(at), end_(end) { skip(); }
      S& operator*() const { return *at_; }
      S* operator->() const { return at_; }
      Iter& operator++() {
         ++at_;
         skip();
         return *this;
      }
      friend bool operator==(const Iter& a, const Iter& b) { return a.at_ == b.at_; }

   private:
      friend class HandleMap;
      void skip() {
         while (at_ != end_ && !at_->second) ++at_;
      }
      S* at_;
      S* end_;
   };
   using iterator = Iter<Slot>;
   using const_iterator = Iter<const Slot>;

   iterator begin() { return at(slots(), 0); }
   iterator end() { return at(slots(), Set::noSlot); }
   const_iterator begin() const { return at(slots(), 0); }
   const_iterator end() const { return at(slots(), Set::noSlot); }
   std::size_t size() const { return set_.members(); }
   bool empty() const { return set_.members() == 0; }

   iterator find(const Key& key) { return at(slots(), set_.slotFind(probe(key))); }
   const_iterator find(const Key& key) const { return at(slots(), set_.slotFind(probe(key))); }
   std::size_t count(const Key& key) const {
      return set_.slotFind(probe(key)) == Set::noSlot ? 0 : 1;
   }

   // `key` must be the handle's own key.
   std::pair<iterator, bool> emplace(const Key& key, mapped_type handle) {
      const Probe p = probe(key);
      if (const uint32_t i = set_.slotFind(p); i != Set::noSlot) return {at(slots(), i), false};
      // The slots are read after the insertion, which may move them.
      const uint32_t i = set_.memberIs(Slot{std::move(handle), p.hash});
      return {at(slots(), i), true};
   }

   // The slot may already have been emptied by moving its handle out.
   void erase(iterator it) { set_.memberDel(uint32_t(it.at_ - slots().data())); }
   std::size_t erase(const Key& key) {
      const uint32_t i = set_.slotFind(probe(key));
      if (i == Set::noSlot) return 0;
      set_.memberDel(i);
      return 1;
   }
   void clear() { set_.memberDelAll(); }

private:
   struct Probe {
      const Key& key;
      uint32_t hash;
   };
   struct Traits {
      static uint32_t hash(const Slot& s) { return s.hash; }
      static uint32_t hash(const Probe& p) { return p.hash; }
      static bool isEq(const Slot& s, const Probe& p) {
         return s.hash == p.hash && Brio::Util::IsEq<Key>::isEq(s.key(), p.key);
      }
   };
   using Set = Orb::PointerSet<Slot, Traits>;

   Probe probe(const Key& key) const { return {key, uint32_t(hash_(key))}; }
   std::span<Slot> slots() { return set_.slots(); }
   std::span<const Slot> slots() const { return set_.slots(); }
   // noSlot: the end.
   template <class S>
   static Iter<S> at(std::span<S> s, uint32_t i) {
      return {s.data() + (i == Set::noSlot ? s.size() : i), s.data() + s.size()};
   }

   Set set_;
   [[no_unique_address]] Hash hash_;
};

}  // namespace Asic

template <class Key, class Handle>
struct std::tuple_size<Asic::HandleSlot<Key, Handle>> : std::integral_constant<std::size_t, 2> {};
template <class Key, class Handle>
struct std::tuple_element<0, Asic::HandleSlot<Key, Handle>> {
   using type = const Key;
};
template <class Key, class Handle>
struct std::tuple_element<1, Asic::HandleSlot<Key, Handle>> {
   using type = Brio::Ptr<Handle>;
};
