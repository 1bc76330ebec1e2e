#pragma once
// One spelling of "maybe a value" across the framework, so that the underlying
// type can change in one place.
#include <optional>

#pragma GCC visibility push(default)
namespace Orb {

template <class T>
using Optional = std::optional<T>;

}  // namespace Orb
#pragma GCC visibility pop
