#include "Changes.h"

#include <algorithm>

#include "JsonOutput.h"

namespace L3TunnelTool {

namespace {

// FNV-1a; 0 is kept for "nothing there".
uint64_t digest(std::string_view text) {
   uint64_t h = 0xcbf29ce484222325u;
   for (const char c : text) {
      h ^= static_cast<unsigned char>(c);
      h *= 0x100000001b3u;
   }
   return h ? h : 1;
}

constexpr std::string_view arrow = " -> ";

}  // namespace

std::string_view changeName(Change c) {
   switch (c) {
      case Change::added:
         return "added";
      case Change::changed:
         return "changed";
      case Change::removed:
         return "removed";
   }
   return "?";
}

std::string keyText(const std::optional<KeyView>& k) {
   if (!k) return "-";
   if (!k->tunnel) return std::to_string(k->index);
   return k->srcIpAddr + std::string(arrow) + k->dstIpAddr;
}

std::optional<KeyView> keyFromText(std::string_view text) {
   if (text.empty() || text[0] == '-') return std::nullopt;
   KeyView k;
   if (const auto at = text.find(arrow); at != std::string_view::npos) {
      k.tunnel = true;
      k.srcIpAddr = std::string(text.substr(0, at));
      k.dstIpAddr = std::string(text.substr(at + arrow.size()));
      return k;
   }
   for (const char c : text) k.index = k.index * 10 + uint32_t(c - '0');
   return k;
}

void ChangeTracker::baseIs(const Snapshot& s) { walk(s, nullptr); }

void ChangeTracker::compare(const Snapshot& s, Sink& sink) { walk(s, &sink); }

// One pass over the snapshot: each thing's digest is compared with the one
// remembered and replaces it; what is left unvisited was removed.
void ChangeTracker::walk(const Snapshot& s, Sink* sink) {
   using Section = Sink::Section;
   JsonWriter text;
   if (sink) sink->sectionIs(Section::tables);
   std::map<std::string, Digests, std::less<>> tables;
   for (const auto& t : s.tables()) {
      Digests& now = tables[t.name];
      now.byKey.reserve(t.entries);
      Digests* before = nullptr;
      if (auto it = tables_.find(t.name); it != tables_.end()) before = &it->second;
      uint32_t keyless = 0;
      t.entriesVisit([&](const EntryView& e) {
         std::string key = keyText(e.key);
         // Members of blocks without rows have no key: their order tells them apart.
         if (!e.key) key += "#" + std::to_string(keyless++);
         text.clear();
         text.objectBegin();
         entryJsonFields(text, e, t.kind, s);
         text.objectEnd();
         const uint64_t d = digest(text.text());
         uint64_t old = 0;
         if (before) {
            if (auto it = before->byKey.find(key); it != before->byKey.end()) {
               old = it->second;
               before->byKey.erase(it);
            }
         }
         if (sink && old != d) sink->entryChange(t, old ? Change::changed : Change::added, e);
         now.byKey.emplace(std::move(key), d);
      });
      if (sink && before) {
         // In the order of the keys' texts, not the map's: the same every run.
         std::vector<std::string> gone;
         for (const auto& [key, d] : before->byKey) gone.push_back(key);
         std::sort(gone.begin(), gone.end());
         for (const auto& key : gone) {
            EntryView removed;
            removed.key = keyFromText(key);
            sink->entryChange(t, Change::removed, removed);
         }
      }
      if (before) tables_.erase(t.name);
   }
   // Tables that went away altogether (a restart before the programmer is
   // back never happens between steps, but a table may be absent).
   if (sink) {
      for (const auto& [name, d] : tables_) {
         TableView gone;
         gone.name = name;
         for (const auto& [key, dd] : d.byKey) {
            EntryView e;
            e.key = keyFromText(key);
            sink->entryChange(gone, Change::removed, e);
         }
      }
   }
   tables_ = std::move(tables);

   if (sink) sink->sectionIs(Section::hardware);
   for (const auto& hw : s.hardware()) {
      std::vector<uint64_t>& rows = rows_[hw.name];
      if (rows.size() < hw.capacity) rows.resize(hw.capacity, 0);
      std::vector<bool> seen(rows.size(), false);
      hw.rowsVisit([&](uint32_t index, const std::string& row) {
         const uint64_t d = digest(row);
         seen[index] = true;
         if (sink && rows[index] != d)
            sink->rowChange(hw, rows[index] ? Change::changed : Change::added, index, &row);
         rows[index] = d;
      });
      for (uint32_t i = 0; i < rows.size(); ++i) {
         if (seen[i] || !rows[i]) continue;
         if (sink) sink->rowChange(hw, Change::removed, i, nullptr);
         rows[i] = 0;
      }
   }

   if (sink) sink->sectionIs(Section::groups);
   std::map<std::string, uint64_t, std::less<>> groups;
   const auto& names = s.groupNames();
   for (uint32_t i = 0; i < names.size(); ++i) {
      const GroupView g = s.group(i);
      text.clear();
      text.objectBegin();
      groupJsonFields(text, g);
      text.objectEnd();
      const uint64_t d = digest(text.text());
      uint64_t old = 0;
      if (auto it = groups_.find(g.name); it != groups_.end()) {
         old = it->second;
         groups_.erase(it);
      }
      if (sink && old != d) sink->groupChange(old ? Change::changed : Change::added, g.name, &g);
      groups.emplace(g.name, d);
   }
   if (sink)
      for (const auto& [name, d] : groups_) sink->groupChange(Change::removed, name, nullptr);
   groups_ = std::move(groups);
   if (sink) sink->sectionIs(Section::end);
}

}  // namespace L3TunnelTool
