#include "HumanOutput.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <map>
#include <vector>

#include "Scenario.h"

namespace L3TunnelTool {

namespace {

constexpr const char* bold = "\033[1m";
constexpr const char* green = "\033[32m";
constexpr const char* yellow = "\033[33m";
constexpr const char* red = "\033[31m";
constexpr const char* dim = "\033[2m";
constexpr const char* reset = "\033[0m";

// A tunnel's entry names at most this many of the groups that use it; the
// tunnel view names them all.
constexpr size_t groupsNamed = 3;

// A cell's text and the colour it is shown in; alignment counts the text only.
struct Cell {
   std::string text;
   const char* colour = nullptr;
};

const char* stateColour(std::string_view state) {
   if (state == "success") return green;
   if (state == "noHwIndex" || state == "failedNeededEntry" || state == notProgrammed) return red;
   if (state == "wontProgram" || state == "none") return dim;
   return yellow;
}

const char* levelColour(Usage::Level level) {
   switch (level) {
      case Usage::Level::ok:
         return nullptr;
      case Usage::Level::high:
         return yellow;
      default:
         return red;
   }
}

std::string coloured(const std::string& text, const char* colour, const HumanStyle& style) {
   return style.colour && colour && !text.empty() ? colour + text + reset : text;
}

// Aligned columns printed as rows come, after a first pass that only
// measures them: a table of any size costs one row of memory.
class Columns {
public:
   Columns(std::vector<std::string> heading, const HumanStyle& style)
       : heading_(std::move(heading)), style_(style) {
      for (const auto& h : heading_) width_.push_back(h.size());
   }

   void measure(const std::vector<Cell>& cells) {
      for (size_t c = 0; c < cells.size(); ++c) {
         if (width_.size() <= c) width_.push_back(0);
         width_[c] = std::max(width_[c], cells[c].text.size());
      }
   }

   void headingPrint(std::ostream& os) const {
      std::vector<Cell> cells;
      for (const auto& h : heading_) cells.push_back({h, dim});
      print(os, cells);
   }

   void print(std::ostream& os, const std::vector<Cell>& cells) const {
      line_.assign("  ");
      for (size_t c = 0; c < cells.size(); ++c) {
         const Cell& cell = cells[c];
         const bool colour = style_.colour && cell.colour && !cell.text.empty();
         if (colour) line_ += cell.colour;
         line_ += cell.text;
         if (colour) line_ += reset;
         // The last column is not padded, so lines carry no trailing blanks.
         if (c + 1 < cells.size())
            line_.append(width_[c] - std::min(width_[c], cell.text.size()) + 2, ' ');
      }
      while (!line_.empty() && line_.back() == ' ') line_.pop_back();
      line_ += '\n';
      os << line_;
   }

private:
   std::vector<std::string> heading_;
   const HumanStyle& style_;
   std::vector<size_t> width_;
   mutable std::string line_;  // kept between lines, so that its room is reused
};

std::string indexText(const std::optional<uint32_t>& i) {
   return i ? std::to_string(*i) : std::string("-");
}

std::string percentText(uint32_t tenths) {
   return std::to_string(tenths / 10) + "." + std::to_string(tenths % 10) + "%";
}

std::string heading(const std::string& text, const HumanStyle& style) {
   return coloured(text, bold, style);
}

std::string groupList(const EntryView& e, const Snapshot& s, size_t named) {
   std::string out =
       std::to_string(e.groups.size()) + (e.groups.size() == 1 ? " group" : " groups");
   for (size_t i = 0; i < e.groups.size() && i < named; ++i)
      out += (i ? ", " : ": ") + printableText(s.groupNames()[e.groups[i]]);
   if (e.groups.size() > named) out += ", ...";
   return out;
}

std::string fieldsText(const EntryView& e, TableKind kind, const Snapshot& s) {
   switch (kind) {
      case TableKind::tunnel: {
         std::string out = "ttl " + indexText(e.ttl);
         if (!e.groups.empty()) out += "  used by " + groupList(e, s, groupsNamed);
         return out;
      }
      case TableKind::interface:
         return e.valued ? "tunnel " + indexText(e.tunnelIndex) : std::string();
      case TableKind::ingressInterface:
         return {};
      case TableKind::nextHop:
         if (!e.valued) return {};
         return e.drop ? std::string("drop") : "interface " + indexText(e.interfaceIndex);
      case TableKind::member:
         return "next hop " + indexText(e.nextHopIndex) + "  underlay " +
                indexText(e.underlayIndex) + "  resolved " + (e.resolved ? "yes" : "no");
   }
   return {};
}

std::vector<Cell> entryCells(const EntryView& e, TableKind kind, const Snapshot& s,
                             bool fields = true) {
   return {{indexText(e.hwIndex)},
           {printableText(keyText(e.key))},
           {std::string(e.entryState), stateColour(e.entryState)},
           {std::string(e.entryType)},
           {fields ? fieldsText(e, kind, s) : std::string()}};
}

std::string usageText(const TableView& t, const HumanStyle& style) {
   const Usage& u = t.usage;
   std::string out = std::to_string(u.used) + " of " + std::to_string(u.usable) +
                     " usable rows used (" + percentText(u.percentTenths()) + "), " +
                     std::to_string(u.free) + " free";
   if (u.usable != u.capacity) out += " of " + std::to_string(u.capacity) + " rows";
   if (u.largestFree) out += ", largest free range " + std::to_string(*u.largestFree);
   out += ", " + std::to_string(u.refused) + " refused";
   const Usage::Level level = u.level();
   if (level != Usage::Level::ok) {
      std::string mark = std::string(levelName(level));
      std::transform(mark.begin(), mark.end(), mark.begin(),
                     [](char c) { return char(c & ~0x20); });
      out += "  " + coloured(mark, levelColour(level), style);
   }
   return out;
}

void tablePrint(std::ostream& os, const TableView& t, const Snapshot& s, const HumanStyle& style) {
   os << heading(t.name, style) << ": " << usageText(t, style) << "; " << t.entries
      << (t.entries == 1 ? " entry" : " entries") << "\n";
   if (t.entries == 0) return;
   Columns cols({"index", "key", "state", "type", "fields"}, style);
   // The texts of the values are not shown; the fields are the last column,
   // which is not padded, so the measuring pass leaves them out too.
   t.entriesVisit(
       [&](const EntryView& e) {
          std::vector<Cell> cells = entryCells(e, t.kind, s, false);
          cols.measure(cells);
       },
       false);
   cols.headingPrint(os);
   t.entriesVisit([&](const EntryView& e) { cols.print(os, entryCells(e, t.kind, s, true)); },
                  false);
}

std::string linkText(const LinkView& l) {
   if (l.state == "none") return "-";
   if (l.state == "success") return indexText(l.index);
   return indexText(l.index) + " (" + std::string(l.state) + ")";
}

std::string underlayText(const MemberView& m) {
   if (m.drop) return "- (drop)";
   std::string adj = m.underlayAdjId ? std::to_string(*m.underlayAdjId) : std::string("?");
   if (m.underlayName) adj += " (" + printableText(*m.underlayName) + ")";
   if (!m.underlayExists) return "adjacency " + adj + ", missing";
   return "adjacency " + adj + ", index " + indexText(m.underlayIndex);
}

std::string groupLine(const GroupView& g, const HumanStyle& style) {
   std::string out = heading("group " + printableText(g.name), style) + ": " +
                     std::to_string(g.size) + (g.size == 1 ? " member" : " members");
   if (g.base && g.size)
      out += " in rows " + std::to_string(*g.base) + ".." + std::to_string(*g.base + g.size - 1);
   return out + ", " + coloured(std::string(g.state), stateColour(g.state), style);
}

void groupPrint(std::ostream& os, const GroupView& g, const HumanStyle& style) {
   os << groupLine(g, style) << "\n";
   if (!g.routes.empty()) {
      os << "  routes:";
      for (const auto& r : g.routes) os << " " << r;
      os << "\n";
   }
   if (g.reason) os << "  reason: " << coloured(printableText(*g.reason), red, style) << "\n";
   if (g.members.empty()) return;
   bool problems = false;
   for (const auto& m : g.members) problems |= bool(m.reason);
   std::vector<std::string> names = {"slot",   "next hop",   "state", "interface",
                                     "tunnel", "src -> dst", "ttl",   "underlay"};
   if (problems) names.push_back("problem");
   Columns cols(names, style);
   auto cells = [&](const MemberView& m) {
      std::vector<Cell> c = {{std::to_string(m.slot)},
                             {indexText(m.nextHop.index)},
                             {std::string(m.nextHop.state), stateColour(m.nextHop.state)},
                             {linkText(m.interface)},
                             {linkText(m.tunnel)},
                             {m.drop ? std::string("drop") : m.srcIpAddr + " -> " + m.dstIpAddr},
                             {indexText(m.ttl)},
                             {underlayText(m)}};
      if (problems) c.push_back({m.reason ? printableText(*m.reason) : std::string(), red});
      return c;
   };
   for (const auto& m : g.members) cols.measure(cells(m));
   cols.headingPrint(os);
   for (const auto& m : g.members) cols.print(os, cells(m));
}

// Lines of "+", "~" or "-" and what changed; rows are counted per table.
class HumanChanges final : public ChangeTracker::Sink {
public:
   HumanChanges(std::ostream& os, const Snapshot& s, const HumanStyle& style)
       : os_(os), s_(s), style_(style) {}

   void sectionIs(Section section) override {
      if (section == Section::groups) rowsPrint();
   }

   void entryChange(const TableView& table, Change c, const EntryView& e) override {
      ++changes_;
      std::string line = "  " + mark(c) + " " + table.name + "  " + printableText(keyText(e.key));
      if (c != Change::removed) {
         line += "  index " + indexText(e.hwIndex) + "  " +
                 coloured(std::string(e.entryState), stateColour(e.entryState), style_) + "  " +
                 std::string(e.entryType);
         const std::string fields = fieldsText(e, table.kind, s_);
         if (!fields.empty()) line += "  " + fields;
      }
      os_ << line << "\n";
   }

   void rowChange(const HardwareView& hw, Change c, uint32_t, const std::string*) override {
      ++changes_;
      auto& counts = rows_[hw.name];
      ++counts[size_t(c)];
   }

   void groupChange(Change c, const std::string& name, const GroupView* g) override {
      ++changes_;
      if (!g) {
         os_ << "  " << mark(c) << " " << heading("group " + printableText(name), style_) << "\n";
         return;
      }
      os_ << "  " << mark(c) << " " << groupLine(*g, style_) << "\n";
      if (g->reason)
         os_ << "      reason: " << coloured(printableText(*g->reason), red, style_) << "\n";
   }

   uint32_t changes() const { return changes_; }

private:
   std::string mark(Change c) const {
      switch (c) {
         case Change::added:
            return coloured("+", green, style_);
         case Change::changed:
            return coloured("~", yellow, style_);
         case Change::removed:
            return coloured("-", red, style_);
      }
      return "?";
   }

   void rowsPrint() {
      if (rows_.empty()) return;
      std::string line = "  rows:";
      const char* sep = " ";
      for (const auto& [name, counts] : rows_) {
         line += sep + name + " +" + std::to_string(counts[0]) + " ~" + std::to_string(counts[1]) +
                 " -" + std::to_string(counts[2]);
         sep = ", ";
      }
      os_ << line << "\n";
   }

   std::ostream& os_;
   const Snapshot& s_;
   const HumanStyle& style_;
   std::map<std::string, std::array<uint32_t, 3>> rows_;
   uint32_t changes_ = 0;
};

}  // namespace

std::string humanStart(const RunView& run) {
   if (!run.stateDir) return {};
   if (!run.recoveredRows)
      return "no saved state in " + printableText(*run.stateDir) + ": the chip starts empty";
   return "recovered " + std::to_string(*run.recoveredRows) +
          (*run.recoveredRows == 1 ? " row from " : " rows from ") + printableText(*run.stateDir);
}

std::string humanSummary(const Snapshot& snapshot, const RunView& run, double elapsedMs) {
   const uint64_t members = snapshot.members();
   const size_t groups = snapshot.groupNames().size();
   std::string out = std::to_string(groups) + (groups == 1 ? " group, " : " groups, ") +
                     std::to_string(members) + (members == 1 ? " member" : " members") + "; rows";
   const char* sep = " ";
   for (const auto& h : snapshot.hardware()) {
      out += sep + h.name + " " + std::to_string(h.used);
      sep = ", ";
   }
   char time[32];
   std::snprintf(time, sizeof time, "%.1f ms", elapsedMs);
   out += "; " + std::to_string(run.hardwareWrites) + " hardware writes, " +
          std::to_string(run.hardwareDeletes) + " deletes, " + std::to_string(run.changedRows) +
          " rows changed; " + time;
   return out;
}

void humanPrint(std::ostream& os, const Snapshot& snapshot, const RunView& run, double elapsedMs,
                const HumanStyle& style) {
   if (const std::string start = humanStart(run); !start.empty()) os << start << "\n\n";
   for (const auto& w : snapshot.warnings())
      os << coloured("warning:", yellow, style) << " " << w << "\n";
   if (!snapshot.warnings().empty()) os << "\n";
   for (const auto& t : snapshot.tables()) {
      tablePrint(os, t, snapshot, style);
      os << "\n";
   }
   for (uint32_t i = 0; i < snapshot.groupNames().size(); ++i) {
      groupPrint(os, snapshot.group(i), style);
      os << "\n";
   }
   os << humanSummary(snapshot, run, elapsedMs) << "\n";
}

void humanShowPrint(std::ostream& os, const Snapshot& snapshot, const AgentView& agent,
                    ShowView view, const MeridL3Tunnel::L3TunnelKey* tunnel,
                    const HumanStyle& style) {
   os << "agent " << agent.phase << ": " << agent.nexthops << " nexthops, " << agent.groups
      << " nexthop groups, " << agent.routes << " routes; " << agent.changesApplied
      << " changes applied, " << agent.resyncs << " resyncs; " << agent.hardwareWrites
      << " hardware writes, " << agent.hardwareDeletes << " deletes since start\n";
   if (agent.lastProblem)
      os << coloured("last problem:", yellow, style) << " " << printableText(*agent.lastProblem)
         << "\n";
   os << "\n";
   const bool tables = view == ShowView::all || view == ShowView::tables;
   if (tables || view == ShowView::usage) {
      for (const auto& w : snapshot.warnings())
         os << coloured("warning:", yellow, style) << " " << w << "\n";
      if (!snapshot.warnings().empty()) os << "\n";
   }
   if (view == ShowView::usage)
      for (const auto& t : snapshot.tables())
         os << heading(t.name, style) << ": " << usageText(t, style) << "\n";
   if (tables)
      for (const auto& t : snapshot.tables()) {
         tablePrint(os, t, snapshot, style);
         os << "\n";
      }
   if (view == ShowView::all || view == ShowView::groups) {
      if (snapshot.groupNames().empty()) os << "no overlay groups\n";
      for (uint32_t i = 0; i < snapshot.groupNames().size(); ++i) {
         groupPrint(os, snapshot.group(i), style);
         os << "\n";
      }
   }
   if (view == ShowView::tunnel) humanTunnelPrint(os, snapshot, *tunnel, style);
}

void humanChangesPrint(std::ostream& os, const Snapshot& snapshot, ChangeTracker& changes,
                       const HumanStyle& style) {
   HumanChanges sink(os, snapshot, style);
   changes.compare(snapshot, sink);
   if (sink.changes() == 0) os << "  no changes\n";
}

void humanTunnelPrint(std::ostream& os, const Snapshot& snapshot,
                      const MeridL3Tunnel::L3TunnelKey& key, const HumanStyle& style) {
   const std::string name = key.srcIpAddr().stringValue() + " -> " + key.dstIpAddr().stringValue();
   const auto chain = snapshot.tunnelChain(key);
   if (chain.empty()) {
      os << heading("tunnel " + name, style) << ": no table holds it\n";
      return;
   }
   os << heading("tunnel " + name, style) << "\n";
   Columns cols({"table", "index", "state", "type", "fields"}, style);
   auto cells = [&](const TableView* table, const EntryView& e) {
      EntryView shown = e;
      shown.groups.clear();  // listed below, with their slots
      std::vector<Cell> c = entryCells(shown, table->kind, snapshot);
      c[1] = {table->name};  // the key is the tunnel's, named above
      std::swap(c[0], c[1]);
      return c;
   };
   for (const auto& [table, e] : chain) cols.measure(cells(table, e));
   cols.headingPrint(os);
   for (const auto& [table, e] : chain) cols.print(os, cells(table, e));
   const auto groups = snapshot.tunnelGroups(key);
   os << "  used by " << groups.size() << (groups.size() == 1 ? " group" : " groups")
      << (groups.empty() ? "" : ":") << "\n";
   for (const auto& [group, slots] : groups) {
      std::string line = "    " + printableText(group) + (slots.size() == 1 ? " (slot" : " (slots");
      const char* sep = " ";
      for (const uint32_t slot : slots) {
         line += sep + std::to_string(slot);
         sep = ", ";
      }
      os << line << ")\n";
   }
}

}  // namespace L3TunnelTool
