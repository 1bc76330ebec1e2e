// The toggle file reader, through a real toggle directory: the input is the
// file. A file that is not a flat object of names to booleans or numbers is
// refused with std::invalid_argument naming the file; that is the one clean
// rejection.
#include <cstdint>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "FuzzSupport.h"
#include "Toggle/ToggleState.h"

namespace {

using Fuzz::check;

constexpr std::string_view fileName = "MeridL3.json";

std::string togglePath() { return Fuzz::scratchDir() + "/" + std::string(fileName); }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
   ::setenv(toggleDirVariable, Fuzz::scratchDir().c_str(), 1);
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   const std::string_view text(reinterpret_cast<const char*>(data), size);
   Fuzz::fileIs(togglePath(), text);
   // The name the library asks for, and one taken from the input so that the
   // fuzzer can match names of its own.
   std::string names[2] = {"CommonIifOifIndex", ""};
   if (const size_t q = text.find('"'); q != text.npos) {
      const size_t end = text.find('"', q + 1);
      if (end != text.npos) names[1] = std::string(text.substr(q + 1, end - q - 1));
   }
   for (const std::string& name : names) {
      uint32_t whenOn = 0, whenOff = 0;
      if (!Fuzz::parsedCleanly<std::invalid_argument>("toggle", [&] {
             whenOn = getToggleState(name, fileName, true);
             whenOff = getToggleState(name, fileName, false);
          })) {
         check(Fuzz::lastRejection().starts_with("toggle file " + togglePath() + ": "),
               "toggle: the refusal does not name the file", Fuzz::lastRejection());
         return 0;
      }
      // A default shows through only when the file does not set the name.
      check(whenOn == whenOff || (whenOn == 1 && whenOff == 0),
            "toggle: the default leaked into a value the file sets", name);
   }
   return 0;
}
