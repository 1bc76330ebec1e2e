#pragma once
// `l3tunnel agent`: follows the kernel's IP-in-IP nexthops, nexthop groups
// and routes in the network namespace it runs in, and answers `l3tunnel
// show` on a unix socket. Both take the arguments after their command name
// and return the exit code.
namespace L3TunnelTool {

int agentMain(int argc, char** argv);
int showMain(int argc, char** argv);

}  // namespace L3TunnelTool
