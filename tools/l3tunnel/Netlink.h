#pragma once
// The kernel's routing tables as rtnetlink reports them: a dump of the whole
// state, then the notifications that follow it, each turned into a KernelEvent.
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "KernelObjects.h"

struct mnl_socket;
struct nlmsghdr;

namespace L3TunnelTool {

class NetlinkError : public std::runtime_error {
   using runtime_error::runtime_error;
};

// One socket subscribed to RTNLGRP_LINK, RTNLGRP_NEIGH, RTNLGRP_IPV4_ROUTE,
// RTNLGRP_IPV6_ROUTE and RTNLGRP_NEXTHOP for notifications, and a second one for
// dumps and requests, so a dump never interleaves with notifications.
class Netlink {
public:
   // receiveBuffer: SO_RCVBUF of the notification socket in bytes; 0 keeps the
   // kernel's default. Throws NetlinkError.
   explicit Netlink(uint32_t receiveBuffer = 0);
   ~Netlink();
   Netlink(const Netlink&) = delete;
   Netlink& operator=(const Netlink&) = delete;

   int fd() const;  // the notification socket, non-blocking, for poll()

   enum class ReadResult { drained, overflowed };
   // Reads every queued notification without blocking and hands each one that
   // parses to `f`, a resilient group with its buckets. A group whose buckets
   // the kernel moved later (its idle and unbalanced timers) comes again, read
   // anew, at the end. overflowed: the kernel dropped notifications (ENOBUFS),
   // so the caller dumps again.
   ReadResult read(const std::function<void(KernelEvent&&)>& f);

   // The whole state: links, IPv4 and IPv6 neighbours, single nexthops, then
   // groups (resilient ones with their buckets), then the routes of every
   // table. A dump the kernel flags as interrupted is run again, so `f` may
   // see an object twice; every event is a replacement. Throws NetlinkError.
   void dump(const std::function<void(KernelEvent&&)>& f);

private:
   struct DumpEnd {
      int error = 0;  // errno the kernel answered, 0 when it did not
      bool interrupted = false;
   };
   // Sends `request` (its sequence number set here) on the request socket and
   // hands each answer to `each` until the dump ends or the kernel acknowledges.
   DumpEnd dumpOnce(nlmsghdr* request, const std::function<void(const nlmsghdr*)>& each);
   // dumpOnce again while interrupted, `restart` before each attempt; throws
   // NetlinkError on an error.
   void dumpAll(nlmsghdr* request, const char* what,
                const std::function<void(const nlmsghdr*)>& each,
                const std::function<void()>& restart = {});
   void dumpNexthops(const std::function<void(KernelEvent&&)>& f);
   // Fills the buckets of resilient group `nh` from a bucket dump of that group
   // alone; leaves them empty when the group is gone or no longer resilient.
   void readBuckets(KernelNexthop& nh);
   // Nexthop `id` as the kernel has it now, a resilient group with its buckets;
   // nothing when it is gone.
   std::optional<KernelNexthop> readNexthop(uint32_t id);

   struct SocketClose {
      void operator()(mnl_socket* s) const;
   };
   using Socket = std::unique_ptr<mnl_socket, SocketClose>;
   Socket events_;
   Socket requests_;
   uint32_t requestPort_ = 0;
   uint32_t seq_ = 0;
   std::vector<uint8_t> eventBuffer_;
   std::vector<uint8_t> requestBuffer_;
};

// Parses one RTM_NEWLINK/DELLINK, NEWNEIGH/DELNEIGH, NEWNEXTHOP/DELNEXTHOP or
// NEWROUTE/DELROUTE message of nlmsg_len bytes; nothing for other types, for
// objects the mirror has no use for (bridge ports and fdb entries, proxy
// neighbours, cached routes) and for messages too short to read. Attributes
// that do not validate are left out.
std::optional<KernelEvent> kernelEventParse(const nlmsghdr* nlh);

}  // namespace L3TunnelTool
