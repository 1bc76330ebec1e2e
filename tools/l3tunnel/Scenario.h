#pragma once
// A scenario: the chip, the toggles, the underlay groups that exist and the
// steps the agent takes. Reading one checks all of it before anything runs,
// so a bad scenario never leaves half its steps programmed.
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "MeridL3Common/L3AdjIdKey.h"
#include "MeridL3Tunnel/L3TunnelOverlayVia.h"

namespace L3TunnelTool {

// A scenario that cannot be used. The text names the file, the step (counted
// from 1) and the field, ready to be printed after the program's name.
class ScenarioError : public std::runtime_error {
public:
   // The parts of the message: the fault alone, and where it is.
   struct Where {
      std::string file;
      std::optional<uint32_t> step;
      std::string field;  // empty when the fault is not in one field
   };
   ScenarioError(const Where& where, const std::string& fault);

   const Where& where() const { return where_; }
   const std::string& fault() const { return fault_; }

private:
   Where where_;
   std::string fault_;
};

// A table that has rows on the chip: the name scenarios and output use, and
// the qualified name the chip and the chip information know it by.
struct TableClass {
   std::string_view name;
   std::string_view qualifiedName;
};
// In chain order: members, next hops, interfaces, tunnels.
const std::vector<TableClass>& hardwareTableClasses();
// The part after the last "::".
std::string_view unqualifiedName(std::string_view qualifiedName);

inline constexpr uint32_t maxTableSize = 65536;  // interface indices are 16 bits wide
// The largest scenario file read; a larger one is refused before parsing.
inline constexpr uint64_t maxScenarioBytes = uint64_t(64) << 20;
inline constexpr std::string_view maxScenarioText = "64 MiB";
inline constexpr std::string_view toggleFileName = "MeridL3.json";

struct Step {
   enum class Op : uint8_t { program, release, restart, reconcile };
   Op op = Op::restart;
   std::string group;
   std::vector<MeridL3Tunnel::L3TunnelOverlayViaEntry> vias;
};
std::string_view opName(Step::Op op);
// One line for people, e.g. "program web (2 vias, 3 members)"; control
// characters in the group's name are escaped (printableText).
std::string stepText(const Step& step);
// `text` with control characters and backslashes escaped (\n, \x1b, \\), so
// that names from a scenario cannot steer the terminal.
std::string printableText(std::string_view text);

struct Scenario {
   std::string file;
   bool testChip = true;
   // Rows per table, by unqualified name; every table of hardwareTableClasses().
   std::map<std::string, uint32_t, std::less<>> tableSizes;
   // Every known toggle, with the scenario's value or its default.
   std::map<std::string, bool, std::less<>> toggles;
   std::vector<MeridL3Common::L3AdjIdKey> underlay;
   std::vector<Step> steps;

   uint32_t tableSize(std::string_view name) const;
};

// Throw ScenarioError. `file` is only used to name the scenario in messages.
// The text is read as it is parsed: a duplicate key or an unknown top-level
// field stops it where it stands.
Scenario scenarioParse(std::string_view text, const std::string& file);
// Refuses a file larger than maxScenarioBytes without parsing it.
Scenario scenarioRead(const std::string& file);

}  // namespace L3TunnelTool
