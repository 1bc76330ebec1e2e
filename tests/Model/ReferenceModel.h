#pragma once
// A plain model of what the chip must hold for the agent's live groups, in
// keys (maps and sets, nothing of the library), and of what may excuse a
// missing row.
//
// What must be there:
//  - next hops: one per tunnel key named by a live group's weighted via, plus
//    the reserved drop next hop; every dropping via names the drop entry;
//  - interfaces: one per next-hop key, plus (toggle on) every key whose merged
//    interface is still committed: a program commits it, only `uncommit` or a
//    restart ends the commitment;
//  - tunnels: one per interface key, in the IPv4 table whatever the family,
//    holding the low 8 bits of the TTL of the last weighted via that wrote the
//    key (programs write in via order; the replay after a restart counts);
//  - member blocks: one per distinct member list among the live groups. A
//    member is (next-hop key or drop, underlay, forwarding or dropping), one
//    per weight unit in via order. The underlay is the group incarnation found
//    when the list was handed over, "none" when the adjacency did not exist
//    (equal for every missing adjacency), or the drop placeholder. Groups with
//    equal member lists share one block, and only they do.
//
// Where the model cannot predict rows (full tables, failed writes), the
// checker accepts a model entry without its row only when the library shows
// a state a client can see, with a cause the model knows of:
//  - noHwIndex with no index held: the table ran out of indices. Accepted
//    only when the keys present in the table since the entry's key became
//    present (live, lingering after death until the next quiet point, or
//    recovered at a restart) could have filled it;
//  - noHwIndex with an index held (a refused write): accepted only when a
//    write-failure window of the table overlaps the key's presence. The row
//    may then hold an older value of the same key;
//  - failedNeededEntry or unresolved: accepted only when an entry it names is
//    itself excused, or (blocks) an underlay group is not programmed yet;
//  - no tunnel entry at all, toggle on: accepted while the key's merged
//    interface found no index, since then nothing holds the tunnel;
//  - a block in noHwIndex without a range: accepted, but every hand-over of
//    its list while a large enough free range exists and everything it names
//    is programmed must give it one (checked at the hand-over), and a block
//    with a range but refused rows needs a failure window of the member table.
// Convergence: at a `settle` (faults stopped, everything delivered, every
// group handed over twice) every entry a live group names must be programmed
// when the model's keys fit every table, except what only a commitment holds
// and the drop entry (neither is written again by a hand-over) and what
// depends on those; blocks whose hand-over found no free range stay excused.
// After `reconcile` no row outside the model may remain; at the end of a run
// (every group released, every commitment removed) only the drop row may.
//
// Where it is weaker, deliberately:
//  - rows a restart found stay allowed until the reconcile (what they name,
//    underlay groups included, must still be there);
//  - member rows keep the underlay index they were written with (the
//    underlay table keeps a deleted group's index taken while its handle is
//    held); the agent here hands over again every group whose underlay group
//    goes.
#include <array>
#include <cstdint>
#include <map>
#include <set>
#include <vector>

#include "Model/ModelOps.h"

namespace model {

inline constexpr uint32_t dropKey = keyCount;  // the reserved drop next hop
using KeyMask = uint32_t;                      // bit k: key k; bit dropKey: the drop entry

enum class Table : uint8_t { tunnel, interface, nextHop };
inline constexpr uint32_t tableCount = 3;

struct UnderlayRef {
   enum class Kind : uint8_t { none, dropPlaceholder, group };
   Kind kind = Kind::none;
   uint32_t adj = 0;
   uint32_t incarnation = 0;
   auto operator<=>(const UnderlayRef&) const = default;
};

struct Member {
   uint32_t key = dropKey;
   UnderlayRef underlay;
   bool resolved = false;
   auto operator<=>(const Member&) const = default;
};
using BlockId = std::vector<Member>;

class ReferenceModel {
public:
   static constexpr uint32_t open = UINT32_MAX;

   explicit ReferenceModel(bool commonInterface);

   // The agent's and the underlay owner's operations.
   void program(uint32_t group, const std::vector<Via>& vias);
   void release(uint32_t group);
   void underlayAdd(uint32_t adj, bool inProgress);
   void underlayReady(uint32_t adj);
   // The groups whose vias name the adjacency: the agent hands them over again.
   std::vector<uint32_t> underlayDel(uint32_t adj);
   // Forgets the masked groups and every commitment; returns the groups to
   // replay, in replay order (the caller programs each again).
   std::vector<uint32_t> restart(uint32_t forgetMask, uint32_t rotation);
   void uncommit(uint32_t key);  // keyCount: every commitment

   // What must be on the chip.
   bool commonInterface() const { return commonInterface_; }
   KeyMask keys(Table t) const;
   uint8_t ttl(uint32_t key) const;
   const std::map<uint32_t, std::vector<Via>>& groups() const { return groups_; }
   const BlockId& blockOf(uint32_t group) const { return blockOf_.at(group); }
   std::set<BlockId> blocks() const;
   bool underlayReady(const UnderlayRef& u) const;

   // Time and causes. Ops are numbered from 0; `opBegin` starts one.
   void opBegin(uint32_t op);
   uint32_t now() const { return now_; }
   // Nothing is in flight any more: keys that died stop holding indices.
   void quiet();
   // Keys whose rows a restart found, present until `reconcile`.
   void staleIs(Table t, KeyMask keys);
   KeyMask stale(Table t) const { return stale_[uint32_t(t)]; }
   void reconcile();
   void failWrites(HwTable t);
   void stopFailing(HwTable t);
   void stopFailingAll();

   uint32_t presentSince(Table t, uint32_t key) const;
   // Distinct keys present in the table at any time in [since, now].
   uint32_t presentCount(Table t, uint32_t since) const;
   bool failureWindow(HwTable t, uint32_t since) const;
   uint32_t blockSince(const BlockId& b) const;

private:
   Member memberFor(const Via& v) const;
   // Records the current keys and blocks as present in the current op.
   void touch();

   bool commonInterface_;
   std::map<uint32_t, std::vector<Via>> groups_;
   std::map<uint32_t, BlockId> blockOf_;
   struct Underlay {
      uint32_t incarnation = 0;
      bool ready = false;
   };
   std::map<uint32_t, Underlay> underlay_;
   uint32_t incarnations_ = 0;
   KeyMask committed_ = 0;
   std::map<uint32_t, uint8_t> ttl_;

   uint32_t now_ = 0;
   std::array<std::vector<KeyMask>, tableCount> present_;  // per op
   std::array<KeyMask, tableCount> lingering_{};
   std::array<KeyMask, tableCount> stale_{};
   std::map<BlockId, uint32_t> blockSince_;
   std::map<HwTable, std::vector<std::pair<uint32_t, uint32_t>>> failures_;  // [from, to]
};

}  // namespace model
