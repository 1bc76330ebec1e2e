#pragma once
// Hands out contiguous ranges of indices (a block of ECMP members must sit in
// consecutive rows). Free space is kept as extents, found by size, so that
// allocation and release cost a logarithm of the number of extents however
// full or fragmented the space is. The smallest extent that fits is used, the
// lowest one among equals, which keeps large extents for large blocks.
#include <cstdint>
#include <map>
#include <set>
#include <utility>

#include "Asic/Index.h"

#pragma GCC visibility push(default)
namespace Asic {

class RangeIndexAllocator {
public:
   // All `count` indices free; any earlier state is dropped.
   void indexCountIs(uint32_t count);
   uint32_t indexCount() const { return count_; }
   uint32_t used() const { return used_; }
   uint32_t largestFree() const;

   // The first index of `size` consecutive free indices, now used; invalidIndex
   // when no extent is large enough. A size of 0 takes nothing.
   Index rangeNew(uint32_t size);
   // Takes exactly [first, first + size); false, with nothing taken, unless
   // all of it is free.
   bool rangeClaim(Index first, uint32_t size);
   // Gives [first, first + size) back; every index of it must be in use.
   void rangeDel(Index first, uint32_t size);
   bool isFree(Index index) const;

private:
   void extentIs(Index first, uint32_t size);
   void extentDel(std::map<Index, uint32_t>::iterator it);

   std::map<Index, uint32_t> byStart_;            // first -> size
   std::set<std::pair<uint32_t, Index>> bySize_;  // (size, first)
   uint32_t count_ = 0;
   uint32_t used_ = 0;
};

}  // namespace Asic
#pragma GCC visibility pop
