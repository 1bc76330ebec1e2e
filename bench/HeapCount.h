#pragma once
// Heap bytes of this binary as MemoryBench.cpp counts them (it replaces the
// global allocation functions): the sizes asked for, without the
// allocator's own overhead.
#include <cstdint>

namespace bench {

int64_t heapLive();
// The most bytes live at once since the last heapPeakReset().
int64_t heapPeak();
void heapPeakReset();
// Allocations made since the process started.
int64_t heapAllocations();

}  // namespace bench
