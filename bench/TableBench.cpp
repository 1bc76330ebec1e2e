// Each table on its own: a new key written through to its acknowledged
// success, the same value written again, and the key removed through the
// delete dance until its row is deleted and its index free. Entries another
// table's entry must name are made, and acknowledged, beforehand.
#include "BenchFloor.h"
#include "SharedL3/DontCareHandle.h"

namespace bench {
namespace {

constexpr uint32_t batch = 256;

// Per table: how to write key i, how to let it go, and where its rows and
// indices are counted.
struct V4 {
   static constexpr const char* name = "v4";
   static FloorOps writeFloor() { return floor::keyedWrite(rowLengths().tunnel); }
   explicit V4(TableRig& r) : rig(r) {
      for (uint32_t i = 0; i < batch; ++i) {
         keys.push_back(tunnelKey(i));
         entries.emplace_back(true, false, keys[i].srcIpAddr(), 64, keys[i].dstIpAddr(), U5(17));
      }
   }
   HandlePtr write(uint32_t i) { return rig.v4->entryRef(keys[i], entries[i]); }
   void remove(uint32_t, HandlePtr& h) { h = nullptr; }
   uint32_t rows() const { return rig.used(L3EgrL3Ipv4TunnelTable::typeName, 0); }
   uint32_t indices() const { return rig.v4->indexAllocator()->used(); }
   uint32_t hwWrites() const { return rig.hw(L3EgrL3Ipv4TunnelTable::typeName, 0)->stats().writes; }
   static constexpr uint32_t rowsPerKey = 1;

   TableRig& rig;
   std::vector<L3TunnelKey> keys;
   std::vector<L3EgrL3Ipv4TunnelTable::Entry> entries;
};

struct V6 {
   static constexpr const char* name = "v6";
   static FloorOps writeFloor() { return floor::keyedWrite(rowLengths().tunnelV6); }
   explicit V6(TableRig& r) : rig(r) {
      for (uint32_t i = 0; i < batch; ++i) {
         keys.push_back(tunnelKey(i, true));
         entries.emplace_back(false, true, keys[i].srcIpAddr(), 64, keys[i].dstIpAddr(), U5(17));
      }
   }
   HandlePtr write(uint32_t i) { return rig.v6->entryRef(keys[i], entries[i]); }
   void remove(uint32_t, HandlePtr& h) { h = nullptr; }
   uint32_t rows() const { return rig.used(L3EgrL3Ipv6TunnelTable::typeName, 0); }
   uint32_t indices() const { return rig.v6->indexAllocator()->used(); }
   uint32_t hwWrites() const { return rig.hw(L3EgrL3Ipv6TunnelTable::typeName, 0)->stats().writes; }
   static constexpr uint32_t rowsPerKey = 1;

   TableRig& rig;
   std::vector<L3TunnelKey> keys;
   std::vector<L3EgrL3Ipv6TunnelTable::Entry> entries;
};

// Acknowledged tunnels for the tables whose entries name one.
std::vector<HandlePtr> tunnels(TableRig& rig, const std::vector<L3TunnelKey>& keys) {
   std::vector<HandlePtr> t;
   for (auto& k : keys)
      t.push_back(rig.v4->entryRef(
          k, L3EgrL3Ipv4TunnelTable::Entry(true, false, k.srcIpAddr(), 64, k.dstIpAddr(), U5(17))));
   runLoop();
   return t;
}

struct TunnelOif {
   static constexpr const char* name = "tunnelInterface";
   // The tunnel is acknowledged: nothing waits.
   static FloorOps writeFloor() { return floor::keyedWrite(rowLengths().tunnelInterface); }
   explicit TunnelOif(TableRig& r) : rig(r) {
      for (uint32_t i = 0; i < batch; ++i) keys.push_back(tunnelKey(i));
      needed = tunnels(rig, keys);
      for (uint32_t i = 0; i < batch; ++i) entries.emplace_back(needed[i], 0, 0, U5(18));
   }
   HandlePtr write(uint32_t i) { return rig.oif->entryRef(keys[i], entries[i]); }
   void remove(uint32_t, HandlePtr& h) { h = nullptr; }
   uint32_t rows() const { return rig.used(L3TunnelEgrL3Oif1Table::typeName, 0); }
   uint32_t indices() const { return rig.oif->indexAllocator()->used(); }
   uint32_t hwWrites() const { return rig.hw(L3TunnelEgrL3Oif1Table::typeName, 0)->stats().writes; }
   static constexpr uint32_t rowsPerKey = 1;

   TableRig& rig;
   std::vector<L3TunnelKey> keys;
   std::vector<HandlePtr> needed;
   std::vector<L3TunnelEgrL3Oif1Table::Entry> entries;
};

struct NextHop {
   static constexpr const char* name = "nextHop";
   static FloorOps writeFloor() { return floor::keyedWrite(rowLengths().nextHop); }
   explicit NextHop(TableRig& r) : rig(r) {
      for (uint32_t i = 0; i < batch; ++i) keys.push_back(tunnelKey(i));
      tunnelHandles = tunnels(rig, keys);
      for (uint32_t i = 0; i < batch; ++i)
         needed.push_back(rig.oif->entryRef(
             keys[i], L3TunnelEgrL3Oif1Table::Entry(tunnelHandles[i], 0, 0, U5(18))));
      runLoop();
      for (uint32_t i = 0; i < batch; ++i) entries.emplace_back(needed[i], 0, false, U5(30), U2());
   }
   HandlePtr write(uint32_t i) { return rig.nh->entryRef(keys[i], entries[i]); }
   void remove(uint32_t, HandlePtr& h) { h = nullptr; }
   uint32_t rows() const { return rig.used(L3TunnelIngL3NextHopTable::typeName, 0); }
   uint32_t indices() const { return rig.nh->indexAllocator()->used(); }
   uint32_t hwWrites() const {
      return rig.hw(L3TunnelIngL3NextHopTable::typeName, 0)->stats().writes;
   }
   static constexpr uint32_t rowsPerKey = 1;

   TableRig& rig;
   std::vector<L3TunnelKey> keys;
   std::vector<HandlePtr> tunnelHandles, needed;
   std::vector<L3TunnelIngL3NextHopTable::Entry> entries;
};

struct Merged {
   static constexpr const char* name = "mergedInterface";
   static FloorOps writeFloor() { return floor::mergedWrite(true); }
   explicit Merged(TableRig& r) : rig(r) {
      for (uint32_t i = 0; i < batch; ++i) keys.push_back(tunnelKey(i));
      needed = tunnels(rig, keys);
      for (uint32_t i = 0; i < batch; ++i)
         entries.emplace_back(IngL3Iif::Entry(), EgrL3Oif1Table::Entry(needed[i], 0, 0, U5(18)));
   }
   // Committed, as the programmer writes it: it stays until removed.
   HandlePtr write(uint32_t i) { return rig.intf->entryCommit(keys[i], entries[i]); }
   void remove(uint32_t i, HandlePtr& h) {
      rig.intf->entryRemove(keys[i]);
      h = nullptr;
   }
   uint32_t rows() const {
      return rig.used(IngL3Iif::typeName, 0) + rig.used(EgrL3Oif1Table::typeName, 0);
   }
   uint32_t indices() const { return rig.intf->indexAllocator()->used(); }
   uint32_t hwWrites() const {
      return rig.hw(IngL3Iif::typeName, 0)->stats().writes +
             rig.hw(EgrL3Oif1Table::typeName, 0)->stats().writes;
   }
   static constexpr uint32_t rowsPerKey = 2;

   TableRig& rig;
   std::vector<L3TunnelKey> keys;
   std::vector<HandlePtr> needed;
   std::vector<L3InterfaceTable::Entry> entries;
};

// A block of one member per key, naming a placeholder next hop of its own
// (complete at once) and an acknowledged underlay group.
struct Member {
   static constexpr const char* name = "member";
   static FloorOps writeFloor() { return floor::blockWrite(1); }
   explicit Member(TableRig& r) : rig(r) {
      for (uint32_t i = 0; i < batch; ++i) {
         L3EcmpMember0Table::EntryBlock b;
         b.entryIs(L3EcmpMember0Table::Index(0),
                   L3EcmpMember0Table::Entry(SwTableWorkaround::dontCareHandle(i + 1),
                                             rig.underlayHandle, 0, 0, true));
         blocks.push_back(std::move(b));
      }
   }
   HandlePtr write(uint32_t i) { return rig.members->entryBlockRef(blocks[i]); }
   void remove(uint32_t, HandlePtr& h) { h = nullptr; }
   uint32_t rows() const { return rig.used(L3EcmpMember0Table::typeName, 0); }
   uint32_t indices() const { return rig.members->indexAllocator().used(); }
   uint32_t hwWrites() const { return rig.hw(L3EcmpMember0Table::typeName, 0)->stats().writes; }
   static constexpr uint32_t rowsPerKey = 1;

   TableRig& rig;
   std::vector<L3EcmpMember0Table::EntryBlock> blocks;
};

template <class D>
bool allAcknowledged(const std::vector<HandlePtr>& h) {
   for (auto& e : h)
      if (!e || e->entryState() != State::success) return false;
   return true;
}

template <class D>
void writeAll(D& d, std::vector<HandlePtr>& h) {
   for (uint32_t i = 0; i < batch; ++i) {
      h[i] = d.write(i);
      runLoop();
   }
}

template <class D>
void removeAll(D& d, std::vector<HandlePtr>& h) {
   for (uint32_t i = 0; i < batch; ++i) {
      d.remove(i, h[i]);
      runLoop();
   }
}

template <class D>
void BM_Write(benchmark::State& state) {
   TableRig rig(maxRows);
   D d(rig);
   const uint32_t rows = d.rows(), indices = d.indices();
   std::vector<HandlePtr> h(batch);
   Span span;
   for (auto _ : state) {
      span.start();
      writeAll(d, h);
      span.stop(state);
      if (!check(state, allAcknowledged<D>(h), "a write was not acknowledged") ||
          !check(state, d.rows() == rows + batch * D::rowsPerKey, "rows missing"))
         return;
      removeAll(d, h);
      if (!check(state, d.rows() == rows && d.indices() == indices, "removal left rows")) return;
   }
   perOp(state, batch);
}

template <class D>
void BM_Rewrite(benchmark::State& state) {
   TableRig rig(maxRows);
   D d(rig);
   std::vector<HandlePtr> h(batch);
   writeAll(d, h);
   const uint32_t writes = d.hwWrites();
   Span span;
   for (auto _ : state) {
      span.start();
      for (uint32_t i = 0; i < batch; ++i) {
         d.write(i);
         runLoop();
      }
      span.stop(state);
      if (!check(state, d.hwWrites() == writes, "an identical rewrite reached the chip")) return;
   }
   if (!check(state, allAcknowledged<D>(h), "a rewrite disturbed the entry")) return;
   removeAll(d, h);
   perOp(state, batch);
}

template <class D>
void BM_Remove(benchmark::State& state) {
   TableRig rig(maxRows);
   D d(rig);
   const uint32_t rows = d.rows(), indices = d.indices();
   std::vector<HandlePtr> h(batch);
   Span span;
   for (auto _ : state) {
      writeAll(d, h);
      if (!check(state, allAcknowledged<D>(h), "a write was not acknowledged")) return;
      span.start();
      removeAll(d, h);
      span.stop(state);
      if (!check(state, d.rows() == rows, "a row outlived its key") ||
          !check(state, d.indices() == indices, "an index was not freed"))
         return;
   }
   perOp(state, batch);
}

template <class D>
void tableIs(FloorOps (*rewrite)(), FloorOps (*remove)()) {
   const std::string base = std::string("table/") + D::name;
   benchmark::RegisterBenchmark((base + "/write").c_str(), BM_Write<D>)->UseManualTime();
   benchmark::RegisterBenchmark((base + "/rewrite").c_str(), BM_Rewrite<D>)->UseManualTime();
   benchmark::RegisterBenchmark((base + "/remove").c_str(), BM_Remove<D>)->UseManualTime();
   floorIs(base + "/write", D::writeFloor, batch);
   floorIs(base + "/rewrite", rewrite, batch);
   floorIs(base + "/remove", remove, batch);
}

FloorOps blockRewrite() {
   FloorOps f;
   f.idLookups = 1;  // the installed block found by its hash
   return f;
}

const bool registered = [] {
   tableIs<V4>(floor::keyedRewrite, floor::keyedRemove);
   tableIs<V6>(floor::keyedRewrite, floor::keyedRemove);
   tableIs<TunnelOif>(floor::keyedRewrite, floor::keyedRemove);
   tableIs<NextHop>(floor::keyedRewrite, floor::keyedRemove);
   tableIs<Merged>(floor::mergedRewrite, floor::mergedRemove);
   tableIs<Member>(blockRewrite, [] { return floor::blockRemove(1); });
   return true;
}();

}  // namespace
}  // namespace bench
