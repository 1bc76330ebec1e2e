#pragma once
// Feature toggles. A toggle file is a JSON object of toggle names to booleans
// (or unsigned numbers), for example {"CommonIifOifIndex": false}, kept in the
// directory that L3TUNNEL_TOGGLE_DIR names.
#include <cstdint>
#include <string_view>

#pragma GCC visibility push(default)

inline constexpr const char* toggleDirVariable = "L3TUNNEL_TOGGLE_DIR";

// Every toggle this code base reads, with its file and default. A toggle file
// naming another toggle is read all the same, with a warning on the trace
// ("Toggle::ToggleState" at level 0), since a misspelt name would otherwise
// leave the default in force unseen.
struct KnownToggle {
   std::string_view file;
   std::string_view name;
   bool defaultState;
};
inline constexpr KnownToggle knownToggles[] = {{"MeridL3.json", "CommonIifOifIndex", true}};

// The toggle's state (true is 1), or `defaultState` when the variable is unset
// or the file or the name is missing. The file is read on every call; callers
// that must see one value per process keep the first answer. A file that is
// not such an object is refused with std::invalid_argument naming the file.
uint32_t getToggleState(std::string_view name, std::string_view file, bool defaultState);

#pragma GCC visibility pop
