#include "Brio/Publisher.h"

#include <algorithm>

namespace Brio {

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
   const std::size_t n = l->items.size();
   for (std::size_t i = 0; i < n && !l->orphaned; ++i) {
      Notifiee* item = l->items[i];
      if (item && !item->zombie()) item->onAttribute(attr, key);
   }
   if (l->orphaned) {
      if (--l->delivering == 0) delete l;
      return;  // `this` is gone
   }
   if (--l->delivering == 0 && l->holes) {
      std::erase(l->items, nullptr);
      l->holes = false;
      if (l->items.empty()) {
         delete l;
         list_ = nullptr;
      }
   }
}

}  // namespace Brio
