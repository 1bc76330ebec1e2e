#pragma once
// When an entry counts as programmed. Normally when the hardware answers the
// requests that wrote it; with the programmed-state switch on
// (PUBLISH_ENTRY_HANDLE_PROGRAMMED_STATE), as soon as they are issued, and
// the responses that come later find nothing waiting for them. A table asks
// after issuing; on true it forgets what it tracks for the entry and
// publishes the outcome itself.
#include "Orb/Env.h"

namespace Asic {

// `issued`: whether any request was issued whose response could be awaited.
inline bool programmedAtIssue(bool issued = true) {
   return !issued || publishEntryHandleProgrammedState();
}

}  // namespace Asic
