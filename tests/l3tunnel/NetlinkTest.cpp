// The netlink reader against the kernel, each test in a network namespace of
// its own: the dump's order, and what the agent's tests, which follow the
// kernel through the reader, do not reach; and messages no kernel sends.
#include <gtest/gtest.h>
#include <libmnl/libmnl.h>
#include <linux/lwtunnel.h>
#include <linux/neighbour.h>
#include <linux/nexthop.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Netlink.h"

#include "support/KernelNamespaceTest.h"

namespace {

using namespace L3TunnelTool;
using Events = std::vector<KernelEvent>;
using Match = std::function<bool(const KernelEvent&)>;
using Members = std::vector<KernelNexthop::Member>;

bool run(const std::string& command) { return std::system(command.c_str()) == 0; }

bool same(const Members& got, const Members& want) {
   return std::equal(got.begin(), got.end(), want.begin(), want.end(),
                     [](auto& a, auto& b) { return a.id == b.id && a.weight == b.weight; });
}

// Weight, gateway and encapsulation.
std::string describe(const KernelPath& p) {
   const char* kinds[] = {"", " ip ", " ip6 ", " other "};
   std::string text = std::to_string(p.weight) + " via " + p.gateway.text();
   if (p.encap.kind == KernelEncap::Kind::none) return text;
   return text + kinds[static_cast<int>(p.encap.kind)] + p.encap.src.text() + ">" +
          p.encap.dst.text() + " ttl " + std::to_string(p.encap.ttl);
}

class KernelNetlink : public ::testing::Test {
protected:
   void SetUp() override {
      if (!support::kernelNamespaceReady()) GTEST_SKIP();
      const std::string via = " via 172.16.0.2 dev veth0";
      const std::string encap = " encap ip src 192.0.2.1 dst 198.51.100.";
      for (const std::string& command : std::vector<std::string>{
               "ip -6 addr add 2001:db8::10/64 dev veth0 nodad",
               "ip nexthop add id 1" + encap + "1 ttl 64" + via,
               "ip nexthop add id 2" + encap + "2 ttl 64" + via,
               "ip nexthop add id 102 group 1/2 type resilient buckets 8",
               // A table beyond rtm_table's byte.
               "ip route add 10.3.0.0/16" + encap + "3" + via + " table 1000",
               "ip route add 10.4.0.0/16 via inet6 2001:db8::3 dev veth0",
               "ip -6 route add 2001:db8:5::/48 via 2001:db8::3 dev veth0 metric 7",
           })
         ASSERT_TRUE(run(command)) << command;
      veth0_ = ::if_nametoindex("veth0");
   }

   // Reads notifications into `seen` until one matches or three seconds pass.
   static bool waitFor(Netlink& nl, Events& seen, const Match& match) {
      const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(3);
      for (;;) {
         if (std::any_of(seen.begin(), seen.end(), match)) return true;
         const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
             until - std::chrono::steady_clock::now());
         if (left.count() <= 0) return false;
         pollfd p{nl.fd(), POLLIN, 0};
         ::poll(&p, 1, static_cast<int>(left.count()));
         EXPECT_EQ(nl.read([&](KernelEvent&& e) { seen.push_back(std::move(e)); }),
                   Netlink::ReadResult::drained);
      }
   }

   uint32_t veth0_ = 0;
};

TEST_F(KernelNetlink, DumpGivesTheTablesInOrder) {
   Netlink nl;
   std::map<std::string, KernelRoute> routes;
   size_t last = 0;
   nl.dump([&](KernelEvent&& e) {
      // Links, neighbours, single nexthops, groups, routes.
      const auto* nh = std::get_if<KernelNexthop>(&e.object);
      const size_t rank = e.object.index() * 2 + (nh && nh->isGroup());
      EXPECT_LE(last, rank);
      last = rank;
      EXPECT_FALSE(e.deleted);
      if (auto* r = std::get_if<KernelRoute>(&e.object)) routes[r->dst.text()] = *r;
   });

   // Links, neighbours, tunnels, groups and the routes through them are
   // what the agent's tests follow through the reader; these routes only
   // the reader's own tests meet.
   for (const std::string want :
        {"10.3.0.0/16 table 1000 metric 0 nhid 0 type 1: 1 via 172.16.0.2 ip "
         "192.0.2.1>198.51.100.3 ttl 0 dev veth0",
         "10.4.0.0/16 table 254 metric 0 nhid 0 type 1: 1 via 2001:db8::3 dev veth0",
         "2001:db8:5::/48 table 254 metric 7 nhid 0 type 1: 1 via 2001:db8::3 dev veth0"}) {
      const KernelRoute& r = routes[want.substr(0, want.find('/'))];
      std::string got = r.dst.text() + "/" + std::to_string(r.prefixLen) + " table " +
                        std::to_string(r.table) + " metric " + std::to_string(r.priority) +
                        " nhid " + std::to_string(r.nhid) + " type " + std::to_string(r.type) + ":";
      for (const auto& p : r.paths)
         got += " " + describe(p) + (p.ifindex == veth0_ ? " dev veth0" : " dev other");
      EXPECT_EQ(got, want);
   }
}

// Busy buckets of a resilient group stay where they are until its unbalanced
// timer moves them, 6 and 2 of 8 for 3:1, which only bucket notifications
// tell.
TEST_F(KernelNetlink, ResilientBucketsAreNotifiedAsTheyMove) {
   Netlink nl;
   // Traffic through every bucket of group 102, so that none is idle.
   ASSERT_TRUE(run("ip route add 10.7.0.0/16 nhid 102"));
   const int udp = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
   ASSERT_GE(udp, 0);
   for (uint32_t i = 0; i < 512; ++i) {
      sockaddr_in to{};
      to.sin_family = AF_INET;
      to.sin_port = htons(9);
      to.sin_addr.s_addr = htonl(0x0a070000 | i);
      (void)::sendto(udp, "", 0, 0, reinterpret_cast<const sockaddr*>(&to), sizeof to);
   }
   ::close(udp);

   // Group 102 with these buckets, and the group 1x3, 2x1.
   auto buckets = [](const Members& want) -> Match {
      return [=](const KernelEvent& e) {
         const auto* n = std::get_if<KernelNexthop>(&e.object);
         return n && !e.deleted && n->id == 102 && n->resilient &&
                same(n->group, {{1, 3}, {2, 1}}) && same(n->buckets, want);
      };
   };
   ASSERT_TRUE(run("ip nexthop replace id 102 group 1,3/2 type resilient unbalanced_timer 1"));
   Events seen;
   EXPECT_TRUE(waitFor(nl, seen, buckets({{1, 4}, {2, 4}}))) << "among " << seen.size();
   EXPECT_TRUE(waitFor(nl, seen, buckets({{1, 6}, {2, 2}}))) << "among " << seen.size();
}

// A message cut to `len` bytes in a buffer of no more (rounded to a word), so
// that a read past it is one past the allocation.
std::vector<uint32_t> cut(const nlmsghdr* nlh, uint32_t len) {
   std::vector<uint32_t> copy((std::max<uint32_t>(len, NLMSG_HDRLEN) + 3) / 4);
   std::memcpy(copy.data(), nlh, std::min(len, nlh->nlmsg_len));
   reinterpret_cast<nlmsghdr*>(copy.data())->nlmsg_len = len;
   return copy;
}
std::optional<KernelEvent> parse(const std::vector<uint32_t>& bytes) {
   return kernelEventParse(reinterpret_cast<const nlmsghdr*>(bytes.data()));
}

TEST(KernelEventParse, MultipathCutShort) {
   // Two IP-in-IP paths, the second through an IPv6 gateway (RTA_VIA).
   alignas(4) uint8_t buffer[256] = {};
   nlmsghdr* nlh = mnl_nlmsg_put_header(buffer);
   nlh->nlmsg_type = RTM_NEWROUTE;
   static_cast<rtmsg*>(mnl_nlmsg_put_extra_header(nlh, sizeof(rtmsg)))->rtm_family = AF_INET;
   mnl_attr_put_u32(nlh, RTA_DST, htonl(0x0a020000));
   nlattr* mp = mnl_attr_nest_start(nlh, RTA_MULTIPATH);
   uint32_t first = 0;
   for (uint8_t hops : {2, 0}) {
      auto* rtnh = static_cast<rtnexthop*>(mnl_nlmsg_get_payload_tail(nlh));
      nlh->nlmsg_len += sizeof(rtnexthop);
      *rtnh = rtnexthop{0, 0, hops, 5};
      uint8_t via[18] = {AF_INET6, 0, 0x20, 0x01, 0x0d, 0xb8};
      via[17] = 3;
      if (hops)
         mnl_attr_put_u32(nlh, RTA_GATEWAY, htonl(0xac100002));
      else
         mnl_attr_put(nlh, RTA_VIA, sizeof via, via);
      mnl_attr_put_u16(nlh, RTA_ENCAP_TYPE, LWTUNNEL_ENCAP_IP);
      nlattr* encap = mnl_attr_nest_start(nlh, RTA_ENCAP);
      mnl_attr_put_u32(nlh, LWTUNNEL_IP_DST, htonl(0xc6336400 | hops));
      mnl_attr_nest_end(nlh, encap);
      rtnh->rtnh_len =
          static_cast<uint16_t>(static_cast<uint8_t*>(mnl_nlmsg_get_payload_tail(nlh)) -
                                reinterpret_cast<uint8_t*>(rtnh));
      first = first ? first : rtnh->rtnh_len;
   }
   mnl_attr_nest_end(nlh, mp);
   const uint32_t mpAt = static_cast<uint32_t>(reinterpret_cast<uint8_t*>(mp) - buffer);
   const uint32_t mpLen = nlh->nlmsg_len - mpAt - NLA_HDRLEN;

   // The message cut anywhere: an attribute running past its end is dropped.
   for (uint32_t len = 0; len <= nlh->nlmsg_len; ++len) {
      const auto event = parse(cut(nlh, len));
      ASSERT_EQ(event.has_value(), len >= NLMSG_HDRLEN + sizeof(rtmsg)) << len;
      if (!event) continue;
      const auto& r = std::get<KernelRoute>(event->object);
      EXPECT_EQ(r.dst.text(), len >= mpAt ? "10.2.0.0" : "") << len;
      EXPECT_EQ(r.paths.size(), len == nlh->nlmsg_len ? 2u : 0u) << len;
   }
   // RTA_MULTIPATH cut within: the entries it holds whole, no more.
   const std::string want[] = {"3 via 172.16.0.2 ip >198.51.100.2 ttl 0",
                               "1 via 2001:db8::3 ip >198.51.100.0 ttl 0"};
   for (uint32_t len = 0; len <= mpLen; ++len) {
      auto bytes = cut(nlh, mpAt + NLA_HDRLEN + len);
      reinterpret_cast<nlattr*>(reinterpret_cast<uint8_t*>(bytes.data()) + mpAt)->nla_len =
          static_cast<uint16_t>(NLA_HDRLEN + len);
      const auto event = parse(bytes);
      ASSERT_TRUE(event) << len;
      const auto& paths = std::get<KernelRoute>(event->object).paths;
      ASSERT_EQ(paths.size(), len == mpLen ? 2u : len >= first ? 1u : 0u) << len;
      for (size_t i = 0; i < paths.size(); ++i) {
         EXPECT_EQ(describe(paths[i]), want[i]) << len;
         EXPECT_EQ(paths[i].ifindex, 5u) << len;
      }
   }
}

TEST(KernelEventParse, MalformedMessages) {
   using Nh = KernelNexthop;
   const auto none = [](const std::optional<KernelEvent>& e) { return !e; };
   // Each a message of `type` with header `family` and then one attribute.
   const struct {
      const char* what;
      uint16_t type;
      uint8_t family;
      uint16_t attr;
      std::vector<uint8_t> payload;
      std::function<bool(const std::optional<KernelEvent>&)> check;
   } cases[] = {
       {"bridge port", RTM_DELLINK, AF_BRIDGE, 0, {}, none},
       {"fdb entry", RTM_NEWNEIGH, AF_BRIDGE, NDA_DST, {10, 0, 0, 1}, none},
       {"nexthop id of two bytes", RTM_NEWNEXTHOP, AF_INET, NHA_ID, {1, 0}, none},
       {"group of a partial entry",
        RTM_NEWNEXTHOP,
        AF_UNSPEC,
        NHA_GROUP,
        {1, 0, 0, 0, 0, 0, 0},
        [](auto& e) { return e && !std::get<Nh>(e->object).isGroup(); }},
       {"16-bit weight",
        RTM_NEWNEXTHOP,
        AF_UNSPEC,
        NHA_GROUP,
        {1, 0, 0, 0, 0x2b, 0x01, 0, 0},
        [](auto& e) { return e && std::get<Nh>(e->object).group[0].weight == 300; }},
       {"IPv6 gateway on an IPv4 nexthop", RTM_NEWNEXTHOP, AF_INET, NHA_GATEWAY,
        std::vector<uint8_t>(16, 1),
        [](auto& e) { return e && !std::get<Nh>(e->object).path.gateway.valid(); }},
       {"via shorter than its family's address",
        RTM_NEWROUTE,
        AF_INET,
        RTA_VIA,
        {AF_INET6, 0, 1, 2, 3, 4},
        [](auto& e) { return e && !std::get<KernelRoute>(e->object).paths.at(0).gateway.valid(); }},
   };
   for (const auto& c : cases) {
      alignas(4) uint8_t buffer[128] = {};
      nlmsghdr* nlh = mnl_nlmsg_put_header(buffer);
      nlh->nlmsg_type = c.type;
      // Every family header starts with its family.
      const size_t header = c.type == RTM_DELLINK      ? sizeof(ifinfomsg)
                            : c.type == RTM_NEWNEXTHOP ? sizeof(nhmsg)
                                                       : sizeof(rtmsg);
      *static_cast<uint8_t*>(mnl_nlmsg_put_extra_header(nlh, header)) = c.family;
      if (c.type == RTM_DELLINK) reinterpret_cast<ifinfomsg*>(buffer + NLMSG_HDRLEN)->ifi_index = 3;
      if (c.type == RTM_NEWNEXTHOP && c.attr != NHA_ID) mnl_attr_put_u32(nlh, NHA_ID, 7);
      if (c.attr) mnl_attr_put(nlh, c.attr, c.payload.size(), c.payload.data());
      EXPECT_TRUE(c.check(parse(cut(nlh, nlh->nlmsg_len)))) << c.what;
   }
}

}  // namespace
