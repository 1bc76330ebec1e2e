#pragma once
// The overlay vias of one overlay ECMP group, as the agent hands them to the
// overlay ECMP programmer: per tunnel the next-hop kind, the outer addresses,
// TTL, weight and the underlay adjacency that carries the tunnel.
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Brio/Allocator.h"
#include "Brio/Ptr.h"
#include "Brio/Publisher.h"
#include "MeridL3Common/L3AdjIdKey.h"
#include "MeridL3Tunnel/Export.h"
#include "Orb/CharRange.h"
#include "Orb/Reflection.h"
#include "Plx/NextHopEntryType.h"
#include "Wire/IpGenAddr.h"

namespace MeridL3Tunnel {

// One via: a plain value.
class MERID_API L3TunnelOverlayViaEntry {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3TunnelOverlayViaEntry";
   static constexpr Orb::AttrNumber attrCount = 6;

   L3TunnelOverlayViaEntry() = default;
   L3TunnelOverlayViaEntry(Plx::NextHopEntryType nhEntryType, const Wire::IpGenAddr& srcIpAddr,
                           const Wire::IpGenAddr& dstIpAddr, uint32_t ttl, uint32_t weight,
                           const MeridL3Common::L3AdjIdKey& underlayAdjId)
       : nhEntryType_(nhEntryType),
         srcIpAddr_(srcIpAddr),
         dstIpAddr_(dstIpAddr),
         ttl_(ttl),
         weight_(weight),
         underlayAdjId_(underlayAdjId) {}
   // The text form. The adjacency part must be empty and comes back as the
   // default key: the printed adjacency text is for reading, not for parsing.
   explicit L3TunnelOverlayViaEntry(Orb::CharRange& r);

   Plx::NextHopEntryType nhEntryType() const { return nhEntryType_; }
   void nhEntryTypeIs(Plx::NextHopEntryType t) { nhEntryType_ = t; }
   const Wire::IpGenAddr& srcIpAddr() const { return srcIpAddr_; }
   void srcIpAddrIs(const Wire::IpGenAddr& a) { srcIpAddr_ = a; }
   const Wire::IpGenAddr& dstIpAddr() const { return dstIpAddr_; }
   void dstIpAddrIs(const Wire::IpGenAddr& a) { dstIpAddr_ = a; }
   uint32_t ttl() const { return ttl_; }
   void ttlIs(uint32_t t) { ttl_ = t; }
   uint32_t weight() const { return weight_; }
   void weightIs(uint32_t w) { weight_ = w; }
   const MeridL3Common::L3AdjIdKey& underlayAdjId() const { return underlayAdjId_; }
   void underlayAdjIdIs(const MeridL3Common::L3AdjIdKey& k) { underlayAdjId_ = k; }

   // The cheap fields go first so that most unequal pairs stop early.
   static bool isEq(const L3TunnelOverlayViaEntry& a, const L3TunnelOverlayViaEntry& b) {
      return a.nhEntryType_ == b.nhEntryType_ && a.ttl_ == b.ttl_ && a.weight_ == b.weight_ &&
             a.srcIpAddr_ == b.srcIpAddr_ && a.dstIpAddr_ == b.dstIpAddr_ &&
             MeridL3Common::L3AdjIdKey::isEq(a.underlayAdjId_, b.underlayAdjId_);
   }
   friend bool operator==(const L3TunnelOverlayViaEntry& a, const L3TunnelOverlayViaEntry& b) {
      return isEq(a, b);
   }
   friend MERID_API bool operator<(const L3TunnelOverlayViaEntry& a,
                                   const L3TunnelOverlayViaEntry& b);
   explicit operator bool() const { return !isEq(*this, L3TunnelOverlayViaEntry()); }

   // Addresses are hashed by their bytes only, so an all-zero address hashes
   // the same in every family; equality still tells the families apart.
   uint32_t hash(uint32_t seed) const;

   // Reflection: attributes in declaration order, all read-only.
   Orb::AttrResult attr(Orb::AttrNumber n, Orb::AttrValue& out) const;
   Orb::AttrResult attrIs(Orb::AttrNumber n, std::string_view text);

   friend MERID_API std::string valueToStrep(const L3TunnelOverlayViaEntry& e);
   friend MERID_API std::ostream& operator<<(std::ostream& os, const L3TunnelOverlayViaEntry& e);

private:
   Plx::NextHopEntryType nhEntryType_ = Plx::NextHopEntryType::nextHopUnknown;
   Wire::IpGenAddr srcIpAddr_;
   Wire::IpGenAddr dstIpAddr_;
   uint32_t ttl_ = 0;
   uint32_t weight_ = 0;
   MeridL3Common::L3AdjIdKey underlayAdjId_;
};

// Position in the via list, counted from 0; also the memory-tracker tag of the
// list's storage.
class VE_Via {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::VE_Via";

   constexpr VE_Via(uint32_t value = 0) : value_(value) {}
   constexpr uint32_t value() const { return value_; }
   friend constexpr auto operator<=>(VE_Via, VE_Via) = default;

private:
   uint32_t value_;
};

// The list is a passive container: nothing it does notifies anybody. The
// programmer reads it only when the list is handed to it, so a change takes
// effect when the list is handed over again.
class MERID_API L3TunnelOverlayVia : public Brio::PtrInterface,
                                     public Brio::TrackedAllocation<L3TunnelOverlayVia> {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3TunnelOverlayVia";
   using Ptr = Brio::Ptr<L3TunnelOverlayVia>;
   using PtrConst = Brio::Ptr<const L3TunnelOverlayVia>;
   using Entry = L3TunnelOverlayViaEntry;
   // What reflection sees as one element of `via`.
   using ViaElement = std::pair<VE_Via, L3TunnelOverlayViaEntry>;
   using ViaVector = std::vector<Entry, Brio::Allocator<Entry, VE_Via>>;
   using const_iterator = ViaVector::const_iterator;

   uint32_t vias() const { return uint32_t(via_.size()); }
   uint32_t viaCapacity() const { return uint32_t(via_.capacity()); }
   Entry via(VE_Via position) const { return via_[checked(position)]; }
   ViaElement viaElement(VE_Via position) const { return {position, via(position)}; }
   // Positions 0 to vias() - 1, in order.
   const_iterator begin() const { return via_.begin(); }
   const_iterator end() const { return via_.end(); }

   void viaPush(const Entry& e) { via_.push_back(e); }
   // Overwrites; never appends.
   void viaIs(VE_Via position, const Entry& e) { via_[checked(position)] = e; }
   Entry viaPop();
   // Keeps the capacity, since a cleared list is usually refilled.
   void viaPopAll() { via_.clear(); }

   bool notification() const { return notification_; }
   void notificationIs(bool on) { notification_ = on; }
   // Notifiees attach here; the list itself publishes nothing.
   Brio::Publisher& publisher() { return publisher_; }

private:
   friend MERID_API Ptr L3TunnelOverlayViaIs();

   L3TunnelOverlayVia() = default;
   ~L3TunnelOverlayVia() override = default;

   uint32_t checked(VE_Via position) const;

   ViaVector via_;
   Brio::Publisher publisher_;
   bool notification_ = false;
};

MERID_API L3TunnelOverlayVia::Ptr L3TunnelOverlayViaIs();

extern "C" MERID_API Brio::Ptr<L3TunnelOverlayVia> l3TunnelOverlayViaFactory();

}  // namespace MeridL3Tunnel
