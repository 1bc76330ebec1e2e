#pragma once
// Narrowing of hardware indices into narrower hardware fields, refused with
// the framework's cast error when the value does not fit.
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace Asic::Detail {

template <class T>
constexpr std::string_view integralTypeName();
template <>
constexpr std::string_view integralTypeName<uint8_t>() {
   return "unsigned char";
}
template <>
constexpr std::string_view integralTypeName<uint16_t>() {
   return "short unsigned int";
}
template <>
constexpr std::string_view integralTypeName<uint32_t>() {
   return "unsigned int";
}

[[noreturn]] void raiseCastError(std::string_view from, std::string_view to, std::string value,
                                 std::string max);

template <class To, class From>
[[noreturn]] void raise_cast_integral(From value) {
   raiseCastError(integralTypeName<From>(), integralTypeName<To>(), std::to_string(value),
                  std::to_string(std::numeric_limits<To>::max()));
}

template <class To, class From>
To castIntegral(From value) {
   if (value > std::numeric_limits<To>::max()) raise_cast_integral<To, From>(value);
   return static_cast<To>(value);
}

}  // namespace Asic::Detail
#pragma GCC visibility pop
