#pragma once
// A placeholder entry handle for a field that names no entry: complete
// (wontProgram) at a fixed index, so that an entry naming it resolves at once
// and takes that index. One handle per index, shared process-wide, so that
// values naming the same placeholder compare equal.
#include "Asic/SwTableBase.h"

#pragma GCC visibility push(default)
namespace SwTableWorkaround {

Asic::SwTableBase::EntryHandle::PtrConst dontCareHandle(Asic::Index index);

}  // namespace SwTableWorkaround
#pragma GCC visibility pop
