#pragma once
// The snapshot for people: where the run started from, capacity warnings,
// each table with its usage and its entries in aligned columns, each group
// with its state, the reason it is not programmed and every member's chain,
// and one summary line.
#include <cstdint>
#include <ostream>
#include <string>

#include "Changes.h"
#include "Snapshot.h"

namespace L3TunnelTool {

struct HumanStyle {
   bool colour = false;  // terminal colours
};

void humanPrint(std::ostream& os, const Snapshot& snapshot, const RunView& run, double elapsedMs,
                const HumanStyle& style);
// What changed since `changes` last looked, one line each; it then
// remembers the new state.
void humanChangesPrint(std::ostream& os, const Snapshot& snapshot, ChangeTracker& changes,
                       const HumanStyle& style);
// One tunnel: its entry in each table of its chain and the groups using it.
void humanTunnelPrint(std::ostream& os, const Snapshot& snapshot,
                      const MeridL3Tunnel::L3TunnelKey& key, const HumanStyle& style);
// One view for `show`, after a line of the agent's counters.
void humanShowPrint(std::ostream& os, const Snapshot& snapshot, const AgentView& agent,
                    ShowView view, const MeridL3Tunnel::L3TunnelKey* tunnel,
                    const HumanStyle& style);
// "recovered N rows from DIR", or that DIR held no state; empty without one.
std::string humanStart(const RunView& run);
// The summary line alone, without its newline.
std::string humanSummary(const Snapshot& snapshot, const RunView& run, double elapsedMs);

}  // namespace L3TunnelTool
