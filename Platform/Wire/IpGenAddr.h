#pragma once
// An IPv4 or IPv6 address in one fixed-size value, so that tables can key on
// "an IP address" without caring which family it is.
#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>

#include "Orb/CharRange.h"

#pragma GCC visibility push(default)
namespace Wire {

enum class AddressFamily : uint8_t { unspecified = 0, ipv4 = 1, ipv6 = 2 };

class IpGenAddr {
public:
   static constexpr std::string_view typeName = "Wire::IpGenAddr";

   IpGenAddr() = default;
   // Strict: IPv4 is exactly four dotted decimals 0..255 without leading zeros
   // (so "010" cannot be read as octal by one tool and decimal by another);
   // IPv6 is RFC 4291 text, hex groups in either case, one "::" at most, and a
   // dotted IPv4 tail ("::ffff:1.2.3.4") allowed. No zone ids, no brackets,
   // no blanks. The empty text is the unspecified address.
   explicit IpGenAddr(std::string_view text);
   // Reads the quoted text form that valueToStrep prints.
   explicit IpGenAddr(Orb::CharRange& r);

   static IpGenAddr ipGenAddrZero(AddressFamily family);
   static IpGenAddr ipv4(uint32_t hostOrder);
   static IpGenAddr ipv6(const std::array<uint8_t, 16>& bytes);

   AddressFamily family() const { return family_; }
   const std::array<uint8_t, 16>& bytes() const { return bytes_; }
   bool isV4() const { return family_ == AddressFamily::ipv4; }
   bool isV6() const { return family_ == AddressFamily::ipv6; }

   // IPv6 in RFC 5952 form, always as hex groups (an IPv4-mapped address
   // prints as "::ffff:102:304"); unspecified is "".
   std::string stringValue() const;

   uint32_t hash(uint32_t seed) const;
   // Address bytes only: lets callers that key on the raw 16 bytes (the chip's
   // view) agree whatever family the value carries.
   static uint32_t hashIpv6Bytes(const std::array<uint8_t, 16>& bytes, uint32_t seed);

   // A fixed-size memcmp compiles to two word compares; every tunnel-key
   // lookup compares addresses.
   friend bool operator==(const IpGenAddr& a, const IpGenAddr& b) {
      return a.family_ == b.family_ && std::memcmp(a.bytes_.data(), b.bytes_.data(), 16) == 0;
   }
   friend std::strong_ordering operator<=>(const IpGenAddr& a, const IpGenAddr& b) {
      if (auto c = a.family_ <=> b.family_; c != 0) return c;
      return a.bytes_ <=> b.bytes_;
   }
   // Unspecified prints as "<unspecified>" so that it stays visible in logs.
   friend std::ostream& operator<<(std::ostream& os, const IpGenAddr& a);
   friend std::string valueToStrep(const IpGenAddr& a);

private:
   IpGenAddr(AddressFamily family, const std::array<uint8_t, 16>& bytes)
       : bytes_(bytes), family_(family) {}

   std::array<uint8_t, 16> bytes_{};
   AddressFamily family_ = AddressFamily::unspecified;
};

static_assert(sizeof(IpGenAddr) == 17 && alignof(IpGenAddr) == 1);

}  // namespace Wire
#pragma GCC visibility pop
