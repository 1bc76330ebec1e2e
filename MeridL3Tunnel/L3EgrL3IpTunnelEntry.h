#pragma once
// The value of an egress IP tunnel entry: the outer header a packet gets when
// it enters the tunnel. The IPv4 and IPv6 tables hold the same fields; `Name`
// gives each its own type name.
#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Asic/EntryBase.h"
#include "Orb/BitUInt.h"
#include "Orb/CharRange.h"
#include "Orb/Strep.h"
#include "Wire/IpGenAddr.h"

namespace MeridL3Tunnel {

template <class Name>
class EgrL3IpTunnelEntry : public Asic::EntryImpl<EgrL3IpTunnelEntry<Name>> {
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

   // The text form; blanks must stand exactly as printed.
   explicit EgrL3IpTunnelEntry(Orb::CharRange& r) {
      r.needString(prefix());
      r.needString("'isIpInIpV4Tunnel': ");
      isIpInIpV4Tunnel_ = Orb::deserializeAttr<bool>(r, "isIpInIpV4Tunnel");
      r.needString(", 'isIpInIpV6Tunnel': ");
      isIpInIpV6Tunnel_ = Orb::deserializeAttr<bool>(r, "isIpInIpV6Tunnel");
      r.needString(", 'srcIpAddr': ");
      srcIpAddr_ = Orb::deserializeAttr<Wire::IpGenAddr>(r, "srcIpAddr");
      r.needString(", 'ttlValue': ");
      ttlValue_ = Orb::deserializeAttr<uint8_t>(r, "ttlValue");
      r.needString(", 'dstIpAddr': ");
      dstIpAddr_ = Orb::deserializeAttr<Wire::IpGenAddr>(r, "dstIpAddr");
      r.needString(", 'strengthProfileIndex1': ");
      try {
         strengthProfileIndex1_ = U5(r);
      } catch (const std::range_error&) {
         Orb::rethrowFromDeserializeAttr("strengthProfileIndex1");
      }
      r.needString("})");
   }

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

   // The fields that make the value: equality and the value hash walk them.
   auto valueFields() const {
      return std::tie(isIpInIpV4Tunnel_, isIpInIpV6Tunnel_, srcIpAddr_, ttlValue_, dstIpAddr_,
                      strengthProfileIndex1_);
   }
   friend bool operator==(const EgrL3IpTunnelEntry& a, const EgrL3IpTunnelEntry& b) {
      return EgrL3IpTunnelEntry::isEq(a, b);
   }
   friend bool operator<(const EgrL3IpTunnelEntry& a, const EgrL3IpTunnelEntry& b) {
      const Asic::EntryBase& ab = a;
      const Asic::EntryBase& bb = b;
      if (ab < bb) return true;
      if (bb < ab) return false;
      if (a.isIpInIpV4Tunnel_ != b.isIpInIpV4Tunnel_)
         return a.isIpInIpV4Tunnel_ < b.isIpInIpV4Tunnel_;
      if (a.isIpInIpV6Tunnel_ != b.isIpInIpV6Tunnel_)
         return a.isIpInIpV6Tunnel_ < b.isIpInIpV6Tunnel_;
      if (!(a.srcIpAddr_ == b.srcIpAddr_)) return a.srcIpAddr_ < b.srcIpAddr_;
      if (a.ttlValue_ != b.ttlValue_) return a.ttlValue_ < b.ttlValue_;
      if (!(a.dstIpAddr_ == b.dstIpAddr_)) return a.dstIpAddr_ < b.dstIpAddr_;
      return a.strengthProfileIndex1_ < b.strengthProfileIndex1_;
   }
   explicit operator bool() const { return !EgrL3IpTunnelEntry::isEq(*this, EgrL3IpTunnelEntry()); }

   // Built in one buffer: the chip's row of every write is this text.
   friend std::string valueToStrep(const EgrL3IpTunnelEntry& e) {
      std::string out;
      out.reserve(224);
      out.append("Value('").append(typeName).append("', ** {");
      out.append("'isIpInIpV4Tunnel': ");
      Orb::StrepTraits<bool>::print(out, e.isIpInIpV4Tunnel_);
      out.append(", 'isIpInIpV6Tunnel': ");
      Orb::StrepTraits<bool>::print(out, e.isIpInIpV6Tunnel_);
      out.append(", 'srcIpAddr': ").append(valueToStrep(e.srcIpAddr_));
      out.append(", 'ttlValue': ").append(std::to_string(e.ttlValue_));
      out.append(", 'dstIpAddr': ").append(valueToStrep(e.dstIpAddr_));
      out.append(", 'strengthProfileIndex1': ").append(valueToStrep(e.strengthProfileIndex1_));
      out.append("})");
      return out;
   }
   friend std::ostream& operator<<(std::ostream& os, const EgrL3IpTunnelEntry& e) {
      return os << valueToStrep(e);
   }

private:
   static std::string prefix() { return "Value('" + std::string(typeName) + "', ** {"; }

   bool isIpInIpV4Tunnel_ = false;
   bool isIpInIpV6Tunnel_ = false;
   Wire::IpGenAddr srcIpAddr_;
   uint8_t ttlValue_ = 0;
   Wire::IpGenAddr dstIpAddr_;
   U5 strengthProfileIndex1_;
};

}  // namespace MeridL3Tunnel
