#include "KernelMirror.h"

#include <arpa/inet.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "MeridL3Tunnel/L3TunnelKey.h"

namespace L3TunnelTool {

using MeridL3Tunnel::L3TunnelOverlayViaEntry;

namespace {

constexpr std::string_view nhidPrefix = "nhid:";
constexpr std::string_view routePrefix = "route:";

std::string nhidName(uint32_t id) { return std::string(nhidPrefix) + std::to_string(id); }

// The id of an "nhid:ID" name.
std::optional<uint32_t> nhidOf(std::string_view name) {
   if (!name.starts_with(nhidPrefix)) return std::nullopt;
   name.remove_prefix(nhidPrefix.size());
   uint32_t id = 0;
   const auto [end, ec] = std::from_chars(name.data(), name.data() + name.size(), id);
   if (ec != std::errc() || end != name.data() + name.size()) return std::nullopt;
   return id;
}

Wire::IpGenAddr ipOf(const KernelAddr& a) {
   if (a.family == AF_INET6) return Wire::IpGenAddr::ipv6(a.bytes);
   return Wire::IpGenAddr::ipv4(uint32_t(a.bytes[0]) << 24 | uint32_t(a.bytes[1]) << 16 |
                                uint32_t(a.bytes[2]) << 8 | a.bytes[3]);
}

// The kernel reports an address it was not given as zeros.
bool given(const KernelAddr& a) {
   return a.valid() && std::any_of(a.bytes.begin(), a.bytes.end(), [](uint8_t b) { return b; });
}

bool isIpInIp(const KernelEncap& e) {
   return e.kind == KernelEncap::Kind::ip || e.kind == KernelEncap::Kind::ip6;
}

}  // namespace

// ---- adjacency ids ------------------------------------------------------------

uint32_t AdjacencyIds::idOf(const Adjacency& a) {
   auto [it, made] = ids_.try_emplace(a, 0);
   if (!made) return it->second;
   uint32_t id = 1;
   for (const uint32_t t : taken_) {
      if (t != id) break;
      ++id;
   }
   taken_.insert(id);
   return it->second = id;
}

std::optional<uint32_t> AdjacencyIds::find(const Adjacency& a) const {
   auto it = ids_.find(a);
   if (it == ids_.end()) return std::nullopt;
   return it->second;
}

void AdjacencyIds::retain(const std::set<Adjacency>& used) {
   for (auto it = ids_.begin(); it != ids_.end();) {
      if (used.count(it->first)) {
         ++it;
         continue;
      }
      taken_.erase(it->second);
      it = ids_.erase(it);
   }
}

std::string AdjacencyIds::text() const {
   nlohmann::json list = nlohmann::json::array();
   for (const auto& [a, id] : ids_) {
      nlohmann::json gw = nullptr;
      if (a.gateway.valid()) gw = a.gateway.text();
      list.push_back({{"gateway", gw}, {"ifindex", a.ifindex}, {"id", id}});
   }
   return nlohmann::json{{"formatVersion", 1}, {"adjacencies", list}}.dump() + "\n";
}

void AdjacencyIds::textIs(const std::string& text) {
   std::map<Adjacency, uint32_t> ids;
   std::set<uint32_t> taken;
   try {
      const auto doc = nlohmann::json::parse(text);
      if (doc.at("formatVersion") != 1) throw std::runtime_error("unknown formatVersion");
      for (const auto& e : doc.at("adjacencies")) {
         Adjacency a;
         a.ifindex = e.at("ifindex").get<uint32_t>();
         if (!e.at("gateway").is_null()) {
            const std::string gw = e.at("gateway").get<std::string>();
            a.gateway.family = gw.find(':') == std::string::npos ? AF_INET : AF_INET6;
            if (inet_pton(a.gateway.family, gw.c_str(), a.gateway.bytes.data()) != 1)
               throw std::runtime_error("'" + gw + "' is no address");
         }
         const uint32_t id = e.at("id").get<uint32_t>();
         if (id == 0 || !taken.insert(id).second || !ids.emplace(a, id).second)
            throw std::runtime_error("adjacency id " + std::to_string(id) + " given twice");
      }
   } catch (const nlohmann::json::exception& e) {
      throw std::runtime_error(e.what());
   }
   ids_ = std::move(ids);
   taken_ = std::move(taken);
}

// ---- the mirror ----------------------------------------------------------------

std::string KernelMirror::routeName(const KernelRoute& r) {
   std::string name = r.dst.valid() ? r.dst.text() : (r.family == AF_INET6 ? "::" : "0.0.0.0");
   name += "/" + std::to_string(r.prefixLen);
   if (r.table != RT_TABLE_MAIN) name += "@" + std::to_string(r.table);
   return name;
}

const KernelLink* KernelMirror::link(uint32_t ifindex) const {
   auto it = links_.find(ifindex);
   return it == links_.end() ? nullptr : &it->second;
}

std::string KernelMirror::adjacencyName(const Adjacency& a) const {
   const KernelLink* l = link(a.ifindex);
   const std::string device = l ? l->name : "ifindex " + std::to_string(a.ifindex);
   return (a.gateway.valid() ? a.gateway.text() + " " : std::string()) + "dev " + device;
}

void KernelMirror::apply(const KernelEvent& e) {
   if (const auto* nh = std::get_if<KernelNexthop>(&e.object)) return nexthopApply(*nh, e.deleted);
   if (const auto* r = std::get_if<KernelRoute>(&e.object)) return routeApply(*r, e.deleted);
   if (const auto* l = std::get_if<KernelLink>(&e.object)) return linkApply(*l, e.deleted);
   if (const auto* n = std::get_if<KernelNeigh>(&e.object)) return neighApply(*n, e.deleted);
}

void KernelMirror::clear() {
   for (auto& name : groupNames()) dirty_.insert(std::move(name));
   for (const auto& [key, n] : neighs_) dirtyAdjacencies_.insert({key.addr, key.ifindex});
   for (const auto& [ifindex, l] : links_) dirtyAdjacencies_.insert({KernelAddr(), ifindex});
   links_.clear();
   neighs_.clear();
   nexthops_.clear();
   groupObjects_ = 0;
   memberOf_.clear();
   routes_.clear();
   routesOf_.clear();
}

std::set<std::string> KernelMirror::dirtyTake() { return std::exchange(dirty_, {}); }

std::set<Adjacency> KernelMirror::dirtyAdjacenciesTake() {
   return std::exchange(dirtyAdjacencies_, {});
}

void KernelMirror::linkApply(const KernelLink& l, bool deleted) {
   auto it = links_.find(l.ifindex);
   const bool wasUp = it != links_.end() && it->second.up;
   if (deleted) {
      if (it != links_.end()) links_.erase(it);
   } else {
      links_[l.ifindex] = l;
   }
   if (wasUp == (!deleted && l.up)) return;
   dirtyAdjacencies_.insert({KernelAddr(), l.ifindex});
   if (wasUp) linkDown_ = true;
}

void KernelMirror::neighApply(const KernelNeigh& n, bool deleted) {
   const NeighKey key{n.ifindex, n.addr};
   if (deleted)
      neighs_.erase(key);
   else
      neighs_[key] = n;
   dirtyAdjacencies_.insert({n.addr, n.ifindex});
}

bool KernelMirror::resolved(const Adjacency& a) const {
   if (!a.gateway.valid()) {
      const KernelLink* l = link(a.ifindex);
      return l && l->up;
   }
   auto it = neighs_.find({a.ifindex, a.gateway});
   if (it == neighs_.end() || !it->second.hasLladdr) return false;
   constexpr uint16_t usable =
       NUD_REACHABLE | NUD_STALE | NUD_DELAY | NUD_PROBE | NUD_PERMANENT | NUD_NOARP;
   return (it->second.state & usable) != 0;
}

void KernelMirror::markNexthop(uint32_t id) {
   dirty_.insert(nhidName(id));
   auto it = memberOf_.find(id);
   if (it == memberOf_.end()) return;
   for (const uint32_t g : it->second) dirty_.insert(nhidName(g));
}

void KernelMirror::nexthopApply(const KernelNexthop& nh, bool deleted) {
   auto it = nexthops_.find(nh.id);
   if (it != nexthops_.end() && it->second.isGroup()) {
      --groupObjects_;
      for (const auto& m : it->second.group) {
         auto of = memberOf_.find(m.id);
         if (of == memberOf_.end()) continue;
         of->second.erase(nh.id);
         if (of->second.empty()) memberOf_.erase(of);
      }
   }
   markNexthop(nh.id);
   if (deleted) {
      if (it != nexthops_.end()) nexthops_.erase(it);
      // Routes naming it go with it, without a word from the kernel.
      if (auto of = routesOf_.find(nhidName(nh.id)); of != routesOf_.end()) {
         for (const auto& key : of->second) routes_.erase(key);
         routesOf_.erase(of);
      }
      // The kernel takes a deleted nexthop out of its groups without a word
      // about them; a group left empty goes with it.
      auto of = memberOf_.find(nh.id);
      if (of == memberOf_.end()) return;
      const std::unordered_set<uint32_t> holders = std::move(of->second);
      memberOf_.erase(of);
      for (const uint32_t g : holders) {
         auto git = nexthops_.find(g);
         if (git == nexthops_.end()) continue;
         auto& members = git->second.group;
         std::erase_if(members, [&](const auto& m) { return m.id == nh.id; });
         std::erase_if(git->second.buckets, [&](const auto& m) { return m.id == nh.id; });
         if (members.empty()) nexthopApply(git->second, true);
      }
      return;
   }
   KernelNexthop& stored = nexthops_[nh.id];
   stored = nh;
   if (stored.isGroup()) {
      ++groupObjects_;
      for (const auto& m : stored.group) memberOf_[m.id].insert(nh.id);
   }
}

bool KernelMirror::overlayRoute(const KernelRoute& r) const {
   return r.nhid == 0 && std::any_of(r.paths.begin(), r.paths.end(),
                                     [](const KernelPath& p) { return isIpInIp(p.encap); });
}

// The group a route belongs to: the nexthop it names, or itself when it
// carries IP-in-IP encapsulation inline; none for a plain route.
std::optional<std::string> KernelMirror::groupOf(const KernelRoute& r) const {
   if (r.nhid) return nhidName(r.nhid);
   if (overlayRoute(r)) return std::string(routePrefix) + routeName(r);
   return std::nullopt;
}

void KernelMirror::routeApply(const KernelRoute& r, bool deleted) {
   if (r.type != RTN_UNICAST) return;
   const RouteKey key{r.family, r.table, r.dst, r.prefixLen, r.tos, r.priority};
   if (auto it = routes_.find(key); it != routes_.end()) {
      if (const auto name = groupOf(it->second)) {
         dirty_.insert(*name);
         auto of = routesOf_.find(*name);
         if (of != routesOf_.end() && of->second.erase(key) && of->second.empty())
            routesOf_.erase(of);
      }
      if (deleted) routes_.erase(it);
   }
   if (deleted) return;
   const auto name = groupOf(r);
   KernelRoute& stored = routes_[key];
   stored = r;
   // Only a route group's own paths are read again; the kernel expands a
   // named nexthop's paths too, and plain routes are only counted.
   if (!name || r.nhid) {
      stored.paths.clear();
      stored.paths.shrink_to_fit();
   }
   if (!name) return;
   dirty_.insert(*name);
   routesOf_[*name].insert(key);
}

std::optional<std::string> KernelMirror::viaOf(const KernelPath& p, uint32_t weight,
                                               const std::string& what, OverlayGroup& g) {
   switch (p.encap.kind) {
      case KernelEncap::Kind::none:
         return what + " is not an IP-in-IP tunnel (no encapsulation)";
      case KernelEncap::Kind::other:
         return what + " is not an IP-in-IP tunnel (encapsulation type " +
                std::to_string(p.encap.type) + ")";
      case KernelEncap::Kind::ip:
      case KernelEncap::Kind::ip6:
         break;
   }
   if (!given(p.encap.src))
      return what + ": its encapsulation has no source address, which a tunnel key needs";
   if (!given(p.encap.dst)) return what + ": its encapsulation has no destination address";
   const MeridL3Tunnel::L3TunnelKey key(ipOf(p.encap.src), ipOf(p.encap.dst));
   const Adjacency adj{p.gateway, p.ifindex};
   if (std::find(g.adjacencies.begin(), g.adjacencies.end(), adj) == g.adjacencies.end())
      g.adjacencies.push_back(adj);
   g.vias.emplace_back(Plx::nextHopArpResolved(), key.srcIpAddr(), key.dstIpAddr(),
                       p.encap.ttl ? p.encap.ttl : defaultTtl_, weight,
                       AdjacencyIds::key(ids_.idOf(adj)));
   return std::nullopt;
}

std::optional<OverlayGroup> KernelMirror::group(const std::string& name) {
   OverlayGroup g;
   auto of = routesOf_.find(name);
   if (of != routesOf_.end())
      for (const auto& key : of->second) g.routes.push_back(routeName(routes_.at(key)));
   auto fail = [&](std::string reason) {
      g.vias.clear();
      g.adjacencies.clear();
      g.reason = std::move(reason);
      return g;
   };

   if (name.starts_with(routePrefix)) {
      if (g.routes.empty()) return std::nullopt;
      // Routes differing only in metric or TOS share the name: the kernel
      // prefers the first.
      const KernelRoute& r = routes_.at(*of->second.begin());
      for (size_t i = 0; i < r.paths.size(); ++i) {
         const std::string what =
             r.paths.size() == 1 ? "the route's nexthop" : "path " + std::to_string(i + 1);
         if (auto reason = viaOf(r.paths[i], r.paths[i].weight, what, g)) return fail(*reason);
      }
      g.routes.clear();  // the route is the group itself
      return g;
   }
   const auto id = nhidOf(name);
   if (!id) return std::nullopt;
   auto it = nexthops_.find(*id);
   if (it == nexthops_.end()) return std::nullopt;
   const KernelNexthop& nh = it->second;
   if (!nh.isGroup()) {
      // A single nexthop is a group only when a route uses it and it is a tunnel.
      if (g.routes.empty() || !isIpInIp(nh.path.encap)) return std::nullopt;
      if (auto reason = viaOf(nh.path, 1, "nexthop " + std::to_string(*id), g))
         return fail(*reason);
      return g;
   }
   for (const auto& m : nh.group) {
      uint32_t weight = m.weight;
      if (nh.resilient) {
         weight = 0;
         for (const auto& b : nh.buckets)
            if (b.id == m.id) weight = b.weight;
      }
      auto mit = nexthops_.find(m.id);
      if (mit == nexthops_.end()) continue;  // gone: the kernel dropped it from the group
      const std::string what = "member nexthop " + std::to_string(m.id);
      if (mit->second.blackhole) {
         MeridL3Tunnel::L3TunnelOverlayViaEntry drop;
         drop.nhEntryTypeIs(Plx::nextHopDrop());
         drop.weightIs(weight);
         drop.ttlIs(defaultTtl_);
         g.vias.push_back(drop);
         continue;
      }
      if (mit->second.fdb) return fail(what + " is an FDB nexthop, not an IP-in-IP tunnel");
      if (auto reason = viaOf(mit->second.path, weight, what, g)) return fail(*reason);
   }
   return g;
}

std::vector<std::string> KernelMirror::groupNames() const {
   std::vector<std::string> names;
   for (const auto& [id, nh] : nexthops_)
      if (nh.isGroup()) names.push_back(nhidName(id));
   // Route groups, and single nexthops routes use (group objects are listed).
   for (const auto& [name, keys] : routesOf_) {
      const auto id = nhidOf(name);
      auto it = id ? nexthops_.find(*id) : nexthops_.end();
      if (!id || it == nexthops_.end() || !it->second.isGroup()) names.push_back(name);
   }
   return names;
}

}  // namespace L3TunnelTool
