#pragma once
// A table's own hardware-index value type: one unsigned 32-bit `value`,
// printed as the decimal number. `Name` supplies the qualified type name.
#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "Orb/CharRange.h"
#include "Orb/Hash.h"

#pragma GCC visibility push(default)
namespace Asic {

template <class Name>
class IndexValue {
public:
   static constexpr std::string_view typeName = Name::typeName;
   static constexpr uint32_t min = 0;
   static constexpr uint32_t max = 0xFFFFFFFF;

   constexpr IndexValue() = default;
   constexpr explicit IndexValue(uint32_t v) : value_(v) {}
   explicit IndexValue(Orb::CharRange& r) : value_(Orb::deserializeAttr<uint32_t>(r, "value")) {}

   constexpr uint32_t value() const { return value_; }
   void valueIs(uint32_t v) { value_ = v; }
   explicit operator bool() const { return value_ != 0; }
   uint32_t hash(uint32_t seed) const { return Orb::hashSingleAttr(value_, seed); }

   friend constexpr bool operator==(IndexValue, IndexValue) = default;
   friend constexpr std::strong_ordering operator<=>(IndexValue, IndexValue) = default;
   friend std::ostream& operator<<(std::ostream& os, IndexValue i) { return os << i.value_; }
   friend std::string valueToStrep(const IndexValue& i) { return std::to_string(i.value_); }

private:
   uint32_t value_ = 0;
};

}  // namespace Asic
#pragma GCC visibility pop
