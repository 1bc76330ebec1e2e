#include "Model/ModelOps.h"

#include <algorithm>
#include <map>
#include <optional>
#include <random>
#include <set>
#include <sstream>
#include <string_view>
#include <utility>

namespace model {

const std::array<KeyText, keyCount>& keyPool() {
   static const std::array<KeyText, keyCount> pool{{
       {"10.0.0.1", "10.1.0.1"},
       {"10.0.0.1", "10.1.0.2"},
       {"10.0.0.1", "10.1.0.3"},
       {"10.0.0.2", "10.1.0.1"},
       {"10.0.0.2", "10.1.0.4"},
       {"10.0.0.1", "10.1.0.5"},
       {"2001:db8::1", "2001:db8:1::1"},
       {"2001:db8::1", "2001:db8:1::2"},
       {"2001:db8::2", "2001:db8:1::1"},
   }};
   return pool;
}

std::string keyName(uint32_t key) {
   if (key >= keyCount) return "drop";
   return std::string(keyPool()[key].src) + ">" + keyPool()[key].dst;
}

namespace {

// The short names of op lines, by the class name: a catalogued table without
// one does not build.
constexpr std::pair<std::string_view, const char*> shortNames[] = {
    {"MeridL3Tunnel::L3EcmpMember0Table", "member"},
    {"MeridL3Tunnel::L3TunnelIngL3NextHopTable", "nextHop"},
    {"MeridL3Tunnel::L3EgrL3Ipv4TunnelTable", "tunnelV4"},
    {"MeridL3Tunnel::L3EgrL3Ipv6TunnelTable", "tunnelV6"},
    {"MeridL3Tunnel::L3TunnelEgrL3Oif1Table", "tunnelOif"},
    {"MeridL3Tunnel::IngL3Iif", "ingIif"},
    {"MeridL3Tunnel::EgrL3Oif1Table", "egrOif"},
};

constexpr const char* shortNameOf(std::string_view name) {
   for (const auto& [table, shortName] : shortNames)
      if (table == name) return shortName;
   return nullptr;
}

// Per hardware table, in catalogue order: its names and its catalogue line's
// link and setting.
struct HwLine {
   std::string_view name;
   const char* shortName;
   MeridL3Tunnel::ChainLink link;
   bool usedMerged, usedSeparate;
};

constexpr auto hwLines() {
   std::array<HwLine, hwTableCount> lines{};
   size_t at = 0;
   MeridL3Tunnel::TableCatalogue::forEach([&]<class Line>() {
      Line::Hw::forEach([&]<class Hw>() {
         lines[at++] = {Hw::typeName, shortNameOf(Hw::typeName), Line::link, Line::inUse(true),
                        Line::inUse(false)};
      });
   });
   return lines;
}

constexpr auto hwTableLines = hwLines();
static_assert(std::none_of(hwTableLines.begin(), hwTableLines.end(),
                           [](const HwLine& l) { return l.shortName == nullptr; }),
              "every hardware table has a short name");

}  // namespace

const char* hwTableName(HwTable t) { return hwTableLines[uint32_t(t)].name.data(); }
const char* hwTableShortName(HwTable t) { return hwTableLines[uint32_t(t)].shortName; }
MeridL3Tunnel::ChainLink hwTableLink(HwTable t) { return hwTableLines[uint32_t(t)].link; }

// The library writes every tunnel, IPv4 or IPv6, to the IPv4 table; the IPv6
// table is sized and watched for rows, never written.
std::vector<HwTable> hwTablesInUse(bool commonInterface,
                                   std::optional<MeridL3Tunnel::ChainLink> link) {
   std::vector<HwTable> in;
   for (uint32_t t = 0; t < hwTableCount; ++t) {
      const HwLine& l = hwTableLines[t];
      if ((commonInterface ? l.usedMerged : l.usedSeparate) && (!link || l.link == *link) &&
          HwTable(t) != HwTable::tunnelV6)
         in.push_back(HwTable(t));
   }
   return in;
}

std::string describe(const Op& op) {
   std::ostringstream os;
   switch (op.kind) {
      case OpKind::program:
         os << "program g" << op.group << " [";
         for (const Via& v : op.vias) {
            os << (&v == op.vias.data() ? "" : ", ");
            if (v.drop)
               os << "drop w" << v.weight;
            else
               os << keyName(v.key) << " ttl" << v.ttl << " w" << v.weight << " adj" << v.adj;
         }
         os << "]";
         break;
      case OpKind::release:
         os << "release g" << op.group;
         break;
      case OpKind::underlayAdd:
         os << "underlay add adj" << op.adj << (op.flag ? " (in progress)" : "");
         break;
      case OpKind::underlayReady:
         os << "underlay ready adj" << op.adj;
         break;
      case OpKind::underlayDel:
         os << "underlay del adj" << op.adj << " (the agent re-hands the groups naming it)";
         break;
      case OpKind::hold:
         os << "hold responses " << (op.flag ? "on" : "off");
         break;
      case OpKind::deliverOne:
         os << "deliver held response " << op.value << " (modulo the held count)";
         break;
      case OpKind::failWrites:
         os << "fail the next " << op.value << " writes of " << hwTableShortName(op.table);
         break;
      case OpKind::stopFailing:
         os << "stop failing writes of " << hwTableShortName(op.table);
         break;
      case OpKind::restart: {
         os << "restart " << (op.flag ? "across processes" : "in process") << ", forget {";
         const char* gap = "";
         for (uint32_t g = 0; g < groupCount; ++g)
            if (op.mask >> g & 1) os << std::exchange(gap, " ") << "g" << g;
         os << "}, replay rotated by " << op.value;
         break;
      }
      case OpKind::reconcile:
         os << "reconcile (purge stale entries)";
         break;
      case OpKind::uncommit:
         os << "uncommit " << (op.value >= keyCount ? "every interface" : keyName(op.value));
         break;
      case OpKind::settle:
         os << "settle (deliver all, stop faults, re-hand every group twice)";
         break;
   }
   return os.str();
}

std::string RunConfig::describe() const {
   std::ostringstream os;
   os << "seed " << seed << ", toggle " << (commonInterface ? "on" : "off") << ", rows";
   for (uint32_t t = 0; t < hwTableCount; ++t)
      os << " " << hwTableShortName(HwTable(t)) << "=" << rows[t];
   return os.str();
}

namespace {

// Plain modulo of the engine's output: the same numbers on every platform,
// which the standard distributions do not promise.
class Rng {
public:
   explicit Rng(uint64_t seed) : engine_(seed) {}
   uint32_t below(uint32_t n) { return n ? uint32_t(engine_() % n) : 0; }
   bool chance(uint32_t inN) { return below(inN) == 0; }
   uint32_t between(uint32_t lo, uint32_t hi) { return lo + below(hi - lo + 1); }

private:
   std::mt19937_64 engine_;
};

constexpr uint32_t roomyRows = 64;

}  // namespace

RunConfig runConfig(uint64_t seed, bool commonInterface) {
   RunConfig c;
   c.seed = seed;
   c.commonInterface = commonInterface;
   c.rows.fill(roomyRows);
   Rng rng(seed ^ 0x5eed5eed5eedull);
   const uint32_t mode = rng.below(20);  // 9 in 20 roomy, 7 small, 4 tiny
   if (mode < 9) return c;
   const bool tiny = mode >= 16;
   auto pick = [&](uint32_t smallLo, uint32_t smallHi, uint32_t tinyLo, uint32_t tinyHi) {
      if (rng.chance(3)) return roomyRows;
      return tiny ? rng.between(tinyLo, tinyHi) : rng.between(smallLo, smallHi);
   };
   // Tunnel index 0 is reserved and the drop entry takes a next-hop row.
   const uint32_t tunnels = pick(3, 8, 2, 3);
   const uint32_t interfaces = pick(2, 7, 1, 3);
   c.rows[uint32_t(HwTable::member)] = pick(6, 16, 3, 6);
   c.rows[uint32_t(HwTable::nextHop)] = pick(3, 8, 2, 3);
   c.rows[uint32_t(HwTable::tunnelV4)] = tunnels;
   c.rows[uint32_t(HwTable::tunnelV6)] = tunnels;
   c.rows[uint32_t(HwTable::tunnelOif)] = interfaces;
   c.rows[uint32_t(HwTable::ingIif)] = interfaces;
   c.rows[uint32_t(HwTable::egrOif)] = interfaces;
   return c;
}

namespace {

class Generator {
public:
   Generator(const RunConfig& c) : config_(c), rng_(c.seed) {
      for (uint32_t adj = 1; adj <= 3; ++adj) underlay_.insert(adj);
   }

   std::vector<Op> run(uint32_t count) {
      std::vector<Op> ops;
      while (ops.size() < count) {
         std::erase_if(stopAt_, [&](const auto& stop) {
            if (stop.second > ops.size()) return false;
            ops.push_back({.kind = OpKind::stopFailing, .table = stop.first});
            return true;
         });
         if (ops.size() < count) ops.push_back(next(uint32_t(ops.size())));
      }
      return ops;
   }

private:
   Via randomVia() {
      if (rng_.chance(8)) return {.drop = true, .ttl = 0, .weight = rng_.between(1, 2), .adj = 0};
      Via v;
      v.key = uint8_t(rng_.chance(3) ? rng_.between(6, keyCount - 1) : rng_.below(6));
      static constexpr uint32_t ttls[] = {64, 64, 32, 255, 300, 1};
      v.ttl = ttls[rng_.below(6)];
      v.weight = rng_.chance(10) ? 0 : rng_.between(1, 3);
      v.adj = rng_.between(1, adjCount);
      return v;
   }

   std::vector<Via> randomList(uint32_t group) {
      // Equal lists share a block, and a reprogram often changes one via.
      if (!lists_.empty() && rng_.chance(4)) {
         auto it = lists_.begin();
         std::advance(it, rng_.below(uint32_t(lists_.size())));
         return it->second;
      }
      if (auto it = lists_.find(group);
          it != lists_.end() && !it->second.empty() && rng_.chance(3)) {
         std::vector<Via> vias = it->second;
         vias[rng_.below(uint32_t(vias.size()))] = randomVia();
         return vias;
      }
      std::vector<Via> vias(rng_.chance(20) ? 0 : rng_.between(1, 4));
      for (auto& v : vias) v = randomVia();
      return vias;
   }

   Op next(uint32_t at) {
      for (;;) {
         const uint32_t r = rng_.below(87);
         if (r < 38) {
            Op op{.kind = OpKind::program, .group = rng_.below(groupCount)};
            op.vias = randomList(op.group);
            lists_[op.group] = op.vias;
            return op;
         }
         if (r < 50) {
            Op op{.kind = OpKind::release, .group = rng_.below(groupCount)};
            lists_.erase(op.group);
            return op;
         }
         if (r < 54) {
            Op op{.kind = OpKind::underlayAdd,
                  .adj = rng_.between(1, adjCount),
                  .flag = rng_.chance(3)};
            underlay_.insert(op.adj);
            return op;
         }
         if (r < 56) return {.kind = OpKind::underlayReady, .adj = rng_.between(1, adjCount)};
         if (r < 59) {
            if (underlay_.empty()) continue;
            auto it = underlay_.begin();
            std::advance(it, rng_.below(uint32_t(underlay_.size())));
            const Op op{.kind = OpKind::underlayDel, .adj = *it};
            underlay_.erase(it);
            return op;
         }
         if (r < 64) {
            holding_ = !holding_;
            return {.kind = OpKind::hold, .flag = holding_};
         }
         if (r < 69) {
            if (!holding_) continue;
            return {.kind = OpKind::deliverOne, .value = rng_.below(16)};
         }
         if (r < 73) {
            const auto tables = hwTablesInUse(config_.commonInterface);
            const HwTable table = tables[rng_.below(uint32_t(tables.size()))];
            const Op op{.kind = OpKind::failWrites, .value = rng_.between(1, 3), .table = table};
            stopAt_[table] = at + rng_.between(1, 5);
            return op;
         }
         if (r < 76) {
            Op op{.kind = OpKind::restart, .flag = rng_.chance(4)};
            for (uint32_t g = 0; g < groupCount; ++g)
               if (rng_.chance(4)) op.mask |= 1u << g;
            op.value = rng_.below(groupCount);
            for (uint32_t g = 0; g < groupCount; ++g)
               if (op.mask >> g & 1) lists_.erase(g);
            if (op.flag) {
               holding_ = false;  // a new chip holds nothing back
               stopAt_.clear();
            }
            restarted_ = true;
            return op;
         }
         if (r < 81) {
            if (!restarted_ && !rng_.chance(8)) continue;
            restarted_ = false;
            return {.kind = OpKind::reconcile};
         }
         if (r < 85) {
            if (!config_.commonInterface) continue;
            return {.kind = OpKind::uncommit,
                    .value = rng_.chance(3) ? keyCount : rng_.below(keyCount)};
         }
         holding_ = false;
         stopAt_.clear();
         return {.kind = OpKind::settle};
      }
   }

   const RunConfig& config_;
   Rng rng_;
   std::map<uint32_t, std::vector<Via>> lists_;
   std::set<uint32_t> underlay_;
   std::map<HwTable, uint32_t> stopAt_;
   bool holding_ = false;
   bool restarted_ = false;
};

}  // namespace

std::vector<Op> generateOps(const RunConfig& config, uint32_t count) {
   return Generator(config).run(count);
}

std::vector<Op> opsAt(const std::vector<Op>& ops, const std::vector<uint32_t>& indices) {
   std::vector<Op> out;
   for (uint32_t i : indices) out.push_back(ops.at(i));
   return out;
}

}  // namespace model
