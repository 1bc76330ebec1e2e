#pragma once
// The agent's set-up of the programmer, for the fixtures and the model runs.
#include "AgentSetup.h"

namespace test {

using AgentSetup = L3TunnelTool::AgentSetup;

inline MeridL3Common::L3AdjIdKey adj(uint32_t id) { return AgentSetup::adj(id); }

}  // namespace test
