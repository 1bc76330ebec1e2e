#include "JsonOutput.h"

#include <sstream>

namespace L3TunnelTool {

namespace {

void keyJson(JsonWriter& w, const std::optional<KeyView>& k) {
   if (!k) {
      w.null();
   } else if (!k->tunnel) {
      w.value(k->index);
   } else {
      w.objectBegin();
      w.key("srcIpAddr").value(k->srcIpAddr);
      w.key("dstIpAddr").value(k->dstIpAddr);
      w.objectEnd();
   }
}

void usageJson(JsonWriter& w, const Usage& u) {
   w.key("capacity").value(u.capacity);
   w.key("usable").value(u.usable);
   w.key("used").value(u.used);
   w.key("free").value(u.free);
   w.key("percentUsed").valueTenths(u.percentTenths());
   w.key("refused").value(u.refused);
   w.key("level").value(levelName(u.level()));
   if (u.largestFree) w.key("largestFree").value(*u.largestFree);
}

void documentBegin(JsonWriter& w, const RunView& run, const StepView* step) {
   w.objectBegin();
   w.key("formatVersion").value(formatVersion);
   if (step) {
      w.key("step").value(step->step);
      w.key("op").value(step->op);
      if (step->group) w.key("group").value(*step->group);
   }
   w.key("run").objectBegin();
   w.key("stateDir").value(run.stateDir);
   w.key("recoveredRows").value(run.recoveredRows);
   w.key("hardwareWrites").value(run.hardwareWrites);
   w.key("hardwareDeletes").value(run.hardwareDeletes);
   w.key("changedRows").value(run.changedRows);
   w.objectEnd();
}

void warningsJson(JsonWriter& w, const Snapshot& s) {
   w.key("warnings").arrayBegin();
   for (const auto& text : s.warnings()) w.value(text);
   w.arrayEnd();
}

void linkJson(JsonWriter& w, std::string_view name, const LinkView& l) {
   w.key(std::string(name) + "Index").value(l.index);
   w.key(std::string(name) + "State").value(l.state);
}

void memberJson(JsonWriter& w, const MemberView& m) {
   w.objectBegin();
   w.key("slot").value(m.slot);
   linkJson(w, "nextHop", m.nextHop);
   linkJson(w, "interface", m.interface);
   linkJson(w, "tunnel", m.tunnel);
   if (m.drop) {
      w.key("srcIpAddr").null();
      w.key("dstIpAddr").null();
   } else {
      w.key("srcIpAddr").value(m.srcIpAddr);
      w.key("dstIpAddr").value(m.dstIpAddr);
   }
   w.key("ttl").value(m.ttl);
   w.key("underlayAdjId").value(m.underlayAdjId);
   w.key("underlayType").value(m.underlayType);
   w.key("underlayIndex").value(m.underlayIndex);
   w.key("drop").value(m.drop);
   w.key("resolved").value(m.resolved);
   w.key("reason").value(m.reason);
   w.objectEnd();
}

}  // namespace

void entryJsonFields(JsonWriter& w, const EntryView& e, TableKind kind, const Snapshot& s) {
   w.key("key");
   keyJson(w, e.key);
   w.key("hwIndex").value(e.hwIndex);
   w.key("entryState").value(e.entryState);
   w.key("entryType").value(e.entryType);
   w.key("entry").value(e.entry);
   switch (kind) {
      case TableKind::tunnel:
         w.key("ttl").value(e.ttl);
         w.key("groups").arrayBegin();
         for (const uint32_t g : e.groups) w.value(s.groupNames()[g]);
         w.arrayEnd();
         break;
      case TableKind::interface:
         w.key("tunnelIndex").value(e.tunnelIndex);
         break;
      case TableKind::ingressInterface:
         break;
      case TableKind::nextHop:
         w.key("drop").value(e.drop);
         w.key("interfaceIndex").value(e.interfaceIndex);
         break;
      case TableKind::member:
         w.key("nextHopIndex").value(e.nextHopIndex);
         w.key("underlayIndex").value(e.underlayIndex);
         w.key("resolved").value(e.resolved);
         break;
   }
}

void groupJsonFields(JsonWriter& w, const GroupView& g) {
   w.key("state").value(g.state);
   w.key("base").value(g.base);
   w.key("size").value(g.size);
   w.key("reason").value(g.reason);
   w.key("members").arrayBegin();
   for (const auto& m : g.members) memberJson(w, m);
   w.arrayEnd();
   if (!g.routes.empty()) {
      w.key("routes").arrayBegin();
      for (const auto& r : g.routes) w.value(r);
      w.arrayEnd();
   }
}

namespace {

void tablesJson(JsonWriter& w, const Snapshot& s, bool entries) {
   w.key(entries ? "tables" : "usage").objectBegin();
   for (const auto& t : s.tables()) {
      w.key(t.name).objectBegin();
      usageJson(w, t.usage);
      if (entries) {
         w.key("entries").arrayBegin();
         t.entriesVisit([&](const EntryView& e) {
            w.objectBegin();
            entryJsonFields(w, e, t.kind, s);
            w.objectEnd();
         });
         w.arrayEnd();
      }
      w.objectEnd();
   }
   w.objectEnd();
}

void hardwareJson(JsonWriter& w, const Snapshot& s) {
   w.key("hardware").objectBegin();
   for (const auto& h : s.hardware()) {
      w.key(h.name).arrayBegin();
      h.rowsVisit([&](uint32_t index, const std::string& row) {
         w.objectBegin().key("index").value(index).key("row").value(row).objectEnd();
      });
      w.arrayEnd();
   }
   w.objectEnd();
}

void groupsJson(JsonWriter& w, const Snapshot& s) {
   w.key("groups").objectBegin();
   for (uint32_t i = 0; i < s.groupNames().size(); ++i) {
      const GroupView g = s.group(i);
      w.key(g.name).objectBegin();
      groupJsonFields(w, g);
      w.objectEnd();
   }
   w.objectEnd();
}

void statsJson(JsonWriter& w, const Snapshot& s) {
   w.key("stats").objectBegin();
   for (const auto& h : s.hardware()) {
      w.key(h.name).objectBegin();
      w.key("writes").value(h.writes).key("deletes").value(h.deletes);
      w.key("changes").value(h.changes);
      w.objectEnd();
   }
   w.objectEnd();
}

void stateJson(JsonWriter& w, const Snapshot& s) {
   warningsJson(w, s);
   tablesJson(w, s, true);
   hardwareJson(w, s);
   groupsJson(w, s);
   statsJson(w, s);
}

void tunnelJson(JsonWriter& w, const Snapshot& s, const MeridL3Tunnel::L3TunnelKey& key) {
   w.key("tunnel").objectBegin();
   w.key("srcIpAddr").value(key.srcIpAddr().stringValue());
   w.key("dstIpAddr").value(key.dstIpAddr().stringValue());
   w.key("chain").arrayBegin();
   for (const auto& [table, e] : s.tunnelChain(key)) {
      w.objectBegin();
      w.key("table").value(table->name);
      entryJsonFields(w, e, table->kind, s);
      w.objectEnd();
   }
   w.arrayEnd();
   w.key("groups").arrayBegin();
   for (const auto& [name, slots] : s.tunnelGroups(key)) {
      w.objectBegin().key("name").value(name).key("slots").arrayBegin();
      for (const uint32_t slot : slots) w.value(slot);
      w.arrayEnd().objectEnd();
   }
   w.arrayEnd();
   w.objectEnd();
}

void agentJson(JsonWriter& w, const AgentView& a) {
   w.key("agent").objectBegin();
   w.key("phase").value(a.phase);
   w.key("nexthops").value(a.nexthops);
   w.key("groups").value(a.groups);
   w.key("routes").value(a.routes);
   w.key("changesApplied").value(a.changesApplied);
   w.key("resyncs").value(a.resyncs);
   w.key("hardwareWrites").value(a.hardwareWrites);
   w.key("hardwareDeletes").value(a.hardwareDeletes);
   w.key("lastProblem").value(a.lastProblem);
   w.objectEnd();
}

}  // namespace

void snapshotJsonWrite(JsonWriter& w, const Snapshot& s, const RunView& run, const StepView* step) {
   documentBegin(w, run, step);
   stateJson(w, s);
   w.objectEnd();
   w.lineEnd();
}

void showJsonWrite(JsonWriter& w, const Snapshot& s, const RunView& run, const AgentView& agent,
                   ShowView view, const MeridL3Tunnel::L3TunnelKey* tunnel) {
   documentBegin(w, run, nullptr);
   agentJson(w, agent);
   switch (view) {
      case ShowView::all:
         stateJson(w, s);
         break;
      case ShowView::groups:
         groupsJson(w, s);
         break;
      case ShowView::tables:
         warningsJson(w, s);
         tablesJson(w, s, true);
         break;
      case ShowView::usage:
         warningsJson(w, s);
         tablesJson(w, s, false);
         break;
      case ShowView::tunnel:
         tunnelJson(w, s, *tunnel);
         break;
   }
   w.objectEnd();
   w.lineEnd();
}

namespace {

// Writes each kind of change under its heading, opening a table's array at
// its first change so that tables without changes are left out.
class JsonChanges final : public ChangeTracker::Sink {
public:
   JsonChanges(JsonWriter& w, const Snapshot& s) : w_(w), s_(s) {}

   void sectionIs(Section section) override {
      if (!table_.empty()) w_.arrayEnd();
      table_.clear();
      switch (section) {
         case Section::tables:
            w_.key("tables").objectBegin();
            break;
         case Section::hardware:
            w_.objectEnd().key("hardware").objectBegin();
            break;
         case Section::groups:
            w_.objectEnd().key("groups").arrayBegin();
            break;
         case Section::end:
            w_.arrayEnd();
            break;
      }
   }

   void entryChange(const TableView& table, Change c, const EntryView& e) override {
      tableIs(table.name);
      w_.objectBegin();
      w_.key("change").value(changeName(c));
      if (c == Change::removed) {
         w_.key("key");
         keyJson(w_, e.key);
      } else {
         entryJsonFields(w_, e, table.kind, s_);
      }
      w_.objectEnd();
   }

   void rowChange(const HardwareView& hw, Change c, uint32_t index,
                  const std::string* row) override {
      tableIs(hw.name);
      w_.objectBegin();
      w_.key("change").value(changeName(c));
      w_.key("index").value(index);
      if (row) w_.key("row").value(*row);
      w_.objectEnd();
   }

   void groupChange(Change c, const std::string& name, const GroupView* g) override {
      w_.objectBegin();
      w_.key("change").value(changeName(c));
      w_.key("name").value(name);
      if (g) groupJsonFields(w_, *g);
      w_.objectEnd();
   }

private:
   void tableIs(const std::string& name) {
      if (table_ == name) return;
      if (!table_.empty()) w_.arrayEnd();
      table_ = name;
      w_.key(name).arrayBegin();
   }

   JsonWriter& w_;
   const Snapshot& s_;
   std::string table_;
};

}  // namespace

void changesJsonWrite(JsonWriter& w, const Snapshot& s, const RunView& run, const StepView* step,
                      ChangeTracker& changes) {
   documentBegin(w, run, step);
   warningsJson(w, s);
   w.key("changes").objectBegin();
   JsonChanges sink(w, s);
   changes.compare(s, sink);
   w.objectEnd();
   w.objectEnd();
   w.lineEnd();
}

void tunnelJsonWrite(JsonWriter& w, const Snapshot& s, const RunView& run, const StepView* step,
                     const MeridL3Tunnel::L3TunnelKey& key) {
   documentBegin(w, run, step);
   tunnelJson(w, s, key);
   w.objectEnd();
   w.lineEnd();
}

std::string errorJson(const ErrorView& e) {
   JsonWriter w;
   w.objectBegin();
   w.key("error").value(e.error);
   w.key("file").value(e.file);
   w.key("step").value(e.step);
   w.key("field").value(e.field);
   w.objectEnd();
   return w.text() + "\n";
}

}  // namespace L3TunnelTool
