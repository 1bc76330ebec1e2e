#pragma once
// Base of every entry value. Hardware plug-ins see entries only through these
// virtuals, so one simulator serves every table without knowing its types.
#include <memory>
#include <string>

#include "Asic/WriteResponseFn.h"
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

// Implements the generic virtuals from the entry's own value operations:
// `static constexpr std::string_view typeName`, `isEq`, and `valueToStrep`.
template <class Derived>
class EntryImpl : public EntryBase {
public:
   Orb::TypeId entryType() const override { return Orb::typeId<Derived>(); }
   std::string stringValue() const override { return valueToStrep(self()); }
   std::unique_ptr<EntryBase> clone() const override { return std::make_unique<Derived>(self()); }
   bool isEqEntry(const EntryBase& other) const override {
      return other.entryType() == entryType() &&
             Derived::isEq(self(), static_cast<const Derived&>(other));
   }

private:
   const Derived& self() const { return static_cast<const Derived&>(*this); }
};

}  // namespace Asic
#pragma GCC visibility pop
