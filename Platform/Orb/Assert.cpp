#include "Orb/Assert.h"

#include <cstdio>
#include <cstdlib>
#include <string>

namespace Orb {

namespace {

std::string_view fileStem(std::string_view path) {
   if (const auto slash = path.find_last_of('/'); slash != std::string_view::npos) {
      path.remove_prefix(slash + 1);
   }
   if (const auto dot = path.find_last_of('.'); dot != std::string_view::npos && dot != 0) {
      path = path.substr(0, dot);
   }
   return path;
}

}  // namespace

void assertFail(const char* expr, std::string_view message, const char* file, int line) {
   std::string text = "assertion \"";
   text += expr ? expr : "";
   text += "\" failed";
   if (!message.empty()) {
      text += ": ";
      text += message;
   }
   text += " (";
   text += fileStem(file ? file : "");
   text += ':';
   text += std::to_string(line);
   text += ")\n";
   // Straight to the descriptor's stream and flushed: abort skips every buffer.
   std::fputs(text.c_str(), stderr);
   std::fflush(stderr);
   std::abort();
}

}  // namespace Orb
