#pragma once
// The value of an egress IP tunnel entry: the outer header a packet gets when
// it enters the tunnel. The IPv4 and IPv6 tables hold the same fields; `Name`
// gives each its own type name.
#include <cstdint>
#include <tuple>

#include "Asic/DescribedEntry.h"
#include "Orb/BitUInt.h"
#include "Orb/CharRange.h"
#include "Wire/IpGenAddr.h"

namespace MeridL3Tunnel {

template <class Name>
class EgrL3IpTunnelEntry : public Asic::DescribedEntry<EgrL3IpTunnelEntry<Name>> {
public:
   static constexpr std::string_view typeName = Name::typeName;

   EgrL3IpTunnelEntry() = default;
   EgrL3IpTunnelEntry(bool v4, bool v6, const Wire::IpGenAddr& src, uint8_t ttl,
                      const Wire::IpGenAddr& dst, U5 strength)
       : isIpInIpV4Tunnel_(v4),
         isIpInIpV6Tunnel_(v6),
         srcIpAddr_(src),
         ttlValue_(ttl),
         dstIpAddr_(dst),
         strengthProfileIndex1_(strength) {}
   explicit EgrL3IpTunnelEntry(Orb::CharRange& r) { this->fieldsRead(r); }

   bool isIpInIpV4Tunnel() const { return isIpInIpV4Tunnel_; }
   void isIpInIpV4TunnelIs(bool b) { isIpInIpV4Tunnel_ = b; }
   bool isIpInIpV6Tunnel() const { return isIpInIpV6Tunnel_; }
   void isIpInIpV6TunnelIs(bool b) { isIpInIpV6Tunnel_ = b; }
   const Wire::IpGenAddr& srcIpAddr() const { return srcIpAddr_; }
   void srcIpAddrIs(const Wire::IpGenAddr& a) { srcIpAddr_ = a; }
   uint8_t ttlValue() const { return ttlValue_; }
   void ttlValueIs(uint8_t t) { ttlValue_ = t; }
   const Wire::IpGenAddr& dstIpAddr() const { return dstIpAddr_; }
   void dstIpAddrIs(const Wire::IpGenAddr& a) { dstIpAddr_ = a; }
   U5 strengthProfileIndex1() const { return strengthProfileIndex1_; }
   void strengthProfileIndex1Is(U5 s) { strengthProfileIndex1_ = s; }

private:
   bool isIpInIpV4Tunnel_ = false;
   bool isIpInIpV6Tunnel_ = false;
   Wire::IpGenAddr srcIpAddr_;
   uint8_t ttlValue_ = 0;
   Wire::IpGenAddr dstIpAddr_;
   U5 strengthProfileIndex1_;

public:
   static constexpr auto fields = std::tuple{
       Asic::valueField("isIpInIpV4Tunnel", &EgrL3IpTunnelEntry::isIpInIpV4Tunnel_),
       Asic::valueField("isIpInIpV6Tunnel", &EgrL3IpTunnelEntry::isIpInIpV6Tunnel_),
       Asic::valueField("srcIpAddr", &EgrL3IpTunnelEntry::srcIpAddr_),
       Asic::valueField("ttlValue", &EgrL3IpTunnelEntry::ttlValue_),
       Asic::valueField("dstIpAddr", &EgrL3IpTunnelEntry::dstIpAddr_),
       Asic::valueField("strengthProfileIndex1", &EgrL3IpTunnelEntry::strengthProfileIndex1_)};
};

}  // namespace MeridL3Tunnel
