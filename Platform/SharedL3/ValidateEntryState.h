#pragma once
// Whether an entry state counts as installed or installable. Only a table
// that could not place the entry (noHwIndex) says no: an entry that waits for
// another one, even one that failed, is installed once that one is.
#include "Asic/SwTableBase.h"

#pragma GCC visibility push(default)
namespace MeridL3Common {

constexpr bool validateEntryState(Asic::SwTableBase::EntryState state) {
   return state != Asic::SwTableBase::noHwIndex();
}

}  // namespace MeridL3Common
#pragma GCC visibility pop
