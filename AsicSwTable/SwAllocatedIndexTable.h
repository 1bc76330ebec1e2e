#pragma once
// A table that chooses the hardware index of each key itself, from an index
// allocator of type `A` (one shared by every table of that allocator type).
// An index-keyed table (SwKnownIndexTable) has no allocator: its key is its
// index.
#include <type_traits>

#include "Asic/IndexAllocator.h"
#include "Asic/SwTable.h"
#include "Brio/Ptr.h"

#pragma GCC visibility push(default)
namespace Asic {

template <class A>
class SwAllocatedIndexTable : public SwUnknownIndexTable {
public:
   static_assert(std::is_base_of_v<GenericIndexAllocator, A>,
                 "a table allocates its indices from an index allocator");
   using Allocator = A;

   const Brio::Ptr<Allocator>& indexAllocator() const { return indexAllocator_; }
   void indexAllocatorIs(Brio::Ptr<Allocator> allocator) {
      if (allocator == indexAllocator_) return;
      indexAllocator_ = std::move(allocator);
      publisher_.notify(SwTable::indexAllocatorAttr);
   }
   bool indexAllocatorBound() const override { return bool(indexAllocator_); }

   // Indices kept out of use once the allocator is set up; a table hides this
   // with its own when it keeps any.
   void doReserveIndicesAtTableInit() {}

protected:
   SwAllocatedIndexTable() = default;
   ~SwAllocatedIndexTable() override = default;

private:
   Brio::Ptr<Allocator> indexAllocator_;
};

}  // namespace Asic
#pragma GCC visibility pop
