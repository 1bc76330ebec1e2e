#pragma once
// The agent's workload at scale: N groups of 16 vias over N/4 tunnel
// endpoints, so that every endpoint is in 64 groups and about 98% of the vias
// find their chain already programmed (at N = 4096: 1024 endpoints, 65536
// member rows). The same shape at every N, so that figures per via and per
// group compare across sizes.
#include <algorithm>
#include <vector>

#include "BenchRig.h"
#include "MeridL3Tunnel/L3TunnelOverlayVia.h"

namespace bench {

// The sizes the workloads run at: a quarter of, one and four times 4096 groups.
inline constexpr uint32_t workloadSizes[] = {1024, 4096, 16384};

class Workload {
public:
   static constexpr uint32_t viasPerGroup = 16;
   static constexpr uint32_t underlays = 4;

   explicit Workload(uint32_t groups) : groups_(groups), endpoints_(groups / underlays) {}

   uint32_t groups() const { return groups_; }
   uint32_t endpoints() const { return endpoints_; }
   // Member rows when every group is programmed, and room for one group's
   // new block beside its old one.
   uint32_t memberRows() const { return std::max(maxRows, groups_ * viasPerGroup + 1024); }

   // Via `v` of group `g`: endpoint (g + v * endpoints / 16) mod endpoints,
   // over underlay group 1 + (g / endpoints + v) mod 4. The first via's
   // endpoint and underlay tell the groups apart, so no two share a block.
   uint32_t endpoint(uint32_t g, uint32_t v) const {
      return (g + v * (endpoints_ / viasPerGroup)) % endpoints_;
   }

   // Group `g`'s vias, without endpoint `skip` (none when out of range).
   Brio::Ptr<const MeridL3Tunnel::L3TunnelOverlayVia> vias(uint32_t g, uint32_t skip = ~0u) const {
      auto list = MeridL3Tunnel::l3TunnelOverlayViaFactory();
      for (uint32_t v = 0; v < viasPerGroup; ++v) {
         const uint32_t e = endpoint(g, v);
         if (e == skip) continue;
         const L3TunnelKey k = tunnelKey(e);
         list->viaPush({Plx::nextHopArpResolved(), k.srcIpAddr(), k.dstIpAddr(), 64, 1,
                        adj(1 + (g / endpoints_ + v) % underlays)});
      }
      return list;
   }

   // The groups holding endpoint `e`, in ascending order.
   std::vector<uint32_t> groupsOf(uint32_t e) const {
      std::vector<uint32_t> out;
      const uint32_t stride = endpoints_ / viasPerGroup;
      for (uint32_t v = 0; v < viasPerGroup; ++v)
         for (uint32_t k = 0; k < underlays; ++k)
            out.push_back((e + endpoints_ - (v * stride) % endpoints_) % endpoints_ +
                          k * endpoints_);
      std::sort(out.begin(), out.end());
      return out;
   }

private:
   uint32_t groups_;
   uint32_t endpoints_;
};

}  // namespace bench
