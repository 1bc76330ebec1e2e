#pragma once
// Unsigned hardware fields narrower than a byte. The range is checked on every
// way in, so a value that would be truncated when written to the chip is
// rejected where it was made.
#include <compare>
#include <cstdint>
#include <ostream>
#include <stdexcept>
#include <string>

#include "Orb/CharRange.h"
#include "Orb/Hash.h"

#pragma GCC visibility push(default)
namespace Orb {

template <unsigned Bits>
class BitUInt {
   static_assert(Bits >= 1 && Bits <= 8, "BitUInt is held in one byte");

public:
   static constexpr uint8_t max = uint8_t((1u << Bits) - 1);

   constexpr BitUInt() = default;
   explicit BitUInt(uint32_t v) : value_(checked(v)) {}
   explicit BitUInt(CharRange& r) : value_(checked(r.readUnsigned(0xffffffffu))) {}

   constexpr uint8_t value() const { return value_; }
   void valueIs(uint32_t v) { value_ = checked(v); }

   uint32_t hash(uint32_t seed) const { return hashSingleAttr(value_, seed); }

   friend constexpr bool operator==(BitUInt, BitUInt) = default;
   friend constexpr std::strong_ordering operator<=>(BitUInt, BitUInt) = default;
   friend std::ostream& operator<<(std::ostream& os, BitUInt v) { return os << unsigned(v.value_); }
   friend std::string valueToStrep(const BitUInt& v) { return std::to_string(v.value_); }

private:
   static uint8_t checked(uint32_t v) {
      if (v > max) {
         throw std::range_error("U" + std::to_string(Bits) + ": value " + std::to_string(v) +
                                " out of range (max = " + std::to_string(unsigned(max)) + ")");
      }
      return uint8_t(v);
   }

   uint8_t value_ = 0;
};

}  // namespace Orb

using U5 = Orb::BitUInt<5>;
using U2 = Orb::BitUInt<2>;
static_assert(sizeof(U5) == 1 && sizeof(U2) == 1);
#pragma GCC visibility pop
