// The simulated chip's state file reader, through a real file. A file that
// cannot be used is refused with std::runtime_error naming the file, and the
// chip keeps what it had; that is the one clean rejection.
//
// A loaded chip is then taken over as l3tunnel's agent does on a restart:
// the check of what its rows name, then (whatever the check says: other
// agents load no file, so the library must hold on its own) the
// programmer's recovery, a replay, the reconcile and the event loop.
//
// Most random files fail the checksum, which is checked first. So the first
// byte chooses: odd takes the rest as the whole file, even takes it as the
// part before the end line and appends the matching end line, which lets the
// fuzzer reach the records.
#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <string_view>

#include "AgentSetup.h"
#include "AsicSim/Chip.h"
#include "Brio/EventLoop.h"
#include "ChipCheck.h"
#include "FuzzSupport.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "Plx/NextHopEntryType.h"

namespace {

using Fuzz::check;

// The file's checksum: FNV-1a over every byte before the end line.
std::string withEndLine(std::string_view body) {
   uint64_t h = 0xcbf29ce484222325ull;
   for (unsigned char c : body) {
      h ^= c;
      h *= 0x100000001b3ull;
   }
   char line[40];
   std::snprintf(line, sizeof line, "end %016" PRIx64 "\n", h);
   return std::string(body) + line;
}

// Rows the reader allocates at most, over all tables of a file.
constexpr uint64_t rowBound = 1u << 24;

// Rows of every table of a saved file. Names may hold any byte, so the file
// is walked record by record: "table <unit> <rows> <n>:<name>", "row <index>"
// and three such strings, "end <sum>".
uint64_t allRows(std::string_view saved) {
   auto number = [&] {
      const size_t end = saved.find_first_not_of("0123456789");
      const uint64_t n = std::strtoull(std::string(saved.substr(0, end)).c_str(), nullptr, 10);
      saved.remove_prefix(end == saved.npos ? saved.size() : end);
      return n;
   };
   auto skip = [&](size_t n) { saved.remove_prefix(std::min(n, saved.size())); };
   auto string = [&] {
      skip(number() + 1);  // the length, the colon and the bytes
   };
   uint64_t rows = 0;
   skip(saved.find('\n') + 1);
   while (!saved.empty()) {
      if (saved.starts_with("table ")) {
         skip(6);
         number();
         skip(1);
         rows += number();
         skip(1);
         string();
      } else if (saved.starts_with("row ")) {
         skip(4);
         number();
         for (int i = 0; i < 3; ++i) {
            skip(1);
            string();
         }
      } else {
         break;
      }
      skip(1);
   }
   check(saved.starts_with("end "), "chip state: saved file out of step", saved);
   return rows;
}

using MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer;
constexpr Asic::UnitId unit = L3TunnelOverlayEcmpProgrammer::tableUnit;

// The programmer stops the process when its next-hop table has no row for
// the reserved drop entry, by design: such a chip is not recovered here.
bool dropEntryFits(const AsicSim::Chip& chip) {
   const auto nh = chip.table(MeridL3Tunnel::L3TunnelIngL3NextHopTable::typeName, unit);
   if (!nh) return true;
   for (Asic::Index i = 0; i < nh->numEntries(); ++i) {
      const Orb::GenericValue& key = nh->rowKey(i);
      const auto* k = key ? key.as<MeridL3Tunnel::L3TunnelKey>() : nullptr;
      if (!nh->row(i) || (k && *k == L3TunnelOverlayEcmpProgrammer::getTunnelDropKey()))
         return true;
   }
   return false;
}

void recoverFrom(const Brio::Ptr<AsicSim::Chip>& chip, const std::string& file) {
   if (!dropEntryFits(*chip)) return;
   constexpr uint32_t missingTableRows = 64;
   try {
      L3TunnelTool::chipRowReferencesCheck(*chip, file, [&](std::string_view table) {
         if (table == MeridL3Tunnel::EcmpGroup1Table::typeName)
            return MeridL3Tunnel::EcmpGroup1Table::defaultIndexCount;
         const auto t = chip->table(table, unit);
         return t ? t->numEntries() : missingTableRows;
      });
   } catch (const std::runtime_error& e) {
      check(std::string_view(e.what()).starts_with(file + ": "),
            "chip state: the check's refusal does not name the file", e.what());
      check(std::string_view(e.what()).find('\n') == std::string_view::npos,
            "chip state: the check's refusal is not one line", e.what());
   }
   chip->install();
   auto chipInfo = Brio::makePtr<MeridCentral::ChipInfo>();
   for (auto name :
        {MeridL3Tunnel::L3EcmpMember0Table::typeName,
         MeridL3Tunnel::L3TunnelIngL3NextHopTable::typeName,
         MeridL3Tunnel::L3TunnelEgrL3Oif1Table::typeName, MeridL3Tunnel::IngL3Iif::typeName,
         MeridL3Tunnel::EgrL3Oif1Table::typeName, MeridL3Tunnel::L3EgrL3Ipv4TunnelTable::typeName,
         MeridL3Tunnel::L3EgrL3Ipv6TunnelTable::typeName})
      chipInfo->tableSizeIs(name, missingTableRows);
   auto& loop = Brio::EventLoop::instance();
   {
      L3TunnelTool::AgentSetup setup;
      setup.begin(3);
      auto ledger = Brio::makePtr<Ledger::EntityManager>();
      setup.programmerIs(chipInfo, ledger, true);
      loop.runUntilIdle();
      // A replay of the chains examples/default.json programs first.
      auto vias = MeridL3Tunnel::l3TunnelOverlayViaFactory();
      for (const char* dst : {"198.51.100.1", "198.51.100.2"}) {
         MeridL3Tunnel::L3TunnelOverlayViaEntry v;
         v.nhEntryTypeIs(Plx::nextHopArpResolved());
         v.srcIpAddrIs(Wire::IpGenAddr("192.0.2.1"));
         v.dstIpAddrIs(Wire::IpGenAddr(dst));
         v.ttlIs(64);
         v.weightIs(1);
         v.underlayAdjIdIs(L3TunnelTool::AgentSetup::adj(1));
         vias->viaPush(v);
      }
      auto block = setup.programmer->populateOverlayEcmpBlock(vias);
      loop.runUntilIdle();
      setup.programmer->purgeStaleEntries();
      loop.runUntilIdle();
      setup.programmer = nullptr;
      block = nullptr;
      loop.runUntilIdle();
      setup.end();
   }
   loop.runUntilIdle();
   chip->uninstall();
   loop.clear();
}

}  // namespace

// The bound holds for all tables together, not one by one, or a file of a few
// lines could make the reader allocate gigabytes; the big table must be
// refused before it is made.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
   const std::string file = Fuzz::scratchDir() + "/bound.state";
   Fuzz::fileIs(file, withEndLine("l3tunnel-chip-state 1\ntable 0 1 1:A\ntable 0 16777216 1:B\n"));
   auto chip = Brio::makePtr<AsicSim::Chip>();
   const bool loaded =
       Fuzz::parsedCleanly<std::runtime_error>("row bound", [&] { chip->stateLoad(file); });
   check(!loaded && Fuzz::lastRejection().find(" rows") != std::string::npos,
         "chip state: tables over the row bound were not refused for their rows",
         Fuzz::lastRejection());
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Fuzz::Input in(data, size);
   const bool raw = in.byte() & 1;
   const std::string_view rest = in.rest();
   const std::string file = Fuzz::scratchDir() + "/chip.state";
   Fuzz::fileIs(file, raw ? std::string(rest) : withEndLine(rest));

   // A refused file leaves the chip as it was: here, one known table.
   auto chip = Brio::makePtr<AsicSim::Chip>();
   chip->tableIs("Fuzz::Table", 3, 2);
   if (!Fuzz::parsedCleanly<std::runtime_error>("chip state", [&] { chip->stateLoad(file); })) {
      check(Fuzz::lastRejection().starts_with(file + ": "),
            "chip state: the refusal does not name the file", Fuzz::lastRejection());
      check(chip->tableNames().size() == 1 && chip->table("Fuzz::Table", 3),
            "chip state: a refused file changed the chip");
      return 0;
   }
   // A loaded file replaces every table.
   if (rest.find("Fuzz::Table") == std::string_view::npos)
      check(!chip->table("Fuzz::Table", 3), "chip state: a table survived the load");

   // Saving what was loaded and loading that gives the same file again.
   const std::string first = Fuzz::scratchDir() + "/first.state";
   const std::string second = Fuzz::scratchDir() + "/second.state";
   chip->stateSave(first);
   auto copy = Brio::makePtr<AsicSim::Chip>();
   try {
      copy->stateLoad(first);
   } catch (const std::exception& e) {
      Fuzz::fail("chip state: a saved file does not load", e.what());
   }
   copy->stateSave(second);
   const std::string a = Fuzz::fileContent(first), b = Fuzz::fileContent(second);
   check(a == b, "chip state: save, load, save changed the file", a + "\n----\n" + b);
   check(allRows(a) <= rowBound, "chip state: more rows than the bound");
   check(chip->tableNames() == copy->tableNames(), "chip state: tables differ after reload");
   recoverFrom(chip, file);
   return 0;
}
