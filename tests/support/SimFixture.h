#pragma once
// A simulated chip and the tables a test makes on it, as the agent would:
// chip info with small tables, tables created by their factories,
// initialised and listening to write responses. Every test ends with the
// invariant checker over the tables it holds, once the chip has answered
// everything; the tables can be dropped and recovered over the chip's rows.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <random>
#include <vector>

#include "Asic/RecoverGroup.h"
#include "AsicSim/Chip.h"
#include "Brio/EventLoop.h"
#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"
#include "MeridL3Tunnel/L3EgrL3Ipv6TunnelTable.h"
#include "MeridL3Tunnel/L3TunnelEgrL3Oif1Table.h"
#include "MeridL3Tunnel/L3TunnelIngL3NextHopTable.h"
#include "MeridL3Tunnel/L3TunnelInterfaceTable.h"
#include "SharedL3/L3EcmpMember0Table.h"
#include "support/InvariantChecker.h"

namespace test {

using MeridL3Tunnel::EgrL3Oif1Table;
using MeridL3Tunnel::IngL3Iif;
using MeridL3Tunnel::L3EgrL3Ipv4TunnelTable;
using MeridL3Tunnel::L3EgrL3Ipv6TunnelTable;
using MeridL3Tunnel::L3InterfaceTable;
using MeridL3Tunnel::L3TunnelEgrL3Oif1Table;
using MeridL3Tunnel::L3TunnelIngL3NextHopTable;
using MeridL3Tunnel::L3TunnelKey;
using State = Asic::SwTableBase::EntryState;
using Type = Asic::SwTableBase::EntryHandle::EntryType;
using HandlePtr = Brio::Ptr<const Asic::SwTableBase::EntryHandle>;
using V4 = L3EgrL3Ipv4TunnelTable;
using V6 = L3EgrL3Ipv6TunnelTable;
using Oif = L3TunnelEgrL3Oif1Table;
using Nh = L3TunnelIngL3NextHopTable;

inline Wire::IpGenAddr addr(const char* text) { return Wire::IpGenAddr(text); }

// How many of `lines` (a trace) hold `piece`.
inline int linesWith(const Lines& lines, std::string_view piece) {
   return int(std::count_if(lines.begin(), lines.end(),
                            [&](const std::string& l) { return l.find(piece) != l.npos; }));
}

// Tunnel key number `n`: IPv4 for the IPv4 table's tests, IPv6 for the IPv6 one's.
inline L3TunnelKey tunnelKey(uint32_t n, bool v6 = false) {
   if (v6) {
      std::array<uint8_t, 16> src{0x20, 0x01, 0x0d, 0xb8};
      std::array<uint8_t, 16> dst = src;
      dst[14] = uint8_t(n >> 8);
      dst[15] = uint8_t(n);
      src[15] = 1;
      return {Wire::IpGenAddr::ipv6(src), Wire::IpGenAddr::ipv6(dst)};
   }
   return {Wire::IpGenAddr::ipv4(0x0a000001), Wire::IpGenAddr::ipv4(0x0b000000 + n)};
}

template <class Table>
typename Table::Entry tunnelEntry(const L3TunnelKey& k, uint8_t ttl = 64, uint32_t strength = 17) {
   const bool v6 = k.dstIpAddr().isV6();
   return typename Table::Entry(!v6, v6, k.srcIpAddr(), ttl, k.dstIpAddr(), U5(strength));
}

inline L3TunnelEgrL3Oif1Table::Entry oifEntry(HandlePtr tunnel, uint8_t ttlThreshold = 0) {
   return {std::move(tunnel), 0, ttlThreshold, U5(18)};
}

inline L3InterfaceTable::Entry interfaceEntry(HandlePtr tunnel, uint8_t ttlThreshold = 0) {
   return {IngL3Iif::Entry(), EgrL3Oif1Table::Entry(std::move(tunnel), 0, ttlThreshold, U5(18))};
}

inline L3TunnelIngL3NextHopTable::Entry nextHopEntry(HandlePtr oif, bool drop = false) {
   return {std::move(oif), 0, drop, U5(30), U2()};
}

class SimFixture : public ::testing::Test {
public:
   static constexpr uint32_t defaultRows = 16;

   void SetUp() override {
      Brio::EventLoop::instance().clear();
      chip = Brio::makePtr<AsicSim::Chip>();
      chip->install();
      chipInfo = Brio::makePtr<MeridCentral::ChipInfo>();
      chipInfo->tableSizeIs(L3EgrL3Ipv4TunnelTable::typeName, defaultRows);
      chipInfo->tableSizeIs(L3EgrL3Ipv6TunnelTable::typeName, defaultRows);
      ledger = Brio::makePtr<Ledger::EntityManager>();
   }

   // Every test ends with its tables agreeing with each other and the chip,
   // once what the chip still holds back is delivered.
   void TearDown() override {
      settle();
      expectConsistent("at the end: ");
      tablesDrop();
      Brio::EventLoop::instance().clear();
      chip->uninstall();
   }

   // Lets every table go, as an agent that goes away does; the chip keeps its
   // rows. A named table goes before the tables naming it, so that no entry
   // let go by a table going deletes the row of an entry it names.
   virtual void tablesDrop() {
      v4.reset();
      v6.reset();
      intf.reset();
      egr.reset();
      ing.reset();
      oif.reset();
      nh.reset();
      members.reset();
   }

   // Makes `table` from `factory` with `rows` rows, initialised.
   template <class Table, class Factory>
   void make(Brio::Ptr<Table>& table, Factory factory, uint32_t rows) {
      chipInfo->tableSizeIs(Table::typeName, rows);
      table = factory();
      init(*table);
   }

   // Creates both egress tunnel tables with `rows` rows each.
   void makeTunnelTables(uint32_t rows = defaultRows) {
      make(v4, MeridL3Tunnel::l3EgrL3Ipv4TunnelTableFactory, rows);
      make(v6, MeridL3Tunnel::l3EgrL3Ipv6TunnelTableFactory, rows);
   }

   // The tunnel tables, then the interface and next-hop tables that depend on them.
   void makeChainTables(uint32_t rows = defaultRows) {
      makeTunnelTables(rows);
      make(oif, MeridL3Tunnel::l3TunnelEgrL3Oif1TableFactory, rows);
      make(nh, MeridL3Tunnel::l3TunnelIngL3NextHopTableFactory, rows);
   }

   // The merged interface table (with its two member tables) on top of the
   // tunnel tables.
   void makeInterfaceTable(uint32_t rows = defaultRows) {
      if (!v4) makeTunnelTables(rows);
      chipInfo->tableSizeIs(IngL3Iif::typeName, rows);
      chipInfo->tableSizeIs(EgrL3Oif1Table::typeName, rows);
      intf = MeridL3Tunnel::l3InterfaceTableFactory();
      intf->doInit(unit, ledger, chipInfo);
   }

   // The agent goes away and comes back: the tables it had are made again,
   // take the rows the chip kept over and learn which indices they use,
   // before anything is written.
   void restart() {
      const bool had[] = {bool(v4), bool(v6), bool(oif), bool(nh), bool(ing), bool(egr)};
      const bool merged = bool(intf);
      tablesDrop();
      Brio::EventLoop::instance().clear();
      chip->heldResponsesDelAll();
      Asic::RecoverGroup group;
      auto again = [&](bool present, auto& table, auto factory) {
         if (!present) return;
         table = factory();
         table->doRecoverHwTable(group, unit, ledger, chipInfo);
      };
      again(had[0], v4, MeridL3Tunnel::l3EgrL3Ipv4TunnelTableFactory);
      again(had[1], v6, MeridL3Tunnel::l3EgrL3Ipv6TunnelTableFactory);
      again(had[2], oif, MeridL3Tunnel::l3TunnelEgrL3Oif1TableFactory);
      again(had[3], nh, MeridL3Tunnel::l3TunnelIngL3NextHopTableFactory);
      again(had[4], ing, MeridL3Tunnel::ingL3IifFactory);
      again(had[5], egr, MeridL3Tunnel::egrL3Oif1TableFactory);
      group.recover();
      if (merged) makeInterfaceTable();
   }

   void init(Asic::SwTable& t) {
      t.doInit(unit, ledger, chipInfo);
      t.doInitComplete();
   }

   uint32_t runLoop() { return Brio::EventLoop::instance().runUntilIdle(); }

   // A draw: a random number below its argument.
   using Draw = std::function<uint32_t(uint32_t)>;
   // `steps` random steps from `seed`: in two of seven the chip starts or
   // stops holding responses back or answers one held response out of order,
   // in the others `act` runs. After each step what is not held back is
   // delivered and, when nothing is held, everything is checked; the run
   // stops at the first step whose check fails.
   void churn(uint32_t seed, int steps, const std::function<void(const Draw&)>& act) {
      std::mt19937 rng(seed);
      const Draw pick = [&](uint32_t n) { return uint32_t(rng() % n); };
      for (int step = 0; step < steps && !HasFailure(); ++step) {
         const uint32_t turn = pick(7);
         if (turn == 0)
            chip->holdResponsesIs(!chip->holdResponses());
         else if (turn == 1 && chip->heldResponses())
            chip->releaseResponse(pick(chip->heldResponses()));
         else if (turn > 1)
            act(pick);
         if (!chip->holdResponses()) chip->releaseAllResponses();
         runLoop();
         if (chip->heldResponses() == 0) expectConsistent("step " + std::to_string(step) + ": ");
      }
   }
   // Every table this fixture has made agrees with the others and the chip.
   void expectConsistent(const std::string& where = "") {
      InvariantChecker checker(*chip);
      if (v4) checker.table(*v4);
      if (v6) checker.table(*v6);
      if (oif) checker.table(*oif);
      if (nh) checker.table(*nh);
      if (intf) checker.mergedTable(*intf);
      if (ing) checker.table(*ing);
      if (egr) checker.table(*egr);
      if (members) checker.memberTable(*members);
      EXPECT_EQ(checker.violations(), Lines{}) << where;
   }
   // Stops holding responses and delivers everything, until nothing is left
   // (an answer may lead to a further request).
   void settle() {
      chip->holdResponsesIs(false);
      for (int i = 0; i < 64; ++i) {
         chip->releaseAllResponses();
         if (runLoop() == 0 && chip->heldResponses() == 0) return;
      }
      ADD_FAILURE() << "responses still lead to further requests after 64 rounds";
   }

   Brio::Ptr<AsicSim::HwTable> hw(std::string_view name) const { return chip->table(name, unit); }
   // Every table's rows with their row keys, and the writes and deletes that
   // changed one.
   std::map<std::string, std::vector<std::string>> chipRows() const {
      std::map<std::string, std::vector<std::string>> all;
      for (auto& name : chip->tableNames())
         for (Asic::Index i = 0; i < hw(name)->numEntries(); ++i)
            all[name].push_back(hw(name)->rowText(i) + " | " + hw(name)->rowKey(i).text());
      return all;
   }
   uint32_t chipChanges() const {
      uint32_t n = 0;
      for (auto& name : chip->tableNames()) n += hw(name)->stats().changes;
      return n;
   }
   AsicSim::HwTable::Stats stats(std::string_view name) const {
      return hw(name) ? hw(name)->stats() : AsicSim::HwTable::Stats{};
   }

   Brio::Ptr<AsicSim::Chip> chip;
   Brio::Ptr<MeridCentral::ChipInfo> chipInfo;
   Brio::Ptr<Ledger::EntityManager> ledger;
   Brio::Ptr<L3EgrL3Ipv4TunnelTable> v4;
   Brio::Ptr<L3EgrL3Ipv6TunnelTable> v6;
   Brio::Ptr<L3TunnelEgrL3Oif1Table> oif;
   Brio::Ptr<L3TunnelIngL3NextHopTable> nh;
   Brio::Ptr<L3InterfaceTable> intf;
   // Member tables used on their own, and the ECMP member table.
   Brio::Ptr<IngL3Iif> ing;
   Brio::Ptr<EgrL3Oif1Table> egr;
   Brio::Ptr<MeridL3Tunnel::L3EcmpMember0Table> members;
   Asic::UnitId unit = 0;  // the unit the tables are initialised on
};

}  // namespace test
