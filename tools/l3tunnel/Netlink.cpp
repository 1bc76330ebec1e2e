#include "Netlink.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/lwtunnel.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string>
#include <unordered_map>
#include <utility>

namespace L3TunnelTool {

namespace {

// linux/if.h's IFF_LOWER_UP; that header clashes with glibc's net/if.h.
constexpr uint32_t lowerUp = 1u << 16;

// A dump answer fills at most 32 KiB; the rest is room for a larger message.
constexpr size_t bufferSize = 64 * 1024;
constexpr int dumpAttempts = 8;

std::string errnoText(const char* what, int e) {
   return std::string(what) + ": " + std::strerror(e);
}

// The attributes of one level by type, the last of each type kept; types
// beyond this header's are a newer kernel's and not read. Parsing stops at the
// first attribute whose length runs past the end, so every one kept lies
// within the message; payloads are checked where read.
template <size_t N>
class Attrs {
public:
   // Not mnl_attr_parse: it ends the message at nlmsg_len rounded up.
   void ofMessage(const nlmsghdr* nlh, size_t header) {
      const size_t offset = MNL_ALIGN(header);
      const size_t len = mnl_nlmsg_get_payload_len(nlh);
      if (len > offset)
         ofPayload(static_cast<const uint8_t*>(mnl_nlmsg_get_payload(nlh)) + offset, len - offset);
   }
   void ofNested(const nlattr* a) {
      if (a) mnl_attr_parse_nested(a, keep, this);
   }
   void ofPayload(const void* p, size_t len) { mnl_attr_parse_payload(p, len, keep, this); }
   const nlattr* operator[](size_t type) const { return type < N ? at_[type] : nullptr; }

private:
   static int keep(const nlattr* a, void* data) {
      const uint16_t type = mnl_attr_get_type(a);
      if (type < N) static_cast<Attrs*>(data)->at_[type] = a;
      return MNL_CB_OK;
   }
   std::array<const nlattr*, N> at_{};
};

bool valid(const nlattr* a, mnl_attr_data_type type) {
   return a && mnl_attr_validate(a, type) >= 0;
}

std::optional<uint32_t> u32Of(const nlattr* a) {
   if (!valid(a, MNL_TYPE_U32)) return std::nullopt;
   return mnl_attr_get_u32(a);
}
std::optional<uint16_t> u16Of(const nlattr* a) {
   if (!valid(a, MNL_TYPE_U16)) return std::nullopt;
   return mnl_attr_get_u16(a);
}
std::optional<uint8_t> u8Of(const nlattr* a) {
   if (!valid(a, MNL_TYPE_U8)) return std::nullopt;
   return mnl_attr_get_u8(a);
}
bool flagOf(const nlattr* a) { return valid(a, MNL_TYPE_FLAG); }

size_t addrLength(uint8_t family) { return family == AF_INET ? 4 : family == AF_INET6 ? 16 : 0; }

KernelAddr addrFrom(uint8_t family, const void* bytes, size_t len) {
   KernelAddr addr;
   if (len == 0 || len != addrLength(family)) return addr;
   addr.family = family;
   std::memcpy(addr.bytes.data(), bytes, len);
   return addr;
}

// An address attribute of `family`; not valid when its length is another's.
KernelAddr addrOf(const nlattr* a, uint8_t family) {
   if (!a) return {};
   return addrFrom(family, mnl_attr_get_payload(a), mnl_attr_get_payload_len(a));
}

KernelEncap encapOf(const nlattr* type, const nlattr* data) {
   KernelEncap encap;
   const auto t = u16Of(type);
   if (!t || *t == LWTUNNEL_ENCAP_NONE) return encap;
   encap.type = *t;
   if (*t == LWTUNNEL_ENCAP_IP) {
      encap.kind = KernelEncap::Kind::ip;
      Attrs<LWTUNNEL_IP_MAX + 1> ip;
      ip.ofNested(data);
      encap.src = addrOf(ip[LWTUNNEL_IP_SRC], AF_INET);
      encap.dst = addrOf(ip[LWTUNNEL_IP_DST], AF_INET);
      encap.ttl = u8Of(ip[LWTUNNEL_IP_TTL]).value_or(0);
   } else if (*t == LWTUNNEL_ENCAP_IP6) {
      encap.kind = KernelEncap::Kind::ip6;
      Attrs<LWTUNNEL_IP6_MAX + 1> ip6;
      ip6.ofNested(data);
      encap.src = addrOf(ip6[LWTUNNEL_IP6_SRC], AF_INET6);
      encap.dst = addrOf(ip6[LWTUNNEL_IP6_DST], AF_INET6);
      encap.ttl = u8Of(ip6[LWTUNNEL_IP6_HOPLIMIT]).value_or(0);
   } else {
      encap.kind = KernelEncap::Kind::other;
   }
   return encap;
}

// The payload of a message as `T`, or null when the message is shorter.
template <typename T>
const T* headerOf(const nlmsghdr* nlh) {
   if (nlh->nlmsg_len < NLMSG_HDRLEN || mnl_nlmsg_get_payload_len(nlh) < sizeof(T)) return nullptr;
   return static_cast<const T*>(mnl_nlmsg_get_payload(nlh));
}

std::optional<KernelEvent> linkOf(const nlmsghdr* nlh) {
   const auto* ifi = headerOf<ifinfomsg>(nlh);
   // AF_BRIDGE ones are about bridge ports, and their RTM_DELLINK removes only
   // the port.
   if (!ifi || ifi->ifi_family != AF_UNSPEC || ifi->ifi_index <= 0) return std::nullopt;
   Attrs<IFLA_MAX + 1> tb;
   tb.ofMessage(nlh, sizeof(ifinfomsg));
   KernelLink link;
   link.ifindex = static_cast<uint32_t>(ifi->ifi_index);
   if (valid(tb[IFLA_IFNAME], MNL_TYPE_NUL_STRING)) link.name = mnl_attr_get_str(tb[IFLA_IFNAME]);
   link.up = (ifi->ifi_flags & IFF_UP) && (ifi->ifi_flags & lowerUp);
   return KernelEvent{nlh->nlmsg_type == RTM_DELLINK, std::move(link)};
}

std::optional<KernelEvent> neighOf(const nlmsghdr* nlh) {
   const auto* ndm = headerOf<ndmsg>(nlh);
   // Other families are the bridge's fdb; proxy entries resolve nothing.
   if (!ndm || !addrLength(ndm->ndm_family) || (ndm->ndm_flags & NTF_PROXY)) return std::nullopt;
   Attrs<NDA_MAX + 1> tb;
   tb.ofMessage(nlh, sizeof(ndmsg));
   KernelNeigh neigh;
   neigh.ifindex = static_cast<uint32_t>(ndm->ndm_ifindex);
   neigh.addr = addrOf(tb[NDA_DST], ndm->ndm_family);
   if (!neigh.addr.valid()) return std::nullopt;
   neigh.hasLladdr = tb[NDA_LLADDR] != nullptr;
   neigh.state = ndm->ndm_state;
   return KernelEvent{nlh->nlmsg_type == RTM_DELNEIGH, std::move(neigh)};
}

std::optional<KernelEvent> nexthopOf(const nlmsghdr* nlh) {
   const auto* nhm = headerOf<nhmsg>(nlh);
   if (!nhm) return std::nullopt;
   Attrs<NHA_MAX + 1> tb;
   tb.ofMessage(nlh, sizeof(nhmsg));
   const auto id = u32Of(tb[NHA_ID]);
   if (!id) return std::nullopt;
   KernelNexthop nh;
   nh.id = *id;
   nh.family = nhm->nh_family;
   nh.blackhole = flagOf(tb[NHA_BLACKHOLE]);
   nh.fdb = flagOf(tb[NHA_FDB]);
   if (const nlattr* g = tb[NHA_GROUP];
       g && mnl_attr_get_payload_len(g) % sizeof(nexthop_grp) == 0) {
      const auto* bytes = static_cast<const uint8_t*>(mnl_attr_get_payload(g));
      const size_t count = mnl_attr_get_payload_len(g) / sizeof(nexthop_grp);
      nh.group.reserve(count);
      for (size_t i = 0; i < count; ++i) {
         nexthop_grp entry;
         std::memcpy(&entry, bytes + i * sizeof entry, sizeof entry);
         // Kernels with 16-bit weights carry the high byte in resvd1; older
         // ones always leave it zero.
         const uint32_t weight = (uint32_t{entry.resvd1} << 8 | entry.weight) + 1;
         nh.group.push_back({entry.id, weight});
      }
   }
   nh.resilient = u16Of(tb[NHA_GROUP_TYPE]) == NEXTHOP_GRP_TYPE_RES;
   nh.path.ifindex = u32Of(tb[NHA_OIF]).value_or(0);
   nh.path.gateway = addrOf(tb[NHA_GATEWAY], nhm->nh_family);
   nh.path.encap = encapOf(tb[NHA_ENCAP_TYPE], tb[NHA_ENCAP]);
   return KernelEvent{nlh->nlmsg_type == RTM_DELNEXTHOP, std::move(nh)};
}

// RTA_GATEWAY in the route's family, else RTA_VIA (an IPv4 route through an
// IPv6 gateway) in its own.
KernelAddr gatewayOf(const nlattr* gateway, const nlattr* via, uint8_t family) {
   if (gateway) return addrOf(gateway, family);
   if (!via || mnl_attr_get_payload_len(via) < sizeof(rtvia)) return {};
   const auto* bytes = static_cast<const uint8_t*>(mnl_attr_get_payload(via));
   __kernel_sa_family_t viaFamily;
   std::memcpy(&viaFamily, bytes, sizeof viaFamily);
   if (viaFamily > UINT8_MAX) return {};
   return addrFrom(static_cast<uint8_t>(viaFamily), bytes + sizeof(rtvia),
                   mnl_attr_get_payload_len(via) - sizeof(rtvia));
}

template <typename Table>
KernelPath pathOf(const Table& tb, uint8_t family) {
   KernelPath path;
   path.gateway = gatewayOf(tb[RTA_GATEWAY], tb[RTA_VIA], family);
   path.encap = encapOf(tb[RTA_ENCAP_TYPE], tb[RTA_ENCAP]);
   return path;
}

void multipathOf(const nlattr* a, uint8_t family, std::vector<KernelPath>& paths) {
   const auto* p = static_cast<const uint8_t*>(mnl_attr_get_payload(a));
   size_t left = mnl_attr_get_payload_len(a);
   while (left >= sizeof(rtnexthop)) {
      rtnexthop rtnh;
      std::memcpy(&rtnh, p, sizeof rtnh);
      if (rtnh.rtnh_len < sizeof rtnh || rtnh.rtnh_len > left) break;
      Attrs<RTA_MAX + 1> tb;
      tb.ofPayload(p + sizeof rtnh, rtnh.rtnh_len - sizeof rtnh);
      KernelPath path = pathOf(tb, family);
      path.ifindex = static_cast<uint32_t>(rtnh.rtnh_ifindex);
      path.weight = uint32_t{rtnh.rtnh_hops} + 1;
      paths.push_back(std::move(path));
      const size_t step = RTNH_ALIGN(rtnh.rtnh_len);
      if (step >= left) break;
      p += step;
      left -= step;
   }
}

std::optional<KernelEvent> routeOf(const nlmsghdr* nlh) {
   const auto* rtm = headerOf<rtmsg>(nlh);
   // Cached routes (exceptions, clones) are no part of any table.
   if (!rtm || !addrLength(rtm->rtm_family) || (rtm->rtm_flags & RTM_F_CLONED) ||
       rtm->rtm_dst_len > addrLength(rtm->rtm_family) * 8)
      return std::nullopt;
   Attrs<RTA_MAX + 1> tb;
   tb.ofMessage(nlh, sizeof(rtmsg));
   KernelRoute route;
   route.family = rtm->rtm_family;
   route.table = u32Of(tb[RTA_TABLE]).value_or(rtm->rtm_table);
   route.dst = addrOf(tb[RTA_DST], rtm->rtm_family);
   route.prefixLen = rtm->rtm_dst_len;
   route.type = rtm->rtm_type;
   route.tos = rtm->rtm_tos;
   route.priority = u32Of(tb[RTA_PRIORITY]).value_or(0);
   route.nhid = u32Of(tb[RTA_NH_ID]).value_or(0);
   if (const nlattr* mp = tb[RTA_MULTIPATH]) {
      multipathOf(mp, rtm->rtm_family, route.paths);
   } else if (tb[RTA_OIF] || tb[RTA_GATEWAY] || tb[RTA_VIA] || tb[RTA_ENCAP_TYPE]) {
      KernelPath path = pathOf(tb, rtm->rtm_family);
      path.ifindex = u32Of(tb[RTA_OIF]).value_or(0);
      route.paths.push_back(std::move(path));
   }
   return KernelEvent{nlh->nlmsg_type == RTM_DELROUTE, std::move(route)};
}

// One bucket of a bucket dump: its group and the member it leads to.
std::optional<std::pair<uint32_t, uint32_t>> bucketOf(const nlmsghdr* nlh) {
   if (nlh->nlmsg_type != RTM_NEWNEXTHOPBUCKET || !headerOf<nhmsg>(nlh)) return std::nullopt;
   Attrs<NHA_MAX + 1> tb;
   tb.ofMessage(nlh, sizeof(nhmsg));
   Attrs<NHA_RES_BUCKET_MAX + 1> bucket;
   bucket.ofNested(tb[NHA_RES_BUCKET]);
   const auto group = u32Of(tb[NHA_ID]);
   const auto member = u32Of(bucket[NHA_RES_BUCKET_NH_ID]);
   if (!group || !member) return std::nullopt;
   return std::pair{*group, *member};
}

uint64_t bucketKey(uint32_t group, uint32_t member) { return uint64_t{group} << 32 | member; }

// Per member in the group's order, 0 for one that holds no bucket.
void fillBuckets(KernelNexthop& nh, const std::unordered_map<uint64_t, uint32_t>& counts) {
   nh.buckets.clear();
   for (const auto& m : nh.group) {
      const auto it = counts.find(bucketKey(nh.id, m.id));
      nh.buckets.push_back({m.id, it == counts.end() ? 0 : it->second});
   }
}

// Room for a request's headers and a few attributes.
struct alignas(NLMSG_ALIGNTO) Request {
   uint8_t bytes[256]{};
};

// A dump, or with `flags` NLM_F_ACK a get whose answer the acknowledgement ends.
template <typename T>
nlmsghdr* dumpRequest(Request& r, uint16_t type, T** extra, uint16_t flags = NLM_F_DUMP) {
   nlmsghdr* nlh = mnl_nlmsg_put_header(r.bytes);
   nlh->nlmsg_type = type;
   nlh->nlmsg_flags = NLM_F_REQUEST | flags;
   *extra = static_cast<T*>(mnl_nlmsg_put_extra_header(nlh, sizeof(T)));
   return nlh;
}

}  // namespace

std::optional<KernelEvent> kernelEventParse(const nlmsghdr* nlh) {
   if (!nlh || nlh->nlmsg_len < NLMSG_HDRLEN) return std::nullopt;
   switch (nlh->nlmsg_type) {
      case RTM_NEWLINK:
      case RTM_DELLINK:
         return linkOf(nlh);
      case RTM_NEWNEIGH:
      case RTM_DELNEIGH:
         return neighOf(nlh);
      case RTM_NEWNEXTHOP:
      case RTM_DELNEXTHOP:
         return nexthopOf(nlh);
      case RTM_NEWROUTE:
      case RTM_DELROUTE:
         return routeOf(nlh);
      default:
         return std::nullopt;
   }
}

void Netlink::SocketClose::operator()(mnl_socket* s) const { mnl_socket_close(s); }

Netlink::Netlink(uint32_t receiveBuffer) : eventBuffer_(bufferSize), requestBuffer_(bufferSize) {
   const auto open = [](const char* what) {
      Socket s{mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC)};
      if (!s) throw NetlinkError(errnoText(what, errno));
      if (mnl_socket_bind(s.get(), 0, MNL_SOCKET_AUTOPID) < 0)
         throw NetlinkError(errnoText(what, errno));
      return s;
   };
   events_ = open("netlink notification socket");
   requests_ = open("netlink request socket");
   requestPort_ = mnl_socket_get_portid(requests_.get());

   // RTNLGRP_NEXTHOP is beyond the 32 groups bind() can name.
   for (unsigned group :
        {RTNLGRP_LINK, RTNLGRP_NEIGH, RTNLGRP_IPV4_ROUTE, RTNLGRP_IPV6_ROUTE, RTNLGRP_NEXTHOP}) {
      if (mnl_socket_setsockopt(events_.get(), NETLINK_ADD_MEMBERSHIP, &group, sizeof group) < 0)
         throw NetlinkError(errnoText("netlink subscription", errno));
   }
   const int fd = mnl_socket_get_fd(events_.get());
   if (receiveBuffer > 0) {
      // SO_RCVBUFFORCE passes rmem_max for a privileged caller; SO_RCVBUF is
      // capped there.
      const int size = receiveBuffer > INT32_MAX ? INT32_MAX : static_cast<int>(receiveBuffer);
      if (::setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) < 0 &&
          ::setsockopt(fd, SOL_SOCKET, SO_RCVBUF, &size, sizeof size) < 0)
         throw NetlinkError(errnoText("netlink receive buffer", errno));
   }
   const int flags = ::fcntl(fd, F_GETFL);
   if (flags < 0 || ::fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0)
      throw NetlinkError(errnoText("netlink notification socket", errno));
}

Netlink::~Netlink() = default;

int Netlink::fd() const { return mnl_socket_get_fd(events_.get()); }

Netlink::DumpEnd Netlink::dumpOnce(nlmsghdr* request,
                                   const std::function<void(const nlmsghdr*)>& each) {
   request->nlmsg_seq = ++seq_;
   if (mnl_socket_sendto(requests_.get(), request, request->nlmsg_len) < 0)
      throw NetlinkError(errnoText("netlink request", errno));
   DumpEnd end;
   for (;;) {
      const ssize_t n =
          mnl_socket_recvfrom(requests_.get(), requestBuffer_.data(), requestBuffer_.size());
      if (n < 0) {
         if (errno == EINTR) continue;
         throw NetlinkError(errnoText("netlink dump", errno));
      }
      int left = static_cast<int>(n);
      for (auto* nlh = reinterpret_cast<const nlmsghdr*>(requestBuffer_.data());
           mnl_nlmsg_ok(nlh, left); nlh = mnl_nlmsg_next(nlh, &left)) {
         // Answers to an earlier request that its reader left unread.
         if (nlh->nlmsg_seq != seq_ || nlh->nlmsg_pid != requestPort_) continue;
         if (nlh->nlmsg_flags & NLM_F_DUMP_INTR) end.interrupted = true;
         if (nlh->nlmsg_type == NLMSG_DONE) {
            // A dump that fails part way says why here.
            int32_t error = 0;
            if (mnl_nlmsg_get_payload_len(nlh) >= sizeof error)
               std::memcpy(&error, mnl_nlmsg_get_payload(nlh), sizeof error);
            end.error = error < 0 ? -error : 0;
            return end;
         }
         if (nlh->nlmsg_type == NLMSG_ERROR) {
            const auto* err = headerOf<nlmsgerr>(nlh);
            end.error = err ? -err->error : EPROTO;
            return end;
         }
         if (nlh->nlmsg_type >= NLMSG_MIN_TYPE) each(nlh);
      }
   }
}

void Netlink::dumpAll(nlmsghdr* request, const char* what,
                      const std::function<void(const nlmsghdr*)>& each,
                      const std::function<void()>& restart) {
   for (int attempt = 0; attempt < dumpAttempts; ++attempt) {
      if (restart) restart();
      const DumpEnd end = dumpOnce(request, each);
      if (end.error) throw NetlinkError(errnoText(what, end.error));
      if (!end.interrupted) return;
   }
   throw NetlinkError(std::string(what) + ": the tables kept changing during the dump");
}

void Netlink::dumpNexthops(const std::function<void(KernelEvent&&)>& f) {
   Request r;
   nhmsg* nhm;
   nlmsghdr* request = dumpRequest(r, RTM_GETNEXTHOP, &nhm);
   nhm->nh_family = AF_UNSPEC;
   // Groups wait for their members and, when resilient, for a bucket dump,
   // which cannot start on this socket before this one ends.
   std::vector<KernelNexthop> groups;
   bool anyResilient = false;
   dumpAll(
       request, "nexthop dump",
       [&](const nlmsghdr* nlh) {
          auto event = kernelEventParse(nlh);
          auto* nh = event ? std::get_if<KernelNexthop>(&event->object) : nullptr;
          if (!nh) return;
          if (!nh->isGroup()) return f(std::move(*event));
          anyResilient = anyResilient || nh->resilient;
          groups.push_back(std::move(*nh));
       },
       [&] {
          groups.clear();
          anyResilient = false;
       });

   std::unordered_map<uint64_t, uint32_t> counts;
   if (anyResilient) {
      Request br;
      nhmsg* bhm;
      nlmsghdr* buckets = dumpRequest(br, RTM_GETNEXTHOPBUCKET, &bhm);
      bhm->nh_family = AF_UNSPEC;
      dumpAll(
          buckets, "nexthop bucket dump",
          [&](const nlmsghdr* nlh) {
             if (const auto b = bucketOf(nlh)) ++counts[bucketKey(b->first, b->second)];
          },
          [&] { counts.clear(); });
   }
   for (auto& nh : groups) {
      if (nh.resilient) fillBuckets(nh, counts);
      f(KernelEvent{false, std::move(nh)});
   }
}

void Netlink::readBuckets(KernelNexthop& nh) {
   Request r;
   nhmsg* nhm;
   nlmsghdr* request = dumpRequest(r, RTM_GETNEXTHOPBUCKET, &nhm);
   nhm->nh_family = AF_UNSPEC;
   mnl_attr_put_u32(request, NHA_ID, nh.id);
   std::unordered_map<uint64_t, uint32_t> counts;
   const auto each = [&](const nlmsghdr* nlh) {
      if (const auto b = bucketOf(nlh); b && b->first == nh.id)
         ++counts[bucketKey(b->first, b->second)];
   };
   for (int attempt = 0; attempt < dumpAttempts; ++attempt) {
      counts.clear();
      const DumpEnd end = dumpOnce(request, each);
      // Gone since the notification (EINVAL: its id now another kind of
      // nexthop); the notifications of that follow.
      if (end.error == ENOENT || end.error == EINVAL) return;
      if (end.error) throw NetlinkError(errnoText("nexthop bucket dump", end.error));
      if (!end.interrupted) return fillBuckets(nh, counts);
   }
   throw NetlinkError("nexthop bucket dump: the group kept changing during the dump");
}

std::optional<KernelNexthop> Netlink::readNexthop(uint32_t id) {
   Request r;
   nhmsg* nhm;
   nlmsghdr* request = dumpRequest(r, RTM_GETNEXTHOP, &nhm, NLM_F_ACK);
   nhm->nh_family = AF_UNSPEC;
   mnl_attr_put_u32(request, NHA_ID, id);
   std::optional<KernelNexthop> found;
   const DumpEnd end = dumpOnce(request, [&](const nlmsghdr* nlh) {
      auto event = kernelEventParse(nlh);
      if (auto* nh = event ? std::get_if<KernelNexthop>(&event->object) : nullptr;
          nh && nh->id == id)
         found = std::move(*nh);
   });
   if (end.error == ENOENT) return std::nullopt;
   if (end.error) throw NetlinkError(errnoText("nexthop request", end.error));
   if (found && found->resilient && found->isGroup()) readBuckets(*found);
   return found;
}

Netlink::ReadResult Netlink::read(const std::function<void(KernelEvent&&)>& f) {
   ReadResult result = ReadResult::drained;
   // Groups whose buckets the kernel moved on its own (a resilient group's
   // timers), one notification per bucket: read again once each, at the end.
   std::vector<uint32_t> moved;
   for (;;) {
      const ssize_t n =
          mnl_socket_recvfrom(events_.get(), eventBuffer_.data(), eventBuffer_.size());
      if (n < 0) {
         if (errno == EAGAIN || errno == EWOULDBLOCK) break;
         if (errno == EINTR) continue;
         // ENOSPC: a message larger than the buffer, cut short; lost as well.
         if (errno == ENOBUFS || errno == ENOSPC) {
            result = ReadResult::overflowed;
            continue;
         }
         throw NetlinkError(errnoText("netlink notifications", errno));
      }
      int left = static_cast<int>(n);
      for (auto* nlh = reinterpret_cast<const nlmsghdr*>(eventBuffer_.data());
           mnl_nlmsg_ok(nlh, left); nlh = mnl_nlmsg_next(nlh, &left)) {
         if (const auto bucket = bucketOf(nlh)) {
            if (moved.empty() || moved.back() != bucket->first) moved.push_back(bucket->first);
            continue;
         }
         auto event = kernelEventParse(nlh);
         if (!event) continue;
         if (auto* nh = std::get_if<KernelNexthop>(&event->object);
             nh && nh->resilient && nh->isGroup() && !event->deleted)
            readBuckets(*nh);
         f(std::move(*event));
      }
   }
   std::sort(moved.begin(), moved.end());
   moved.erase(std::unique(moved.begin(), moved.end()), moved.end());
   for (const uint32_t id : moved) {
      if (auto nh = readNexthop(id)) f(KernelEvent{false, std::move(*nh)});
   }
   return result;
}

void Netlink::dump(const std::function<void(KernelEvent&&)>& f) {
   const auto each = [&](const nlmsghdr* nlh) {
      if (auto event = kernelEventParse(nlh)) f(std::move(*event));
   };
   {
      Request r;
      ifinfomsg* ifi;
      nlmsghdr* request = dumpRequest(r, RTM_GETLINK, &ifi);
      ifi->ifi_family = AF_UNSPEC;
      mnl_attr_put_u32(request, IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
      dumpAll(request, "link dump", each);
   }
   for (const uint8_t family : {AF_INET, AF_INET6}) {
      Request r;
      ndmsg* ndm;
      nlmsghdr* request = dumpRequest(r, RTM_GETNEIGH, &ndm);
      ndm->ndm_family = family;
      dumpAll(request, "neighbour dump", each);
   }
   dumpNexthops(f);
   for (const uint8_t family : {AF_INET, AF_INET6}) {
      Request r;
      rtmsg* rtm;
      nlmsghdr* request = dumpRequest(r, RTM_GETROUTE, &rtm);
      rtm->rtm_family = family;
      dumpAll(request, "route dump", each);
   }
}

}  // namespace L3TunnelTool
