#pragma once
// The kernel's links, neighbours, nexthop objects and routes as last
// reported, and the overlay ECMP groups they describe:
//
//   nhid:ID            a nexthop group object, or an encap nexthop a route
//                      uses directly (one via)
//   route:PREFIX[@T]   a route carrying IP-in-IP encapsulation inline (table T
//                      when it is not main)
//
// Applying an event marks the groups it may change; the follower takes those
// names and asks for each group's description, so a change costs the groups
// it touches, not all of them.
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "KernelObjects.h"
#include "MeridL3Common/L3AdjIdKey.h"
#include "MeridL3Tunnel/L3TunnelOverlayVia.h"

namespace L3TunnelTool {

// Where an encapsulated packet leaves: the gateway on the device, or the
// device itself when there is no gateway.
struct Adjacency {
   KernelAddr gateway;
   uint32_t ifindex = 0;
   friend bool operator==(const Adjacency&, const Adjacency&) = default;
   friend auto operator<=>(const Adjacency&, const Adjacency&) = default;
};

// The underlay adjacency id of each adjacency, kept in the state directory so
// that a restart names the same underlay groups. Ids start at 1; the lowest
// free one is given.
class AdjacencyIds {
public:
   static constexpr MeridL3Common::L3AdjIdKeyType keyType =
       MeridL3Common::L3AdjIdKeyType::adjIdTypeNextHop;

   uint32_t idOf(const Adjacency& a);
   std::optional<uint32_t> find(const Adjacency& a) const;
   static MeridL3Common::L3AdjIdKey key(uint32_t id) { return {id, keyType}; }
   // Forgets the adjacencies not in `used`.
   void retain(const std::set<Adjacency>& used);
   const std::map<Adjacency, uint32_t>& ids() const { return ids_; }

   // One JSON document; parse throws std::runtime_error on a bad one.
   std::string text() const;
   void textIs(const std::string& text);

private:
   std::map<Adjacency, uint32_t> ids_;
   std::set<uint32_t> taken_;
};

// An overlay group as the kernel describes it now.
struct OverlayGroup {
   std::vector<MeridL3Tunnel::L3TunnelOverlayViaEntry> vias;
   // Why it is listed but not programmed; none when it is programmed.
   std::optional<std::string> reason;
   std::vector<std::string> routes;     // routes naming it by nhid
   std::vector<Adjacency> adjacencies;  // of its vias, each once
};

class KernelMirror {
public:
   KernelMirror(uint32_t defaultTtl, AdjacencyIds& ids) : defaultTtl_(defaultTtl), ids_(ids) {}

   void apply(const KernelEvent& e);
   // Forgets everything, before a full dump: the names it knew are marked.
   void clear();

   // Names of groups that may have changed since the last take.
   std::set<std::string> dirtyTake();
   // Adjacencies whose resolution may have changed since the last take.
   std::set<Adjacency> dirtyAdjacenciesTake();

   // The group's description, or none when the kernel no longer has it.
   std::optional<OverlayGroup> group(const std::string& name);
   // Every group name the kernel describes now.
   std::vector<std::string> groupNames() const;
   // The neighbour has a link-layer address in a usable state, or the
   // device (no gateway) is up.
   bool resolved(const Adjacency& a) const;

   // Whether a link went down or away since the last take: the kernel then
   // drops IPv4 routes through it without a word, so the caller dumps again.
   bool linkDownTake() { return std::exchange(linkDown_, false); }

   // Kernel objects seen now.
   uint32_t nexthops() const { return uint32_t(nexthops_.size()) - groups(); }
   uint32_t groups() const { return groupObjects_; }
   uint32_t routes() const { return uint32_t(routes_.size()); }
   const KernelLink* link(uint32_t ifindex) const;
   // "GATEWAY dev DEVICE", or "dev DEVICE" without a gateway.
   std::string adjacencyName(const Adjacency& a) const;
   // "PREFIX" or "PREFIX@TABLE", as a route group's name carries it.
   static std::string routeName(const KernelRoute& r);

private:
   struct RouteKey {
      uint8_t family;
      uint32_t table;
      KernelAddr dst;
      uint8_t prefixLen;
      uint8_t tos;
      uint32_t priority;
      friend auto operator<=>(const RouteKey&, const RouteKey&) = default;
   };
   struct NeighKey {
      uint32_t ifindex;
      KernelAddr addr;
      friend auto operator<=>(const NeighKey&, const NeighKey&) = default;
   };

   void nexthopApply(const KernelNexthop& nh, bool deleted);
   void routeApply(const KernelRoute& r, bool deleted);
   void linkApply(const KernelLink& l, bool deleted);
   void neighApply(const KernelNeigh& n, bool deleted);
   void markNexthop(uint32_t id);
   // The via of one path, or why it is none.
   std::optional<std::string> viaOf(const KernelPath& p, uint32_t weight, const std::string& what,
                                    OverlayGroup& g);
   bool overlayRoute(const KernelRoute& r) const;
   std::optional<std::string> groupOf(const KernelRoute& r) const;

   uint32_t defaultTtl_;
   AdjacencyIds& ids_;
   std::map<uint32_t, KernelLink> links_;
   std::map<NeighKey, KernelNeigh> neighs_;
   std::unordered_map<uint32_t, KernelNexthop> nexthops_;
   uint32_t groupObjects_ = 0;
   // Member nexthop id -> the groups holding it.
   std::unordered_map<uint32_t, std::unordered_set<uint32_t>> memberOf_;
   std::map<RouteKey, KernelRoute> routes_;
   // Routes by group name: "nhid:ID" (routes naming it) and "route:..." (its route).
   std::unordered_map<std::string, std::set<RouteKey>> routesOf_;
   std::set<std::string> dirty_;
   std::set<Adjacency> dirtyAdjacencies_;
   bool linkDown_ = false;
};

}  // namespace L3TunnelTool
