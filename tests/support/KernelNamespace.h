#pragma once
// A private network namespace for a test or a benchmark that drives the
// kernel: the calling process moves into a new one, with lo up and a veth
// pair whose veth0 has its carrier, 172.16.0.1/24 and a permanent neighbour
// 172.16.0.2. Needs root and iproute2. Each call makes a new namespace.
#include <sched.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>

namespace support {

// "" when the namespace is ready, else why not.
inline std::string kernelNamespaceIs() {
   if (unshare(CLONE_NEWNET) != 0)
      return std::string("no private network namespace (unshare: ") + std::strerror(errno) +
             "); run as root";
   auto sh = [](const char* command) { return std::system(command) == 0; };
   if (!sh("ip link set lo up && ip link add veth0 type veth peer name veth1 && "
           "ip link set veth0 up && ip link set veth1 up"))
      return "the veth pair could not be made (is iproute2 installed?)";
   for (int i = 0; !sh("ip link show veth0 | grep -q LOWER_UP"); ++i) {
      if (i == 300) return "veth0 has no carrier";
      usleep(10000);
   }
   if (!sh("ip addr add 172.16.0.1/24 dev veth0 && ip neigh add 172.16.0.2 lladdr "
           "02:00:00:00:00:02 dev veth0 nud permanent"))
      return "veth0's address or neighbour could not be added";
   return {};
}

}  // namespace support
