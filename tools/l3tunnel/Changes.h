#pragma once
// What changed between two snapshots of one run: entries of the software
// tables, rows of the chip and groups, each added, changed or removed.
//
// Only a digest of each is kept between snapshots (the key's text and a hash
// of the thing as the JSON output writes it), so the comparison finds every
// change a reader of that output could see, at the memory of a key per entry.
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Snapshot.h"

namespace L3TunnelTool {

enum class Change : uint8_t { added, changed, removed };
std::string_view changeName(Change c);

class ChangeTracker {
public:
   // Told each change as it is found, tables first (in the snapshot's order),
   // then the chip's rows, then the groups. A removed entry carries its key
   // only; a removed row or group has no content.
   class Sink {
   public:
      enum class Section : uint8_t { tables, hardware, groups, end };
      // Before the changes of each section, and once after the last.
      virtual void sectionIs(Section) {}
      virtual void entryChange(const TableView& table, Change c, const EntryView& e) = 0;
      virtual void rowChange(const HardwareView& hw, Change c, uint32_t index,
                             const std::string* row) = 0;
      virtual void groupChange(Change c, const std::string& name, const GroupView* g) = 0;

   protected:
      ~Sink() = default;
   };

   // Remembers `s` as the state the next comparison starts from.
   void baseIs(const Snapshot& s);
   // Reports what differs from the state remembered, then remembers `s`.
   void compare(const Snapshot& s, Sink& sink);

private:
   void walk(const Snapshot& s, Sink* sink);

   struct Digests {
      std::unordered_map<std::string, uint64_t> byKey;
   };
   std::map<std::string, Digests, std::less<>> tables_;
   std::map<std::string, std::vector<uint64_t>, std::less<>> rows_;  // 0: clear
   std::map<std::string, uint64_t, std::less<>> groups_;
};

// A key as text ("192.0.2.1 -> 198.51.100.1", "5") and back.
std::string keyText(const std::optional<KeyView>& k);
std::optional<KeyView> keyFromText(std::string_view text);

}  // namespace L3TunnelTool
