#include "Asic/RangeIndexAllocator.h"

#include "Orb/Assert.h"

namespace Asic {

void RangeIndexAllocator::indexCountIs(uint32_t count) {
   byStart_.clear();
   bySize_.clear();
   count_ = count;
   used_ = 0;
   if (count) extentIs(0, count);
}

uint32_t RangeIndexAllocator::largestFree() const {
   return bySize_.empty() ? 0 : bySize_.rbegin()->first;
}

void RangeIndexAllocator::extentIs(Index first, uint32_t size) {
   byStart_.emplace(first, size);
   bySize_.emplace(size, first);
}

void RangeIndexAllocator::extentDel(std::map<Index, uint32_t>::iterator it) {
   bySize_.erase({it->second, it->first});
   byStart_.erase(it);
}

Index RangeIndexAllocator::rangeNew(uint32_t size) {
   if (size == 0) return invalidIndex;
   auto fit = bySize_.lower_bound({size, 0});
   if (fit == bySize_.end()) return invalidIndex;
   const auto [extent, first] = *fit;
   extentDel(byStart_.find(first));
   if (extent > size) extentIs(first + size, extent - size);
   used_ += size;
   return first;
}

bool RangeIndexAllocator::rangeClaim(Index first, uint32_t size) {
   if (size == 0) return true;
   auto it = byStart_.upper_bound(first);
   if (it == byStart_.begin()) return false;
   --it;
   const Index start = it->first;
   const uint32_t extent = it->second;
   if (uint64_t(first) + size > uint64_t(start) + extent) return false;
   extentDel(it);
   if (first > start) extentIs(start, first - start);
   const uint64_t tail = uint64_t(start) + extent - (uint64_t(first) + size);
   if (tail) extentIs(first + size, uint32_t(tail));
   used_ += size;
   return true;
}

void RangeIndexAllocator::rangeDel(Index first, uint32_t size) {
   if (size == 0) return;
   ORB_ASSERT(uint64_t(first) + size <= count_ && size <= used_)
       << "range " << first << "+" << size << " is outside the used index space";
   Index start = first;
   uint32_t extent = size;
   auto next = byStart_.lower_bound(first);
   ORB_ASSERT(next == byStart_.end() || next->first >= first + size)
       << "range " << first << "+" << size << " is already partly free";
   if (next != byStart_.begin()) {
      auto prev = std::prev(next);
      ORB_ASSERT(prev->first + prev->second <= first)
          << "range " << first << "+" << size << " is already partly free";
      if (prev->first + prev->second == first) {
         start = prev->first;
         extent += prev->second;
         extentDel(prev);
      }
   }
   if (next != byStart_.end() && next->first == first + size) {
      extent += next->second;
      extentDel(next);
   }
   extentIs(start, extent);
   used_ -= size;
}

bool RangeIndexAllocator::isFree(Index index) const {
   auto it = byStart_.upper_bound(index);
   if (it == byStart_.begin()) return false;
   --it;
   return index - it->first < it->second;
}

}  // namespace Asic
