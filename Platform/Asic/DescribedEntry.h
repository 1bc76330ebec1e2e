#pragma once
// Base of an entry type described by its fields (Asic/EntryFields.h): the
// generic virtuals the hardware plug-ins see, and the value's equality,
// order, truth, hash and text form, all from `Derived::fields`. The entry
// keeps its constructors and accessors; its text constructor is one line:
//
//   explicit Entry(Orb::CharRange& r) { fieldsRead(r); }
//
// The write-response callable belongs to no field, so to no comparison.
#include <memory>
#include <ostream>
#include <string>

#include "Asic/EntryBase.h"
#include "Asic/EntryFields.h"
#include "Orb/CharRange.h"
#include "Orb/TypeId.h"

#pragma GCC visibility push(default)
namespace Asic {

template <class Derived>
class DescribedEntry : public EntryBase {
public:
   using Fields = EntryFields<Derived>;

   static bool isEq(const Derived& a, const Derived& b) {
      return EntryBase::isEq(a, b) && Fields::isEq(a, b);
   }
   uint32_t genericIfHash(uint32_t seed = 0) const { return Fields::hash(self(), seed); }
   // Any field set.
   explicit operator bool() const { return !isEq(self(), Derived()); }

   // The handle of the entry this one names, for an entry that names one.
   const SwTableBase::EntryHandle::PtrConst& neededEntryHandle() const
       requires(EntryFields<Derived>::dependentCount() == 1) {
      return self().*Fields::dependent().handle;
   }

   Orb::TypeId entryType() const override { return Orb::typeId<Derived>(); }
   std::string stringValue() const override { return Fields::text(self(), true); }
   std::string rowText() const override { return Fields::text(self(), false); }
   std::unique_ptr<EntryBase> clone() const override { return std::make_unique<Derived>(self()); }
   bool isEqEntry(const EntryBase& other) const override {
      return other.entryType() == entryType() &&
             Derived::isEq(self(), static_cast<const Derived&>(other));
   }

   friend bool operator==(const Derived& a, const Derived& b) { return Derived::isEq(a, b); }
   friend bool operator<(const Derived& a, const Derived& b) { return Fields::less(a, b); }
   friend std::string valueToStrep(const Derived& e) { return Fields::text(e, true); }
   friend std::ostream& operator<<(std::ostream& os, const Derived& e) {
      return os << Fields::text(e, true);
   }

protected:
   DescribedEntry() = default;
   void fieldsRead(Orb::CharRange& r) { Fields::read(self(), r); }

private:
   const Derived& self() const { return static_cast<const Derived&>(*this); }
   Derived& self() { return static_cast<Derived&>(*this); }
};

}  // namespace Asic
#pragma GCC visibility pop
