#pragma once
// Entry states and the entry handle every software table keeps per key.
//
// An entry handle is the client's view of one key's hardware entry. It carries
// two state machines, both moved only by the table engine:
//  - entry state (what the client sees): unresolved -> inProgress -> success or
//    noHwIndex on each write; wontProgram and failedNeededEntry are set from
//    outside the programming path;
//  - entry type (how the key is held): none -> referenceOnly or committed ->
//    inDeletion (removal) -> gone.
// The resolved-entry state follows the last value handed to hardware.
#include <cstdint>
#include <iosfwd>
#include <string>
#include <string_view>

#include "Asic/Index.h"
#include "Brio/Ptr.h"
#include "Brio/Publisher.h"
#include "Orb/CharRange.h"
#include "Orb/EntityPb.h"
#include "Orb/TypeId.h"

#pragma GCC visibility push(default)
namespace Asic {

class SwTable;

class SwTableBase {
public:
   enum class EntryState : uint8_t {
      unresolved = 0,
      inProgress = 1,
      wontProgram = 2,
      success = 3,
      failedNeededEntry = 4,
      noHwIndex = 5,
   };
   static constexpr EntryState unresolved() { return EntryState::unresolved; }
   static constexpr EntryState inProgress() { return EntryState::inProgress; }
   static constexpr EntryState wontProgram() { return EntryState::wontProgram; }
   static constexpr EntryState success() { return EntryState::success; }
   static constexpr EntryState failedNeededEntry() { return EntryState::failedNeededEntry; }
   static constexpr EntryState noHwIndex() { return EntryState::noHwIndex; }
   static std::string_view entryStateName(EntryState s);

   class EntryHandle;

   class UnresolvedEntry;

   static Index getHwEntryIndex(const EntryHandle& h);
   // The index a dependent table writes into its field when it names `h`.
   static Index getHwIndexForDependentField(const EntryHandle& h);
};

std::ostream& operator<<(std::ostream& os, SwTableBase::EntryState s);

class SwTableBase::EntryHandle : public Brio::PtrInterface, public Orb::EntityPb {
public:
   using PtrConst = Brio::Ptr<const EntryHandle>;

   enum class EntryType : uint8_t { none = 0, referenceOnly = 1, committed = 2, inDeletion = 3 };
   static constexpr EntryType none() { return EntryType::none; }
   static constexpr EntryType referenceOnly() { return EntryType::referenceOnly; }
   static constexpr EntryType committed() { return EntryType::committed; }
   static constexpr EntryType inDeletion() { return EntryType::inDeletion; }
   static std::string_view entryTypeName(EntryType t);

   // Attributes published on the handle's notifiee list.
   static constexpr Brio::AttrId entryStateAttr = 1;
   static constexpr Brio::AttrId resolvedEntryStateAttr = 2;
   static constexpr Brio::AttrId pendingEntryAttr = 3;
   static constexpr Brio::AttrId swTableAttr = 4;
   static constexpr Brio::AttrId hwIndexAttr = 5;

   Index hwIndex() const { return hwIndex_; }
   void hwIndexIs(Index i);
   EntryState entryState() const { return entryState_; }
   // Stores the state; on a change the table's reactor (`handleEntryState`)
   // runs, then the handle's notifiees hear it.
   void entryStateIs(EntryState s);
   EntryType entryType() const { return entryType_; }
   void entryTypeIs(EntryType t) { entryType_ = t; }
   EntryState resolvedEntryState() const { return resolvedEntryState_; }

   SwTable* swTable() const { return swTable_; }
   void swTableIs(SwTable* t);

   const Brio::Publisher& notifieeList() const { return publisher_; }
   Brio::Publisher& notifieeList() { return publisher_; }

   bool isComplete() const {
      return entryState_ == EntryState::success || entryState_ == EntryState::wontProgram;
   }
   bool isFailed() const {
      return entryState_ == EntryState::failedNeededEntry || entryState_ == EntryState::noHwIndex;
   }
   bool isHwIndexValid() const { return isValidIndex(hwIndex_); }

   virtual Orb::TypeId fwkType() const = 0;
   virtual void handleEntryState() {}
   virtual Index hwIndexForDependentField() const { return hwIndex_; }
   // The key as text, for traces and tools that do not know the key type.
   virtual std::string keyText() const = 0;

   // The owning table keeps a pointer in its handle map; for a handle held
   // only by references that pointer is not counted. These move the table's
   // share in and out of the count.
   void dropTableReference();
   void doAmendReferences();
   bool tableReferenceCounted() const { return !flag(uncountedRefFlag); }

   // The text form of a handle named in an entry value: its address, or
   // "0x0"; reading it back finds the live handle at that address.
   static std::string handleText(const EntryHandle* h);
   static PtrConst handleFromText(Orb::CharRange& r);
   // The same for the handle attribute `attrName` of a value: a fault is
   // reported under the attribute's name.
   static PtrConst handleFromText(Orb::CharRange& r, const char* attrName);

protected:
   EntryHandle();
   ~EntryHandle() override;

   Brio::Publisher publisher_;
   SwTable* swTable_ = nullptr;
   Index hwIndex_ = invalidIndex;
   EntryState entryState_ = EntryState::unresolved;
   EntryType entryType_ = EntryType::none;
   EntryState resolvedEntryState_ = EntryState::unresolved;
};

std::ostream& operator<<(std::ostream& os, SwTableBase::EntryHandle::EntryType t);

}  // namespace Asic
#pragma GCC visibility pop
