#pragma once
// The map from a key to its entry handle. Every handle carries its own key,
// so the map keeps only the handle and the key's hash: one slot of an
// open-addressing table (linear probing, deletion by backward shift) instead
// of a node holding a second copy of the key. A table of 64k tunnel keys
// saves a node allocation and a key copy per key.
//
// Iterating yields slots that bind as `auto& [key, handle]`, like map
// entries; `it->second` is the handle. Inserting or erasing invalidates
// iterators (backward shift moves slots), so no caller changes the map while
// it walks it.
#include <bit>
#include <cstddef>
#include <cstdint>
#include <tuple>
#include <utility>
#include <vector>

#include "Brio/IsEq.h"
#include "Brio/Ptr.h"

namespace Asic {

template <class Key, class Handle>
struct HandleSlot {
   Brio::Ptr<Handle> second;  // null: the slot is empty
   uint32_t hash = 0;

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

   iterator begin() { return {slots_.data(), slots_.data() + slots_.size()}; }
   iterator end() { return {slots_.data() + slots_.size(), slots_.data() + slots_.size()}; }
   const_iterator begin() const { return {slots_.data(), slots_.data() + slots_.size()}; }
   const_iterator end() const {
      return {slots_.data() + slots_.size(), slots_.data() + slots_.size()};
   }
   std::size_t size() const { return count_; }
   bool empty() const { return count_ == 0; }

   iterator find(const Key& key) { return at(slotFind(key)); }
   const_iterator find(const Key& key) const {
      const std::size_t i = slotFind(key);
      return i == npos ? end() : const_iterator(&slots_[i], slots_.data() + slots_.size());
   }
   std::size_t count(const Key& key) const { return slotFind(key) == npos ? 0 : 1; }

   // `key` must be the handle's own key.
   std::pair<iterator, bool> emplace(const Key& key, mapped_type handle) {
      if (const std::size_t i = slotFind(key); i != npos) return {at(i), false};
      if ((count_ + 1) * 4 > slots_.size() * 3) grow();
      const uint32_t h = uint32_t(hash_(key));
      std::size_t i = home(h);
      while (slots_[i].second) i = (i + 1) & mask();
      slots_[i].second = std::move(handle);
      slots_[i].hash = h;
      ++count_;
      return {at(i), true};
   }

   // The slot may already have been emptied by moving its handle out.
   void erase(iterator it) {
      std::size_t hole = std::size_t(it.at_ - slots_.data());
      slots_[hole].second = nullptr;
      for (std::size_t j = (hole + 1) & mask(); slots_[j].second; j = (j + 1) & mask()) {
         const std::size_t k = home(slots_[j].hash);
         const bool stays = hole <= j ? (hole < k && k <= j) : (hole < k || k <= j);
         if (stays) continue;
         slots_[hole] = std::move(slots_[j]);
         hole = j;
      }
      slots_[hole] = Slot();
      --count_;
   }
   std::size_t erase(const Key& key) {
      const std::size_t i = slotFind(key);
      if (i == npos) return 0;
      erase(at(i));
      return 1;
   }
   void clear() {
      std::vector<Slot>().swap(slots_);
      count_ = 0;
   }

private:
   static constexpr std::size_t npos = std::size_t(-1);

   std::size_t mask() const { return slots_.size() - 1; }
   std::size_t home(uint32_t h) const { return std::size_t((h * 0x9e3779b1u) >> shift_); }
   iterator at(std::size_t i) {
      return i == npos ? end() : iterator(&slots_[i], slots_.data() + slots_.size());
   }
   std::size_t slotFind(const Key& key) const {
      if (count_ == 0) return npos;
      const uint32_t h = uint32_t(hash_(key));
      for (std::size_t i = home(h);; i = (i + 1) & mask()) {
         const Slot& s = slots_[i];
         if (!s.second) return npos;
         if (s.hash == h && Brio::Util::IsEq<Key>::isEq(s.key(), key)) return i;
      }
   }
   void grow() {
      std::vector<Slot> old(slots_.empty() ? 8 : slots_.size() * 2);
      old.swap(slots_);
      shift_ = 32 - uint32_t(std::countr_zero(slots_.size()));
      for (Slot& s : old) {
         if (!s.second) continue;
         std::size_t i = home(s.hash);
         while (slots_[i].second) i = (i + 1) & mask();
         slots_[i] = std::move(s);
      }
   }

   std::vector<Slot> slots_;
   std::size_t count_ = 0;
   uint32_t shift_ = 32;
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
