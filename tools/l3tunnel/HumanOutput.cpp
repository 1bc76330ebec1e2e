#include "HumanOutput.h"

#include <algorithm>
#include <cstdio>
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

// A cell's text and the colour it is shown in; alignment counts the text only.
struct Cell {
   std::string text;
   const char* colour = nullptr;
};

const char* stateColour(const std::string& state) {
   if (state == "success") return green;
   if (state == "noHwIndex" || state == "failedNeededEntry") return red;
   if (state == "wontProgram") return dim;
   return yellow;
}

class Columns {
public:
   Columns(std::vector<std::string> heading, const HumanStyle& style) : style_(style) {
      std::vector<Cell> cells;
      for (auto& h : heading) cells.push_back({std::move(h), style_.colour ? dim : nullptr});
      rows_.push_back(std::move(cells));
   }
   void rowIs(std::vector<Cell> cells) { rows_.push_back(std::move(cells)); }

   void print(std::ostream& os) const {
      std::vector<size_t> width;
      for (const auto& row : rows_)
         for (size_t c = 0; c < row.size(); ++c) {
            if (width.size() <= c) width.push_back(0);
            width[c] = std::max(width[c], row[c].text.size());
         }
      for (const auto& row : rows_) {
         std::string line = "  ";
         for (size_t c = 0; c < row.size(); ++c) {
            std::string text = row[c].text;
            // The last column is not padded, so lines carry no trailing blanks.
            if (c + 1 < row.size()) text.resize(width[c], ' ');
            if (style_.colour && row[c].colour && !row[c].text.empty())
               line += row[c].colour + text + reset;
            else
               line += text;
            if (c + 1 < row.size()) line += "  ";
         }
         while (!line.empty() && line.back() == ' ') line.pop_back();
         os << line << "\n";
      }
   }

private:
   const HumanStyle& style_;
   std::vector<std::vector<Cell>> rows_;
};

std::string keyText(const std::optional<KeyView>& k) {
   if (!k) return "-";
   if (!k->tunnel) return std::to_string(k->index);
   auto addr = [](const std::string& a) { return a.empty() ? std::string("<unspecified>") : a; };
   return addr(k->srcIpAddr) + " -> " + addr(k->dstIpAddr);
}

std::string indexText(const std::optional<uint32_t>& i) {
   return i ? std::to_string(*i) : std::string("none");
}

std::string fieldsText(const EntryView& e) {
   std::string out;
   for (const auto& [name, value] : e.fields) {
      if (!out.empty()) out += "  ";
      out += value.empty() ? name : name + " " + value;
   }
   return out;
}

std::string heading(const std::string& text, const HumanStyle& style) {
   return style.colour ? bold + text + reset : text;
}

void tablePrint(std::ostream& os, const TableView& t, const HumanStyle& style) {
   os << heading(t.name, style) << ": " << t.used << " of " << t.capacity << " rows used, "
      << t.entries.size() << (t.entries.size() == 1 ? " entry" : " entries") << "\n";
   if (t.entries.empty()) return;
   Columns cols({"index", "key", "state", "type", "fields"}, style);
   for (const auto& e : t.entries) {
      cols.rowIs({{indexText(e.hwIndex)},
                  {keyText(e.key)},
                  {e.entryState, stateColour(e.entryState)},
                  {e.entryType},
                  {fieldsText(e)}});
   }
   cols.print(os);
}

std::string underlayText(const MemberView& m) {
   if (m.drop) return "- (drop)";
   if (!m.underlayAdjId) return "missing";
   return "adjacency " + std::to_string(*m.underlayAdjId) + ", index " + indexText(m.underlayIndex);
}

void groupPrint(std::ostream& os, const GroupView& g, const HumanStyle& style) {
   os << heading("group " + printableText(g.name), style) << ": " << g.members.size()
      << (g.members.size() == 1 ? " member" : " members");
   if (g.baseIndex && !g.members.empty())
      os << " in rows " << *g.baseIndex << ".." << *g.baseIndex + g.members.size() - 1;
   os << ", ";
   os << (style.colour ? stateColour(g.blockState) + g.blockState + reset : g.blockState) << "\n";
   if (g.members.empty()) return;
   Columns cols({"slot", "next hop", "state", "underlay", "resolved"}, style);
   for (const auto& m : g.members) {
      cols.rowIs({{std::to_string(m.slot)},
                  {indexText(m.nextHopIndex)},
                  {m.nextHopState, stateColour(m.nextHopState)},
                  {underlayText(m)},
                  {m.resolved ? "yes" : "no"}});
   }
   cols.print(os);
}

}  // namespace

std::string humanSummary(const Snapshot& snapshot, double elapsedMs) {
   size_t members = 0;
   for (const auto& g : snapshot.groups) members += g.members.size();
   std::string out = std::to_string(snapshot.groups.size()) +
                     (snapshot.groups.size() == 1 ? " group, " : " groups, ") +
                     std::to_string(members) + (members == 1 ? " member" : " members") + "; rows";
   uint64_t writes = 0, deletes = 0;
   const char* sep = " ";
   for (const auto& h : snapshot.hardware) {
      out += sep + h.name + " " + std::to_string(h.rows.size());
      sep = ", ";
      writes += h.writes;
      deletes += h.deletes;
   }
   char time[32];
   std::snprintf(time, sizeof time, "%.1f ms", elapsedMs);
   out += "; " + std::to_string(writes) + " hardware writes, " + std::to_string(deletes) +
          " deletes; " + time;
   return out;
}

void humanPrint(std::ostream& os, const Snapshot& snapshot, double elapsedMs,
                const HumanStyle& style) {
   for (const auto& t : snapshot.tables) {
      tablePrint(os, t, style);
      os << "\n";
   }
   for (const auto& g : snapshot.groups) {
      groupPrint(os, g, style);
      os << "\n";
   }
   os << humanSummary(snapshot, elapsedMs) << "\n";
}

}  // namespace L3TunnelTool
