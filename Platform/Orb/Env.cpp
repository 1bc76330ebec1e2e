#include "Orb/Env.h"

#include <cstdlib>

namespace Orb {

std::optional<std::string> envValue(const char* name) {
   const char* value = std::getenv(name);
   if (!value) return std::nullopt;
   return std::string(value);
}

}  // namespace Orb

namespace Asic {

bool publishEntryHandleProgrammedState() {
   // Entries already in flight must not change behaviour half-way, hence once.
   static const bool on = [] {
      const char* value = std::getenv("PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE");
      return value && std::strtol(value, nullptr, 10) != 0;
   }();
   return on;
}

}  // namespace Asic
