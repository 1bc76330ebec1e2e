#pragma once
// The snapshot for people: each table with its entries in aligned columns,
// each group's member block, and one summary line.
#include <cstdint>
#include <ostream>
#include <string>

#include "Snapshot.h"

namespace L3TunnelTool {

struct HumanStyle {
   bool colour = false;  // terminal colours
};

void humanPrint(std::ostream& os, const Snapshot& snapshot, double elapsedMs,
                const HumanStyle& style);
// The summary line alone, without its newline.
std::string humanSummary(const Snapshot& snapshot, double elapsedMs);

}  // namespace L3TunnelTool
