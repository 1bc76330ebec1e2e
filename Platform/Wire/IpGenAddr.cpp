#include "Wire/IpGenAddr.h"

#include <optional>
#include <stdexcept>

#include "Orb/Hash.h"
#include "Orb/Strep.h"

namespace Wire {

namespace {

using Bytes = std::array<uint8_t, 16>;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

int hexDigit(char c) {
   if (isDigit(c)) return c - '0';
   if (c >= 'a' && c <= 'f') return c - 'a' + 10;
   if (c >= 'A' && c <= 'F') return c - 'A' + 10;
   return -1;
}

// Four dotted decimals into out[0..3].
bool parseV4(std::string_view s, uint8_t* out) {
   for (int part = 0; part < 4; ++part) {
      if (part > 0) {
         if (s.empty() || s[0] != '.') return false;
         s.remove_prefix(1);
      }
      std::size_t n = 0;
      uint32_t v = 0;
      while (n < s.size() && n < 4 && isDigit(s[n])) v = v * 10 + uint32_t(s[n++] - '0');
      if (n == 0 || n > 3 || v > 255 || (n > 1 && s[0] == '0')) return false;
      out[part] = uint8_t(v);
      s.remove_prefix(n);
   }
   return s.empty();
}

// Colon-separated groups (no "::" inside) into 16-bit words; a dotted IPv4 is
// allowed as the last piece when `v4Tail` and counts as two groups.
bool parseGroups(std::string_view s, bool v4Tail, uint16_t* out, int& count, int maxCount) {
   count = 0;
   if (s.empty()) return true;
   while (true) {
      const std::size_t colon = s.find(':');
      const std::string_view piece = s.substr(0, colon);
      if (colon == std::string_view::npos && v4Tail && piece.find('.') != std::string_view::npos) {
         uint8_t v4[4];
         if (count + 2 > maxCount || !parseV4(piece, v4)) return false;
         out[count++] = uint16_t(v4[0] << 8 | v4[1]);
         out[count++] = uint16_t(v4[2] << 8 | v4[3]);
         return true;
      }
      if (piece.empty() || piece.size() > 4 || count >= maxCount) return false;
      uint32_t v = 0;
      for (char c : piece) {
         const int d = hexDigit(c);
         if (d < 0) return false;
         v = v << 4 | uint32_t(d);
      }
      out[count++] = uint16_t(v);
      if (colon == std::string_view::npos) return true;
      s.remove_prefix(colon + 1);
   }
}

std::optional<Bytes> parseV6(std::string_view s) {
   uint16_t head[8], tail[8];
   int nHead = 0, nTail = 0;
   const std::size_t gap = s.find("::");
   if (gap == std::string_view::npos) {
      if (!parseGroups(s, true, head, nHead, 8) || nHead != 8) return std::nullopt;
   } else {
      const std::string_view after = s.substr(gap + 2);
      if (after.find("::") != std::string_view::npos) return std::nullopt;
      // "::" stands for at least one zero group, so at most seven are written.
      if (!parseGroups(s.substr(0, gap), false, head, nHead, 7)) return std::nullopt;
      if (!parseGroups(after, true, tail, nTail, 7 - nHead)) return std::nullopt;
   }
   uint16_t groups[8] = {};
   for (int i = 0; i < nHead; ++i) groups[i] = head[i];
   for (int i = 0; i < nTail; ++i) groups[8 - nTail + i] = tail[i];
   Bytes b{};
   for (int i = 0; i < 8; ++i) {
      b[2 * i] = uint8_t(groups[i] >> 8);
      b[2 * i + 1] = uint8_t(groups[i]);
   }
   return b;
}

std::string v4String(const Bytes& b) {
   return std::to_string(b[0]) + '.' + std::to_string(b[1]) + '.' + std::to_string(b[2]) + '.' +
          std::to_string(b[3]);
}

std::string v6String(const Bytes& b) {
   uint16_t g[8];
   for (int i = 0; i < 8; ++i) g[i] = uint16_t(b[2 * i] << 8 | b[2 * i + 1]);
   // Longest run of zero groups, first on ties; a lone zero group stays "0".
   int bestStart = -1, bestLen = 1;
   for (int i = 0; i < 8;) {
      if (g[i] != 0) {
         ++i;
         continue;
      }
      int j = i;
      while (j < 8 && g[j] == 0) ++j;
      if (j - i > bestLen) bestStart = i, bestLen = j - i;
      i = j;
   }
   static constexpr char hex[] = "0123456789abcdef";
   std::string out;
   for (int i = 0; i < 8; ++i) {
      if (i == bestStart) {
         out += "::";
         i += bestLen - 1;
         continue;
      }
      if (i > 0 && i != bestStart + bestLen) out += ':';
      bool started = false;
      for (int shift = 12; shift >= 0; shift -= 4) {
         const unsigned d = (g[i] >> shift) & 0xf;
         if (d || started || shift == 0) out += hex[d], started = true;
      }
   }
   return out;
}

}  // namespace

IpGenAddr::IpGenAddr(std::string_view text) {
   if (text.empty()) return;
   if (text.find(':') != std::string_view::npos) {
      if (auto b = parseV6(text)) {
         bytes_ = *b;
         family_ = AddressFamily::ipv6;
         return;
      }
   } else if (parseV4(text, bytes_.data())) {
      family_ = AddressFamily::ipv4;
      return;
   }
   throw std::invalid_argument("invalid IP address: '" + std::string(text) + "'");
}

IpGenAddr::IpGenAddr(Orb::CharRange& r) {
   const std::size_t start = r.position();
   const std::string text = r.readQuoted();
   try {
      *this = IpGenAddr(std::string_view(text));
   } catch (const std::invalid_argument& e) {
      throw std::range_error(std::string(e.what()) + " at position " + std::to_string(start));
   }
}

IpGenAddr IpGenAddr::ipGenAddrZero(AddressFamily family) { return IpGenAddr(family, Bytes{}); }

IpGenAddr IpGenAddr::ipv4(uint32_t hostOrder) {
   Bytes b{};
   for (int i = 0; i < 4; ++i) b[i] = uint8_t(hostOrder >> (24 - 8 * i));
   return IpGenAddr(AddressFamily::ipv4, b);
}

IpGenAddr IpGenAddr::ipv6(const std::array<uint8_t, 16>& bytes) {
   return IpGenAddr(AddressFamily::ipv6, bytes);
}

std::string IpGenAddr::stringValue() const {
   switch (family_) {
      case AddressFamily::ipv4:
         return v4String(bytes_);
      case AddressFamily::ipv6:
         return v6String(bytes_);
      case AddressFamily::unspecified:
         break;
   }
   return {};
}

uint32_t IpGenAddr::hash(uint32_t seed) const {
   return Orb::Hash(seed).mix(uint32_t(family_)).mixBytes(bytes_.data(), bytes_.size()).result();
}

uint32_t IpGenAddr::hashIpv6Bytes(const std::array<uint8_t, 16>& bytes, uint32_t seed) {
   return Orb::Hash(seed).mixBytes(bytes.data(), bytes.size()).result();
}

std::ostream& operator<<(std::ostream& os, const IpGenAddr& a) {
   if (a.family_ == AddressFamily::unspecified) return os << "<unspecified>";
   return os << a.stringValue();
}

std::string valueToStrep(const IpGenAddr& a) {
   std::string out;
   Orb::StrepTraits<std::string>::print(out, a.stringValue());
   return out;
}

}  // namespace Wire
