#pragma once
// The framework's protocol-buffer hooks. Only value types serialise; an entity
// (a table, a handle, a plug-in, a loader) refuses, as a programming error.
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace Orb {

class EntityPb {
public:
   [[noreturn]] void constructFromPbMessage(std::string_view message) const;
   [[noreturn]] void witePbMessage(std::string& message) const;
};

}  // namespace Orb
#pragma GCC visibility pop
