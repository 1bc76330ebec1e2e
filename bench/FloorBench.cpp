// The floor runner: the primitive steps of BenchFloor.h on plain containers
// and the real index allocators.
#include "BenchFloor.h"

#include "Orb/Hash.h"
#include "SharedL3/DontCareHandle.h"

namespace bench {

namespace {

struct Payload {
   uint64_t word[4];
};
struct Object {
   uint64_t word[8];
};
struct KeyHash {
   uint32_t seed = Orb::HashHelper::hashSeed32() ^ 0x3be3390e;
   size_t operator()(const L3TunnelKey& k) const { return k.hash(seed); }
};
using KeyMap = std::unordered_map<L3TunnelKey, Payload, KeyHash>;
using IdMap = std::unordered_map<uint32_t, Payload>;

// What a write response carries: the plug-in, the request, the row, the status.
struct Response {
   void* util;
   uint32_t id;
   uint32_t index;
   uint8_t status;
};
uint64_t responses = 0;

Brio::Ptr<Asic::FirstFreeIndexAllocator> allocator(uint32_t fill,
                                                   const std::vector<L3TunnelKey>& keys) {
   auto a = Brio::makePtr<Asic::FirstFreeIndexAllocator>();
   a->indexCountIs(maxRows);
   a->initializedIs(true);
   for (uint32_t i = 0; i < fill; ++i) a->newIndexForKey(keys[i]);
   return a;
}

}  // namespace

void runFloor(benchmark::State& state, const FloorOps& ops, uint32_t batch, uint32_t fill,
              uint32_t units) {
   const uint32_t n = fill + batch;
   std::vector<L3TunnelKey> keys;
   keys.reserve(n);
   for (uint32_t i = 0; i < n; ++i) keys.push_back(tunnelKey(i));
   std::vector<Orb::GenericValue> generic;
   if (ops.indexClaims) {
      generic.reserve(n);
      for (auto& k : keys) generic.push_back(Orb::GenericValue::of(k));
   }
   auto maps = [&](uint32_t count, uint32_t prefill) {
      std::vector<KeyMap> m(count);
      for (auto& map : m)
         for (uint32_t i = 0; i < prefill; ++i) map.emplace(keys[i], Payload{});
      return m;
   };
   auto idMaps = [&](uint32_t count, uint32_t prefill) {
      std::vector<IdMap> m(count);
      for (auto& map : m)
         for (uint32_t i = 0; i < prefill; ++i) map.emplace(i, Payload{});
      return m;
   };
   auto allocators = [&](uint32_t count, uint32_t prefill) {
      std::vector<Brio::Ptr<Asic::FirstFreeIndexAllocator>> a;
      for (uint32_t i = 0; i < count; ++i) a.push_back(allocator(prefill, keys));
      return a;
   };
   auto lookupCount = [](uint32_t ops) { return std::min<uint32_t>(ops, 8); };
   auto insertMaps = maps(ops.keyInserts, fill);
   auto lookupMaps = maps(lookupCount(ops.keyLookups), n);
   auto eraseMaps = maps(ops.keyErases, fill);
   auto idInsertMaps = idMaps(ops.idInserts, fill);
   auto idLookupMaps = idMaps(lookupCount(ops.idLookups), n);
   auto idEraseMaps = idMaps(ops.idErases, fill);
   auto newAllocators = allocators(ops.indexNews, fill);
   auto lookupAllocators = allocators(lookupCount(ops.indexLookups), n);
   auto releaseAllocators = allocators(ops.indexReleases, fill);
   auto claimAllocators = allocators(ops.indexClaims, 0);
   std::vector<Orb::GenericValue> released(size_t(ops.indexReleases) * batch);
   Asic::RangeIndexAllocator ranges;
   ranges.indexCountIs(maxRows * 4);
   if (fill && (ops.rangeNews || ops.rangeDels)) ranges.rangeClaim(0, fill * ops.rangeSize);
   std::vector<Asic::Index> rangeNew(size_t(ops.rangeNews) * batch);
   std::vector<Asic::Index> rangeDel(size_t(ops.rangeDels) * batch);
   std::vector<std::string> texts;
   for (uint32_t len : ops.rowStores) texts.emplace_back(len, 'r');
   const uint32_t rowsPerOp = uint32_t(ops.rowStores.size()) + ops.rowClears;
   std::vector<std::optional<std::string>> rows(fill + size_t(batch) * rowsPerOp + 1);
   for (uint32_t i = 0; i < fill; ++i) rows[i] = texts.empty() ? std::string() : texts[0];
   std::vector<std::string> readable;
   for (uint32_t len : ops.rowReads) readable.emplace_back(len, 'r');
   std::vector<Object*> objectsNew, objectsDel;
   objectsNew.reserve(size_t(ops.objectNews) * batch);
   objectsDel.reserve(size_t(ops.objectDeletes) * batch);
   auto& loop = Brio::EventLoop::instance();
   loop.clear();
   auto rowSlot = [&](uint32_t i, uint32_t j) { return fill + size_t(i) * rowsPerOp + j; };

   Span span;
   for (auto _ : state) {
      // Put in place what the timed span takes away.
      for (uint32_t i = 0; i < batch; ++i) {
         const L3TunnelKey& k = keys[fill + i];
         for (auto& m : eraseMaps) m.emplace(k, Payload{});
         for (auto& m : idEraseMaps) m.emplace(fill + i, Payload{});
         for (uint32_t a = 0; a < ops.indexReleases; ++a) {
            releaseAllocators[a]->newIndexForKey(k);
            released[size_t(a) * batch + i] = releaseAllocators[a]->getKey(k);
         }
         for (uint32_t r = 0; r < ops.rangeDels; ++r)
            rangeDel[size_t(r) * batch + i] = ranges.rangeNew(ops.rangeSize);
         for (uint32_t r = 0; r < ops.rowClears; ++r)
            rows[rowSlot(i, uint32_t(ops.rowStores.size()) + r)] = std::string(150, 'r');
         for (uint32_t o = 0; o < ops.objectDeletes; ++o) objectsDel.push_back(new Object{});
      }
      span.start();
      for (uint32_t i = 0; i < batch; ++i) {
         const uint32_t g = fill + i;
         const L3TunnelKey& k = keys[g];
         for (auto& m : insertMaps) m.emplace(k, Payload{});
         for (uint32_t j = 0; j < ops.keyLookups; ++j) {
            auto& m = lookupMaps[j % lookupMaps.size()];
            benchmark::DoNotOptimize(m.find(k));
         }
         for (auto& m : eraseMaps) m.erase(k);
         for (auto& m : idInsertMaps) m.emplace(g, Payload{});
         for (uint32_t j = 0; j < ops.idLookups; ++j) {
            auto& m = idLookupMaps[j % idLookupMaps.size()];
            benchmark::DoNotOptimize(m.find(g));
         }
         for (auto& m : idEraseMaps) m.erase(g);
         for (auto& a : newAllocators) benchmark::DoNotOptimize(a->newIndexForKey(k));
         for (uint32_t j = 0; j < ops.indexLookups; ++j)
            benchmark::DoNotOptimize(lookupAllocators[j % lookupAllocators.size()]->indexForKey(k));
         for (uint32_t a = 0; a < ops.indexReleases; ++a)
            releaseAllocators[a]->releaseIndex(released[size_t(a) * batch + i]);
         for (auto& a : claimAllocators) a->requestIndexForKey(g, generic[g]);
         for (uint32_t r = 0; r < ops.rangeNews; ++r)
            rangeNew[size_t(r) * batch + i] = ranges.rangeNew(ops.rangeSize);
         for (uint32_t r = 0; r < ops.rangeDels; ++r)
            ranges.rangeDel(rangeDel[size_t(r) * batch + i], ops.rangeSize);
         if (ops.rangeRuns && i % ops.rangeSize == 0)
            benchmark::DoNotOptimize(ranges.rangeClaim(g, std::min(ops.rangeSize, batch - i)));
         for (uint32_t j = 0; j < texts.size(); ++j) rows[rowSlot(i, j)] = texts[j];
         for (uint32_t r = 0; r < ops.rowClears; ++r)
            rows[rowSlot(i, uint32_t(texts.size()) + r)].reset();
         for (auto& text : readable) {
            std::string copy = text;
            benchmark::DoNotOptimize(copy);
         }
         for (uint32_t o = 0; o < ops.objectNews; ++o) objectsNew.push_back(new Object{});
         for (uint32_t o = 0; o < ops.objectDeletes; ++o)
            delete objectsDel[size_t(i) * ops.objectDeletes + o];
         for (uint32_t t = 0; t < ops.tasks; ++t) {
            Response r{&loop, g, g, 0};
            loop.post([r] { responses += r.id + r.index + r.status; });
         }
         if (ops.tasks) loop.runUntilIdle();
      }
      span.stop(state);
      // Back to the start.
      objectsDel.clear();
      for (uint32_t i = 0; i < batch; ++i) {
         const L3TunnelKey& k = keys[fill + i];
         for (auto& m : insertMaps) m.erase(k);
         for (auto& m : idInsertMaps) m.erase(fill + i);
         for (auto& a : newAllocators) a->releaseIndex(a->getKey(k));
         for (auto& a : claimAllocators) a->releaseIndex(a->getKey(k));
         for (uint32_t r = 0; r < ops.rangeNews; ++r)
            ranges.rangeDel(rangeNew[size_t(r) * batch + i], ops.rangeSize);
         if (ops.rangeRuns && i % ops.rangeSize == 0)
            ranges.rangeDel(fill + i, std::min(ops.rangeSize, batch - i));
         for (uint32_t j = 0; j < texts.size(); ++j) rows[rowSlot(i, j)].reset();
      }
      for (auto* o : objectsNew) delete o;
      objectsNew.clear();
   }
   perOp(state, units);
}

void floorIs(const std::string& name, std::function<FloorOps()> make, uint32_t batch, uint32_t fill,
             uint32_t units) {
   benchmark::RegisterBenchmark(("floor/" + name).c_str(), [make, batch, fill,
                                                            units](benchmark::State& state) {
      runFloor(state, make(), batch, fill, units ? units : batch);
   })->UseManualTime();
}

const RowLengths& rowLengths() {
   static const RowLengths lengths = [] {
      using Handle = Asic::SwTableBase::EntryHandle::PtrConst;
      const L3TunnelKey k = tunnelKey(1000);
      const L3TunnelKey k6 = tunnelKey(1000, true);
      const Handle none;
      RowLengths r{};
      r.tunnel = uint32_t(
          L3EgrL3Ipv4TunnelTable::Entry(true, false, k.srcIpAddr(), 64, k.dstIpAddr(), U5(17))
              .rowText()
              .size());
      r.tunnelV6 = uint32_t(
          L3EgrL3Ipv6TunnelTable::Entry(false, true, k6.srcIpAddr(), 64, k6.dstIpAddr(), U5(17))
              .rowText()
              .size());
      r.interface = uint32_t(EgrL3Oif1Table::Entry(none, 1000, 0, U5(18)).rowText().size());
      r.tunnelInterface =
          uint32_t(L3TunnelEgrL3Oif1Table::Entry(none, 1000, 0, U5(18)).rowText().size());
      r.ingress = uint32_t(IngL3Iif::Entry().rowText().size());
      r.nextHop = uint32_t(
          L3TunnelIngL3NextHopTable::Entry(none, 1000, false, U5(30), U2()).rowText().size());
      r.member = uint32_t(L3EcmpMember0Table::Entry(none, none, 1000, 1, true).rowText().size());
      return r;
   }();
   return lengths;
}

}  // namespace bench
