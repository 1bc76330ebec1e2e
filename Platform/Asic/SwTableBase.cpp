#include "Asic/SwTableBase.h"

#include <algorithm>
#include <cctype>
#include <ostream>
#include <stdexcept>
#include <vector>

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
// An open-addressing set of pointers (linear probing, deletion by backward
// shift): every handle made and freed passes through it, and a node-based set
// would allocate for each.
class HandleSet {
public:
   void insert(const void* p) {
      if ((count_ + 1) * 4 > slots_.size() * 3) grow();
      size_t i = home(p);
      while (slots_[i] && slots_[i] != p) i = (i + 1) & mask();
      if (!slots_[i]) ++count_;
      slots_[i] = p;
   }
   void erase(const void* p) {
      if (slots_.empty()) return;
      size_t i = home(p);
      while (slots_[i] != p) {
         if (!slots_[i]) return;
         i = (i + 1) & mask();
      }
      // Pull later members of the probe run back over the hole.
      for (size_t j = (i + 1) & mask(); slots_[j]; j = (j + 1) & mask()) {
         const size_t k = home(slots_[j]);
         const bool stays = i <= j ? (i < k && k <= j) : (i < k || k <= j);
         if (stays) continue;
         slots_[i] = slots_[j];
         i = j;
      }
      slots_[i] = nullptr;
      --count_;
   }
   bool contains(const void* p) const {
      if (slots_.empty() || !p) return false;
      for (size_t i = home(p); slots_[i]; i = (i + 1) & mask())
         if (slots_[i] == p) return true;
      return false;
   }

private:
   size_t mask() const { return slots_.size() - 1; }
   size_t home(const void* p) const {
      const uint64_t v = uint64_t(reinterpret_cast<uintptr_t>(p)) * 0x9e3779b97f4a7c15ull;
      return size_t(v >> 32) & mask();
   }
   void grow() {
      std::vector<const void*> old(std::max<size_t>(16, slots_.size() * 2));
      old.swap(slots_);
      count_ = 0;
      for (const void* p : old)
         if (p) insert(p);
   }

   std::vector<const void*> slots_;
   size_t count_ = 0;
};

// Live handles, so that a handle's text form can be read back safely.
HandleSet& liveHandles() {
   static auto* live = new HandleSet;
   return *live;
}
}  // namespace

SwTableBase::EntryHandle::EntryHandle() { liveHandles().insert(this); }

SwTableBase::EntryHandle::~EntryHandle() { liveHandles().erase(this); }

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
   if (!liveHandles().contains(h))
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
