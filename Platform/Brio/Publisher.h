#pragma once
// Synchronous change notification: a publisher tells its notifiees about a
// change of one attribute (id) at one key, inside the call that made it.
#include <cstdint>
#include <string_view>
#include <vector>

#include "Orb/TypeId.h"

#pragma GCC visibility push(default)
namespace Brio {

using AttrId = uint32_t;

// The key of a changed collection element, without its type: notifiees that
// care compare it with the key type's own equality through `as<K>()`.
class KeyRef {
public:
   KeyRef() = default;
   template <class K>
   explicit KeyRef(const K& k) : ptr_(&k), type_(Orb::typeId<K>()) {}
   template <class K>
   const K* as() const {
      return type_ == Orb::typeId<K>() ? static_cast<const K*>(ptr_) : nullptr;
   }
   explicit operator bool() const { return ptr_ != nullptr; }

private:
   const void* ptr_ = nullptr;
   Orb::TypeId type_;
};

class Publisher;

// The key of a change in a positional collection (a queue).
struct Position {
   static constexpr std::string_view typeName = "Brio::Position";
   uint32_t value;
};

// A listener on one publisher at a time. Detaches itself when destroyed.
class Notifiee {
public:
   Notifiee() = default;
   Notifiee(const Notifiee&) = delete;
   Notifiee& operator=(const Notifiee&) = delete;
   virtual ~Notifiee();

   Publisher* notifier() const { return notifier_; }
   void notifierIs(Publisher* p);
   // A zombie stays attached but hears nothing; owners mark reactors so while
   // they are being torn down.
   bool zombie() const { return zombie_; }
   void zombieIs(bool z) { zombie_ = z; }

   virtual void onAttribute(AttrId attr, KeyRef key) = 0;

private:
   friend class Publisher;

   // The key of a change in a positional collection (a queue).
   struct Position {
      static constexpr std::string_view typeName = "Brio::Position";
      uint32_t value;
   };
   Publisher* notifier_ = nullptr;
   bool zombie_ = false;
};

// Costs one pointer while nobody listens. Notifiees may attach or detach
// themselves and others while a notification is delivered.
class Publisher {
public:
   Publisher() = default;
   Publisher(const Publisher&) = delete;
   Publisher& operator=(const Publisher&) = delete;
   ~Publisher();

   void notify(AttrId attr, KeyRef key = {}) const {
      if (list_) deliver(attr, key);
   }
   uint32_t notifiees() const;

private:
   friend class Notifiee;
   struct List;  // the notifiees, with the state of deliveries in progress
   void attach(Notifiee* n);
   void detach(Notifiee* n);
   void deliver(AttrId attr, KeyRef key) const;
   mutable List* list_ = nullptr;
};

}  // namespace Brio
#pragma GCC visibility pop
