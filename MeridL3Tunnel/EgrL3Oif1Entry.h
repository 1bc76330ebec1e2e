#pragma once
// The value of an egress L3 outgoing-interface entry: the interface of a
// tunnel. It names the tunnel's entry by its handle; `tunnelIdx` is derived
// from that handle when the entry is resolved, so it takes no part in
// equality or order. The tunnel OIF table and the merged table's egress member
// hold the same fields; `Name` gives each its own type name.
#include <cstdint>
#include <tuple>

#include "Asic/DescribedEntry.h"
#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"
#include "Orb/BitUInt.h"
#include "Orb/CharRange.h"

namespace MeridL3Tunnel {

template <class Name>
class EgrL3Oif1Entry : public Asic::DescribedEntry<EgrL3Oif1Entry<Name>> {
public:
   using HandlePtr = Brio::Ptr<const Asic::SwTableBase::EntryHandle>;
   static constexpr std::string_view typeName = Name::typeName;

   EgrL3Oif1Entry() = default;
   EgrL3Oif1Entry(HandlePtr tunnel, uint16_t tunnelIdx, uint8_t ttlThreshold, U5 strength)
       : tunnelIdxHandle_(std::move(tunnel)),
         tunnelIdx_(tunnelIdx),
         ttlThreshold_(ttlThreshold),
         strengthPrflIndex_(strength) {}
   explicit EgrL3Oif1Entry(Orb::CharRange& r) { this->fieldsRead(r); }

   const HandlePtr& tunnelIdxHandle() const { return tunnelIdxHandle_; }
   void tunnelIdxHandleIs(HandlePtr h) { tunnelIdxHandle_ = std::move(h); }
   uint16_t tunnelIdx() const { return tunnelIdx_; }
   void tunnelIdxIs(uint16_t i) { tunnelIdx_ = i; }
   uint8_t ttlThreshold() const { return ttlThreshold_; }
   void ttlThresholdIs(uint8_t t) { ttlThreshold_ = t; }
   U5 strengthPrflIndex() const { return strengthPrflIndex_; }
   void strengthPrflIndexIs(U5 s) { strengthPrflIndex_ = s; }

private:
   HandlePtr tunnelIdxHandle_;
   uint16_t tunnelIdx_ = 0;
   uint8_t ttlThreshold_ = 0;
   U5 strengthPrflIndex_;

public:
   // The IPv4 and IPv6 tunnel tables give out indices of one space; the
   // IPv4 table's size bounds it.
   static constexpr auto fields = std::tuple{
       Asic::handleField("tunnelIdxHandle", &EgrL3Oif1Entry::tunnelIdxHandle_),
       Asic::dependentField("tunnelIdx", &EgrL3Oif1Entry::tunnelIdx_,
                            &EgrL3Oif1Entry::tunnelIdxHandle_, L3EgrL3Ipv4TunnelTable::typeName),
       Asic::valueField("ttlThreshold", &EgrL3Oif1Entry::ttlThreshold_),
       Asic::valueField("strengthPrflIndex", &EgrL3Oif1Entry::strengthPrflIndex_)};
};

}  // namespace MeridL3Tunnel
