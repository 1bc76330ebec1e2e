#pragma once
// Environment look-ups and the switches the library reads once per process.
#include <optional>
#include <string>

#pragma GCC visibility push(default)
namespace Orb {

// Empty when the variable is unset; set-but-empty gives an empty string.
std::optional<std::string> envValue(const char* name);

}  // namespace Orb

namespace Asic {

// PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE, read on the first call and kept for the
// life of the process: on when it parses (base 10) to a non-zero number.
bool publishEntryHandleProgrammedState();

}  // namespace Asic
#pragma GCC visibility pop
