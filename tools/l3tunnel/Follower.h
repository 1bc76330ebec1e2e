#pragma once
// Keeps the agent's overlay groups and underlay groups what the kernel
// describes. Events go into the mirror as they are read; `flush` then
// programs what they changed, once per batch.
//
// Phases, moved by the caller through dumpBegin/dumpEnd:
//   syncing    a full dump is being read (at start, or again after the
//              kernel dropped notifications); nothing is programmed until
//              the dump ends
//   following  each batch of notifications is programmed when flushed
//
// Underlay groups are made while their adjacency is resolved and some group
// uses it, each at the index equal to its adjacency id, so that a restart
// makes them where they were. Groups using an adjacency whose group came or
// went are programmed again: their members name it.
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "Agent.h"
#include "KernelMirror.h"

namespace L3TunnelTool {

class KernelFollower {
public:
   KernelFollower(Agent& agent, AdjacencyIds& ids, uint32_t defaultTtl)
       : agent_(agent), ids_(ids), mirror_(defaultTtl, ids) {}

   // `lost`: the kernel dropped notifications (counted as a resync).
   void dumpBegin(bool lost);
   void apply(const KernelEvent& e);
   // Programs the groups the events since the last flush changed; releases
   // the ones the kernel no longer has.
   void flush();
   // Ends a dump: programs what it found, and after the start-up dump runs
   // the reconcile that purges rows found on the chip that no group claimed.
   // The phase stays syncing until then; `meanwhile` is called every few
   // groups, so that the caller can answer who asks.
   void dumpEnd(bool startup, const std::function<void()>& meanwhile = {});

   std::string_view phase() const { return syncing_ ? "syncing" : "following"; }
   const KernelMirror& mirror() const { return mirror_; }
   KernelMirror& mirror() { return mirror_; }
   uint64_t changesApplied() const { return changesApplied_; }
   uint64_t resyncs() const { return resyncs_; }
   // Adjacencies the programmed groups use.
   std::set<Adjacency> usedAdjacencies() const;
   // Whether anything was programmed since the last call.
   bool changedTake() { return std::exchange(changed_, false); }

private:
   void program(const std::function<void()>& meanwhile);
   void adjacencyUsersIs(const std::string& name, const std::vector<Adjacency>& adjacencies);

   Agent& agent_;
   AdjacencyIds& ids_;
   KernelMirror mirror_;
   bool syncing_ = true;
   bool started_ = false;
   bool changed_ = false;
   uint64_t changesApplied_ = 0;
   uint64_t resyncs_ = 0;
   // The adjacencies of each programmed group, and the groups of each.
   std::map<std::string, std::vector<Adjacency>> groupAdjacencies_;
   std::map<Adjacency, std::set<std::string>> adjacencyUsers_;
};

}  // namespace L3TunnelTool
