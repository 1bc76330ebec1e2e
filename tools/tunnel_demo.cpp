// Programs a handful of IPv4 and IPv6 egress tunnels on the simulated chip and
// prints what the software tables hold and what the chip's rows hold.
#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <vector>

#include "AsicSim/Chip.h"
#include "Brio/EventLoop.h"
#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"
#include "MeridL3Tunnel/L3EgrL3Ipv6TunnelTable.h"
#include "MeridL3Tunnel/L3TunnelEgrL3Oif1Table.h"
#include "MeridL3Tunnel/L3TunnelIngL3NextHopTable.h"
#include "MeridL3Tunnel/L3TunnelInterfaceTable.h"

using namespace MeridL3Tunnel;

namespace {

template <class Table>
void printTable(const Table& table, const AsicSim::Chip& chip) {
   using Key = typename Table::Key;
   std::vector<Key> keys;
   for (auto& [key, handle] : table.entryHandleIteratorConst()) keys.push_back(key);
   std::sort(keys.begin(), keys.end());
   std::cout << table.name() << "  (" << table.entrys() << " entries";
   if (table.indexAllocator())
      std::cout << ", " << table.indexAllocator()->used() << "/" << table.numEntries()
                << " indices used in its index space";
   std::cout << ")\n";
   std::cout << "  " << std::left << std::setw(46) << "key" << std::setw(8) << "index"
             << std::setw(12) << "state"
             << "type\n";
   for (auto& key : keys) {
      auto h = table.entryHandle(key);
      std::ostringstream k;
      k << key;
      std::cout << "  " << std::setw(46) << k.str() << std::setw(8) << h->hwIndex() << std::setw(12)
                << h->entryState() << h->entryType() << "\n";
   }
   auto hw = chip.table(table.name());
   std::cout << "  hardware rows of " << table.name() << ":\n";
   for (Asic::Index i = 0; hw && i < hw->numEntries(); ++i)
      if (hw->row(i))
         std::cout << "    [" << i << "] "
                   << (hw->rowText(i).empty() ? "(in use; the entry has no fields)"
                                              : hw->rowText(i))
                   << "\n";
   std::cout << "\n";
}

}  // namespace

int main() {
   Brio::Ptr<AsicSim::Chip> chip = Brio::makePtr<AsicSim::Chip>();
   chip->install();
   auto chipInfo = Brio::makePtr<MeridCentral::ChipInfo>();
   chipInfo->tableSizeIs(L3EgrL3Ipv4TunnelTable::typeName, 16);
   chipInfo->tableSizeIs(L3EgrL3Ipv6TunnelTable::typeName, 16);
   auto ledger = Brio::makePtr<Ledger::EntityManager>();

   chipInfo->tableSizeIs(L3TunnelEgrL3Oif1Table::typeName, 16);
   chipInfo->tableSizeIs(L3TunnelIngL3NextHopTable::typeName, 16);
   auto v4 = l3EgrL3Ipv4TunnelTableFactory();
   auto v6 = l3EgrL3Ipv6TunnelTableFactory();
   auto oif = l3TunnelEgrL3Oif1TableFactory();
   auto nh = l3TunnelIngL3NextHopTableFactory();
   for (Asic::SwTable* t :
        std::initializer_list<Asic::SwTable*>{v4.ptr(), v6.ptr(), oif.ptr(), nh.ptr()}) {
      t->doInit(0, ledger, chipInfo);
      t->doInitComplete();
   }

   const char* v4Tunnels[][2] = {
       {"10.0.0.1", "10.1.0.1"}, {"10.0.0.1", "10.1.0.2"}, {"10.0.0.2", "10.1.0.3"}};
   const char* v6Tunnels[][2] = {{"2001:db8::1", "2001:db8:1::1"},
                                 {"2001:db8::1", "2001:db8:1::2"}};
   using HandlePtr = Brio::Ptr<const Asic::SwTableBase::EntryHandle>;
   std::vector<HandlePtr> held;
   for (auto& t : v4Tunnels) {
      Wire::IpGenAddr src(t[0]), dst(t[1]);
      held.push_back(v4->entryRef(
          {src, dst}, L3EgrL3Ipv4TunnelTable::Entry(true, false, src, 64, dst, U5(17))));
   }
   for (auto& t : v6Tunnels) {
      Wire::IpGenAddr src(t[0]), dst(t[1]);
      held.push_back(v6->entryCommit(
          {src, dst}, L3EgrL3Ipv6TunnelTable::Entry(false, true, src, 64, dst, U5(17))));
   }
   // Chains: each interface names its tunnel and each next hop its interface;
   // written before the tunnels' write responses are in, they wait for what they name
   // and carry its index once it is programmed.
   std::vector<HandlePtr> nextHops;
   for (auto& [key, tunnelHandle] : v4->entryHandleIteratorConst()) {
      if (key.dstIpAddr() == Wire::IpGenAddr("10.1.0.3")) continue;
      auto o = oif->entryRef(key, L3TunnelEgrL3Oif1Table::Entry(tunnelHandle, 0, 0, U5(18)));
      nextHops.push_back(
          nh->entryRef(key, L3TunnelIngL3NextHopTable::Entry(o, 0, false, U5(30), U2())));
   }
   Brio::EventLoop::instance().runUntilIdle();

   printTable(*v4, *chip);
   printTable(*v6, *chip);
   printTable(*oif, *chip);
   printTable(*nh, *chip);

   // A merged interface: one index, used in the ingress and the egress table.
   auto intf = l3InterfaceTableFactory();
   intf->doInit(0, ledger, chipInfo);
   L3TunnelKey mergedKey(Wire::IpGenAddr("10.0.0.2"), Wire::IpGenAddr("10.1.0.3"));
   auto merged = intf->entryCommit(
       mergedKey,
       L3InterfaceTable::Entry(IngL3Iif::Entry(),
                               EgrL3Oif1Table::Entry(v4->entryHandle(mergedKey), 0, 0, U5(18))));
   Brio::EventLoop::instance().runUntilIdle();
   std::cout << L3InterfaceTable::typeName << "\n  " << mergedKey << " -> index "
             << merged->hwIndex() << ", " << merged->entryState() << "\n\n";
   printTable(*intf->ingL3Iif(), *chip);
   printTable(*intf->egrL3Oif1Table(), *chip);
   merged.reset();
   intf.reset();

   nextHops.clear();
   held.clear();
   nh.reset();
   oif.reset();
   v4.reset();
   v6.reset();
   chip->uninstall();
   return 0;
}
