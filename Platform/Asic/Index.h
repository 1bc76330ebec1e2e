#pragma once
// Hardware table indices and the values that mean "no index".
#include <cstdint>

#pragma GCC visibility push(default)
namespace Asic {

using Index = uint32_t;
inline constexpr Index invalidIndex = 0xFFFFFFFF;
// The entry is known but deliberately kept out of hardware.
inline constexpr Index wontProgramIndex = 0xFFFFFFFD;
inline constexpr bool isValidIndex(Index i) { return i != invalidIndex && i != wontProgramIndex; }

using UnitId = uint32_t;

}  // namespace Asic
#pragma GCC visibility pop
