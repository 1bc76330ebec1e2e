#pragma once
// What the agent holds at one moment, as plain values: the software tables
// with their entries, the chip's rows and counters, and each group's member
// block. Both outputs print from this, so they never disagree.
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Agent.h"

namespace L3TunnelTool {

// A tunnel key (source and destination) or an index key.
struct KeyView {
   bool tunnel = false;
   std::string srcIpAddr;
   std::string dstIpAddr;
   uint32_t index = 0;
};

struct EntryView {
   std::optional<KeyView> key;  // none for a block without rows
   std::optional<uint32_t> hwIndex;
   std::string entryState;
   std::string entryType;
   // The value as its row shows it (named handles print as null); none when
   // the key has no value.
   std::optional<std::string> entry;
   // The fields people look at, in order: name and value.
   std::vector<std::pair<std::string, std::string>> fields;
};

struct TableView {
   std::string name;
   uint32_t capacity = 0;
   uint32_t used = 0;
   std::vector<EntryView> entries;
};

struct RowView {
   uint32_t index = 0;
   std::string row;
};

struct HardwareView {
   std::string name;
   uint32_t capacity = 0;
   std::vector<RowView> rows;
   uint32_t writes = 0;
   uint32_t deletes = 0;
   uint32_t changes = 0;
};

struct MemberView {
   uint32_t slot = 0;
   std::optional<uint32_t> nextHopIndex;
   std::string nextHopState;
   // The underlay group's adjacency id: none when the group does not exist,
   // 0 for a dropping member's placeholder.
   std::optional<uint32_t> underlayAdjId;
   std::optional<uint32_t> underlayIndex;
   bool drop = false;
   bool resolved = false;
};

struct GroupView {
   std::string name;
   std::optional<uint32_t> baseIndex;
   std::string blockState;
   std::vector<MemberView> members;
};

struct Snapshot {
   std::vector<TableView> tables;
   std::vector<HardwareView> hardware;
   std::vector<GroupView> groups;  // by name
};

Snapshot snapshotOf(const Agent& agent);

}  // namespace L3TunnelTool
