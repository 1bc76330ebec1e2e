#pragma once
// Tables taking their hardware over after an agent restart. Tables join the
// group; `recover` then brings each, in joining order, in line with its
// hardware: set-up, sync of the index allocator from the rows, completion.
// Nothing may be written to a table before it is recovered.
#include <vector>

#include "Asic/SwTable.h"

#pragma GCC visibility push(default)
namespace Asic {

class RecoverGroup {
public:
   struct Member {
      Brio::Ptr<SwTable> table;
      UnitId unit;
      Brio::Ptr<Ledger::EntityManager> ledgerEm;
      Brio::Ptr<const MeridCentral::ChipInfo> chipInfo;
   };

   void tableIs(SwTable& table, UnitId unit, Brio::Ptr<Ledger::EntityManager> ledgerEm,
                Brio::Ptr<const MeridCentral::ChipInfo> chipInfo);
   const std::vector<Member>& tables() const { return members_; }
   void recover();

private:
   std::vector<Member> members_;
};

}  // namespace Asic
#pragma GCC visibility pop
