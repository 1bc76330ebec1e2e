#pragma once
// The simulated chip and the tables or the overlay programmer on it, set up as
// the agent does, for the benchmarks. One rig lives at a time: allocators are
// shared process-wide by type, so two rigs would share index spaces.
//
// Timing is by batch: a benchmark iteration runs `batch` operations between two
// clock reads (manual time), and whatever brings the tables back to the start
// (removal, rewrites) runs outside the timed span. The figure is the iteration
// time divided by the batch, reported as the counter "op" (seconds per op).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "AgentSetup.h"
#include "AsicSim/Chip.h"
#include "Brio/EventLoop.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "Plx/NextHopEntryType.h"

// Under callgrind (--collect-atstart=no) only the timed spans are counted, so
// instructions per operation come straight from the totals.
#if __has_include(<valgrind/callgrind.h>)
#include <valgrind/callgrind.h>
#else
#define CALLGRIND_START_INSTRUMENTATION
#define CALLGRIND_STOP_INSTRUMENTATION
#define CALLGRIND_TOGGLE_COLLECT
#endif

namespace bench {

using MeridL3Tunnel::EcmpGroup1Table;
using MeridL3Tunnel::EgrL3Oif1Table;
using MeridL3Tunnel::IngL3Iif;
using MeridL3Tunnel::L3EcmpMember0Table;
using MeridL3Tunnel::L3EgrL3Ipv4TunnelTable;
using MeridL3Tunnel::L3EgrL3Ipv6TunnelTable;
using MeridL3Tunnel::L3InterfaceTable;
using MeridL3Tunnel::L3TunnelEgrL3Oif1Table;
using MeridL3Tunnel::L3TunnelIngL3NextHopTable;
using MeridL3Tunnel::L3TunnelKey;
using MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer;
using MeridL3Tunnel::L3TunnelOverlayViaEntry;
using HandlePtr = Brio::Ptr<const Asic::SwTableBase::EntryHandle>;
using State = Asic::SwTableBase::EntryState;

// Every table class the programmer may make, sized alike.
inline constexpr std::string_view tableNames[] = {
    L3EcmpMember0Table::typeName,     L3TunnelIngL3NextHopTable::typeName,
    L3TunnelEgrL3Oif1Table::typeName, L3EgrL3Ipv4TunnelTable::typeName,
    L3EgrL3Ipv6TunnelTable::typeName, IngL3Iif::typeName,
    EgrL3Oif1Table::typeName};

// Interface indices are 16 bits wide: the largest table the chain can fill.
inline constexpr uint32_t maxRows = 65536;
// "64k" chains: as many as fit beside a measured batch and the reserved rows.
inline constexpr uint32_t fullChains = 65000;

// Tunnel key `n`: IPv4 10.0.0.1 -> 11.0.0.0 + n, or IPv6 2001:db8::1 -> 2001:db8::n.
inline L3TunnelKey tunnelKey(uint32_t n, bool v6 = false) {
   if (v6) {
      std::array<uint8_t, 16> src{0x20, 0x01, 0x0d, 0xb8};
      std::array<uint8_t, 16> dst = src;
      for (int i = 0; i < 4; ++i) dst[15 - i] = uint8_t(n >> (8 * i));
      src[15] = 1;
      return {Wire::IpGenAddr::ipv6(src), Wire::IpGenAddr::ipv6(dst)};
   }
   return {Wire::IpGenAddr::ipv4(0x0a000001), Wire::IpGenAddr::ipv4(0x0b000000 + n)};
}

inline MeridL3Common::L3AdjIdKey adj(uint32_t id) {
   return {id, MeridL3Common::L3AdjIdKeyType::adjIdTypeEcmp};
}

inline L3TunnelOverlayViaEntry via(uint32_t n, uint32_t weight = 1) {
   const L3TunnelKey k = tunnelKey(n);
   return {Plx::nextHopArpResolved(), k.srcIpAddr(), k.dstIpAddr(), 64, weight, adj(1 + n % 4)};
}

inline uint32_t runLoop() { return Brio::EventLoop::instance().runUntilIdle(); }

// The clock around a timed span of one iteration.
class Span {
public:
   void start() {
      CALLGRIND_TOGGLE_COLLECT;
      t0_ = std::chrono::steady_clock::now();
   }
   void stop(benchmark::State& state) {
      const auto t1 = std::chrono::steady_clock::now();
      CALLGRIND_TOGGLE_COLLECT;
      state.SetIterationTime(std::chrono::duration<double>(t1 - t0_).count());
   }

private:
   std::chrono::steady_clock::time_point t0_;
};

// Seconds per operation, from the (manual) iteration time and the batch.
inline void perOp(benchmark::State& state, uint32_t batch) {
   state.counters["op"] = benchmark::Counter(
       double(batch), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// The toggle this process was started with, as a label the report groups by.
inline const char* toggleLabel() {
   return L3TunnelOverlayEcmpProgrammer::commonIifOifIndex() ? "toggle=on" : "toggle=off";
}

// A chip with every table class sized `rows` (the member table
// `memberRows` when given), and the agent's context.
class Rig {
public:
   explicit Rig(uint32_t rows, uint32_t memberRows = 0) {
      Brio::EventLoop::instance().clear();
      chip = Brio::makePtr<AsicSim::Chip>();
      chip->install();
      chipInfo = Brio::makePtr<MeridCentral::ChipInfo>();
      for (auto name : tableNames) chipInfo->tableSizeIs(name, rows);
      if (memberRows) chipInfo->tableSizeIs(L3EcmpMember0Table::typeName, memberRows);
      ledger = Brio::makePtr<Ledger::EntityManager>();
   }
   Rig(const Rig&) = delete;
   Rig& operator=(const Rig&) = delete;
   ~Rig() {
      Brio::EventLoop::instance().clear();
      chip->uninstall();
   }

   Brio::Ptr<AsicSim::HwTable> hw(std::string_view name, Asic::UnitId unit) const {
      return chip->table(name, unit);
   }
   uint32_t used(std::string_view name, Asic::UnitId unit) const {
      auto t = chip->table(name, unit);
      return t ? t->usedRows() : 0;
   }
   // Live heap bytes of the simulated chip's row texts: the chip's memory,
   // not the software's.
   uint64_t rowTextBytes() const {
      uint64_t n = 0;
      for (auto& name : chip->tableNames()) {
         for (Asic::UnitId unit : {Asic::UnitId(0), L3TunnelOverlayEcmpProgrammer::tableUnit}) {
            auto t = chip->table(name, unit);
            if (!t) continue;
            for (Asic::Index i = 0; i < t->numEntries(); ++i)
               if (const std::string* r = t->row(i); r && r->capacity() > 15)
                  n += r->capacity() + 1;
         }
      }
      return n;
   }

   Brio::Ptr<AsicSim::Chip> chip;
   Brio::Ptr<MeridCentral::ChipInfo> chipInfo;
   Brio::Ptr<Ledger::EntityManager> ledger;
};

// The tables on unit 0, made by their factories and initialised as the agent
// does, every one listening to write responses.
class TableRig : public Rig {
public:
   explicit TableRig(uint32_t rows) : Rig(rows) {
      v4 = MeridL3Tunnel::l3EgrL3Ipv4TunnelTableFactory();
      v6 = MeridL3Tunnel::l3EgrL3Ipv6TunnelTableFactory();
      oif = MeridL3Tunnel::l3TunnelEgrL3Oif1TableFactory();
      nh = MeridL3Tunnel::l3TunnelIngL3NextHopTableFactory();
      members = MeridL3Tunnel::l3EcmpMember0TableFactory();
      for (Asic::SwTable* t :
           {static_cast<Asic::SwTable*>(v4.ptr()), static_cast<Asic::SwTable*>(v6.ptr()),
            static_cast<Asic::SwTable*>(oif.ptr()), static_cast<Asic::SwTable*>(nh.ptr()),
            static_cast<Asic::SwTable*>(members.ptr())}) {
         t->doInit(0, ledger, chipInfo);
         t->doInitComplete();
      }
      intf = MeridL3Tunnel::l3InterfaceTableFactory();
      intf->doInit(0, ledger, chipInfo);
      underlay = Brio::makePtr<EcmpGroup1Table>();
      underlayHandle = underlay->entryIs(adj(1));
   }
   // Tables that name others' entries go first.
   ~TableRig() {
      members.reset();
      intf.reset();
      nh.reset();
      oif.reset();
      v4.reset();
      v6.reset();
      runLoop();
   }

   Brio::Ptr<L3EgrL3Ipv4TunnelTable> v4;
   Brio::Ptr<L3EgrL3Ipv6TunnelTable> v6;
   Brio::Ptr<L3TunnelEgrL3Oif1Table> oif;
   Brio::Ptr<L3TunnelIngL3NextHopTable> nh;
   Brio::Ptr<L3InterfaceTable> intf;
   Brio::Ptr<L3EcmpMember0Table> members;
   Brio::Ptr<EcmpGroup1Table> underlay;
   HandlePtr underlayHandle;
};

// The overlay programmer on its rig, set up as the agent does, with four
// underlay groups.
class ProgrammerRig : public Rig, public L3TunnelTool::AgentSetup {
public:
   explicit ProgrammerRig(uint32_t rows, uint32_t memberRows = 0) : Rig(rows, memberRows) {
      begin(4);
      programmerIs(chipInfo, ledger, false);
      runLoop();
   }
   ~ProgrammerRig() {
      programmer.reset();
      runLoop();
   }

   // Removes the merged interface entries of keys 0..n-1 (committed: they
   // outlive the next hops naming them).
   void interfacesRemove(uint32_t first, uint32_t n) {
      if (auto intf = programmer->l3InterfaceTable())
         for (uint32_t i = first; i < first + n; ++i) intf->entryRemove(tunnelKey(i));
      runLoop();
   }

   uint32_t usedRows(std::string_view name) const {
      return used(name, L3TunnelOverlayEcmpProgrammer::tableUnit);
   }
};

// Fixed iteration counts of the long benchmarks; L3TUNNEL_BENCH_ITERATIONS
// overrides them (1 for a profile under callgrind).
inline int64_t iterations(int64_t normal) {
   const char* e = std::getenv("L3TUNNEL_BENCH_ITERATIONS");
   const int64_t n = e ? std::atoll(e) : 0;
   return n > 0 ? n : normal;
}

// Fails the benchmark (once) when a check does not hold: a figure for work
// that did not happen is worth nothing.
inline bool check(benchmark::State& state, bool ok, const std::string& what) {
   if (!ok) state.SkipWithError(what.c_str());
   return ok;
}

}  // namespace bench
