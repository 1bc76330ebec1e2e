// Plays the forwarding agent for a few overlay ECMP groups on the simulated
// chip: sets the programmer up, programs the groups, reprograms one and
// releases another, and prints each member block with the tunnel chain behind
// every member, then what each hardware table holds.
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>

#include "AgentSetup.h"
#include "AsicSim/Chip.h"
#include "Brio/EventLoop.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "Plx/NextHopEntryType.h"

using namespace MeridL3Tunnel;
using HandlePtr = Asic::SwTableBase::EntryHandle::PtrConst;

namespace {

constexpr Asic::UnitId unit = L3TunnelOverlayEcmpProgrammer::tableUnit;

L3TunnelOverlayViaEntry via(const char* dst, uint32_t weight, uint32_t adjId, uint32_t ttl = 64) {
   L3TunnelOverlayViaEntry e;
   e.nhEntryTypeIs(Plx::nextHopArpResolved());
   e.srcIpAddrIs(Wire::IpGenAddr("192.0.2.1"));
   e.dstIpAddrIs(Wire::IpGenAddr(dst));
   e.ttlIs(ttl);
   e.weightIs(weight);
   e.underlayAdjIdIs({adjId, MeridL3Common::L3AdjIdKeyType::adjIdTypeEcmp});
   return e;
}

L3TunnelOverlayViaEntry dropVia(uint32_t weight) {
   L3TunnelOverlayViaEntry e;
   e.nhEntryTypeIs(Plx::nextHopDrop());
   e.weightIs(weight);
   return e;
}

Brio::Ptr<const L3TunnelOverlayVia> list(std::initializer_list<L3TunnelOverlayViaEntry> vias) {
   auto l = l3TunnelOverlayViaFactory();
   for (auto& v : vias) l->viaPush(v);
   return l;
}

std::string indexText(const HandlePtr& h) {
   if (!h) return "-";
   std::ostringstream os;
   if (h->isHwIndexValid())
      os << h->hwIndex();
   else
      os << "none";
   if (h->entryState() != Asic::SwTableBase::success()) os << " (" << h->entryState() << ")";
   return os.str();
}

std::string underlayText(const HandlePtr& h) {
   if (!h) return "not resolved";
   if (h->entryState() == Asic::SwTableBase::wontProgram()) return "- (drop)";
   return "index " + indexText(h);
}

void printGroup(const std::string& name, const HandlePtr& handle,
                const L3TunnelOverlayEcmpProgrammer& p) {
   const auto& b = static_cast<const L3EcmpMember0Table::EntryHandle&>(*handle);
   std::cout << "group " << name << ": " << b.size() << " members";
   if (b.baseIndex() != Asic::invalidIndex)
      std::cout << " in rows " << b.baseIndex() << ".." << b.baseIndex() + b.size() - 1;
   std::cout << ", " << handle->entryState() << "\n";
   std::cout << "  " << std::left << std::setw(6) << "slot" << std::setw(10) << "next hop"
             << std::setw(11) << "interface" << std::setw(8) << "tunnel" << std::setw(34)
             << "tunnel source -> destination, ttl"
             << "underlay\n";
   uint32_t slot = 0;
   for (const auto& m : b.entryBlock()) {
      const auto& nh =
          static_cast<const L3TunnelIngL3NextHopTable::EntryHandle&>(*m.nextHopHandle());
      const auto entry = p.l3TunnelIngL3NextHopTable()->resolvedEntry(nh.key());
      const HandlePtr intf = entry ? entry->l3Oif1Handle() : nullptr;
      std::string tunnelText = "drop";
      HandlePtr tunnel;
      if (!entry || !entry->drop()) {
         tunnel = p.l3EgrL3Ipv4TunnelTable()->entryWeakRef(nh.key());
         std::ostringstream os;
         os << nh.key().srcIpAddr() << " -> " << nh.key().dstIpAddr();
         if (auto t = p.l3EgrL3Ipv4TunnelTable()->resolvedEntry(nh.key()))
            os << ", " << unsigned(t->ttlValue());
         tunnelText = os.str();
      }
      std::cout << "  " << std::setw(6) << slot++ << std::setw(10) << indexText(m.nextHopHandle())
                << std::setw(11) << (entry && entry->drop() ? "-" : indexText(intf)) << std::setw(8)
                << indexText(tunnel) << std::setw(34) << tunnelText
                << underlayText(m.underlayHandle()) << "\n";
   }
   std::cout << "\n";
}

void printRows(const AsicSim::Chip& chip) {
   std::cout << "hardware tables (rows used / rows; writes, deletes, changed rows):\n";
   for (const auto& name : chip.tableNames()) {
      auto t = chip.table(name, unit);
      if (!t) continue;
      std::cout << "  " << std::setw(44) << name << std::right << std::setw(4) << t->usedRows()
                << " / " << std::setw(4) << std::left << t->numEntries() << "  "
                << t->stats().writes << ", " << t->stats().deletes << ", " << t->stats().changes
                << "\n";
   }
   std::cout << "\n";
}

}  // namespace

int main() {
   // The toggle file is read before anything is set up, so that a bad one is
   // refused cleanly instead of escaping from the middle of the set-up.
   try {
      (void)L3TunnelOverlayEcmpProgrammer::commonIifOifIndex();
   } catch (const std::invalid_argument& e) {
      std::cerr << "tunnel_demo: " << e.what() << std::endl;
      return 2;
   }
   auto chip = Brio::makePtr<AsicSim::Chip>();
   chip->install();
   auto chipInfo = Brio::makePtr<MeridCentral::ChipInfo>();
   for (auto name :
        {L3EcmpMember0Table::typeName, L3TunnelIngL3NextHopTable::typeName,
         L3TunnelEgrL3Oif1Table::typeName, L3EgrL3Ipv4TunnelTable::typeName,
         L3EgrL3Ipv6TunnelTable::typeName, IngL3Iif::typeName, EgrL3Oif1Table::typeName})
      chipInfo->tableSizeIs(name, 64);

   // What the agent has before it loads the library, and the library set up.
   L3TunnelTool::AgentSetup agent;
   agent.begin(3);
   agent.programmerIs(chipInfo, Brio::makePtr<Ledger::EntityManager>(), false);
   auto& programmer = agent.programmer;
   auto& loop = Brio::EventLoop::instance();

   std::cout << "CommonIifOifIndex is "
             << (L3TunnelOverlayEcmpProgrammer::commonIifOifIndex()
                     ? "on: tunnel interfaces live in the merged L3InterfaceTable"
                     : "off: tunnel interfaces live in L3TunnelEgrL3Oif1Table")
             << "\n\n";

   std::map<std::string, HandlePtr> groups;
   groups["web"] = programmer->populateOverlayEcmpBlock(
       list({via("198.51.100.1", 2, 1), via("198.51.100.2", 1, 2)}));
   groups["db"] = programmer->populateOverlayEcmpBlock(
       list({via("198.51.100.2", 1, 2), via("198.51.100.3", 1, 7), dropVia(1)}));
   groups["backup"] = programmer->populateOverlayEcmpBlock(list({via("2001:db8::9", 2, 3)}));
   loop.runUntilIdle();
   std::cout << "== three groups programmed (adjacency 7 has no underlay group yet)\n\n";
   for (auto& [name, h] : groups) printGroup(name, h, *programmer);
   printRows(*chip);

   // The new block is taken before the old one is let go, as an agent does.
   HandlePtr web = programmer->populateOverlayEcmpBlock(
       list({via("198.51.100.1", 1, 1), via("198.51.100.4", 1, 3)}));
   groups["web"] = web;
   groups.erase("db");
   loop.runUntilIdle();
   std::cout << "== web reprogrammed, db released\n\n";
   for (auto& [name, h] : groups) printGroup(name, h, *programmer);
   printRows(*chip);

   groups.clear();
   web = nullptr;
   programmer = nullptr;
   loop.runUntilIdle();
   chip->uninstall();
   return 0;
}
