#include "CommandLine.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>

namespace L3TunnelTool {

std::optional<std::string> Args::value(std::string_view name) const {
   std::optional<std::string> v;
   for (const auto& [n, text] : values)
      if (n == name) v = text;
   return v;
}

bool Args::flag(std::string_view name) const {
   return std::find(flags.begin(), flags.end(), name) != flags.end();
}

Args argsRead(int argc, char** argv, std::initializer_list<std::string_view> valued,
              std::initializer_list<std::string_view> flags,
              std::initializer_list<std::string_view> stops) {
   Args a;
   bool optionsDone = false;
   for (int i = 1; i < argc; ++i) {
      const std::string_view arg = argv[i];
      if (optionsDone || arg.size() < 2 || arg[0] != '-') {
         a.positional.emplace_back(arg);
         continue;
      }
      if (arg == "--") {
         optionsDone = true;
         continue;
      }
      if (std::find(stops.begin(), stops.end(), arg) != stops.end()) {
         a.stop = std::string(arg);
         return a;
      }
      if (std::find(flags.begin(), flags.end(), arg) != flags.end()) {
         a.flags.emplace_back(arg);
         continue;
      }
      bool matched = false;
      for (const auto name : valued) {
         if (arg == name) {
            if (i + 1 >= argc) throw UsageError{std::string(name) + " needs a value"};
            a.values.emplace_back(name, argv[++i]);
         } else if (arg.starts_with(name) && arg.size() > name.size() && arg[name.size()] == '=') {
            a.values.emplace_back(name, arg.substr(name.size() + 1));
         } else {
            continue;
         }
         matched = true;
         break;
      }
      if (!matched) throw UsageError{"unknown option '" + std::string(arg) + "'"};
   }
   return a;
}

uint32_t numberOf(const std::string& text, std::string_view name, uint32_t min, uint32_t max) {
   uint32_t n = 0;
   const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), n);
   if (ec != std::errc() || end != text.data() + text.size() || n < min || n > max)
      throw UsageError{std::string(name) + ": '" + text + "' is not a number from " +
                       std::to_string(min) + " to " + std::to_string(max)};
   return n;
}

std::string errnoText(const std::string& what, int error) {
   return what + ": " + std::strerror(error < 0 ? errno : error);
}

}  // namespace L3TunnelTool
