#pragma once
// The base of a merged table: a table without hardware of its own that writes
// one entry into each of several member tables at one index it allocates, and
// follows their states.
#include <string_view>

#include "Asic/IndexAllocator.h"
#include "Asic/IndexPins.h"
#include "Asic/SwTable.h"
#include "Asic/UnresolvedEntry.h"

#pragma GCC visibility push(default)
namespace Asic {

class SwMergedTable : public SwTableBase,
                      public Brio::PtrInterface,
                      public IndexKeyHolder,
                      public IndexPinned,
                      public Orb::EntityPb {
public:
   // A merged write waiting for its member entries.
   class UnresolvedMergedEntry : public SwTableBase::UnresolvedEntry {
   protected:
      ~UnresolvedMergedEntry() override = default;
   };

   virtual Orb::TypeId fwkType() const = 0;
   std::string_view name() const { return fwkType().name(); }
   std::string_view allocatorHolderName() const override { return name(); }

   const Brio::Publisher& notifieeList() const { return publisher_; }
   Brio::Publisher& notifieeList() { return publisher_; }

   virtual void doInit(UnitId unit, Brio::Ptr<Ledger::EntityManager> ledgerEm,
                       Brio::Ptr<const MeridCentral::ChipInfo> chipInfo) = 0;
   virtual void doPublishHwTableMountInfo() = 0;

protected:
   ~SwMergedTable() override = default;
   Brio::Publisher publisher_;
};

}  // namespace Asic
#pragma GCC visibility pop
