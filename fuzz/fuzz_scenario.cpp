// The l3tunnel scenario reader. A scenario that cannot be used is refused
// with ScenarioError, one line that starts with the file's name; that is the
// one clean rejection (the program prints it and exits with 2). What it
// accepts must keep the promises the program relies on before running.
#include <cstdint>
#include <set>
#include <string>
#include <string_view>

#include "FuzzSupport.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "Scenario.h"

namespace {

using namespace L3TunnelTool;
using Fuzz::check;

constexpr std::string_view file = "fuzz.json";

void checkAccepted(const Scenario& s) {
   check(s.file == file, "scenario: file name lost");
   for (const auto& t : hardwareTableClasses()) {
      const uint32_t rows = s.tableSize(t.name);
      check(rows >= 1 && rows <= maxTableSize, "scenario: table size out of range",
            std::string(t.name) + " " + std::to_string(rows));
   }
   check(s.tableSizes.size() == hardwareTableClasses().size(), "scenario: unknown table sized");
   check(s.toggles.count("CommonIifOifIndex") == 1 && s.toggles.size() == 1,
         "scenario: toggles other than the known ones");
   std::set<std::pair<uint32_t, uint32_t>> underlay;
   for (const auto& k : s.underlay) {
      check(uint32_t(k.type()) <= 3, "scenario: underlay type out of range");
      check(underlay.insert({k.adjId(), uint32_t(k.type())}).second, "scenario: underlay twice");
   }
   const auto dropKey = MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer::getTunnelDropKey();
   std::set<std::string> holding;
   for (const Step& step : s.steps) {
      (void)stepText(step);
      switch (step.op) {
         case Step::Op::program: {
            check(!step.group.empty(), "scenario: program without a group");
            uint64_t members = 0;
            for (const auto& v : step.vias) {
               members += v.weight();
               const bool drop = v.nhEntryType() == Plx::nextHopDrop();
               check(drop || v.nhEntryType() == Plx::nextHopArpResolved(),
                     "scenario: via of another next-hop kind");
               if (!drop)
                  check(!(MeridL3Tunnel::L3TunnelKey(v.srcIpAddr(), v.dstIpAddr()) == dropKey),
                        "scenario: a tunnel on the drop key");
            }
            check(members <= s.tableSize("L3EcmpMember0Table"),
                  "scenario: a block larger than the member table");
            holding.insert(step.group);
            break;
         }
         case Step::Op::release:
            check(holding.erase(step.group) == 1, "scenario: release of a group holding nothing",
                  step.group);
            break;
         case Step::Op::restart:
            holding.clear();
            break;
         case Step::Op::reconcile:
            break;
      }
   }
}

}  // namespace

// Messages quote bad values, and quoting recurses: a file nested far deeper
// than the fuzzer's inputs reach must be refused too, not crash the program.
extern "C" int LLVMFuzzerInitialize(int*, char***) {
   const size_t depth = 100000;
   const std::string deep =
       R"({"chip": {"testChip": )" + std::string(depth, '[') + std::string(depth, ']') + "}}";
   const bool accepted = Fuzz::parsedCleanly<ScenarioError>(
       "deep scenario", [&] { scenarioParse(deep, std::string(file)); });
   check(!accepted, "scenario: a deeply nested file was accepted");
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   const std::string_view text(reinterpret_cast<const char*>(data), size);
   Scenario s;
   if (!Fuzz::parsedCleanly<ScenarioError>("scenario",
                                           [&] { s = scenarioParse(text, std::string(file)); })) {
      const std::string& why = Fuzz::lastRejection();
      check(why.starts_with(std::string(file) + ": "), "scenario: refusal without the file", why);
      for (char c : why)
         check(static_cast<unsigned char>(c) >= 0x20, "scenario: refusal is not one line", why);
      return 0;
   }
   checkAccepted(s);
   return 0;
}
