#pragma once
// The object through which the forwarding agent programs overlay (IP-in-IP)
// ECMP groups: it makes and wires the tunnel tables, installs the reserved
// tunnel drop next hop, and turns each group's via list into a block of ECMP
// members whose next hops are tunnel chains (tunnel -> interface -> next hop).
//
// Lifecycle, driven by the agent: created by its factory -> mount information
// registered (doMountHwTableMountInfo) -> initTables (tables made, emptied,
// drop entry installed) -> populateOverlayEcmpBlock per group -> destroyed
// with its last reference. It keeps no record of the groups it built: what
// stays programmed is what the returned block handles keep alive.
#include "Asic/SwTableBase.h"
#include "Brio/Allocator.h"
#include "Brio/Ptr.h"
#include "Brio/Publisher.h"
#include "Ledger/EntityManager.h"
#include "Ledger/MountGroup.h"
#include "Local/EntityManager.h"
#include "MeridCentral/ChipInfo.h"
#include "MeridCentral/FeatureAgentCommonSmData.h"
#include "MeridL3Tunnel/Export.h"
#include "MeridL3Tunnel/L3TunnelKey.h"
#include "MeridL3Tunnel/L3TunnelOverlayVia.h"
#include "MeridL3Tunnel/TableCatalogue.h"
#include "Orb/Trace.h"
#include "SharedL3/EcmpGroup1Table.h"

namespace MeridL3Tunnel {

class MERID_API L3TunnelOverlayEcmpProgrammer
    : public Brio::PtrInterface,
      public Brio::TrackedAllocation<L3TunnelOverlayEcmpProgrammer> {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer";
   using HandlePtrConst = Asic::SwTableBase::EntryHandle::PtrConst;
   using FcsdPtr = Brio::Ptr<const MeridCentral::FeatureAgentCommonSmData>;
   using LocalEmPtr = Brio::Ptr<const Local::EntityManager>;
   using LedgerEmPtr = Brio::Ptr<Ledger::EntityManager>;

   // Every table is initialised on this unit.
   static constexpr Asic::UnitId tableUnit = 0x1FF;
   static constexpr std::string_view ecmpGroupPath = EcmpGroup1Table::mountPath;

   // "CommonIifOifIndex" in "MeridL3.json" (default on), read on the first
   // call and kept for the life of the process. On: the tunnel interface is
   // the merged L3InterfaceTable; off: L3TunnelEgrL3Oif1Table.
   static bool commonIifOifIndex();

   // Attributes.
   const FcsdPtr& fcsd() const { return fcsd_; }
   const LocalEmPtr& localEm() const { return localEm_; }
   const LedgerEmPtr& ledgerEm() const { return ledgerEm_; }
   // The catalogue's table of type T; null until the tables are made, and
   // for an interface table the interface setting does not use.
   template <class T>
   const Brio::Ptr<T>& table() const {
      return std::get<Brio::Ptr<T>>(tables_);
   }
   const Brio::Ptr<L3EcmpMember0Table>& l3EcmpMember0Table() const {
      return table<L3EcmpMember0Table>();
   }
   const Brio::Ptr<L3TunnelIngL3NextHopTable>& l3TunnelIngL3NextHopTable() const {
      return table<L3TunnelIngL3NextHopTable>();
   }
   const Brio::Ptr<L3TunnelEgrL3Oif1Table>& l3TunnelEgrL3Oif1Table() const {
      return table<L3TunnelEgrL3Oif1Table>();
   }
   const Brio::Ptr<L3EgrL3Ipv4TunnelTable>& l3EgrL3Ipv4TunnelTable() const {
      return table<L3EgrL3Ipv4TunnelTable>();
   }
   const Brio::Ptr<L3EgrL3Ipv6TunnelTable>& l3EgrL3Ipv6TunnelTable() const {
      return table<L3EgrL3Ipv6TunnelTable>();
   }
   const Brio::Ptr<L3InterfaceTable>& l3InterfaceTable() const { return table<L3InterfaceTable>(); }
   const Brio::Ptr<const EcmpGroup1Table>& ecmpGroup1Table() const { return ecmpGroup1Table_; }

   bool notification() const { return notification_; }
   void notificationIs(bool on) { notification_ = on; }
   Brio::Publisher& publisher() { return publisher_; }

   // Registers the hardware mount information of every table class the
   // programmer will make.
   void doMountHwTableMountInfo(Ledger::MountGroup& mountGroup) const;
   // Makes, initialises and empties every table, finds the shared underlay
   // group table and installs the reserved tunnel drop next hop. Stops the
   // process when the agent's common state lacks its module information, a
   // table is not empty, or the drop entry cannot be installed.
   void initTables(Brio::Ptr<const MeridCentral::ChipInfo> chipInfo);
   // After an agent restart, in place of initTables: makes the same tables,
   // re-attaches each to the rows its hardware table kept and learns which
   // indices they use, empties nothing, and installs the drop entry (on its
   // old row). The agent then replays its groups and calls purgeStaleEntries.
   void recoverTables(Brio::Ptr<const MeridCentral::ChipInfo> chipInfo);
   // The replay is done: rows found at the recovery that no write has claimed
   // since are deleted from every table and their indices freed.
   void purgeStaleEntries();

   // The key of the reserved drop next hop: both addresses IPv4 zero.
   static L3TunnelKey getTunnelDropKey();
   void programReservedTunnelDropEntry();

   // The tunnel next hop of one via: the head of its tunnel chain, or the
   // reserved drop next hop for a dropping via.
   HandlePtrConst fillOverlayNextHopInfo(const L3TunnelOverlayViaEntry& viaEntry);
   // The via's underlay group (weakly), or the placeholder for a dropping via.
   HandlePtrConst getUnderlayAdjacency(const L3TunnelOverlayViaEntry& viaEntry) const;
   // The handle of the member block of one group: each via takes `weight`
   // consecutive slots.
   HandlePtrConst populateOverlayEcmpBlock(Brio::Ptr<const L3TunnelOverlayVia> viaList);

   static const Orb::TraceHandle& traceHandle();

private:
   friend MERID_API Brio::Ptr<L3TunnelOverlayEcmpProgrammer> L3TunnelOverlayEcmpProgrammerIs(
       FcsdPtr, LocalEmPtr, LedgerEmPtr);
   L3TunnelOverlayEcmpProgrammer(FcsdPtr fcsd, LocalEmPtr localEm, LedgerEmPtr ledgerEm);
   ~L3TunnelOverlayEcmpProgrammer() override;

   template <class Table>
   void initTable(Table& table, const Brio::Ptr<const MeridCentral::ChipInfo>& chipInfo);
   void requireModuleInfo() const;
   void ecmpGroup1TableFind();
   void recoveredRowPinsIs();

   // Declaration order is the order of the attributes; destruction releases
   // them in reverse.
   FcsdPtr fcsd_;
   LocalEmPtr localEm_;
   LedgerEmPtr ledgerEm_;
   CatalogueTables tables_;
   Brio::Ptr<const EcmpGroup1Table> ecmpGroup1Table_;
   // The interface tables of the other toggle setting, when a restart found
   // rows of theirs: kept so that the reconcile deletes those rows.
   CatalogueTables formerTables_;
   Brio::Publisher publisher_;
   bool notification_ = false;
};

MERID_API Brio::Ptr<L3TunnelOverlayEcmpProgrammer> L3TunnelOverlayEcmpProgrammerIs(
    L3TunnelOverlayEcmpProgrammer::FcsdPtr fcsd, L3TunnelOverlayEcmpProgrammer::LocalEmPtr localEm,
    L3TunnelOverlayEcmpProgrammer::LedgerEmPtr ledgerEm);

extern "C" MERID_API Brio::Ptr<L3TunnelOverlayEcmpProgrammer> l3TunnelOverlayEcmpProgrammerFactory(
    L3TunnelOverlayEcmpProgrammer::FcsdPtr fcsd, L3TunnelOverlayEcmpProgrammer::LocalEmPtr localEm,
    L3TunnelOverlayEcmpProgrammer::LedgerEmPtr ledgerEm);

}  // namespace MeridL3Tunnel
