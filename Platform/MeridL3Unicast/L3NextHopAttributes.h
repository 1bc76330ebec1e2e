#pragma once
// The chip's L3 next-hop feature: how next-hop indices are laid out.
#include "Asic/ChipProfile.h"

#pragma GCC visibility push(default)
namespace MeridL3Unicast {

class L3NextHopAttributes final : public Asic::Feature {
public:
   static constexpr std::string_view typeName = "MeridL3Unicast::L3NextHopAttributes";
   explicit L3NextHopAttributes(bool tunnelNextHopsApart = false)
       : tunnelNextHopsApart_(tunnelNextHopsApart) {}

   Orb::TypeId fwkType() const override { return Orb::typeId<L3NextHopAttributes>(); }
   // Tunnel next hops take indices from a space of their own instead of the
   // ordinary L3 next hops' one.
   bool tunnelNextHopsApart() const { return tunnelNextHopsApart_; }

private:
   bool tunnelNextHopsApart_;
};

}  // namespace MeridL3Unicast
#pragma GCC visibility pop
