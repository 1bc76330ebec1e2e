#pragma once
// What the agent holds at one moment, read out for the outputs: the software
// tables with their entries and usage, the chip's rows and counters, and each
// group's member block with the chain behind every member and the reason it
// is not programmed. Both outputs print from this, so they never disagree.
//
// Nothing is copied up front: entries, rows and groups are built one at a
// time as they are visited, so printing a large chip costs one entry's worth
// of memory beyond what the agent holds. A Snapshot is valid while the agent
// is left alone.
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
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

// How full a table is, by the indices entries can be given: a tunnel table
// never gives out its index 0, so that one is not usable.
struct Usage {
   enum class Level : uint8_t { ok, high, critical, full };
   static constexpr uint32_t highPercent = 70;
   static constexpr uint32_t criticalPercent = 85;

   uint32_t capacity = 0;  // rows
   uint32_t usable = 0;
   uint32_t used = 0;     // rows holding an entry
   uint32_t free = 0;     // usable rows not used
   uint32_t refused = 0;  // entries that could not be given an index (noHwIndex)
   // The member table places blocks in consecutive rows: the largest run of
   // free ones.
   std::optional<uint32_t> largestFree;

   uint32_t percentTenths() const;
   Level level() const;
};
std::string_view levelName(Usage::Level level);

// Which fields a table's entries carry besides their key and states.
enum class TableKind : uint8_t { tunnel, interface, ingressInterface, nextHop, member };

struct EntryView {
   std::optional<KeyView> key;  // none for a member of a block without rows
   std::optional<uint32_t> hwIndex;
   std::string_view entryState;
   std::string_view entryType;
   // Whether the key has a value, and the value as its row shows it (named
   // handles print as null) when the visit asked for texts.
   bool valued = false;
   std::optional<std::string> entry;
   // Tunnels: the TTL and the groups whose members run through the tunnel.
   std::optional<uint32_t> ttl;
   std::vector<uint32_t> groups;  // positions in Snapshot::groupNames()
   // Interfaces: the tunnel index they carry, once the tunnel has one.
   std::optional<uint32_t> tunnelIndex;
   // Next hops: drop, or the interface index they carry once it has one.
   bool drop = false;
   std::optional<uint32_t> interfaceIndex;
   // Members: the indices they carry, once the block was placed.
   std::optional<uint32_t> nextHopIndex;
   std::optional<uint32_t> underlayIndex;
   bool resolved = false;
};

struct TableView {
   std::string name;
   TableKind kind;
   Usage usage;
   uint32_t entries = 0;
   using EntryVisitor = std::function<void(const EntryView&)>;
   // Visits the entries: rows first in index order, then what has no row.
   // Without `texts` the values' text forms are left out (they cost most).
   void entriesVisit(const EntryVisitor& f, bool texts = true) const { visit(f, texts); }
   std::function<void(const EntryVisitor&, bool texts)> visit;
   // The entry of a tunnel key, in tables keyed by one.
   std::function<std::optional<EntryView>(const MeridL3Tunnel::L3TunnelKey&)> entryOf;
};

struct HardwareView {
   std::string name;
   uint32_t capacity = 0;
   uint32_t used = 0;
   uint32_t writes = 0;
   uint32_t deletes = 0;
   uint32_t changes = 0;  // writes and deletes that changed a row
   const AsicSim::HwTable* rows = nullptr;
   // Visits the used rows in index order.
   void rowsVisit(const std::function<void(uint32_t index, const std::string& row)>& f) const;
};

// One link of a member's chain: the entry's index (none while it has none)
// and its state ("none" when the link does not exist).
struct LinkView {
   std::optional<uint32_t> index;
   std::string_view state = "none";
};

struct MemberView {
   uint32_t slot = 0;
   LinkView nextHop;
   LinkView interface;
   LinkView tunnel;
   std::string srcIpAddr;  // empty for a dropping member
   std::string dstIpAddr;
   std::optional<uint32_t> ttl;
   // The underlay group: its adjacency (none for a dropping member) and index
   // (none while the group does not exist or has none).
   std::optional<uint32_t> underlayAdjId;
   std::optional<uint32_t> underlayType;
   std::optional<uint32_t> underlayIndex;
   const std::string* underlayName = nullptr;  // see Agent::underlayName
   bool underlayExists = false;
   bool drop = false;
   bool resolved = false;
   // Why the member does not forward as it should; none when it does.
   std::optional<std::string> reason;
};

struct GroupView {
   std::string name;
   // An entry state, or notProgrammed for a group listed without a block.
   std::string_view state;
   std::optional<uint32_t> base;
   uint32_t size = 0;
   // Why the block is not programmed, or which member does not forward;
   // none when all is well.
   std::optional<std::string> reason;
   std::vector<MemberView> members;
   // Routes naming the group, when the agent follows a kernel.
   std::vector<std::string> routes;
};
inline constexpr std::string_view notProgrammed = "notProgrammed";

// The run as a whole: where it started from and what it did to the chip.
struct RunView {
   std::optional<std::string> stateDir;
   // Rows the chip held when the run started from a saved state; none when
   // there was no state to start from.
   std::optional<uint32_t> recoveredRows;
   uint64_t hardwareWrites = 0;
   uint64_t hardwareDeletes = 0;
   uint64_t changedRows = 0;
};

// What `show` asks the running agent for.
enum class ShowView : uint8_t { all, groups, tables, usage, tunnel };

// The agent following a kernel: where it stands and what it has done.
struct AgentView {
   std::string_view phase;  // "syncing" or "following"
   uint32_t nexthops = 0;   // kernel objects seen now
   uint32_t groups = 0;
   uint32_t routes = 0;
   uint64_t changesApplied = 0;  // kernel changes applied since start
   uint64_t resyncs = 0;
   uint64_t hardwareWrites = 0;  // since this process started
   uint64_t hardwareDeletes = 0;
   std::optional<std::string> lastProblem;
};

class Snapshot {
public:
   explicit Snapshot(const Agent& agent);
   ~Snapshot();
   Snapshot(const Snapshot&) = delete;
   Snapshot& operator=(const Snapshot&) = delete;

   // In chain order: tunnels, interfaces, next hops, members.
   const std::vector<TableView>& tables() const { return tables_; }
   const std::vector<HardwareView>& hardware() const { return hardware_; }
   // Group names in order (those with a block first); EntryView::groups
   // point into this.
   const std::vector<std::string>& groupNames() const { return groupNames_; }
   GroupView group(uint32_t position) const;
   // Members of all groups' blocks.
   uint64_t members() const;
   // Capacity problems an operator should know of before a table fills.
   const std::vector<std::string>& warnings() const { return warnings_; }
   // Counters of the chip since this process started it.
   RunView run(const RunView& start) const;

   // The tunnel of `key` with every entry of its chain, in chain order,
   // paired with the name of the table it is in; empty when no table has it.
   std::vector<std::pair<const TableView*, EntryView>> tunnelChain(
       const MeridL3Tunnel::L3TunnelKey& key) const;
   // The groups with members through that tunnel, with their slots.
   std::vector<std::pair<std::string, std::vector<uint32_t>>> tunnelGroups(
       const MeridL3Tunnel::L3TunnelKey& key) const;

   class Chains;

private:
   const Agent& agent_;
   std::vector<TableView> tables_;
   std::vector<HardwareView> hardware_;
   std::vector<std::string> groupNames_;
   std::vector<const std::pair<const std::string, Agent::HandlePtr>*> groups_;
   std::vector<std::string> warnings_;
   std::unique_ptr<Chains> chains_;
};

}  // namespace L3TunnelTool
