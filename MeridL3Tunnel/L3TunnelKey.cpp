#include "MeridL3Tunnel/L3TunnelKey.h"

#include <ostream>

#include "Orb/GenericValueText.h"
#include "Orb/Hash.h"
#include "Orb/Strep.h"

namespace MeridL3Tunnel {

namespace {
// Keys the chip keeps with its rows are read back from their text after a restart.
const bool textRegistered =
    (Orb::genericValueParserIs(L3TunnelKey::typeName, &Orb::parseGenericValue<L3TunnelKey>), true);
}  // namespace

// Text form: L3TunnelKey('10.0.0.1', '10.0.0.2')
L3TunnelKey::L3TunnelKey(Orb::CharRange& r) {
   r.needString("L3TunnelKey(");
   src_ = Orb::deserializeAttr<Wire::IpGenAddr>(r, "srcIpAddr");
   r.needString(", ");
   dst_ = Orb::deserializeAttr<Wire::IpGenAddr>(r, "dstIpAddr");
   r.needString(")");
}

namespace {
// An IPv4 address keeps its other twelve bytes zero: its first four and the
// family tell it apart.
void mixAddress(Orb::Hash& h, const Wire::IpGenAddr& a) {
   h.mix(uint32_t(a.family()));
   h.mixBytes(a.bytes().data(), a.isV6() ? a.bytes().size() : 4);
}
}  // namespace

// One accumulator over both addresses: every map lookup of every tunnel table
// hashes the key, so it is worth keeping short.
uint32_t L3TunnelKey::hash(uint32_t seed) const {
   Orb::Hash h(seed);
   mixAddress(h, src_);
   mixAddress(h, dst_);
   return h.result();
}

std::ostream& operator<<(std::ostream& os, const L3TunnelKey& k) { return os << valueToStrep(k); }

std::string valueToStrep(const L3TunnelKey& k) {
   return "L3TunnelKey(" + valueToStrep(k.src_) + ", " + valueToStrep(k.dst_) + ")";
}

}  // namespace MeridL3Tunnel
