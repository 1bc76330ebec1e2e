#pragma once
// What the kernel's routing netlink reports, as plain values: links,
// neighbours, nexthop objects and routes, each either made/replaced or
// deleted. The netlink reader fills these; the kernel mirror keeps them.
// Nothing here knows netlink, so the mirror is tested without a kernel.
#include <arpa/inet.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace L3TunnelTool {

// An address as the kernel gives it: family (AF_INET or AF_INET6) and its
// bytes in network order (4 or 16 of them used).
struct KernelAddr {
   uint8_t family = 0;
   std::array<uint8_t, 16> bytes{};

   bool valid() const { return family != 0; }
   // inet_ntop's form; "" when not valid.
   std::string text() const {
      char buf[INET6_ADDRSTRLEN] = "";
      if (!valid() || !inet_ntop(family, bytes.data(), buf, sizeof buf)) return {};
      return buf;
   }
   friend bool operator==(const KernelAddr&, const KernelAddr&) = default;
   friend auto operator<=>(const KernelAddr&, const KernelAddr&) = default;
};

struct KernelLink {
   uint32_t ifindex = 0;
   std::string name;
   bool up = false;  // administratively up with its carrier (IFF_UP and IFF_LOWER_UP)
};

struct KernelNeigh {
   uint32_t ifindex = 0;
   KernelAddr addr;
   bool hasLladdr = false;  // NDA_LLADDR present
   uint16_t state = 0;      // NUD_* bits
};

// An IP-in-IP lightweight tunnel encapsulation (LWTUNNEL_ENCAP_IP or _IP6).
struct KernelEncap {
   enum class Kind : uint8_t { none, ip, ip6, other };
   Kind kind = Kind::none;
   uint16_t type = 0;  // the kernel's encap type, for naming an unknown one
   KernelAddr src;     // not valid when the encapsulation names no source
   KernelAddr dst;
   uint8_t ttl = 0;  // 0: inherit
};

// One path: a nexthop object's own, or one of a route's nexthops.
struct KernelPath {
   uint32_t ifindex = 0;
   KernelAddr gateway;  // not valid without a gateway
   KernelEncap encap;
   uint32_t weight = 1;  // a route's rtnh_hops + 1; a nexthop object has none
};

struct KernelNexthop {
   uint32_t id = 0;
   bool blackhole = false;
   bool fdb = false;
   // A group: member ids with their weights (the kernel's weight, 1-based).
   struct Member {
      uint32_t id = 0;
      uint32_t weight = 1;
   };
   std::vector<Member> group;
   bool resilient = false;  // NHA_GROUP_TYPE is resilient
   // Resilient groups: buckets per member id, from a bucket dump; empty until read.
   std::vector<Member> buckets;
   KernelPath path;  // a single nexthop's device, gateway and encapsulation
   uint8_t family = 0;
   bool isGroup() const { return !group.empty(); }
};

struct KernelRoute {
   uint8_t family = 0;
   uint32_t table = 0;  // RTA_TABLE, or rtm_table
   KernelAddr dst;      // not valid for a default route (prefix length 0)
   uint8_t prefixLen = 0;
   uint8_t type = 0;  // RTN_*
   uint8_t tos = 0;
   uint32_t priority = 0;          // RTA_PRIORITY (metric)
   uint32_t nhid = 0;              // RTA_NH_ID, 0 when the route carries its nexthops inline
   std::vector<KernelPath> paths;  // RTA_MULTIPATH's nexthops, or the single one
};

// One notification or dump answer. `deleted` says the object went.
struct KernelEvent {
   bool deleted = false;
   std::variant<KernelLink, KernelNeigh, KernelNexthop, KernelRoute> object;
};

}  // namespace L3TunnelTool
