#pragma once
// Feature toggles. A toggle file is a JSON object of toggle names to booleans
// (or unsigned numbers), for example {"CommonIifOifIndex": false}, kept in the
// directory that L3TUNNEL_TOGGLE_DIR names.
#include <cstdint>
#include <string_view>

#pragma GCC visibility push(default)

inline constexpr const char* toggleDirVariable = "L3TUNNEL_TOGGLE_DIR";

// The toggle's state (true is 1), or `defaultState` when the variable is unset
// or the file or the name is missing. The file is read on every call; callers
// that must see one value per process keep the first answer. A file that is
// not such an object is refused with std::invalid_argument naming the file.
uint32_t getToggleState(std::string_view name, std::string_view file, bool defaultState);

#pragma GCC visibility pop
