#pragma once
// A loaded chip checked before anything runs on it: every index a row names
// (rowReferences) lies inside the table it names, and every member row's key
// names a block inside its table. A file that fails is refused whole.
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "AsicSim/Chip.h"

namespace L3TunnelTool {

// Throws std::runtime_error "PATH: TABLE row N: ..." (one line) at the first
// row that names outside its table. `rows` gives the rows of a table by its
// qualified name.
void chipRowReferencesCheck(const AsicSim::Chip& chip, const std::string& path,
                            const std::function<uint32_t(std::string_view)>& rows);

}  // namespace L3TunnelTool
