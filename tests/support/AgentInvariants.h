#pragma once
// The invariant checker over every table an agent's programmer holds, for
// the tests that drive the agent rather than the tables.
#include "Agent.h"
#include "support/InvariantChecker.h"

namespace test {

inline Lines agentViolations(const L3TunnelTool::Agent& agent) {
   const auto* p = agent.programmer();
   return p ? InvariantChecker(agent.chip()).programmer(*p).violations() : Lines{};
}

}  // namespace test
