#include "Brio/Publisher.h"

#include <algorithm>

namespace Brio {

namespace {
// Notifiees in attach order. Most publishers have one or two listeners; those
// live in the array itself, so the first attach allocates once, not twice.
class NotifieeArray {
public:
   NotifieeArray() = default;
   NotifieeArray(const NotifieeArray&) = delete;
   NotifieeArray& operator=(const NotifieeArray&) = delete;
   ~NotifieeArray() {
      if (data_ != local_) delete[] data_;
   }

   uint32_t size() const { return size_; }
   bool empty() const { return size_ == 0; }
   Notifiee*& operator[](uint32_t i) { return data_[i]; }
   Notifiee** begin() { return data_; }
   Notifiee** end() { return data_ + size_; }
   void push_back(Notifiee* n) {
      if (size_ == capacity_) {
         auto* grown = new Notifiee*[capacity_ * 2];
         std::copy(begin(), end(), grown);
         if (data_ != local_) delete[] data_;
         data_ = grown;
         capacity_ *= 2;
      }
      data_[size_++] = n;
   }
   void erase(Notifiee** it) {
      std::copy(it + 1, end(), it);
      --size_;
   }
   void eraseNull() { size_ = uint32_t(std::remove(begin(), end(), nullptr) - begin()); }

private:
   Notifiee* local_[2] = {};
   Notifiee** data_ = local_;
   uint32_t size_ = 0;
   uint32_t capacity_ = 2;
};
}  // namespace

struct Publisher::List {
   NotifieeArray items;
   uint32_t delivering = 0;
   bool holes = false;
   bool orphaned = false;  // the publisher died during a delivery
};

Notifiee::~Notifiee() { notifierIs(nullptr); }

void Notifiee::notifierIs(Publisher* p) {
   if (p == notifier_) return;
   if (notifier_) notifier_->detach(this);
   notifier_ = p;
   if (notifier_) notifier_->attach(this);
}

Publisher::~Publisher() {
   if (!list_) return;
   for (Notifiee*& n : list_->items) {
      if (n) n->notifier_ = nullptr;
      n = nullptr;
   }
   if (list_->delivering)
      list_->orphaned = true;  // the delivery loop frees it
   else
      delete list_;
}

uint32_t Publisher::notifiees() const {
   if (!list_) return 0;
   return uint32_t(std::count_if(list_->items.begin(), list_->items.end(),
                                 [](Notifiee* n) { return n != nullptr; }));
}

void Publisher::attach(Notifiee* n) {
   if (!list_) list_ = new List;
   list_->items.push_back(n);
}

void Publisher::detach(Notifiee* n) {
   auto& items = list_->items;
   auto it = std::find(items.begin(), items.end(), n);
   if (it == items.end()) return;
   if (list_->delivering) {
      // Compacted once the outermost delivery ends.
      *it = nullptr;
      list_->holes = true;
      return;
   }
   items.erase(it);
   if (items.empty()) {
      delete list_;
      list_ = nullptr;
   }
}

void Publisher::deliver(AttrId attr, KeyRef key) const {
   List* l = list_;
   ++l->delivering;
   // Notifiees attached during delivery hear from the next change on.
   const uint32_t n = l->items.size();
   for (uint32_t i = 0; i < n && !l->orphaned; ++i) {
      Notifiee* item = l->items[i];
      if (item && !item->zombie()) item->onAttribute(attr, key);
   }
   if (l->orphaned) {
      if (--l->delivering == 0) delete l;
      return;  // `this` is gone
   }
   if (--l->delivering == 0 && l->holes) {
      l->items.eraseNull();
      l->holes = false;
      if (l->items.empty()) {
         delete l;
         list_ = nullptr;
      }
   }
}

}  // namespace Brio
