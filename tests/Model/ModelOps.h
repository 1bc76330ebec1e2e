#pragma once
// Whole-system operation sequences for the model-checked runs: what the agent,
// the underlay owner and the chip do to the overlay ECMP programmer, generated
// from a seed. The same seed always gives the same run (table sizes and ops),
// so a failing seed can be pasted and replayed.
//
// Every op is self-contained and valid after any subset of the ops before it
// (releasing a group that holds nothing, delivering when nothing is held,
// reconciling without a restart are all no-ops), so that a failing sequence
// can be shrunk by dropping ops.
#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "MeridL3Tunnel/TableCatalogue.h"

namespace model {

// The tunnel keys every run draws from, so that vias and groups share them:
// a small pool of IPv4 and IPv6 source/destination pairs.
inline constexpr uint32_t keyCount = 9;
struct KeyText {
   const char* src;
   const char* dst;
};
const std::array<KeyText, keyCount>& keyPool();
std::string keyName(uint32_t key);

// The hardware tables a run can shrink or make fail: the catalogue's, in its
// order. The interface tables in use follow the toggle: the merged table's
// two members when it is on, the tunnel interface table when it is off.
using CatalogueHw = MeridL3Tunnel::CatalogueHwTables;

template <class Hw>
inline constexpr uint8_t hwTableOf = [] {
   uint8_t at = 0, found = 0xff;
   CatalogueHw::forEach([&]<class T>() {
      if (std::is_same_v<Hw, T>) found = at;
      ++at;
   });
   return found;
}();

enum class HwTable : uint8_t {
   member = hwTableOf<MeridL3Tunnel::L3EcmpMember0Table>,
   nextHop = hwTableOf<MeridL3Tunnel::L3TunnelIngL3NextHopTable>,
   tunnelOif = hwTableOf<MeridL3Tunnel::L3TunnelEgrL3Oif1Table>,  // toggle off
   ingIif = hwTableOf<MeridL3Tunnel::IngL3Iif>,                   // toggle on
   egrOif = hwTableOf<MeridL3Tunnel::EgrL3Oif1Table>,             // toggle on
   tunnelV4 = hwTableOf<MeridL3Tunnel::L3EgrL3Ipv4TunnelTable>,
   tunnelV6 = hwTableOf<MeridL3Tunnel::L3EgrL3Ipv6TunnelTable>,
};
inline constexpr uint32_t hwTableCount = CatalogueHw::size;
// The table's qualified class name, as the chip and the chip information know it.
const char* hwTableName(HwTable t);
// The short name used in op lines.
const char* hwTableShortName(HwTable t);
// The link of the chain whose rows the table holds.
MeridL3Tunnel::ChainLink hwTableLink(HwTable t);
// The hardware tables written under the toggle, of the chain's `link` or all.
std::vector<HwTable> hwTablesInUse(bool commonInterface,
                                   std::optional<MeridL3Tunnel::ChainLink> link = {});

struct Via {
   bool drop = false;
   uint8_t key = 0;  // into keyPool(); unused for a drop
   uint32_t ttl = 64;
   uint32_t weight = 1;
   uint32_t adj = 1;  // underlay adjacency id; unused for a drop
   friend bool operator==(const Via&, const Via&) = default;
};

enum class OpKind : uint8_t {
   program,        // group, vias: the new block is taken before the old one goes
   release,        // group
   underlayAdd,    // adj; flag: in progress rather than programmed
   underlayReady,  // adj
   underlayDel,    // adj; the agent then re-hands every group that names it
   hold,           // flag: hold responses back from now on, or stop
   deliverOne,     // value: position among the held responses (modulo their count)
   failWrites,     // table, value: the next `value` writes of the table fail
   stopFailing,    // table
   restart,        // flag: across processes; mask: groups forgotten; value: replay rotation
   reconcile,      // purge what the replay did not claim
   uncommit,       // value: a key, or keyCount for every committed interface
   settle,         // deliver everything, stop faults, re-hand every group twice
};

struct Op {
   OpKind kind = OpKind::program;
   uint32_t group = 0;
   std::vector<Via> vias{};
   uint32_t adj = 0;
   uint32_t value = 0;
   uint32_t mask = 0;
   HwTable table = HwTable::member;
   bool flag = false;
};

// One line a developer can read.
std::string describe(const Op& op);

// A run: its seed, the toggle of this process, the table sizes and the ops.
struct RunConfig {
   uint64_t seed = 0;
   bool commonInterface = true;
   std::array<uint32_t, hwTableCount> rows{};
   uint32_t rowsOf(HwTable t) const { return rows[uint32_t(t)]; }
   std::string describe() const;
};

inline constexpr uint32_t groupCount = 6;
inline constexpr uint32_t adjCount = 6;  // adjacency ids 1..adjCount

RunConfig runConfig(uint64_t seed, bool commonInterface);
std::vector<Op> generateOps(const RunConfig& config, uint32_t count);
// The ops at `indices`, in their order: a part of a run to replay.
std::vector<Op> opsAt(const std::vector<Op>& ops, const std::vector<uint32_t>& indices);

}  // namespace model
