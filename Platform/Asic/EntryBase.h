#pragma once
// Base of every entry value. Hardware plug-ins see entries only through these
// virtuals, so one simulator serves every table without knowing its types.
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

#include "Asic/WriteResponseFn.h"
#include "Orb/Hash.h"
#include "Orb/TypeId.h"

#pragma GCC visibility push(default)
namespace Asic {

class EntryBase {
public:
   virtual ~EntryBase() = default;

   virtual Orb::TypeId entryType() const = 0;
   virtual std::string stringValue() const = 0;  // the value's text form
   // The value as a hardware row holds it: the text form, without what exists
   // only in software (handles of needed entries are shown as null).
   virtual std::string rowText() const { return stringValue(); }
   virtual std::unique_ptr<EntryBase> clone() const = 0;
   virtual bool isEqEntry(const EntryBase& other) const = 0;  // same type and isEq

   // The base part of an entry compares equal and orders nothing; the
   // write-response callable is not part of the value.
   static bool isEq(const EntryBase&, const EntryBase&) { return true; }
   bool operator<(const EntryBase&) const { return false; }

   const WriteResponseFn& writeResponseFn() const { return writeResponseFn_; }
   void writeResponseFnIs(WriteResponseFn f) { writeResponseFn_ = std::move(f); }

protected:
   EntryBase() = default;
   EntryBase(const EntryBase&) = default;
   EntryBase& operator=(const EntryBase&) = default;

private:
   WriteResponseFn writeResponseFn_;
};

// Mixes one field of a value into `h`: numbers as one word, values by their own
// hash, handles (compared by identity) by their address.
template <class F>
void hashValueField(Orb::Hash& h, const F& f, uint32_t seed) {
   if constexpr (std::is_integral_v<F> || std::is_enum_v<F>) {
      static_assert(sizeof(F) <= sizeof(uint32_t));
      h.mix(uint32_t(f));
   } else if constexpr (requires { f.genericIfHash(seed); }) {
      h.mix(f.genericIfHash(seed));
   } else if constexpr (requires { f.hash(seed); }) {
      h.mix(f.hash(seed));
   } else {
      const auto address = reinterpret_cast<std::uintptr_t>(f.ptr());
      h.mix(uint32_t(address));
      if constexpr (sizeof(address) > sizeof(uint32_t)) h.mix(uint32_t(uint64_t(address) >> 32));
   }
}

}  // namespace Asic
#pragma GCC visibility pop
