#pragma once
// A framework value in generic form: immutable, type-erased, cheap to copy.
// Copies share one heap holder; the value's hash is computed once, when the
// holder is made, so rehashing a container of them never calls back into T.
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <utility>

#include "Orb/TypeId.h"

#pragma GCC visibility push(default)
namespace Orb {

template <class T>
concept NamedType = requires {
   requires std::convertible_to<decltype(T::typeName), std::string_view>;
};

template <class T>
concept GenericOperations = requires(const T& a, const T& b, std::ostream& os, uint32_t seed) {
   { a.hash(seed) } -> std::convertible_to<uint32_t>;
   { a == b } -> std::convertible_to<bool>;
   { os << a } -> std::convertible_to<std::ostream&>;
};

// The name comes first: it keeps GenericValue itself out before its own
// constructibility is asked, which would recurse.
template <class T>
concept GenericType = NamedType<T> && std::copy_constructible<T> && GenericOperations<T>;

namespace GenericDetail {

struct Holder;

// One table per value type. Its address may differ between shared objects,
// so identity of the type is always decided through `type`.
struct Ops {
   TypeId type;
   uint32_t (*hash)(const void*);
   bool (*equal)(const void*, const void*);
   void (*print)(std::ostream&, const void*);
   const void* (*value)(const Holder*);
   Holder* (*copy)(const void*, uint32_t hash);
   void (*destroy)(Holder*);
};

struct Holder {
   const Ops* ops;
   uint32_t refs : 31;
   uint32_t interned : 1;  // listed in the pool of shared values
   uint32_t hash;
};

template <class T>
struct HolderOf : Holder {
   HolderOf(const Ops* o, uint32_t h, const T& v) : Holder{o, 1, 0, h}, value(v) {}
   T value;
};

// Takes an interned holder out of the pool, then destroys it.
void internedRelease(Holder* h);

template <class T>
struct OpsOf {
   static uint32_t hash(const void* v) { return uint32_t(static_cast<const T*>(v)->hash(0)); }
   static bool equal(const void* a, const void* b) {
      return bool(*static_cast<const T*>(a) == *static_cast<const T*>(b));
   }
   static void print(std::ostream& os, const void* v) { os << *static_cast<const T*>(v); }
   static const void* value(const Holder* h) { return &static_cast<const HolderOf<T>*>(h)->value; }
   static Holder* copy(const void* v, uint32_t h);
   static void destroy(Holder* h) { delete static_cast<HolderOf<T>*>(h); }
   static constexpr Ops ops{
       TypeId(&TypeOf<T>::record), &hash, &equal, &print, &value, &copy, &destroy};
};

template <class T>
Holder* OpsOf<T>::copy(const void* v, uint32_t h) {
   return new HolderOf<T>(&ops, h, *static_cast<const T*>(v));
}

inline bool sameValue(const Ops* ao, const void* a, uint32_t ah, const Ops* bo, const void* b,
                      uint32_t bh) {
   if (!ao || !bo) return ao == bo;
   if (a == b) return true;
   if (ah != bh) return false;
   if (ao != bo && ao->type != bo->type) return false;
   return ao->equal(a, b);
}

}  // namespace GenericDetail

class GenericValue;

// Non-owning view of a value in generic form, for lookups that must not
// allocate. Valid only while the viewed value lives.
class GenericValueRef {
public:
   GenericValueRef() = default;
   template <GenericType T>
   GenericValueRef(const T& v)
       : ops_(&GenericDetail::OpsOf<T>::ops), value_(&v), hash_(uint32_t(v.hash(0))) {}
   GenericValueRef(const GenericValue& v);

   TypeId type() const { return ops_ ? ops_->type : TypeId{}; }
   template <class T>
   const T* as() const {
      return ops_ && ops_->type == typeId<T>() ? static_cast<const T*>(value_) : nullptr;
   }
   uint32_t hash() const { return hash_; }
   std::string text() const {
      if (!ops_) return {};
      std::ostringstream os;
      ops_->print(os, value_);
      return os.str();
   }
   explicit operator bool() const { return ops_ != nullptr; }
   friend bool operator==(const GenericValueRef& a, const GenericValueRef& b) {
      return GenericDetail::sameValue(a.ops_, a.value_, a.hash_, b.ops_, b.value_, b.hash_);
   }
   friend std::ostream& operator<<(std::ostream& os, const GenericValueRef& v) {
      if (v.ops_) v.ops_->print(os, v.value_);
      return os;
   }

private:
   friend class GenericValue;
   const GenericDetail::Ops* ops_ = nullptr;
   const void* value_ = nullptr;
   uint32_t hash_ = 0;
};

class GenericValue {
public:
   GenericValue() = default;
   // Copies the viewed value into a holder of its own.
   explicit GenericValue(GenericValueRef r)
       : holder_(r.ops_ ? r.ops_->copy(r.value_, r.hash_) : nullptr) {}
   GenericValue(const GenericValue& o) : holder_(o.holder_) {
      if (holder_) ++holder_->refs;
   }
   GenericValue(GenericValue&& o) noexcept : holder_(std::exchange(o.holder_, nullptr)) {}
   GenericValue& operator=(const GenericValue& o) {
      GenericValue(o).swap(*this);
      return *this;
   }
   GenericValue& operator=(GenericValue&& o) noexcept {
      GenericValue(std::move(o)).swap(*this);
      return *this;
   }
   ~GenericValue() {
      if (!holder_ || --holder_->refs != 0) return;
      if (holder_->interned)
         GenericDetail::internedRelease(holder_);
      else
         holder_->ops->destroy(holder_);
   }
   void swap(GenericValue& o) noexcept { std::swap(holder_, o.holder_); }

   template <GenericType T>
   static GenericValue of(const T& v) {
      return GenericValue(GenericValueRef(v));
   }
   // The holder of an equal value made this way and still alive, shared, or
   // else a new one. Entries of several tables under one tunnel key then keep
   // one copy of the key between them. Not thread-safe, like the tables.
   static GenericValue interned(GenericValueRef r);
   template <GenericType T>
   static GenericValue interned(const T& v) {
      return interned(GenericValueRef(v));
   }

   TypeId type() const { return holder_ ? holder_->ops->type : TypeId{}; }
   template <class T>
   const T* as() const {
      return static_cast<const T*>(ref().template as<T>());
   }
   uint32_t hash() const { return holder_ ? holder_->hash : 0; }
   std::string text() const { return ref().text(); }
   explicit operator bool() const { return holder_ != nullptr; }
   GenericValueRef ref() const { return GenericValueRef(*this); }
   // Number of GenericValues sharing this holder.
   uint32_t sharing() const { return holder_ ? holder_->refs : 0; }

   friend bool operator==(const GenericValue& a, const GenericValue& b) {
      if (a.holder_ == b.holder_) return true;
      return a.ref() == b.ref();
   }
   friend bool operator==(const GenericValue& a, const GenericValueRef& b) { return a.ref() == b; }
   friend std::ostream& operator<<(std::ostream& os, const GenericValue& v) {
      return os << v.ref();
   }

private:
   friend class GenericValueRef;
   explicit GenericValue(GenericDetail::Holder* adopted) : holder_(adopted) {}
   GenericDetail::Holder* holder_ = nullptr;
};

inline GenericValueRef::GenericValueRef(const GenericValue& v) {
   if (const GenericDetail::Holder* h = v.holder_) {
      ops_ = h->ops;
      value_ = h->ops->value(h);
      hash_ = h->hash;
   }
}

// Transparent hash and equality: containers keyed by GenericValue can be
// searched with a GenericValueRef without making a holder. Hashing is noexcept
// so that node containers do not store the hash a second time.
struct GenericValueHash {
   using is_transparent = void;
   std::size_t operator()(const GenericValue& v) const noexcept { return v.hash(); }
   std::size_t operator()(const GenericValueRef& v) const noexcept { return v.hash(); }
};

struct GenericValueEqual {
   using is_transparent = void;
   bool operator()(const GenericValue& a, const GenericValue& b) const { return a == b; }
   bool operator()(const GenericValueRef& a, const GenericValueRef& b) const { return a == b; }
};

}  // namespace Orb

template <>
struct std::hash<Orb::GenericValue> : Orb::GenericValueHash {};
template <>
struct std::equal_to<Orb::GenericValue> : Orb::GenericValueEqual {};
#pragma GCC visibility pop
