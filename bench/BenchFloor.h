#pragma once
// Floors: the bare operations one measured operation cannot do without,
// done on plain containers in the same run, so that the ratio of a figure to
// its floor holds on a machine whose speed moves under other load.
//
// A floor is a count per operation of primitive steps (FloorOps), written down
// beside each measured benchmark from its code path:
//   object   a heap object the operation makes or frees (an entry handle, a
//            waiting record): new/delete of 64 bytes;
//   key      std::unordered_map keyed by the tunnel key, hashed with the key's
//            own hash: insert of a new key, find or erase of a present one;
//   id       the same keyed by a 32-bit number (hardware indices, request ids);
//   index    the real first-free index allocator: a new key's index, a held
//            key's index looked up, an index released, an index claimed for a
//            key (recovery);
//   range    the real range allocator of the member table: a block's range
//            taken or freed, or a run of rows claimed (recovery);
//   row      a std::vector<std::optional<std::string>> standing for the
//            chip's rows: a row's text stored (of the real row's length),
//            cleared, or read back;
//   task     one write response: a task posted to the event loop and run.
// The runner mirrors the measured benchmark: `batch` operations per timed
// span, the state put back outside it, tables pre-filled with `fill` keys.
#include <benchmark/benchmark.h>

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "Asic/IndexAllocator.h"
#include "Asic/RangeIndexAllocator.h"
#include "BenchRig.h"

namespace bench {

struct FloorOps {
   uint32_t objectNews = 0;
   uint32_t objectDeletes = 0;
   uint32_t keyInserts = 0;
   uint32_t keyLookups = 0;
   uint32_t keyErases = 0;
   uint32_t idInserts = 0;
   uint32_t idLookups = 0;
   uint32_t idErases = 0;
   uint32_t indexNews = 0;
   uint32_t indexLookups = 0;
   uint32_t indexReleases = 0;
   uint32_t indexClaims = 0;
   uint32_t rangeNews = 0;
   uint32_t rangeDels = 0;
   // Each operation's row is claimed in the range allocator with the run of
   // `rangeSize` consecutive rows it starts, one claim per run.
   bool rangeRuns = false;
   uint32_t rangeSize = 1;           // rows per range
   std::vector<uint32_t> rowStores;  // the length of each row stored
   uint32_t rowClears = 0;
   std::vector<uint32_t> rowReads;  // the length of each row read
   uint32_t tasks = 0;

   FloorOps& operator+=(const FloorOps& o) {
      objectNews += o.objectNews;
      objectDeletes += o.objectDeletes;
      keyInserts += o.keyInserts;
      keyLookups += o.keyLookups;
      keyErases += o.keyErases;
      idInserts += o.idInserts;
      idLookups += o.idLookups;
      idErases += o.idErases;
      indexNews += o.indexNews;
      indexLookups += o.indexLookups;
      indexReleases += o.indexReleases;
      indexClaims += o.indexClaims;
      rangeNews += o.rangeNews;
      rangeDels += o.rangeDels;
      rangeRuns |= o.rangeRuns;
      if (o.rangeNews || o.rangeDels || o.rangeRuns) rangeSize = o.rangeSize;
      rowStores.insert(rowStores.end(), o.rowStores.begin(), o.rowStores.end());
      rowClears += o.rowClears;
      rowReads.insert(rowReads.end(), o.rowReads.begin(), o.rowReads.end());
      tasks += o.tasks;
      return *this;
   }
   friend FloorOps operator+(FloorOps a, const FloorOps& b) { return a += b; }
   friend FloorOps operator*(uint32_t n, const FloorOps& o) {
      FloorOps sum;
      for (uint32_t i = 0; i < n; ++i) sum += o;
      return sum;
   }
};

// Runs `ops` as one operation, `batch` of them per timed span, with every
// container pre-filled with `fill` keys; the figure is the span divided by
// `units` (the batch, unless the measured figure counts otherwise).
void runFloor(benchmark::State& state, const FloorOps& ops, uint32_t batch, uint32_t fill,
              uint32_t units);

// Registers "floor/<name>" with manual time, like the measured benchmarks.
void floorIs(const std::string& name, std::function<FloorOps()> make, uint32_t batch,
             uint32_t fill = 0, uint32_t units = 0);

// The lengths of the rows the chain's entries write, as the chip stores them.
struct RowLengths {
   uint32_t tunnel;           // an IPv4 egress tunnel
   uint32_t tunnelV6;         // an IPv6 egress tunnel
   uint32_t interface;        // the merged egress interface
   uint32_t tunnelInterface;  // the tunnel egress interface
   uint32_t ingress;          // the merged ingress interface (no fields)
   uint32_t nextHop;
   uint32_t member;
};
const RowLengths& rowLengths();

// ---- building blocks, counted from the engine's code path ---------------------
namespace floor {

// A new key written and acknowledged: the entry handle, which keeps the
// value (object, and an insert into the handle collection); for a table that
// allocates its index (tunnel, tunnel interface, next hop) the index (index
// new); the row (row store); the request awaited (id insert), found and
// dropped on the response (id erase), which finds the key's handle (lookup)
// after one event-loop task. The merged table's halves are keyed by the index
// the merged table chose (`byKey` false).
inline FloorOps write(bool byKey, uint32_t rowLength) {
   FloorOps f;
   f.objectNews = 1;
   (byKey ? f.keyInserts : f.idInserts) += 1;
   (byKey ? f.keyLookups : f.idLookups) += 1;
   f.indexNews = byKey ? 1 : 0;
   f.rowStores = {rowLength};
   f.idInserts += 1;
   f.idErases = 1;
   f.tasks = 1;
   return f;
}
inline FloorOps keyedWrite(uint32_t rowLength) { return write(true, rowLength); }

// A value that names an entry not yet acknowledged waits for it: parked under
// its key (insert, erase when it resolves) with a watcher on the needed
// handle (object made and freed).
inline FloorOps waitKeyed() {
   FloorOps f;
   f.keyInserts = 1;
   f.keyErases = 1;
   f.objectNews = 1;
   f.objectDeletes = 1;
   return f;
}
inline FloorOps waitIndexed() {
   FloorOps f;
   f.idInserts = 1;
   f.idErases = 1;
   f.objectNews = 1;
   f.objectDeletes = 1;
   return f;
}

// A new merged interface: its handle (object), which keeps the merged entry
// once both halves are acknowledged, in the handle collection (key insert);
// its index (index new); both halves written; the wait for them.
inline FloorOps mergedWrite(bool tunnelAcknowledged) {
   const auto& rows = rowLengths();
   FloorOps f;
   f.objectNews = 1;
   f.keyInserts = 1;
   f.indexNews = 1;
   f = f + write(false, rows.ingress) + write(false, rows.interface) + waitKeyed();
   if (!tunnelAcknowledged) f += waitIndexed();  // the egress half waits for the tunnel
   return f;
}

// A key removed through the delete dance: the handle, with its value, leaves
// its collection (erase); a table that allocated the index gives it back
// (index release); the row is cleared (row clear) by a request awaited (id
// insert, id erase) whose response finds the handle (lookup) after one task;
// the handle is freed.
inline FloorOps remove(bool byKey) {
   FloorOps f;
   (byKey ? f.keyErases : f.idErases) += 1;
   (byKey ? f.keyLookups : f.idLookups) += 1;
   f.indexReleases = byKey ? 1 : 0;
   f.rowClears = 1;
   f.idInserts = 1;
   f.idErases += 1;
   f.tasks = 1;
   f.objectDeletes = 1;
   return f;
}
inline FloorOps keyedRemove() { return remove(true); }

// The merged handle, with its merged entry, goes (key erase, object), both
// halves are removed, and the index is freed once both rows are gone.
inline FloorOps mergedRemove() {
   FloorOps f;
   f.keyErases = 1;
   f.objectDeletes = 1;
   f.indexReleases = 1;
   return f + remove(false) + remove(false);
}

// The same value written again: the handle, with its value, found (lookup).
inline FloorOps keyedRewrite() {
   FloorOps f;
   f.keyLookups = 1;
   return f;
}

// The merged rewrite: the handle, the key's index, and each half's value.
inline FloorOps mergedRewrite() {
   FloorOps f;
   f.keyLookups = 1;
   f.indexLookups = 1;
   f.idLookups = 2;
   return f;
}

// A block of `n` members whose next hops are acknowledged, installed and
// acknowledged: its handle (object); the installed-block and by-range records
// (2 id inserts); its range (range new); per member a row (row store), a
// request (id insert, id erase) and a task.
inline FloorOps blockWrite(uint32_t n) {
   FloorOps f;
   f.objectNews = 1;
   f.idInserts = 2 + n;
   f.idErases = n;
   f.rangeNews = 1;
   f.rangeSize = n;
   f.rowStores.assign(n, rowLengths().member);
   f.tasks = n;
   return f;
}

// The block's last holder lets go: its records go (2 id erases), its rows are
// cleared (n row clears, n tasks), its range freed, its handle freed.
inline FloorOps blockRemove(uint32_t n) {
   FloorOps f;
   f.idErases = 2;
   f.rowClears = n;
   f.tasks = n;
   f.rangeDels = 1;
   f.rangeSize = n;
   f.objectDeletes = 1;
   return f;
}

// A member finds the underlay group it names, by its adjacency.
inline FloorOps underlayLookup() {
   FloorOps f;
   f.idLookups = 1;
   return f;
}

// A block waits for a next hop not yet acknowledged: a watcher on it.
inline FloorOps blockWait() {
   FloorOps f;
   f.objectNews = 1;
   f.objectDeletes = 1;
   return f;
}

// One via chain programmed through to its next hop's acknowledgement: the
// tunnel, then the interface while the tunnel's response is still out, then
// the next hop while the interface's are.
inline FloorOps chainWrite(bool merged) {
   const auto& rows = rowLengths();
   FloorOps f = keyedWrite(rows.tunnel);
   if (merged)
      f += mergedWrite(false);
   else
      f = f + keyedWrite(rows.tunnelInterface) + waitKeyed();
   return f + keyedWrite(rows.nextHop) + waitKeyed();
}

// The via handed over again with its chain programmed: each entry found.
inline FloorOps chainRewrite(bool merged) {
   return keyedRewrite() + (merged ? mergedRewrite() : keyedRewrite()) + keyedRewrite();
}

// The chain let go: the next hop, the interface (removed, with the toggle on,
// since it is committed) and the tunnel it named.
inline FloorOps chainRemove(bool merged) {
   return keyedRemove() + (merged ? mergedRemove() : keyedRemove()) + keyedRemove();
}

}  // namespace floor
}  // namespace bench
