#pragma once
// Reflection hooks of value types: generic code (the agent's show commands,
// state export) reads a value's attributes by number without knowing its type.
// Attributes are numbered from 0 in declaration order and read in text form.
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace Orb {

using AttrNumber = uint32_t;

enum class AttrResult : uint8_t {
   success = 0,
   notSettable = 1,
   noSuchAttribute = 2,
};

inline std::string_view attrResultName(AttrResult r) {
   switch (r) {
      case AttrResult::success:
         return "success";
      case AttrResult::notSettable:
         return "notSettable";
      case AttrResult::noSuchAttribute:
         return "noSuchAttribute";
   }
   return "invalid";
}

inline std::ostream& operator<<(std::ostream& os, AttrResult r) { return os << attrResultName(r); }

struct AttrValue {
   std::string_view name;
   std::string text;  // the attribute's own text form
};

// The value-level operations, type-erased. A value type T takes part with
//   static constexpr std::string_view typeName;
//   static constexpr AttrNumber attrCount;
//   AttrResult attr(AttrNumber, AttrValue&) const;
//   AttrResult attrIs(AttrNumber, std::string_view text);
//   explicit operator bool() const;  // differs from a default-constructed value
//   static bool isEq(const T&, const T&);  operator<;  uint32_t hash(uint32_t seed) const;
struct ValueReflection {
   std::string_view typeName;
   AttrNumber attrCount;
   AttrResult (*attr)(const void* v, AttrNumber n, AttrValue& out);
   AttrResult (*attrIs)(void* v, AttrNumber n, std::string_view text);
   bool (*differsFromDefault)(const void* v);
   bool (*isEq)(const void* a, const void* b);
   bool (*less)(const void* a, const void* b);
   uint32_t (*hash)(const void* v);  // seed 0, so that every process agrees
};

template <class T>
struct ReflectionOf {
   static AttrResult attr(const void* v, AttrNumber n, AttrValue& out) {
      return static_cast<const T*>(v)->attr(n, out);
   }
   static AttrResult attrIs(void* v, AttrNumber n, std::string_view text) {
      return static_cast<T*>(v)->attrIs(n, text);
   }
   static bool differsFromDefault(const void* v) { return bool(*static_cast<const T*>(v)); }
   static bool isEq(const void* a, const void* b) {
      return T::isEq(*static_cast<const T*>(a), *static_cast<const T*>(b));
   }
   static bool less(const void* a, const void* b) {
      return *static_cast<const T*>(a) < *static_cast<const T*>(b);
   }
   static uint32_t hash(const void* v) { return static_cast<const T*>(v)->hash(0); }
   static constexpr ValueReflection ops{T::typeName,         T::attrCount, &attr, &attrIs,
                                        &differsFromDefault, &isEq,        &less, &hash};
};

template <class T>
constexpr const ValueReflection& valueReflection() {
   return ReflectionOf<T>::ops;
}

}  // namespace Orb
#pragma GCC visibility pop
