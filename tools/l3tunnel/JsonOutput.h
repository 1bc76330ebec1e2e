#pragma once
// The snapshot for programs: tables, hardware rows, groups and counters under
// fixed names. Indices that do not exist print as null.
#include <nlohmann/json.hpp>

#include "Snapshot.h"

namespace L3TunnelTool {

using OrderedJson = nlohmann::ordered_json;

OrderedJson snapshotJson(const Snapshot& snapshot);

}  // namespace L3TunnelTool
