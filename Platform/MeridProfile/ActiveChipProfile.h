#pragma once
#include "Asic/ChipProfile.h"
#include "MeridCentral/ChipInfo.h"

#pragma GCC visibility push(default)
namespace MeridProfile {

// The profile the chip runs with; null when the chip information has none.
inline Brio::Ptr<const Asic::ChipProfile> activeChipProfile(const MeridCentral::ChipInfo& chip) {
   return chip.chipProfile();
}

}  // namespace MeridProfile
#pragma GCC visibility pop
