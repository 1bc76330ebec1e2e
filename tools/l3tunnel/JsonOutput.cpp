#include "JsonOutput.h"

namespace L3TunnelTool {

namespace {

OrderedJson orNull(const std::optional<uint32_t>& v) { return v ? OrderedJson(*v) : OrderedJson(); }

OrderedJson keyJson(const std::optional<KeyView>& k) {
   if (!k) return OrderedJson();
   if (!k->tunnel) return k->index;
   return OrderedJson{{"srcIpAddr", k->srcIpAddr}, {"dstIpAddr", k->dstIpAddr}};
}

}  // namespace

OrderedJson snapshotJson(const Snapshot& snapshot) {
   OrderedJson tables = OrderedJson::object();
   for (const auto& t : snapshot.tables) {
      OrderedJson entries = OrderedJson::array();
      for (const auto& e : t.entries) {
         entries.push_back({{"key", keyJson(e.key)},
                            {"hwIndex", orNull(e.hwIndex)},
                            {"entryState", e.entryState},
                            {"entryType", e.entryType},
                            {"entry", e.entry ? OrderedJson(*e.entry) : OrderedJson()}});
      }
      tables[t.name] = {
          {"capacity", t.capacity}, {"used", t.used}, {"entries", std::move(entries)}};
   }

   OrderedJson hardware = OrderedJson::object();
   OrderedJson stats = OrderedJson::object();
   for (const auto& h : snapshot.hardware) {
      OrderedJson rows = OrderedJson::array();
      for (const auto& r : h.rows) rows.push_back({{"index", r.index}, {"row", r.row}});
      hardware[h.name] = std::move(rows);
      stats[h.name] = {{"writes", h.writes}, {"deletes", h.deletes}, {"changes", h.changes}};
   }

   OrderedJson groups = OrderedJson::object();
   for (const auto& g : snapshot.groups) {
      OrderedJson members = OrderedJson::array();
      for (const auto& m : g.members) {
         members.push_back({{"slot", m.slot},
                            {"nextHopIndex", orNull(m.nextHopIndex)},
                            {"nextHopState", m.nextHopState},
                            {"underlayAdjId", orNull(m.underlayAdjId)},
                            {"resolved", m.resolved}});
      }
      groups[g.name] = {{"members", std::move(members)}};
   }

   return {{"tables", std::move(tables)},
           {"hardware", std::move(hardware)},
           {"groups", std::move(groups)},
           {"stats", std::move(stats)}};
}

}  // namespace L3TunnelTool
