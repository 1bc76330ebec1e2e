// Heap bytes per live via chain with `fullChains` chains held, counted by
// replacing the global allocation functions in this binary (every library
// allocates through them). The simulated chip's row texts are the chip's
// memory, not the software's: they are counted apart and taken out.
#include <cstdio>
#include <cstdlib>
#include <new>
#include <string_view>

#include "BenchRig.h"
#include "HeapCount.h"

namespace {

// Benchmarks run on one thread; the counts need no atomics.
int64_t liveBytes = 0;
int64_t liveBlocks = 0;
int64_t peakBytes = 0;  // the most liveBytes reached since heapPeakReset()
int64_t allocations = 0;
// Live blocks by requested size (the last slot: larger ones), for
// L3TUNNEL_BENCH_SIZES=1, which prints what a chain's blocks are
// (L3TUNNEL_BENCH_SIZES=exit: and ends the process there).
constexpr std::size_t sizeSlots = 1025;
int64_t liveBySize[sizeSlots] = {};
std::size_t sizeSlot(std::size_t n) { return n < sizeSlots - 1 ? n : sizeSlots - 1; }

// Each block carries its requested size in front, in a header that keeps the
// default alignment.
constexpr std::size_t header = 16;

void* allocate(std::size_t n) {
   void* p = std::malloc(n + header);
   if (!p) throw std::bad_alloc();
   *static_cast<std::size_t*>(p) = n;
   liveBytes += int64_t(n);
   if (liveBytes > peakBytes) peakBytes = liveBytes;
   ++liveBlocks;
   ++allocations;
   ++liveBySize[sizeSlot(n)];
   return static_cast<char*>(p) + header;
}

void release(void* p) noexcept {
   if (!p) return;
   char* base = static_cast<char*>(p) - header;
   const std::size_t n = *reinterpret_cast<std::size_t*>(base);
   liveBytes -= int64_t(n);
   --liveBlocks;
   --liveBySize[sizeSlot(n)];
   std::free(base);
}

void* allocateAligned(std::size_t n, std::align_val_t a) {
   const auto align = std::size_t(a);
   if (align <= header) return allocate(n);
   const std::size_t total = (n + align + align - 1) / align * align;
   void* p = std::aligned_alloc(align, total);
   if (!p) throw std::bad_alloc();
   char* user = static_cast<char*>(p) + align;
   *reinterpret_cast<std::size_t*>(user - header) = n;
   liveBytes += int64_t(n);
   if (liveBytes > peakBytes) peakBytes = liveBytes;
   ++liveBlocks;
   ++allocations;
   ++liveBySize[sizeSlot(n)];
   return user;
}

void releaseAligned(void* p, std::align_val_t a) noexcept {
   const auto align = std::size_t(a);
   if (align <= header) return release(p);
   if (!p) return;
   char* user = static_cast<char*>(p);
   const std::size_t n = *reinterpret_cast<std::size_t*>(user - header);
   liveBytes -= int64_t(n);
   --liveBlocks;
   --liveBySize[sizeSlot(n)];
   std::free(user - align);
}

}  // namespace

void* operator new(std::size_t n) { return allocate(n); }
void* operator new[](std::size_t n) { return allocate(n); }
void* operator new(std::size_t n, const std::nothrow_t&) noexcept {
   try {
      return allocate(n);
   } catch (...) {
      return nullptr;
   }
}
void* operator new[](std::size_t n, const std::nothrow_t& t) noexcept { return operator new(n, t); }
void* operator new(std::size_t n, std::align_val_t a) { return allocateAligned(n, a); }
void* operator new[](std::size_t n, std::align_val_t a) { return allocateAligned(n, a); }
void* operator new(std::size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
   try {
      return allocateAligned(n, a);
   } catch (...) {
      return nullptr;
   }
}
void* operator new[](std::size_t n, std::align_val_t a, const std::nothrow_t& t) noexcept {
   return operator new(n, a, t);
}
void operator delete(void* p) noexcept { release(p); }
void operator delete[](void* p) noexcept { release(p); }
void operator delete(void* p, std::size_t) noexcept { release(p); }
void operator delete[](void* p, std::size_t) noexcept { release(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { release(p); }
void operator delete(void* p, std::align_val_t a) noexcept { releaseAligned(p, a); }
void operator delete[](void* p, std::align_val_t a) noexcept { releaseAligned(p, a); }
void operator delete(void* p, std::size_t, std::align_val_t a) noexcept { releaseAligned(p, a); }
void operator delete[](void* p, std::size_t, std::align_val_t a) noexcept { releaseAligned(p, a); }
void operator delete(void* p, std::align_val_t a, const std::nothrow_t&) noexcept {
   releaseAligned(p, a);
}
void operator delete[](void* p, std::align_val_t a, const std::nothrow_t&) noexcept {
   releaseAligned(p, a);
}

namespace bench {

int64_t heapLive() { return liveBytes; }
int64_t heapPeak() { return peakBytes; }
void heapPeakReset() { peakBytes = liveBytes; }
int64_t heapAllocations() { return allocations; }

namespace {

// The live blocks per chain by size that grew since `before`, one line each.
void sizesPrint(const int64_t* before, double chains) {
   for (std::size_t n = 0; n < sizeSlots; ++n) {
      const double per = double(liveBySize[n] - before[n]) / chains;
      if (per < 0.05 && per > -0.05) continue;
      std::fprintf(stderr, "%s%zu bytes: %.2f blocks per chain (%.1f bytes)\n",
                   n == sizeSlots - 1 ? ">=" : "", n, per, per * double(n));
   }
}

// Chains are held by their next hops, as member blocks hold them.
void BM_MemoryChain(benchmark::State& state) {
   const bool sizes = std::getenv("L3TUNNEL_BENCH_SIZES") != nullptr;
   for (auto _ : state) {
      ProgrammerRig rig(maxRows);
      std::vector<HandlePtr> heads;
      heads.reserve(fullChains);
      std::vector<int64_t> sizes0(liveBySize, liveBySize + sizeSlots);
      const int64_t bytes0 = liveBytes, blocks0 = liveBlocks;
      const auto chip0 = int64_t(rig.rowTextBytes());
      for (uint32_t i = 0; i < fullChains; ++i) {
         heads.push_back(rig.programmer->fillOverlayNextHopInfo(via(i)));
         runLoop();
      }
      bool ok = true;
      for (auto& h : heads) ok &= h->entryState() == State::success;
      if (!check(state, ok, "a chain was not acknowledged")) return;
      const auto chip = int64_t(rig.rowTextBytes()) - chip0;
      const double n = fullChains;
      if (sizes) sizesPrint(sizes0.data(), n);
      // Under heaptrack, every live block then shows as a leak, with where it
      // was made.
      if (sizes && std::string_view(std::getenv("L3TUNNEL_BENCH_SIZES")) == "exit") std::_Exit(0);
      state.counters["bytes_per_chain"] = double(liveBytes - bytes0 - chip) / n;
      state.counters["blocks_per_chain"] = double(liveBlocks - blocks0) / n;
      state.counters["chip_bytes_per_chain"] = double(chip) / n;
      state.counters["chains"] = n;
      state.counters["pointer_bits"] = double(sizeof(void*) * 8);
      heads.clear();
      runLoop();
   }
   state.SetLabel(toggleLabel());
}

const bool registered = [] {
   // Counts, not times: one run says all.
   benchmark::RegisterBenchmark("memory/chain", BM_MemoryChain)->Iterations(1)->Repetitions(1);
   return true;
}();

}  // namespace
}  // namespace bench
