#pragma once
// The snapshot for programs, in the versioned format docs/l3tunnel-json.md
// describes: one JSON object per document, on one line, written as it is
// produced. Indices that do not exist are null, never 0.
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Changes.h"
#include "JsonWriter.h"
#include "Snapshot.h"

namespace L3TunnelTool {

// Raised when a field is renamed, moved or changes its meaning; adding a
// field does not raise it.
inline constexpr int formatVersion = 1;

// The step a document is about, for --each-step.
struct StepView {
   uint32_t step = 0;
   std::string_view op;
   std::optional<std::string> group;
};

// The whole state: run, warnings, tables, hardware, groups, stats.
void snapshotJsonWrite(JsonWriter& w, const Snapshot& s, const RunView& run, const StepView* step);
// What changed since `changes` last looked, which then remembers the new state.
void changesJsonWrite(JsonWriter& w, const Snapshot& s, const RunView& run, const StepView* step,
                      ChangeTracker& changes);
// One tunnel with its chain and the groups that use it.
void tunnelJsonWrite(JsonWriter& w, const Snapshot& s, const RunView& run, const StepView* step,
                     const MeridL3Tunnel::L3TunnelKey& key);

// One view of the state with the agent's counters; `tunnel` for ShowView::tunnel.
void showJsonWrite(JsonWriter& w, const Snapshot& s, const RunView& run, const AgentView& agent,
                   ShowView view, const MeridL3Tunnel::L3TunnelKey* tunnel);

// The fields of one entry or one group, in an open object; the change
// tracker compares these texts.
void entryJsonFields(JsonWriter& w, const EntryView& e, TableKind kind, const Snapshot& s);
void groupJsonFields(JsonWriter& w, const GroupView& g);

// An error, as one object on its own line: `step` and `field` as far as
// they are known.
struct ErrorView {
   std::string error;
   std::optional<std::string> file;
   std::optional<uint32_t> step;
   std::optional<std::string> field;
};
std::string errorJson(const ErrorView& e);

}  // namespace L3TunnelTool
