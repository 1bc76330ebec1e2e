#pragma once
// The command line of l3tunnel's commands: options --name VALUE or
// --name=VALUE, flags, and the rest positional ("-" included; "--" ends the
// options). One parser, so that every command reads its options alike.
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace L3TunnelTool {

// A command line that cannot be used; `what` is one line.
struct UsageError {
   std::string what;
};

struct Args {
   std::vector<std::pair<std::string, std::string>> values;
   std::vector<std::string> flags;
   std::vector<std::string> positional;
   // The first of `stops` met (--help, --version): nothing after it is read.
   std::optional<std::string> stop;

   // The option's last value, if it was given.
   std::optional<std::string> value(std::string_view name) const;
   bool flag(std::string_view name) const;
};

// Reads argv[1..argc); throws UsageError for an unknown option or a missing
// value.
Args argsRead(int argc, char** argv, std::initializer_list<std::string_view> valued,
              std::initializer_list<std::string_view> flags,
              std::initializer_list<std::string_view> stops = {"--help", "-h"});

// `text` as a number from `min` to `max`; throws UsageError naming `name`.
uint32_t numberOf(const std::string& text, std::string_view name, uint32_t min, uint32_t max);

// "what: <the error's text>", of errno unless given.
std::string errnoText(const std::string& what, int error = -1);

}  // namespace L3TunnelTool
