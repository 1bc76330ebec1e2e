#pragma once
// The invariant checker over every table an agent's programmer holds, for
// the tests that drive the agent rather than the tables.
#include "Agent.h"
#include "support/InvariantChecker.h"

namespace test {

inline Lines agentViolations(const L3TunnelTool::Agent& agent) {
   const auto* p = agent.programmer();
   if (!p) return {};
   InvariantChecker checker(agent.chip());
   if (p->l3EgrL3Ipv4TunnelTable()) checker.table(*p->l3EgrL3Ipv4TunnelTable());
   if (p->l3EgrL3Ipv6TunnelTable()) checker.table(*p->l3EgrL3Ipv6TunnelTable());
   if (p->l3TunnelEgrL3Oif1Table()) checker.table(*p->l3TunnelEgrL3Oif1Table());
   if (p->l3TunnelIngL3NextHopTable()) checker.table(*p->l3TunnelIngL3NextHopTable());
   if (p->l3InterfaceTable()) checker.mergedTable(*p->l3InterfaceTable());
   if (p->l3EcmpMember0Table()) checker.memberTable(*p->l3EcmpMember0Table());
   return checker.violations();
}

}  // namespace test
