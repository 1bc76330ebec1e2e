#pragma once
// A key-keyed table's values, by key. A value (an engaged or an empty
// optional) lives in its key's handle while the table's handle map holds one,
// so a table of 64k tunnel keys keeps no node, key copy or bucket per value.
// A value whose key has no handle (one written through the generic setter,
// or one outliving its handle for a moment in the delete dance) waits in a
// map of its own, and the handle made for its key later takes it in.
//
// The table calls `adopt` after a handle enters its handle map and `release`
// before one leaves it; nothing else moves values between the two places.
// Iterating yields nodes that bind as `auto& [key, value]`, like map entries,
// handles' values first. Inserting or erasing invalidates iterators.
#include <cstddef>
#include <cstdint>
#include <optional>
#include <utility>

#include "Orb/Optional.h"

namespace Asic {

template <class Key, class Entry, class Handles, class Loose>
class ResolvedEntryMap {
public:
   using key_type = Key;
   using mapped_type = Orb::Optional<Entry>;
   struct Node {
      const Key& first;
      mapped_type& second;
   };

   template <class HandleIt, class LooseIt>
   class Iter {
   public:
      Iter(HandleIt h, HandleIt hEnd, LooseIt l, LooseIt lEnd)
          : h_(h), hEnd_(hEnd), l_(l), lEnd_(lEnd) {
         skip();
      }
      Iter(const Iter& o) : h_(o.h_), hEnd_(o.hEnd_), l_(o.l_), lEnd_(o.lEnd_) {}
      Iter& operator=(const Iter& o) {
         h_ = o.h_;
         hEnd_ = o.hEnd_;
         l_ = o.l_;
         lEnd_ = o.lEnd_;
         node_.reset();
         return *this;
      }
      Node& operator*() const { return node(); }
      Node* operator->() const { return &node(); }
      Iter& operator++() {
         if (h_ != hEnd_) {
            ++h_;
            skip();
         } else {
            ++l_;
         }
         node_.reset();
         return *this;
      }
      friend bool operator==(const Iter& a, const Iter& b) { return a.h_ == b.h_ && a.l_ == b.l_; }

   private:
      friend class ResolvedEntryMap;
      void skip() {
         while (h_ != hEnd_ && !h_->second->heldValue().held) ++h_;
      }
      // The node holds references, so it is built from the position, and only
      // when read: most finds are compared with end() and nothing more.
      Node& node() const {
         if (!node_) {
            if (h_ != hEnd_)
               node_.emplace(Node{h_->second->key(), h_->second->heldValue().value});
            else
               node_.emplace(Node{l_->first, const_cast<mapped_type&>(l_->second)});
         }
         return *node_;
      }

      HandleIt h_;
      HandleIt hEnd_;
      LooseIt l_;
      LooseIt lEnd_;
      mutable std::optional<Node> node_;
   };

   using iterator = Iter<typename Handles::iterator, typename Loose::iterator>;
   using const_iterator = Iter<typename Handles::const_iterator, typename Loose::const_iterator>;

   explicit ResolvedEntryMap(Handles& handles) : handles_(handles) {}
   ResolvedEntryMap(const ResolvedEntryMap&) = delete;
   ResolvedEntryMap& operator=(const ResolvedEntryMap&) = delete;

   iterator begin() { return at(handles_.begin(), loose_.begin()); }
   iterator end() { return at(handles_.end(), loose_.end()); }
   const_iterator begin() const { return at(chandles().begin(), loose_.begin()); }
   const_iterator end() const { return at(chandles().end(), loose_.end()); }

   std::size_t size() const { return held_ + loose_.size(); }
   bool empty() const { return size() == 0; }

   // A key with a handle has its value there or none: `adopt` saw to that.
   iterator find(const Key& key) {
      auto h = handles_.find(key);
      if (h != handles_.end()) return h->second->heldValue().held ? at(h, loose_.end()) : end();
      return at(handles_.end(), loose_.empty() ? loose_.end() : loose_.find(key));
   }
   const_iterator find(const Key& key) const {
      auto h = chandles().find(key);
      if (h != chandles().end()) return h->second->heldValue().held ? at(h, loose_.end()) : end();
      return at(chandles().end(), loose_.empty() ? loose_.end() : loose_.find(key));
   }
   std::size_t count(const Key& key) const { return find(key) == end() ? 0 : 1; }

   void insert_or_assign(const Key& key, const mapped_type& value) {
      auto h = handles_.find(key);
      if (h == handles_.end()) {
         loose_.insert_or_assign(key, value);
         return;
      }
      auto& held = h->second->heldValue();
      if (!held.held) ++held_;
      held.value = value;
      held.held = true;
   }
   void emplace(const Key& key, const mapped_type& value) {
      if (find(key) == end()) insert_or_assign(key, value);
   }

   void erase(iterator it) {
      if (it.h_ != it.hEnd_) {
         auto& held = it.h_->second->heldValue();
         held.value.reset();
         held.held = false;
         --held_;
      } else {
         loose_.erase(it.l_);
      }
   }
   std::size_t erase(const Key& key) {
      auto it = find(key);
      if (it == end()) return 0;
      erase(it);
      return 1;
   }

   // A handle entered the handle map: it takes in a value waiting for its key.
   template <class Handle>
   void adopt(Handle& h) {
      if (loose_.empty()) return;
      auto it = loose_.find(h.key());
      if (it == loose_.end()) return;
      auto& held = h.heldValue();
      held.value = std::move(it->second);
      held.held = true;
      ++held_;
      loose_.erase(it);
   }
   // A handle is leaving the handle map: its value stays with the key.
   template <class Handle>
   void release(Handle& h) {
      auto& held = h.heldValue();
      if (!held.held) return;
      loose_.insert_or_assign(h.key(), std::move(held.value));
      held.value.reset();
      held.held = false;
      --held_;
   }

private:
   const Handles& chandles() const { return handles_; }
   iterator at(typename Handles::iterator h, typename Loose::iterator l) {
      return iterator(h, handles_.end(), l, loose_.end());
   }
   const_iterator at(typename Handles::const_iterator h, typename Loose::const_iterator l) const {
      return const_iterator(h, chandles().end(), l, loose_.end());
   }

   Handles& handles_;
   Loose loose_;
   std::size_t held_ = 0;
};

}  // namespace Asic
