#include "MeridL3Tunnel/L3TunnelOverlayVia.h"

#include <stdexcept>

#include "Brio/VectorErrors.h"
#include "Orb/Hash.h"
#include "Orb/Strep.h"

namespace MeridL3Tunnel {

namespace {

constexpr std::string_view prefix = "Value('MeridL3Tunnel::L3TunnelOverlayViaEntry', ** {";

constexpr std::string_view attrNames[L3TunnelOverlayViaEntry::attrCount] = {
    "nhEntryType", "srcIpAddr", "dstIpAddr", "ttl", "weight", "underlayAdjId",
};

}  // namespace

L3TunnelOverlayViaEntry::L3TunnelOverlayViaEntry(Orb::CharRange& r) {
   r.needString(prefix);
   r.needString("'nhEntryType': ");
   try {
      nhEntryType_ = Plx::sequenceToValue(r);
   } catch (const std::range_error&) {
      Orb::rethrowFromDeserializeAttr("nhEntryType");
   }
   r.needString(", 'srcIpAddr': ");
   srcIpAddr_ = Orb::deserializeAttr<Wire::IpGenAddr>(r, "srcIpAddr");
   r.needString(", 'dstIpAddr': ");
   dstIpAddr_ = Orb::deserializeAttr<Wire::IpGenAddr>(r, "dstIpAddr");
   r.needString(", 'ttl': ");
   ttl_ = Orb::deserializeAttr<uint32_t>(r, "ttl");
   r.needString(", 'weight': ");
   weight_ = Orb::deserializeAttr<uint32_t>(r, "weight");
   r.needString(", 'underlayAdjId': ");
   underlayAdjId_ = MeridL3Common::L3AdjIdKey();
   r.needString("})");
}

bool operator<(const L3TunnelOverlayViaEntry& a, const L3TunnelOverlayViaEntry& b) {
   if (a.nhEntryType_ != b.nhEntryType_) {
      return uint32_t(a.nhEntryType_) < uint32_t(b.nhEntryType_);
   }
   if (!(a.srcIpAddr_ == b.srcIpAddr_)) return a.srcIpAddr_ < b.srcIpAddr_;
   if (!(a.dstIpAddr_ == b.dstIpAddr_)) return a.dstIpAddr_ < b.dstIpAddr_;
   if (a.ttl_ != b.ttl_) return a.ttl_ < b.ttl_;
   if (a.weight_ != b.weight_) return a.weight_ < b.weight_;
   return a.underlayAdjId_ < b.underlayAdjId_;
}

uint32_t L3TunnelOverlayViaEntry::hash(uint32_t seed) const {
   Orb::Hash h(seed);
   h.mix(uint32_t(nhEntryType_));
   h.mix(Wire::IpGenAddr::hashIpv6Bytes(srcIpAddr_.bytes(), 0));
   h.mix(Wire::IpGenAddr::hashIpv6Bytes(dstIpAddr_.bytes(), 0));
   h.mix(ttl_).mix(weight_);
   h.mix(underlayAdjId_.hash(0));
   return h.result();
}

Orb::AttrResult L3TunnelOverlayViaEntry::attr(Orb::AttrNumber n, Orb::AttrValue& out) const {
   switch (n) {
      case 0:
         out.text = Plx::valueToStrep(nhEntryType_);
         break;
      case 1:
         out.text = valueToStrep(srcIpAddr_);
         break;
      case 2:
         out.text = valueToStrep(dstIpAddr_);
         break;
      case 3:
         out.text = std::to_string(ttl_);
         break;
      case 4:
         out.text = std::to_string(weight_);
         break;
      case 5:
         out.text = underlayAdjId_.stringValue();
         break;
      default:
         return Orb::AttrResult::noSuchAttribute;
   }
   out.name = attrNames[n];
   return Orb::AttrResult::success;
}

Orb::AttrResult L3TunnelOverlayViaEntry::attrIs(Orb::AttrNumber n, std::string_view) {
   // A via is written as a whole through the list, never field by field.
   return n < attrCount ? Orb::AttrResult::notSettable : Orb::AttrResult::noSuchAttribute;
}

std::string valueToStrep(const L3TunnelOverlayViaEntry& e) {
   const std::string nhEntryType = Plx::valueToStrep(e.nhEntryType_);
   const std::string src = valueToStrep(e.srcIpAddr_);
   const std::string dst = valueToStrep(e.dstIpAddr_);
   const std::string ttl = std::to_string(e.ttl_);
   const std::string weight = std::to_string(e.weight_);
   const std::string adj = e.underlayAdjId_.stringValue();
   std::string out(prefix);
   out.append("'nhEntryType': ").append(nhEntryType);
   out.append(", 'srcIpAddr': ").append(src);
   out.append(", 'dstIpAddr': ").append(dst);
   out.append(", 'ttl': ").append(ttl);
   out.append(", 'weight': ").append(weight);
   out.append(", 'underlayAdjId': ").append(adj);
   out.append("})");
   return out;
}

std::ostream& operator<<(std::ostream& os, const L3TunnelOverlayViaEntry& e) {
   return os << valueToStrep(e);
}

uint32_t L3TunnelOverlayVia::checked(VE_Via position) const {
   if (position.value() >= vias()) Brio::throwVectorOutOfRange(position.value(), vias());
   return position.value();
}

L3TunnelOverlayViaEntry L3TunnelOverlayVia::viaPop() {
   if (via_.empty()) Brio::throwVectorEmpty();
   Entry last = via_.back();
   via_.pop_back();
   return last;
}

L3TunnelOverlayVia::Ptr L3TunnelOverlayViaIs() {
   // Held from the start, so that a throwing switch-on drops the only reference.
   L3TunnelOverlayVia::Ptr list(new L3TunnelOverlayVia());
   list->notificationIs(true);
   return list;
}

Brio::Ptr<L3TunnelOverlayVia> l3TunnelOverlayViaFactory() { return L3TunnelOverlayViaIs(); }

}  // namespace MeridL3Tunnel
