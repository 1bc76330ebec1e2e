#pragma once
// Text form ("strep") of values: every value type prints to it and parses back
// from it, one StrepTraits specialisation per type. Class types take part by
// providing `std::string valueToStrep(const T&)` (found by ADL) and an explicit
// constructor `T(Orb::CharRange&)`.
#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>

#include "Orb/CharRange.h"

#pragma GCC visibility push(default)
namespace Orb {

namespace strepDetail {

// A class's own valueToStrep is reached through this wrapper rather than the
// value itself. Orb::valueToStrep below refuses a Probe, so ADL on a Probe sees
// only the type's own function (and those of its bases) and never falls back on
// the generic template, which would recurse into these traits forever.
template <class T>
struct Probe {
   const T& value;
   operator const T&() const { return value; }
};

template <class T>
inline constexpr bool isProbe = false;
template <class T>
inline constexpr bool isProbe<Probe<T>> = true;

// Hides Orb::valueToStrep from ordinary lookup in here; ADL alone decides.
void valueToStrep() = delete;

template <class T>
concept OwnStrep = std::is_class_v<T> && requires(const Probe<T>& p) {
   { valueToStrep(p) } -> std::same_as<std::string>;
};

template <class T>
std::string ownStrep(const T& v) {
   return valueToStrep(Probe<T>{v});
}

template <class T>
struct UnsignedStrep {
   static void print(std::string& out, T v) { out += std::to_string(v); }
   static T parse(CharRange& r) { return T(r.readUnsigned(std::numeric_limits<T>::max())); }
};

}  // namespace strepDetail

template <class T>
struct StrepTraits {
   static void print(std::string& out, const T& v) requires strepDetail::OwnStrep<T> {
      out += strepDetail::ownStrep(v);
   }
   static T parse(
       CharRange& r) requires std::is_class_v<T> && std::constructible_from<T, CharRange&> {
      return T(r);
   }
};

template <>
struct StrepTraits<bool> {
   static void print(std::string& out, bool v) { out += v ? "True" : "False"; }
   static bool parse(CharRange& r) { return r.readBool(); }
};

template <>
struct StrepTraits<uint8_t> : strepDetail::UnsignedStrep<uint8_t> {};
template <>
struct StrepTraits<uint16_t> : strepDetail::UnsignedStrep<uint16_t> {};
template <>
struct StrepTraits<uint32_t> : strepDetail::UnsignedStrep<uint32_t> {};

// Quote and backslash are escaped so that any string survives a round trip.
template <>
struct StrepTraits<std::string> {
   static void print(std::string& out, const std::string& v) {
      out += '\'';
      for (char c : v) {
         if (c == '\'' || c == '\\') out += '\\';
         out += c;
      }
      out += '\'';
   }
   static std::string parse(CharRange& r) { return r.readQuoted(); }
};

template <class T>
requires(!strepDetail::isProbe<T>) && requires(std::string& out, const T& v) {
   StrepTraits<T>::print(out, v);
}
std::string valueToStrep(const T& v) {
   std::string out;
   StrepTraits<T>::print(out, v);
   return out;
}

template <class T>
T strepToValue(std::string_view text) {
   CharRange r(text);
   T v = StrepTraits<T>::parse(r);
   if (!r.atEnd()) {
      throw std::range_error("unexpected trailing text at position " +
                             std::to_string(r.position()));
   }
   return v;
}

}  // namespace Orb
#pragma GCC visibility pop
