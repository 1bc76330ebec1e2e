#pragma once
// The key an entry handle carries. A key larger than two words (a tunnel key)
// lives in a generic holder, which the index allocator then shares instead of
// keeping a copy of its own: one copy of the key serves the handle, the
// table's handle map (which finds keys through the handle) and the allocator.
// The holder is interned, so the handles of the tunnel, interface and next
// hop made under one tunnel key share it too. Small keys (hardware indices)
// stay in place.
#include "Orb/GenericValue.h"

namespace Asic {

template <class Key, bool Shared = (sizeof(Key) > 2 * sizeof(void*))>
class HandleKey {
public:
   explicit HandleKey(const Key& key) : key_(key) {}
   const Key& get() const { return key_; }
   // For the allocator: a holder of its own (the key is small).
   Orb::GenericValue generic() const { return Orb::GenericValue::of(key_); }

private:
   Key key_;
};

template <class Key>
class HandleKey<Key, true> {
public:
   explicit HandleKey(const Key& key)
       : holder_(Orb::GenericValue::interned(key)), key_(holder_.template as<Key>()) {}
   HandleKey(const HandleKey&) = delete;
   HandleKey& operator=(const HandleKey&) = delete;
   const Key& get() const { return *key_; }
   const Orb::GenericValue& generic() const { return holder_; }

private:
   Orb::GenericValue holder_;
   const Key* key_;  // into holder_, which never changes
};

}  // namespace Asic
