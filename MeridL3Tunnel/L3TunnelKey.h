#pragma once
// The key of every tunnel table: the tunnel's outer source and destination.
#include <cstdint>
#include <iosfwd>
#include <string>

#include "MeridL3Tunnel/Export.h"
#include "Orb/CharRange.h"
#include "Wire/IpGenAddr.h"

namespace MeridL3Tunnel {

class MERID_API L3TunnelKey {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3TunnelKey";

   L3TunnelKey() = default;
   L3TunnelKey(const Wire::IpGenAddr& src, const Wire::IpGenAddr& dst) : src_(src), dst_(dst) {}
   explicit L3TunnelKey(Orb::CharRange& r);

   const Wire::IpGenAddr& srcIpAddr() const { return src_; }
   const Wire::IpGenAddr& dstIpAddr() const { return dst_; }

   uint32_t hash(uint32_t seed) const;
   static bool isEq(const L3TunnelKey& a, const L3TunnelKey& b) { return a == b; }
   friend bool operator==(const L3TunnelKey&, const L3TunnelKey&) = default;
   friend bool operator<(const L3TunnelKey& a, const L3TunnelKey& b) {
      return a.src_ < b.src_ || (a.src_ == b.src_ && a.dst_ < b.dst_);
   }
   friend MERID_API std::ostream& operator<<(std::ostream& os, const L3TunnelKey& k);
   friend MERID_API std::string valueToStrep(const L3TunnelKey& k);

private:
   Wire::IpGenAddr src_;
   Wire::IpGenAddr dst_;
};

}  // namespace MeridL3Tunnel
