#pragma once
// Binds a table to the write responses of its hardware: created when the
// table's set-up completes; without it responses are not delivered.
#include "Asic/SwTable.h"

#pragma GCC visibility push(default)
namespace Asic {

class WriteResponseSm : public Brio::PtrInterface {
public:
   static Brio::Ptr<WriteResponseSm> WriteResponseSmIs(SwTable* table);

   SwTable* table() const { return table_; }
   void writeResponseIs(HwRequestId id, Index index, WriteStatus status);
   uint32_t responses() const { return responses_; }

private:
   explicit WriteResponseSm(SwTable* t) : table_(t) {}
   ~WriteResponseSm() override = default;
   friend class SwTable;
   SwTable* table_;
   uint32_t responses_ = 0;
};

}  // namespace Asic
#pragma GCC visibility pop
