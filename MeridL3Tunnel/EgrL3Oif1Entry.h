#pragma once
// The value of an egress L3 outgoing-interface entry: the interface of a
// tunnel. It names the tunnel's entry by its handle; `tunnelIdx` is derived
// from that handle when the entry is resolved, so it takes no part in
// equality or order. The tunnel OIF table and the merged table's egress member
// hold the same fields; `Name` gives each its own type name.
#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Asic/EntryBase.h"
#include "Orb/BitUInt.h"
#include "Orb/CharRange.h"
#include "Orb/Strep.h"

namespace MeridL3Tunnel {

template <class Name>
class EgrL3Oif1Entry : public Asic::EntryImpl<EgrL3Oif1Entry<Name>> {
public:
   using HandlePtr = Brio::Ptr<const Asic::SwTableBase::EntryHandle>;
   static constexpr std::string_view typeName = Name::typeName;

   EgrL3Oif1Entry() = default;
   EgrL3Oif1Entry(HandlePtr tunnel, uint16_t tunnelIdx, uint8_t ttlThreshold, U5 strength)
       : tunnelIdxHandle_(std::move(tunnel)),
         tunnelIdx_(tunnelIdx),
         ttlThreshold_(ttlThreshold),
         strengthPrflIndex_(strength) {}

   explicit EgrL3Oif1Entry(Orb::CharRange& r) {
      r.needString(prefix());
      r.needString("'tunnelIdxHandle': ");
      tunnelIdxHandle_ = Asic::SwTableBase::EntryHandle::handleFromText(r, "tunnelIdxHandle");
      r.needString(", 'tunnelIdx': ");
      tunnelIdx_ = Orb::deserializeAttr<uint16_t>(r, "tunnelIdx");
      r.needString(", 'ttlThreshold': ");
      ttlThreshold_ = Orb::deserializeAttr<uint8_t>(r, "ttlThreshold");
      r.needString(", 'strengthPrflIndex': ");
      try {
         strengthPrflIndex_ = U5(r);
      } catch (const std::range_error&) {
         Orb::rethrowFromDeserializeAttr("strengthPrflIndex");
      }
      r.needString("})");
   }

   const HandlePtr& tunnelIdxHandle() const { return tunnelIdxHandle_; }
   void tunnelIdxHandleIs(HandlePtr h) { tunnelIdxHandle_ = std::move(h); }
   uint16_t tunnelIdx() const { return tunnelIdx_; }
   void tunnelIdxIs(uint16_t i) { tunnelIdx_ = i; }
   uint8_t ttlThreshold() const { return ttlThreshold_; }
   void ttlThresholdIs(uint8_t t) { ttlThreshold_ = t; }
   U5 strengthPrflIndex() const { return strengthPrflIndex_; }
   void strengthPrflIndexIs(U5 s) { strengthPrflIndex_ = s; }

   // What the engine resolves: the named handle and the field its index goes to.
   const HandlePtr& neededEntryHandle() const { return tunnelIdxHandle_; }
   void dependentFieldIs(uint16_t i) { tunnelIdx_ = i; }

   // The fields that make the value: equality and the value hash walk them.
   auto valueFields() const {
      return std::tie(tunnelIdxHandle_, ttlThreshold_, strengthPrflIndex_);
   }
   friend bool operator==(const EgrL3Oif1Entry& a, const EgrL3Oif1Entry& b) {
      return EgrL3Oif1Entry::isEq(a, b);
   }
   friend bool operator<(const EgrL3Oif1Entry& a, const EgrL3Oif1Entry& b) {
      const Asic::EntryBase& ab = a;
      const Asic::EntryBase& bb = b;
      if (ab < bb) return true;
      if (bb < ab) return false;
      if (a.tunnelIdxHandle_.ptr() != b.tunnelIdxHandle_.ptr())
         return std::less<>()(a.tunnelIdxHandle_.ptr(), b.tunnelIdxHandle_.ptr());
      if (a.ttlThreshold_ != b.ttlThreshold_) return a.ttlThreshold_ < b.ttlThreshold_;
      return a.strengthPrflIndex_ < b.strengthPrflIndex_;
   }
   explicit operator bool() const { return !EgrL3Oif1Entry::isEq(*this, EgrL3Oif1Entry()); }

   friend std::string valueToStrep(const EgrL3Oif1Entry& e) {
      return text(e, e.tunnelIdxHandle_.ptr());
   }
   friend std::ostream& operator<<(std::ostream& os, const EgrL3Oif1Entry& e) {
      return os << valueToStrep(e);
   }
   std::string rowText() const override { return text(*this, nullptr); }

private:
   static std::string prefix() { return "Value('" + std::string(typeName) + "', ** {"; }
   // The text form with `handle` in the handle's place, built in one buffer:
   // the chip's row of every write is this text (with no handle).
   static std::string text(const EgrL3Oif1Entry& e, const Asic::SwTableBase::EntryHandle* handle) {
      std::string out;
      out.reserve(160);
      out.append("Value('").append(typeName).append("', ** {");
      out.append("'tunnelIdxHandle': ").append(Asic::SwTableBase::EntryHandle::handleText(handle));
      out.append(", 'tunnelIdx': ").append(std::to_string(e.tunnelIdx_));
      out.append(", 'ttlThreshold': ").append(std::to_string(e.ttlThreshold_));
      out.append(", 'strengthPrflIndex': ").append(valueToStrep(e.strengthPrflIndex_));
      out.append("})");
      return out;
   }

   HandlePtr tunnelIdxHandle_;
   uint16_t tunnelIdx_ = 0;
   uint8_t ttlThreshold_ = 0;
   U5 strengthPrflIndex_;
};

}  // namespace MeridL3Tunnel
