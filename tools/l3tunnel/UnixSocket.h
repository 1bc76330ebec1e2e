#pragma once
// The agent's socket as both ends use it: its address, and whole sends.
#include <sys/un.h>

#include <optional>
#include <string>
#include <string_view>

namespace L3TunnelTool {

// The address of `path`; none when the path does not fit in one.
std::optional<sockaddr_un> unixAddress(const std::string& path);
// Sends all of `data`, or gives up when the peer stops reading.
void sendAll(int fd, std::string_view data);

}  // namespace L3TunnelTool
