#pragma once
// The forwarding agent on the simulated chip, as far as overlay ECMP groups
// go: it owns the chip, sets the programmer up as the agent does at start (or
// after a restart), and plays a scenario's steps. What it holds is read out
// by Snapshot; printing is someone else's business.
//
// The programmer reads its toggle once per process, so one process runs the
// scenarios of one toggle setting only.
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "AgentSetup.h"
#include "Asic/SwTableBase.h"
#include "AsicSim/Chip.h"
#include "Brio/Ptr.h"
#include "Ledger/EntityManager.h"
#include "MeridCentral/ChipInfo.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "Scenario.h"

namespace L3TunnelTool {

class Agent {
public:
   using HandlePtr = Asic::SwTableBase::EntryHandle::PtrConst;

   // Makes the chip and fixes the scenario's toggles for the process; sets
   // nothing up yet. Throws std::logic_error when this process already runs
   // with other toggle values.
   explicit Agent(const Scenario& scenario);
   ~Agent();
   Agent(const Agent&) = delete;
   Agent& operator=(const Agent&) = delete;

   // Before start: the rows a previous process saved. Throws
   // std::runtime_error naming the file when it is unusable, or when its
   // tables are not the size the scenario gives them.
   void chipStateLoad(const std::string& path);
   void chipStateSave(const std::string& path) const;
   // Rows the chip holds, over all its tables.
   uint32_t rowsHeld() const;
   // Whether this process has written or deleted any row.
   bool chipTouched() const;

   // Sets the programmer up: a fresh start, or a recovery from the rows the
   // chip holds.
   void start(bool recover);
   void stepRun(const Step& step);
   // Delivers every outstanding write response.
   void settle();

   const Scenario& scenario() const { return scenario_; }
   const AsicSim::Chip& chip() const { return *chip_; }
   // For tests that steer the chip (faults, responses, the row journal).
   AsicSim::Chip& chip() { return *chip_; }
   const MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer* programmer() const {
      return setup_.programmer.ptr();
   }
   // Groups that hold a block, by name.
   const std::map<std::string, HandlePtr>& groups() const { return groups_; }
   // The vias each of those groups was last programmed with: what the agent
   // replays after a restart.
   using Vias = std::vector<MeridL3Tunnel::L3TunnelOverlayViaEntry>;
   const std::map<std::string, Vias>& groupVias() const { return groupVias_; }
   bool commonIifOifIndex() const;

   // The agent stands for the component owning the underlay group table: a
   // group made again after a restart asks for the index it had (`wanted`).
   void underlayIs(const MeridL3Common::L3AdjIdKey& key, uint32_t wanted);
   void underlayDel(const MeridL3Common::L3AdjIdKey& key);
   bool underlayHas(const MeridL3Common::L3AdjIdKey& key) const;
   // What an adjacency is to an operator ("172.16.0.2 dev veth0"), where the
   // agent knows it.
   void underlayNameIs(uint32_t adjId, std::string name) {
      underlayNames_[adjId] = std::move(name);
   }
   const std::string* underlayName(uint32_t adjId) const {
      auto it = underlayNames_.find(adjId);
      return it == underlayNames_.end() ? nullptr : &it->second;
   }

   // Groups known to the agent that hold no block, with the reason, and the
   // routes naming each group: what a kernel it follows says of them.
   struct GroupNote {
      std::optional<std::string> reason;
      std::vector<std::string> routes;
   };
   const std::map<std::string, GroupNote>& groupNotes() const { return groupNotes_; }
   void groupNoteIs(const std::string& group, GroupNote note);
   void groupNoteDel(const std::string& group) { groupNotes_.erase(group); }

private:
   void softwareIs();
   void programmerDel();
   void restart();

   Scenario scenario_;
   Brio::Ptr<AsicSim::Chip> chip_;
   // The agent's software: destroyed and made again by a restart.
   Brio::Ptr<MeridCentral::ChipInfo> chipInfo_;
   Brio::Ptr<Ledger::EntityManager> ledgerEm_;
   AgentSetup setup_;
   std::map<std::string, HandlePtr> groups_;
   std::map<std::string, Vias> groupVias_;
   std::map<std::string, GroupNote> groupNotes_;
   std::map<uint32_t, std::string> underlayNames_;
};

}  // namespace L3TunnelTool
