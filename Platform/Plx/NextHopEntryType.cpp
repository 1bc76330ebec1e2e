#include "Plx/NextHopEntryType.h"

#include <array>
#include <stdexcept>

namespace Plx {

namespace {

constexpr std::array<std::string_view, 6> names{
    "nextHopUnknown", "nextHopArpPending", "nextHopArpResolved",
    "nextHopDrop",    "nextHopReceive",    "nextHopGlean",
};

bool isNameChar(char c) {
   return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

}  // namespace

std::string valueToStrep(NextHopEntryType t) {
   const auto v = uint32_t(t);
   if (v < names.size()) return std::string(names[v]);
   return std::to_string(v);
}

NextHopEntryType sequenceToValue(Orb::CharRange& r) {
   // The whole word is taken first, so that a name is never accepted as the
   // prefix of a longer one.
   const std::string_view rest = r.rest();
   std::size_t n = 0;
   while (n < rest.size() && isNameChar(rest[n])) ++n;
   const std::string_view word = rest.substr(0, n);
   for (std::size_t i = 0; i < names.size(); ++i) {
      if (names[i] == word) {
         r.advance(n);
         return NextHopEntryType(i);
      }
   }
   throw std::range_error("unknown Plx::NextHopEntryType \"" + std::string(word) +
                          "\" at position " + std::to_string(r.position()));
}

std::ostream& operator<<(std::ostream& os, NextHopEntryType t) { return os << valueToStrep(t); }

}  // namespace Plx
