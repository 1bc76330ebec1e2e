#pragma once
// Identity of a framework type. A type names itself with
// `static constexpr std::string_view typeName = "Ns::Type";`.
#include <cstddef>
#include <functional>
#include <string_view>

#pragma GCC visibility push(default)
namespace Orb {

struct TypeRecord {
   std::string_view name;
};

// Compared by record address first; the name decides when the record was
// instantiated twice (once per shared object that uses the type).
class TypeId {
  public:
   constexpr TypeId() = default;
   constexpr explicit TypeId(const TypeRecord* r) : record_(r) {}
   std::string_view name() const { return record_ ? record_->name : std::string_view{}; }
   explicit operator bool() const { return record_ != nullptr; }
   friend bool operator==(TypeId a, TypeId b) {
      return a.record_ == b.record_ || (a.record_ && b.record_ && a.name() == b.name());
   }
   std::size_t hash() const { return std::hash<std::string_view>{}(name()); }

  private:
   const TypeRecord* record_ = nullptr;
};

template <class T>
struct TypeOf {
   static inline const TypeRecord record{T::typeName};
};

template <class T>
TypeId typeId() {
   return TypeId(&TypeOf<T>::record);
}

}  // namespace Orb

template <>
struct std::hash<Orb::TypeId> {
   std::size_t operator()(Orb::TypeId t) const { return t.hash(); }
};
#pragma GCC visibility pop
