#pragma once
// The kind of a next hop in the shared L3 forwarding state. Held in one byte
// because it is stored in every next-hop record the forwarding agents share.
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "Orb/CharRange.h"
#include "Orb/Strep.h"

#pragma GCC visibility push(default)
namespace Plx {

enum class NextHopEntryType : uint8_t {
   nextHopUnknown = 0,
   nextHopArpPending = 1,
   nextHopArpResolved = 2,
   nextHopDrop = 3,
   nextHopReceive = 4,
   nextHopGlean = 5,
};

// Code written against the forwarding state names the kinds both as values
// (`x == Plx::nextHopDrop`) and as calls (`Plx::nextHopDrop()`); one constant
// object serves both spellings.
struct NextHopEntryTypeConstant {
   NextHopEntryType value;
   constexpr operator NextHopEntryType() const { return value; }
   constexpr NextHopEntryType operator()() const { return value; }
};

inline constexpr NextHopEntryTypeConstant nextHopUnknown{NextHopEntryType::nextHopUnknown};
inline constexpr NextHopEntryTypeConstant nextHopArpPending{NextHopEntryType::nextHopArpPending};
inline constexpr NextHopEntryTypeConstant nextHopArpResolved{NextHopEntryType::nextHopArpResolved};
inline constexpr NextHopEntryTypeConstant nextHopDrop{NextHopEntryType::nextHopDrop};
inline constexpr NextHopEntryTypeConstant nextHopReceive{NextHopEntryType::nextHopReceive};
inline constexpr NextHopEntryTypeConstant nextHopGlean{NextHopEntryType::nextHopGlean};

// The enumerator's name; a value outside the enumeration prints as its number,
// which no parser accepts, so a corrupted value cannot pass as a valid one.
std::string valueToStrep(NextHopEntryType t);
// Reads one enumerator name; anything else throws std::range_error.
NextHopEntryType sequenceToValue(Orb::CharRange& r);
std::ostream& operator<<(std::ostream& os, NextHopEntryType t);

}  // namespace Plx

template <>
struct Orb::StrepTraits<Plx::NextHopEntryType> {
   static void print(std::string& out, Plx::NextHopEntryType t) { out += Plx::valueToStrep(t); }
   static Plx::NextHopEntryType parse(CharRange& r) { return Plx::sequenceToValue(r); }
};
#pragma GCC visibility pop
