#pragma once
// The errors of the framework's positional collections. Out of line so that
// the inline accessors that raise them stay small.
#include <cstdint>

#pragma GCC visibility push(default)
namespace Brio {

// std::out_of_range "vector index out of range: position P, size S".
[[noreturn]] void throwVectorOutOfRange(uint32_t position, uint32_t size);
// std::out_of_range "pop from an empty vector".
[[noreturn]] void throwVectorEmpty();

}  // namespace Brio
#pragma GCC visibility pop
