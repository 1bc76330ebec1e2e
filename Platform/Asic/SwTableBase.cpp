#include "Asic/SwTableBase.h"

#include <cctype>
#include <ostream>
#include <stdexcept>

#include "Orb/PointerSet.h"

namespace Asic {

std::string_view SwTableBase::entryStateName(EntryState s) {
   switch (s) {
      case EntryState::unresolved:
         return "unresolved";
      case EntryState::inProgress:
         return "inProgress";
      case EntryState::wontProgram:
         return "wontProgram";
      case EntryState::success:
         return "success";
      case EntryState::failedNeededEntry:
         return "failedNeededEntry";
      case EntryState::noHwIndex:
         return "noHwIndex";
   }
   return "invalid";
}

std::ostream& operator<<(std::ostream& os, SwTableBase::EntryState s) {
   auto name = SwTableBase::entryStateName(s);
   if (name == "invalid") return os << "invalid(" << unsigned(s) << ")";
   return os << name;
}

Index SwTableBase::getHwEntryIndex(const EntryHandle& h) { return h.hwIndex(); }

Index SwTableBase::getHwIndexForDependentField(const EntryHandle& h) {
   return h.hwIndexForDependentField();
}

std::string_view SwTableBase::EntryHandle::entryTypeName(EntryType t) {
   switch (t) {
      case EntryType::none:
         return "none";
      case EntryType::referenceOnly:
         return "referenceOnly";
      case EntryType::committed:
         return "committed";
      case EntryType::inDeletion:
         return "inDeletion";
   }
   return "invalid";
}

std::ostream& operator<<(std::ostream& os, SwTableBase::EntryHandle::EntryType t) {
   return os << SwTableBase::EntryHandle::entryTypeName(t);
}

namespace {
// Handles found by address. Every handle made and freed passes through the
// set, so it must not allocate per handle.
struct AddressTraits {
   // The high half of a 64-bit address folded in; zero on 32-bit.
   static uint32_t hash(const void* p) {
      const uint64_t v = reinterpret_cast<uintptr_t>(p);
      return uint32_t(v ^ (v >> 32));
   }
   static bool isEq(const void* a, const void* b) { return a == b; }
};
using HandleSet = Orb::PointerSet<const void*, AddressTraits>;

// Live handles, so that a handle's text form can be read back safely.
HandleSet& liveHandles() {
   static auto* live = new HandleSet;
   return *live;
}
}  // namespace

SwTableBase::EntryHandle::EntryHandle() { liveHandles().memberIs(this); }

SwTableBase::EntryHandle::~EntryHandle() {
   HandleSet& live = liveHandles();
   live.memberDel(live.slotFind(this));
}

// Every row the chip keeps carries a handle's text (null there), so no printf.
std::string SwTableBase::EntryHandle::handleText(const EntryHandle* h) {
   uintptr_t v = reinterpret_cast<uintptr_t>(h);
   char buf[2 + 2 * sizeof v];
   char* const end = buf + sizeof buf;
   char* p = end;
   do {
      *--p = "0123456789abcdef"[v & 15];
      v >>= 4;
   } while (v);
   *--p = 'x';
   *--p = '0';
   return std::string(p, end);
}

SwTableBase::EntryHandle::PtrConst SwTableBase::EntryHandle::handleFromText(Orb::CharRange& r) {
   const auto start = r.position();
   r.needString("0x");
   uintptr_t address = 0;
   std::size_t digits = 0;
   bool tooWide = false;
   for (char c = r.peek(); std::isxdigit(static_cast<unsigned char>(c)); c = r.peek()) {
      const unsigned d = std::isdigit(static_cast<unsigned char>(c))
                             ? unsigned(c - '0')
                             : unsigned(std::tolower(static_cast<unsigned char>(c)) - 'a' + 10);
      tooWide |= address > (UINTPTR_MAX >> 4);
      address = address * 16 + d;
      r.advance(1);
      ++digits;
   }
   if (!digits)
      throw std::range_error("expected a handle address at position " + std::to_string(start));
   if (tooWide)
      throw std::range_error("handle address wider than a pointer at position " +
                             std::to_string(start));
   if (!address) return nullptr;
   auto* h = reinterpret_cast<const EntryHandle*>(address);
   if (liveHandles().slotFind(h) == HandleSet::noSlot)
      throw std::range_error("no live entry handle at " + handleText(h));
   return PtrConst(h);
}

SwTableBase::EntryHandle::PtrConst SwTableBase::EntryHandle::handleFromText(Orb::CharRange& r,
                                                                            const char* attrName) {
   try {
      return handleFromText(r);
   } catch (const std::range_error&) {
      Orb::rethrowFromDeserializeAttr(attrName);
   }
}

void SwTableBase::EntryHandle::hwIndexIs(Index i) {
   if (i == hwIndex_) return;
   hwIndex_ = i;
   publisher_.notify(hwIndexAttr);
}

void SwTableBase::EntryHandle::entryStateIs(EntryState s) {
   if (s == entryState_) return;
   // Reactors may drop the last outside reference. A handle at zero is inside
   // its zero-reference handling, which already keeps it alive.
   Brio::Ptr<EntryHandle> self(references() ? this : nullptr);
   entryState_ = s;
   handleEntryState();
   publisher_.notify(entryStateAttr);
}

void SwTableBase::EntryHandle::swTableIs(SwTable* t) {
   if (t == swTable_) return;
   swTable_ = t;
   publisher_.notify(swTableAttr);
}

void SwTableBase::EntryHandle::dropTableReference() {
   if (flag(uncountedRefFlag)) return;
   flagIs(uncountedRefFlag, true);
   deleteRef();
}

void SwTableBase::EntryHandle::doAmendReferences() {
   if (!flag(uncountedRefFlag)) return;
   flagIs(uncountedRefFlag, false);
   newRef();
}

}  // namespace Asic
