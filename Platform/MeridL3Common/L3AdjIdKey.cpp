#include "MeridL3Common/L3AdjIdKey.h"

#include <array>

#include "Orb/Hash.h"

namespace MeridL3Common {

namespace {
constexpr std::array<std::string_view, 4> typeNames{
    "adjIdTypeUnknown",
    "adjIdTypeEcmp",
    "adjIdTypeNextHop",
    "adjIdTypeTunnel",
};
}

std::string valueToStrep(L3AdjIdKeyType t) {
   const auto v = uint32_t(t);
   if (v < typeNames.size()) return std::string(typeNames[v]);
   return std::to_string(v);
}

std::ostream& operator<<(std::ostream& os, L3AdjIdKeyType t) { return os << valueToStrep(t); }

uint32_t L3AdjIdKey::hash(uint32_t seed) const {
   return Orb::Hash(seed).mix(adjId_).mix(uint32_t(type_)).result();
}

std::string L3AdjIdKey::stringValue() const {
   return "L3AdjIdKey{adjId:" + std::to_string(adjId_) + " type:" + valueToStrep(type_);
}

std::ostream& operator<<(std::ostream& os, const L3AdjIdKey& k) { return os << k.stringValue(); }

}  // namespace MeridL3Common
