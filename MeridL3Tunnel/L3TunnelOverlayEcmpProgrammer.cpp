#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"

#include <algorithm>
#include <type_traits>

#include "Asic/RecoverGroup.h"
#include "AsicSwTable/SwTableUtilLoader.h"
#include "Flit/Flit.h"
#include "MeridL3Tunnel/RowReferences.h"
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

// Tables go last first: a table that outlives the entries naming it would
// delete its rows as they let go, and the rows must stay on the chip for
// whoever programs it next.
L3TunnelOverlayEcmpProgrammer::~L3TunnelOverlayEcmpProgrammer() {
   notificationIs(false);
   TableCatalogue::forEachReversed([&]<class Line>() {
      std::get<Brio::Ptr<typename Line::Table>>(tables_).reset();
      std::get<Brio::Ptr<typename Line::Table>>(formerTables_).reset();
   });
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
   TableCatalogue::forEach([&]<class Line>() {
      if (Line::inUse(commonIifOifIndex())) Line::Table::doMountHwTableMountInfo(mountGroup);
   });
}

namespace {

template <class Table>
bool tableEmpty(const Table& t) {
   if constexpr (std::is_same_v<Table, L3EcmpMember0Table>)
      return t.entryBlocks() == 0;
   else
      return t.entryHandles() == 0;
}

}  // namespace

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
   ORB_ASSERT(tableEmpty(table)) << table.name() << " is not empty after its set-up";
}

void L3TunnelOverlayEcmpProgrammer::initTables(Brio::Ptr<const MeridCentral::ChipInfo> chipInfo) {
   ORB_TRACE(traceHandle(), traceProgrammer, "initTables") << "Initialize L3OverlayTunnel tables";
   FLIT(traceHandle(), traceProgrammer, "{}: {}", typeName, "Initialize L3OverlayTunnel tables");
   requireModuleInfo();
   TableCatalogue::forEach([&]<class Line>() {
      if (!Line::inUse(commonIifOifIndex())) return;
      auto& t = std::get<Brio::Ptr<typename Line::Table>>(tables_);
      t = Line::make();
      initTable(*t, chipInfo);
   });
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

namespace {

// Whether the chip holds rows of `Table`'s hardware table, before any table
// mounts it.
template <class Table>
bool hwTableRowsFound() {
   const auto util = Asic::SwTableUtilLoader<Table>::instance().util();
   return util && util->hwTableRowsFound(L3TunnelOverlayEcmpProgrammer::tableUnit);
}

}  // namespace

void L3TunnelOverlayEcmpProgrammer::recoverTables(
    Brio::Ptr<const MeridCentral::ChipInfo> chipInfo) {
   ORB_TRACE(traceHandle(), traceProgrammer, "recoverTables") << "Recover L3OverlayTunnel tables";
   FLIT(traceHandle(), traceProgrammer, "{}: {}", typeName, "Recover L3OverlayTunnel tables");
   requireModuleInfo();
   // The interface tables of the other setting are taken over too when the
   // chip holds rows of theirs (the agent ran with the toggle flipped before
   // the restart): their rows name tunnels and are named by next hops, so
   // they pin like the rest and the reconcile deletes them.
   Asic::RecoverGroup recoverGroup;
   std::vector<Asic::SwTable*> published;
   bool former = false;
   TableCatalogue::forEach([&]<class Line>() {
      using Table = typename Line::Table;
      const bool inUse = Line::inUse(commonIifOifIndex());
      if (!inUse) {
         bool rows = false;
         Line::Hw::forEach([&]<class Hw>() { rows = rows || hwTableRowsFound<Hw>(); });
         if (!rows) return;
         former = true;
      }
      auto& t = std::get<Brio::Ptr<Table>>(inUse ? tables_ : formerTables_);
      t = Line::make();
      if constexpr (std::is_base_of_v<Asic::SwTable, Table>) {
         recoverGroup.tableIs(*t, tableUnit, ledgerEm_, chipInfo);
         if (inUse) published.push_back(t.ptr());
      } else {
         // A merged table learns its indices from its members' rows itself.
         t->doInit(tableUnit, ledgerEm_, chipInfo);
         if (inUse) t->doPublishHwTableMountInfo();
      }
   });
   if (former) {
      ORB_TRACE(traceHandle(), traceProgrammer, "recoverTables")
          << " rows of the other interface setting found: taken over until the reconcile";
   }
   recoverGroup.recover();
   for (auto* t : published) t->doPublishHwTableMountInfo();
   ecmpGroup1TableFind();
   // Before the drop entry, the first handle: a pin is a count until the
   // table makes the pinned entry's handle.
   recoveredRowPinsIs();
   programReservedTunnelDropEntry();
}

namespace {

// A recovered table as the row references see it: the rows it holds, the
// pins on its indices and the key holding each index.
struct Recovered {
   std::string_view name;
   const Asic::SwTable* rows = nullptr;
   Brio::Ptr<Asic::IndexPins> pins;
   const Asic::GenericIndexAllocator* keys = nullptr;
   // The named table already has handles (another component filled it): a
   // pinned index's is handed over at once, and an index without one names
   // nothing to pin.
   bool filled = false;
   std::vector<Asic::SwTableBase::EntryHandle::PtrConst> handles;
};

// Whether a table's rows name others (`as` the table) or are named (`as` named).
constexpr bool listed(std::string_view name, std::string_view RowReference::*as) {
   return std::any_of(rowReferences.begin(), rowReferences.end(),
                      [&](const RowReference& r) { return r.*as == name; });
}

// The table holding the rows of hardware table `Hw`: the table itself, or
// the merged table's member.
template <class Hw, class Table>
const Asic::SwTable& rowsHolder(const Table& t) {
   if constexpr (std::is_same_v<Hw, Table>)
      return t;
   else
      return *t.template memberTable<Hw>();
}

template <class Table>
Recovered recovered(const Table& t, std::string_view name) {
   ORB_ASSERT(t.entryHandles() == 0) << t.name() << " has handles before its pins";
   return {name, nullptr, t.indexPins(), t.indexAllocator().ptr(), false, {}};
}

}  // namespace

// A row found at the recovery and not yet claimed by the replay names entries
// by index only, which holds nothing: the replay could let such an entry go,
// deleting its row and freeing its index under the row naming it. So each
// such row pins what it names until the row is written or deleted (by the
// replay, or by the reconcile). What names what is rowReferences'.
//
// A row naming an index beyond the named table is corrupt hardware content:
// it pins nothing (it names no entry this agent could let go), is traced,
// and stays until the replay writes it or the reconcile deletes it.
void L3TunnelOverlayEcmpProgrammer::recoveredRowPinsIs() {
   std::vector<Recovered> tables;
   auto rowsOf = [&](const Asic::SwTable& t) {
      tables.push_back({t.name(), &t, nullptr, nullptr, false, {}});
   };
   TableCatalogue::forEach([&]<class Line>() {
      using Table = typename Line::Table;
      for (const auto* held : {&tables_, &formerTables_}) {
         const auto& t = std::get<Brio::Ptr<Table>>(*held);
         if (!t) continue;
         Line::Hw::forEach([&]<class Hw>() {
            if constexpr (listed(Hw::typeName, &RowReference::table)) {
               rowsOf(rowsHolder<Hw>(*t));
            }
            // The table that gives out the index names it.
            if constexpr (listed(Hw::typeName, &RowReference::named))
               tables.push_back(recovered(*t, Hw::typeName));
         });
      }
   });
   // The underlay groups' table the sibling component has filled already.
   if (ecmpGroup1Table_)
      tables.push_back({EcmpGroup1Table::typeName, nullptr, ecmpGroup1Table_->indexPins(), nullptr,
                        true, ecmpGroup1Table_->entryByIndex()});

   // The drop entry names no interface.
   auto& nh = *l3TunnelIngL3NextHopTable();
   const Asic::Index drop = nh.indexAllocator()
                                ? nh.indexAllocator()->indexForKey(getTunnelDropKey())
                                : Asic::invalidIndex;
   std::vector<Recovered*> named;
   for (auto& rows : tables) {
      const Asic::SwTable* t = rows.rows;
      if (!t || !t->util() || !t->hwTable()) continue;
      const auto* rowKeys = t == &nh ? nh.indexAllocator().ptr() : nullptr;
      for (const RowReference& ref : rowReferences) {
         // Each field once, with all the tables it may name.
         if (ref.table != rows.name || ref.alternative != 0) continue;
         const RowReference* const end = alternativesEnd(&ref);
         for (Asic::Index i = 0; i < t->numEntries(); ++i) {
            const auto index = t->util()->hwTableEntryIndexField(*t->hwTable(), i, ref.read);
            if (!index || (t == &nh && i == drop)) continue;
            // The tables it may name that have the index; of those, the ones
            // whose row there has this row's key, when any has.
            named.clear();
            for (const RowReference* alt = &ref; alt != end; ++alt)
               for (auto& n : tables)
                  if (n.name == alt->named && n.pins && *index < n.pins->indices())
                     named.push_back(&n);
            if (named.size() > 1 && rowKeys) {
               const auto key = rowKeys->keyForIndex(i);
               auto sameKey = [&](const Recovered* n) {
                  return key && n->keys && n->keys->keyForIndex(*index) == key;
               };
               if (std::any_of(named.begin(), named.end(), sameKey))
                  std::erase_if(named, [&](const Recovered* n) { return !sameKey(n); });
            }
            if (named.empty()) {
               ORB_TRACE(traceHandle(), traceProgrammer, "recoveredRowPinsIs")
                   << " " << rows.name << " row " << i << ": '" << ref.field << "' names " << *index
                   << ", outside the table it names: pins nothing";
               continue;
            }
            for (Recovered* n : named) {
               if (n->filled) {
                  // A group that is gone holds nothing to pin.
                  if (*index >= n->handles.size() || !n->handles[*index]) continue;
                  const_cast<Asic::SwTable*>(t)->recoveredRowPinIs(i, n->pins, *index);
                  n->pins->handleIs(*index, n->handles[*index]);
               } else {
                  const_cast<Asic::SwTable*>(t)->recoveredRowPinIs(i, n->pins, *index);
               }
            }
         }
      }
   }
}

void L3TunnelOverlayEcmpProgrammer::purgeStaleEntries() {
   ORB_TRACE(traceHandle(), traceProgrammer, "purgeStaleEntries") << "Purge stale entries";
   // Members first: their rows name next hops, which name interfaces, which
   // name tunnels. A stale row's delete lets go of what it held.
   // Every row of the other setting's tables is stale: nothing writes them.
   TableCatalogue::forEach([&]<class Line>() {
      for (auto* held : {&tables_, &formerTables_})
         if (const auto& t = std::get<Brio::Ptr<typename Line::Table>>(*held))
            t->purgeStaleEntries();
   });
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
   const HandlePtrConst handle = reservedTunnelDropEntryCommit(*l3TunnelIngL3NextHopTable());
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
      HandlePtrConst drop = l3TunnelIngL3NextHopTable()->entryWeakRef(getTunnelDropKey());
      fullTraced(drop, " L3TunnelNextHopTable is Full ");
      return drop;
   }

   const L3TunnelKey key(viaEntry.srcIpAddr(), viaEntry.dstIpAddr());
   const HandlePtrConst tunnel = l3EgrL3Ipv4TunnelTable()->entryRef(
       key, L3EgrL3Ipv4TunnelTable::Entry(true, false, viaEntry.srcIpAddr(),
                                          uint8_t(viaEntry.ttl() & 0xFF), viaEntry.dstIpAddr(),
                                          U5(tunnelStrength)));
   fullTraced(tunnel, " L3EgrL3IpTunnelTables is Full ");

   HandlePtrConst oif;
   if (!commonIifOifIndex()) {
      oif = l3TunnelEgrL3Oif1Table()->entryRef(
          key, L3TunnelEgrL3Oif1Table::Entry(tunnel, 0, 0, U5(interfaceStrength)));
   } else {
      const EgrL3Oif1Table::Entry egress(tunnel, 0, 0, U5(interfaceStrength));
      oif =
          l3InterfaceTable()->entryCommit(key, L3InterfaceTable::Entry(IngL3Iif::Entry(), egress));
   }
   fullTraced(oif, " L3TunnelEgrL3OifTable is Full ");

   HandlePtrConst nextHop = l3TunnelIngL3NextHopTable()->entryRef(
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
   if (HandlePtrConst drop = l3TunnelIngL3NextHopTable()->entryWeakRef(getTunnelDropKey());
       drop && drop->entryState() == Asic::SwTableBase::noHwIndex()) {
      for (uint32_t i = 0; i < vias; ++i) {
         if (viaList->via(VE_Via(i)).nhEntryType() != Plx::nextHopDrop()) continue;
         reservedTunnelDropEntryCommit(*l3TunnelIngL3NextHopTable());
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
   return l3EcmpMember0Table()->entryBlockRef(block);
}

}  // namespace MeridL3Tunnel
