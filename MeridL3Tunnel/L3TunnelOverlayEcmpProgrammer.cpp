#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"

#include <type_traits>

#include "Asic/RecoverGroup.h"
#include "Flit/Flit.h"
#include "Orb/Assert.h"
#include "Plx/NextHopEntryType.h"
#include "SharedL3/DontCareHandle.h"
#include "SharedL3/ValidateEntryState.h"
#include "Toggle/ToggleState.h"

namespace MeridL3Tunnel {

namespace {

constexpr uint32_t traceProgrammer = 4;

// Strength profiles of the chain's rows.
constexpr uint32_t tunnelStrength = 17;
constexpr uint32_t interfaceStrength = 18;
constexpr uint32_t nextHopStrength = 30;
constexpr uint32_t dropStrength = 17;

bool valid(const Asic::SwTableBase::EntryHandle::PtrConst& h) {
   return h && MeridL3Common::validateEntryState(h->entryState());
}

// A step of a via's chain that its table could not take is traced, and the
// chain goes on.
void fullTraced(const Asic::SwTableBase::EntryHandle::PtrConst& h, const char* message) {
   if (valid(h)) return;
   ORB_TRACE(L3TunnelOverlayEcmpProgrammer::traceHandle(), traceProgrammer,
             "fillOverlayNextHopInfo")
       << message;
}

}  // namespace

bool L3TunnelOverlayEcmpProgrammer::commonIifOifIndex() {
   static const bool on = (getToggleState("CommonIifOifIndex", "MeridL3.json", true) & 1) != 0;
   return on;
}

const Orb::TraceHandle& L3TunnelOverlayEcmpProgrammer::traceHandle() {
   static const Orb::TraceHandle handle{typeName};
   return handle;
}

L3TunnelOverlayEcmpProgrammer::L3TunnelOverlayEcmpProgrammer(FcsdPtr fcsd, LocalEmPtr localEm,
                                                             LedgerEmPtr ledgerEm)
    : fcsd_(std::move(fcsd)), localEm_(std::move(localEm)), ledgerEm_(std::move(ledgerEm)) {}

// The tunnel tables go first: a table that outlives the entries naming it
// would delete its rows as they let go, and the rows must stay on the chip for
// whoever programs it next. The rest go in reverse declaration order.
L3TunnelOverlayEcmpProgrammer::~L3TunnelOverlayEcmpProgrammer() {
   notificationIs(false);
   l3EgrL3Ipv6TunnelTable_.reset();
   l3EgrL3Ipv4TunnelTable_.reset();
}

Brio::Ptr<L3TunnelOverlayEcmpProgrammer> L3TunnelOverlayEcmpProgrammerIs(
    L3TunnelOverlayEcmpProgrammer::FcsdPtr fcsd, L3TunnelOverlayEcmpProgrammer::LocalEmPtr localEm,
    L3TunnelOverlayEcmpProgrammer::LedgerEmPtr ledgerEm) {
   // Held from the start, so that a throwing switch-on drops the only reference.
   Brio::Ptr<L3TunnelOverlayEcmpProgrammer> p(
       new L3TunnelOverlayEcmpProgrammer(std::move(fcsd), std::move(localEm), std::move(ledgerEm)));
   p->notificationIs(true);
   return p;
}

Brio::Ptr<L3TunnelOverlayEcmpProgrammer> l3TunnelOverlayEcmpProgrammerFactory(
    L3TunnelOverlayEcmpProgrammer::FcsdPtr fcsd, L3TunnelOverlayEcmpProgrammer::LocalEmPtr localEm,
    L3TunnelOverlayEcmpProgrammer::LedgerEmPtr ledgerEm) {
   return L3TunnelOverlayEcmpProgrammerIs(std::move(fcsd), std::move(localEm), std::move(ledgerEm));
}

void L3TunnelOverlayEcmpProgrammer::doMountHwTableMountInfo(Ledger::MountGroup& mountGroup) const {
   L3EcmpMember0Table::doMountHwTableMountInfo(mountGroup);
   L3TunnelIngL3NextHopTable::doMountHwTableMountInfo(mountGroup);
   if (commonIifOifIndex()) {
      IngL3Iif::doMountHwTableMountInfo(mountGroup);
      EgrL3Oif1Table::doMountHwTableMountInfo(mountGroup);
   } else {
      L3TunnelEgrL3Oif1Table::doMountHwTableMountInfo(mountGroup);
   }
   L3EgrL3Ipv4TunnelTable::doMountHwTableMountInfo(mountGroup);
   L3EgrL3Ipv6TunnelTable::doMountHwTableMountInfo(mountGroup);
}

// Initialises, listens to write responses from here on, publishes where the
// hardware table is mounted, and starts from an empty table.
template <class Table>
void L3TunnelOverlayEcmpProgrammer::initTable(
    Table& table, const Brio::Ptr<const MeridCentral::ChipInfo>& chipInfo) {
   table.doInit(tableUnit, ledgerEm_, chipInfo);
   // The merged table completes its member tables in its own set-up.
   if constexpr (std::is_base_of_v<Asic::SwTable, Table>) table.doInitComplete();
   table.doPublishHwTableMountInfo();
   if constexpr (std::is_same_v<Table, L3EcmpMember0Table>)
      table.entryBlockRemoveAll();
   else
      table.entryRemoveAll();
}

void L3TunnelOverlayEcmpProgrammer::initTables(Brio::Ptr<const MeridCentral::ChipInfo> chipInfo) {
   ORB_TRACE(traceHandle(), traceProgrammer, "initTables") << "Initialize L3OverlayTunnel tables";
   FLIT(traceHandle(), traceProgrammer, "{}: {}", typeName, "Initialize L3OverlayTunnel tables");
   requireModuleInfo();

   l3EcmpMember0Table_ = l3EcmpMember0TableFactory();
   initTable(*l3EcmpMember0Table_, chipInfo);
   ORB_ASSERT(l3EcmpMember0Table()->entryBlocks() == 0);

   if (commonIifOifIndex()) {
      l3InterfaceTable_ = l3InterfaceTableFactory();
      initTable(*l3InterfaceTable_, chipInfo);
   } else {
      l3TunnelEgrL3Oif1Table_ = l3TunnelEgrL3Oif1TableFactory();
      initTable(*l3TunnelEgrL3Oif1Table_, chipInfo);
      ORB_ASSERT(l3TunnelEgrL3Oif1Table()->entrys() == 0);
   }

   l3TunnelIngL3NextHopTable_ = l3TunnelIngL3NextHopTableFactory();
   initTable(*l3TunnelIngL3NextHopTable_, chipInfo);
   ORB_ASSERT(l3TunnelIngL3NextHopTable()->entrys() == 0);

   l3EgrL3Ipv4TunnelTable_ = l3EgrL3Ipv4TunnelTableFactory();
   initTable(*l3EgrL3Ipv4TunnelTable_, chipInfo);
   ORB_ASSERT(l3EgrL3Ipv4TunnelTable()->entrys() == 0);

   l3EgrL3Ipv6TunnelTable_ = l3EgrL3Ipv6TunnelTableFactory();
   initTable(*l3EgrL3Ipv6TunnelTable_, chipInfo);
   ORB_ASSERT(l3EgrL3Ipv6TunnelTable()->entrys() == 0);

   ecmpGroup1TableFind();
   programReservedTunnelDropEntry();
}

void L3TunnelOverlayEcmpProgrammer::requireModuleInfo() const {
   if (!fcsd() || !fcsd()->logicalModInfos())
      Orb::assertFail("fcsd()->logicalModInfos()", "", __FILE__, __LINE__);
}

void L3TunnelOverlayEcmpProgrammer::ecmpGroup1TableFind() {
   Brio::Ptr<const Orb::Entity> ecmp = localEm_ ? localEm_->getEntity(ecmpGroupPath) : nullptr;
   ecmpGroup1Table_ =
       Brio::Ptr<const EcmpGroup1Table>(dynamic_cast<const EcmpGroup1Table*>(ecmp.ptr()));
}

void L3TunnelOverlayEcmpProgrammer::recoverTables(
    Brio::Ptr<const MeridCentral::ChipInfo> chipInfo) {
   ORB_TRACE(traceHandle(), traceProgrammer, "recoverTables") << "Recover L3OverlayTunnel tables";
   FLIT(traceHandle(), traceProgrammer, "{}: {}", typeName, "Recover L3OverlayTunnel tables");
   requireModuleInfo();
   l3EcmpMember0Table_ = l3EcmpMember0TableFactory();
   l3TunnelIngL3NextHopTable_ = l3TunnelIngL3NextHopTableFactory();
   l3EgrL3Ipv4TunnelTable_ = l3EgrL3Ipv4TunnelTableFactory();
   l3EgrL3Ipv6TunnelTable_ = l3EgrL3Ipv6TunnelTableFactory();
   std::vector<Asic::SwTable*> tables{l3EcmpMember0Table_.ptr(), l3TunnelIngL3NextHopTable_.ptr(),
                                      l3EgrL3Ipv4TunnelTable_.ptr(), l3EgrL3Ipv6TunnelTable_.ptr()};
   if (commonIifOifIndex()) {
      // The merged table learns its indices from its members' rows itself.
      l3InterfaceTable_ = l3InterfaceTableFactory();
      l3InterfaceTable_->doInit(tableUnit, ledgerEm_, chipInfo);
      l3InterfaceTable_->doPublishHwTableMountInfo();
   } else {
      l3TunnelEgrL3Oif1Table_ = l3TunnelEgrL3Oif1TableFactory();
      tables.push_back(l3TunnelEgrL3Oif1Table_.ptr());
   }
   Asic::RecoverGroup recoverGroup;
   for (auto* t : tables) recoverGroup.tableIs(*t, tableUnit, ledgerEm_, chipInfo);
   recoverGroup.recover();
   for (auto* t : tables) t->doPublishHwTableMountInfo();
   ecmpGroup1TableFind();
   // Before the drop entry, the first handle: a pin is a count until the
   // table makes the pinned entry's handle.
   recoveredRowPinsIs();
   programReservedTunnelDropEntry();
}

namespace {

// Calls `f(index, named)` for every row of `table` whose `field` names an index.
template <class F>
void recoveredRowsNaming(const Asic::SwTable& table, std::string_view field, F&& f) {
   if (!table.util() || !table.hwTable()) return;
   for (Asic::Index i = 0; i < table.numEntries(); ++i)
      if (auto named = table.util()->hwTableEntryIndexField(*table.hwTable(), i, field))
         f(i, *named);
}

// Pins `index` of `named` for `row` of `rows`. The named table has no
// handles yet: it holds each pinned entry's handle as it makes it.
template <class Named>
void recoveredRowPinIs(Asic::SwTable& rows, Asic::Index row, Named& named, Asic::Index index) {
   ORB_ASSERT(named.entryHandles() == 0) << named.name() << " has handles before its pins";
   rows.recoveredRowPinIs(row, named.indexPins(), index);
}

}  // namespace

// A row found at the recovery and not yet claimed by the replay names entries
// by index only, which holds nothing: the replay could let such an entry go,
// deleting its row and freeing its index under the row naming it. So each
// such row pins what it names until the row is written or deleted (by the
// replay, or by the reconcile).
void L3TunnelOverlayEcmpProgrammer::recoveredRowPinsIs() {
   auto& nh = *l3TunnelIngL3NextHopTable_;
   recoveredRowsNaming(*l3EcmpMember0Table_, "nextHopIdx", [&](Asic::Index i, Asic::Index named) {
      recoveredRowPinIs(*l3EcmpMember0Table_, i, nh, named);
   });
   // And their underlay groups, whose table the sibling component has filled
   // already: each pinned group's handle is held at once.
   if (ecmpGroup1Table_) {
      const auto groups = ecmpGroup1Table_->entryByIndex();
      const auto pins = ecmpGroup1Table_->indexPins();
      recoveredRowsNaming(*l3EcmpMember0Table_, "underlayIdx",
                          [&](Asic::Index i, Asic::Index named) {
                             if (named >= groups.size() || !groups[named]) return;
                             l3EcmpMember0Table_->recoveredRowPinIs(i, pins, named);
                             pins->handleIs(named, groups[named]);
                          });
   }
   // The drop entry names no interface.
   const Asic::Index drop = nh.indexAllocator()
                                ? nh.indexAllocator()->indexForKey(getTunnelDropKey())
                                : Asic::invalidIndex;
   recoveredRowsNaming(nh, "l3Oif1", [&](Asic::Index i, Asic::Index named) {
      if (i == drop) return;
      if (l3InterfaceTable_)
         recoveredRowPinIs(nh, i, *l3InterfaceTable_, named);
      else
         recoveredRowPinIs(nh, i, *l3TunnelEgrL3Oif1Table_, named);
   });
   // Interface rows name tunnels, which all go to the IPv4 tunnel table.
   auto& v4 = *l3EgrL3Ipv4TunnelTable_;
   Asic::SwTable& oif = l3InterfaceTable_
                            ? static_cast<Asic::SwTable&>(*l3InterfaceTable_->egrL3Oif1Table())
                            : static_cast<Asic::SwTable&>(*l3TunnelEgrL3Oif1Table_);
   recoveredRowsNaming(oif, "tunnelIdx", [&](Asic::Index i, Asic::Index named) {
      recoveredRowPinIs(oif, i, v4, named);
   });
}

void L3TunnelOverlayEcmpProgrammer::purgeStaleEntries() {
   ORB_TRACE(traceHandle(), traceProgrammer, "purgeStaleEntries") << "Purge stale entries";
   // Members first: their rows name next hops, which name interfaces, which
   // name tunnels. A stale row's delete lets go of what it held.
   if (l3EcmpMember0Table_) l3EcmpMember0Table_->purgeStaleEntries();
   if (l3TunnelIngL3NextHopTable_) l3TunnelIngL3NextHopTable_->purgeStaleEntries();
   if (l3InterfaceTable_) l3InterfaceTable_->purgeStaleEntries();
   if (l3TunnelEgrL3Oif1Table_) l3TunnelEgrL3Oif1Table_->purgeStaleEntries();
   if (l3EgrL3Ipv4TunnelTable_) l3EgrL3Ipv4TunnelTable_->purgeStaleEntries();
   if (l3EgrL3Ipv6TunnelTable_) l3EgrL3Ipv6TunnelTable_->purgeStaleEntries();
}

L3TunnelKey L3TunnelOverlayEcmpProgrammer::getTunnelDropKey() {
   const auto zero = Wire::IpGenAddr::ipGenAddrZero(Wire::AddressFamily::ipv4);
   return L3TunnelKey(zero, zero);
}

namespace {

Asic::SwTableBase::EntryHandle::PtrConst reservedTunnelDropEntryCommit(
    L3TunnelIngL3NextHopTable& nextHops) {
   const L3TunnelIngL3NextHopTable::Entry entry(SwTableWorkaround::dontCareHandle(Asic::Index(0)),
                                                0, true, U5(dropStrength), U2());
   return nextHops.entryCommit(L3TunnelOverlayEcmpProgrammer::getTunnelDropKey(), entry);
}

}  // namespace

void L3TunnelOverlayEcmpProgrammer::programReservedTunnelDropEntry() {
   const HandlePtrConst handle = reservedTunnelDropEntryCommit(*l3TunnelIngL3NextHopTable_);
   if (!MeridL3Common::validateEntryState(handle->entryState())) {
      ORB_TRACE(traceHandle(), traceProgrammer, "programReservedTunnelDropEntry")
          << " L3TunnelNextHopTable is Full ";
      FLIT(traceHandle(), traceProgrammer, "{}: {}", typeName,
           "programReservedTunnelDropEntry L3TunnelNextHopTable is Full");
      ORB_ASSERT(0 && "Couldn't install reserved tunnel next hop drop entry");
   }
}

L3TunnelOverlayEcmpProgrammer::HandlePtrConst L3TunnelOverlayEcmpProgrammer::fillOverlayNextHopInfo(
    const L3TunnelOverlayViaEntry& viaEntry) {
   ORB_TRACE(traceHandle(), traceProgrammer, "fillOverlayNextHopInfo")
       << " OverlayVia: srcIpAddr=" << viaEntry.srcIpAddr() << " dstIpAddr=" << viaEntry.dstIpAddr()
       << " underlayAdjId=" << viaEntry.underlayAdjId().adjId();
   FLIT(traceHandle(), traceProgrammer, "{}: {} underlayAdjId={}", typeName,
        "fillOverlayNextHopInfo", viaEntry.underlayAdjId().adjId());

   if (viaEntry.nhEntryType() == Plx::nextHopDrop()) {
      HandlePtrConst drop = l3TunnelIngL3NextHopTable_->entryWeakRef(getTunnelDropKey());
      fullTraced(drop, " L3TunnelNextHopTable is Full ");
      return drop;
   }

   const L3TunnelKey key(viaEntry.srcIpAddr(), viaEntry.dstIpAddr());
   const HandlePtrConst tunnel = l3EgrL3Ipv4TunnelTable_->entryRef(
       key, L3EgrL3Ipv4TunnelTable::Entry(true, false, viaEntry.srcIpAddr(),
                                          uint8_t(viaEntry.ttl() & 0xFF), viaEntry.dstIpAddr(),
                                          U5(tunnelStrength)));
   fullTraced(tunnel, " L3EgrL3IpTunnelTables is Full ");

   HandlePtrConst oif;
   if (!commonIifOifIndex()) {
      oif = l3TunnelEgrL3Oif1Table_->entryRef(
          key, L3TunnelEgrL3Oif1Table::Entry(tunnel, 0, 0, U5(interfaceStrength)));
   } else {
      const EgrL3Oif1Table::Entry egress(tunnel, 0, 0, U5(interfaceStrength));
      oif = l3InterfaceTable_->entryCommit(key, L3InterfaceTable::Entry(IngL3Iif::Entry(), egress));
   }
   fullTraced(oif, " L3TunnelEgrL3OifTable is Full ");

   HandlePtrConst nextHop = l3TunnelIngL3NextHopTable_->entryRef(
       key, L3TunnelIngL3NextHopTable::Entry(oif, 0, false, U5(nextHopStrength), U2()));
   fullTraced(nextHop, " L3TunnelNextHopTable is Full ");
   return nextHop;
}

L3TunnelOverlayEcmpProgrammer::HandlePtrConst L3TunnelOverlayEcmpProgrammer::getUnderlayAdjacency(
    const L3TunnelOverlayViaEntry& viaEntry) const {
   if (viaEntry.nhEntryType() == Plx::nextHopDrop())
      return SwTableWorkaround::dontCareHandle(Asic::Index(0));
   // Without the shared group table no underlay is ever found.
   return ecmpGroup1Table_ ? ecmpGroup1Table_->entryWeakRef(viaEntry.underlayAdjId()) : nullptr;
}

L3TunnelOverlayEcmpProgrammer::HandlePtrConst
L3TunnelOverlayEcmpProgrammer::populateOverlayEcmpBlock(
    Brio::Ptr<const L3TunnelOverlayVia> viaList) {
   L3EcmpMember0Table::EntryBlock block;
   uint32_t next = 0;
   const uint32_t vias = viaList->vias();
   // The chip may have refused the reserved drop entry after initTables
   // returned: a block that drops commits it again, once, before its vias.
   // Another refusal shows in the entry's state, as for any next hop.
   if (HandlePtrConst drop = l3TunnelIngL3NextHopTable_->entryWeakRef(getTunnelDropKey());
       drop && drop->entryState() == Asic::SwTableBase::noHwIndex()) {
      for (uint32_t i = 0; i < vias; ++i) {
         if (viaList->via(VE_Via(i)).nhEntryType() != Plx::nextHopDrop()) continue;
         reservedTunnelDropEntryCommit(*l3TunnelIngL3NextHopTable_);
         break;
      }
   }
   for (uint32_t i = 0; i < vias; ++i) {
      const L3TunnelOverlayViaEntry viaEntry = viaList->via(VE_Via(i));
      ORB_TRACE(traceHandle(), traceProgrammer, "populateOverlayEcmpBlock")
          << " OverlayVia: nhEntryType=" << viaEntry.nhEntryType()
          << " srcIpAddr=" << viaEntry.srcIpAddr() << " dstIpAddr=" << viaEntry.dstIpAddr()
          << " underlayAdjId=" << viaEntry.underlayAdjId().adjId()
          << "weight=" << viaEntry.weight();
      FLIT(traceHandle(), traceProgrammer, "{}: {} underlayAdjId={}weight={}", typeName,
           "populateOverlayEcmpBlock", viaEntry.underlayAdjId().adjId(), viaEntry.weight());
      // The expression is quoted as written when it fails.
      // clang-format off
      ORB_ASSERT(( viaEntry.nhEntryType() == Plx::nextHopArpResolved() ) || ( viaEntry.nhEntryType() == Plx::nextHopDrop() ));
      // clang-format on
      const bool resolved = viaEntry.nhEntryType() == Plx::nextHopArpResolved();
      for (uint32_t w = 0; w < viaEntry.weight(); ++w) {
         HandlePtrConst nextHop = fillOverlayNextHopInfo(viaEntry);
         HandlePtrConst underlay = getUnderlayAdjacency(viaEntry);
         if (!valid(underlay)) {
            ORB_TRACE(traceHandle(), traceProgrammer, "populateOverlayEcmpBlock")
                << " Underlay is not yet resolved. UnderlayAdjId=  "
                << viaEntry.underlayAdjId().adjId();
         }
         block.entryIs(
             L3EcmpMember0Table::Index(next++),
             L3EcmpMember0Table::Entry(std::move(nextHop), std::move(underlay), 0, 0, resolved));
      }
   }
   return l3EcmpMember0Table_->entryBlockRef(block);
}

}  // namespace MeridL3Tunnel
