// First-free allocation cost against table size and fill. The held indices
// are the lowest ones, so the first free index sits past all of them: a scan
// over the index space would show here as cost growing with size and fill.
#include <benchmark/benchmark.h>

#include <ostream>

#include "Asic/IndexAllocator.h"

namespace {

struct BenchKey {
   static constexpr std::string_view typeName = "Bench::BenchKey";
   uint32_t id;
   uint32_t hash(uint32_t seed) const {
      uint32_t h = (seed ^ id) * 0x9e3779b1u;
      return h ^ (h >> 15);
   }
   bool operator==(const BenchKey&) const = default;
   friend std::ostream& operator<<(std::ostream& os, const BenchKey& k) { return os << k.id; }
};

// Args: index count, percent of it held before measuring.
void BM_NewAndReleaseIndex(benchmark::State& state) {
   const auto n = uint32_t(state.range(0));
   const auto percent = uint32_t(state.range(1));
   auto a = Brio::makePtr<Asic::FirstFreeIndexAllocator>();
   a->indexCountIs(n);
   const auto held = uint32_t(uint64_t(n) * percent / 100);
   for (uint32_t i = 0; i < held; ++i) a->newIndexForKey(BenchKey{i});
   const BenchKey probe{n + 1};
   const Orb::GenericValue probeKey = a->getKey(probe);
   Asic::Index got = Asic::invalidIndex;
   for (auto _ : state) {
      got = a->newIndexForKey(probe);
      benchmark::DoNotOptimize(got);
      a->releaseIndex(probeKey);
   }
   // The index handed out: held, unless the space is full.
   state.counters["index"] = got;
}

BENCHMARK(BM_NewAndReleaseIndex)
    ->ArgNames({"size", "fill%"})
    ->ArgsProduct({{1 << 10, 1 << 16, 1 << 20}, {0, 50, 99}});

}  // namespace
