#include "UnixSocket.h"

#include <sys/socket.h>

#include <cerrno>
#include <cstring>

namespace L3TunnelTool {

std::optional<sockaddr_un> unixAddress(const std::string& path) {
   sockaddr_un a{};
   a.sun_family = AF_UNIX;
   if (path.size() >= sizeof a.sun_path) return std::nullopt;
   std::memcpy(a.sun_path, path.data(), path.size());
   return a;
}

void sendAll(int fd, std::string_view data) {
   while (!data.empty()) {
      const ssize_t n = send(fd, data.data(), data.size(), MSG_NOSIGNAL);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return;
      data.remove_prefix(size_t(n));
   }
}

}  // namespace L3TunnelTool
