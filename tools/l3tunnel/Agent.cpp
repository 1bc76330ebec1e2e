#include "Agent.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>

#include "Brio/EventLoop.h"
#include "ChipCheck.h"
#include "MeridL3Unicast/L3NextHopAttributes.h"
#include "Toggle/ToggleState.h"

namespace L3TunnelTool {

using MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer;

namespace {

constexpr Asic::UnitId unit = L3TunnelOverlayEcmpProgrammer::tableUnit;

// The toggles this process runs with, once fixed.
std::optional<std::map<std::string, bool, std::less<>>> fixedToggles;

// Puts the environment variable back as it was.
class EnvRestore {
public:
   explicit EnvRestore(const char* name) : name_(name) {
      if (const char* v = std::getenv(name)) previous_ = v;
   }
   ~EnvRestore() {
      if (previous_)
         setenv(name_, previous_->c_str(), 1);
      else
         unsetenv(name_);
   }
   EnvRestore(const EnvRestore&) = delete;
   EnvRestore& operator=(const EnvRestore&) = delete;

private:
   const char* name_;
   std::optional<std::string> previous_;
};

// The programmer reads its toggle from a file once per process. The file
// lives in a private directory only until that read has happened, so that
// nothing is left behind whatever way the process ends later, and the
// caller's own toggle directory is never consulted.
void togglesFix(const std::map<std::string, bool, std::less<>>& toggles) {
   if (fixedToggles) {
      if (*fixedToggles != toggles)
         throw std::logic_error("the toggles are read once per process; this one runs others");
      return;
   }
   namespace fs = std::filesystem;
   const char* tmp = std::getenv("TMPDIR");
   std::string pattern =
       (tmp && *tmp ? std::string(tmp) : std::string("/tmp")) + "/l3tunnel-XXXXXX";
   if (!mkdtemp(pattern.data()))
      throw std::runtime_error("cannot make a directory for the toggles in " + pattern + ": " +
                               std::strerror(errno));
   const fs::path dir(pattern);
   struct Cleanup {
      fs::path dir;
      ~Cleanup() {
         std::error_code ec;
         fs::remove_all(dir, ec);
      }
   } cleanup{dir};
   {
      nlohmann::json doc = nlohmann::json::object();
      for (const auto& [name, on] : toggles) doc[name] = on;
      std::ofstream out(dir / std::string(toggleFileName));
      out << doc.dump() << "\n";
      if (!out.flush()) throw std::runtime_error("cannot write the toggles to " + dir.string());
   }
   EnvRestore restore(toggleDirVariable);
   setenv(toggleDirVariable, dir.c_str(), 1);
   const bool on = L3TunnelOverlayEcmpProgrammer::commonIifOifIndex();
   if (on != toggles.at("CommonIifOifIndex"))
      throw std::logic_error("CommonIifOifIndex was read before the scenario could set it");
   fixedToggles = toggles;
}

}  // namespace

Agent::Agent(const Scenario& scenario) : scenario_(scenario) {
   togglesFix(scenario_.toggles);
   chip_ = Brio::makePtr<AsicSim::Chip>();
   chip_->install();
}

Agent::~Agent() {
   programmerDel();
   groups_.clear();
   settle();
   chip_->uninstall();
}

// The programmer lets its tables go in an order that deletes no row, so the
// groups' blocks dropped after it delete none either.
void Agent::programmerDel() { setup_.programmer = nullptr; }

bool Agent::commonIifOifIndex() const { return L3TunnelOverlayEcmpProgrammer::commonIifOifIndex(); }

void Agent::chipStateLoad(const std::string& path) {
   chip_->stateLoad(path);
   for (const auto& t : hardwareTableClasses()) {
      auto hw = chip_->table(t.qualifiedName, unit);
      if (!hw) continue;
      const uint32_t wanted = scenario_.tableSize(t.name);
      if (hw->numEntries() != wanted)
         throw std::runtime_error(path + ": " + std::string(t.name) + " has " +
                                  std::to_string(hw->numEntries()) +
                                  " rows there, the scenario gives it " + std::to_string(wanted));
   }
   // Rows naming indices beyond their tables are refused here, before the
   // library sees them.
   chipRowReferencesCheck(*chip_, path, [&](std::string_view table) {
      if (table == MeridL3Tunnel::EcmpGroup1Table::typeName)
         return MeridL3Tunnel::EcmpGroup1Table::defaultIndexCount;
      return scenario_.tableSize(unqualifiedName(table));
   });
}

void Agent::chipStateSave(const std::string& path) const { chip_->stateSave(path); }

bool Agent::chipTouched() const {
   for (const auto& name : chip_->tableNames())
      if (auto hw = chip_->table(name, unit); hw && (hw->stats().writes || hw->stats().deletes))
         return true;
   return false;
}

uint32_t Agent::rowsHeld() const {
   uint32_t rows = 0;
   for (const auto& name : chip_->tableNames())
      if (auto hw = chip_->table(name, unit)) rows += hw->usedRows();
   return rows;
}

// What the agent has before it loads the library.
void Agent::softwareIs() {
   chipInfo_ = Brio::makePtr<MeridCentral::ChipInfo>();
   chipInfo_->isTestChipIs(scenario_.testChip);
   for (const auto& t : hardwareTableClasses())
      chipInfo_->tableSizeIs(t.qualifiedName, scenario_.tableSize(t.name));
   if (!scenario_.testChip) {
      // A production chip says how it lays its next hops out; this one keeps
      // tunnel next hops in the ordinary next hops' index space.
      auto profile = Brio::makePtr<Asic::ChipProfile>();
      profile->featureIs(Brio::makePtr<MeridL3Unicast::L3NextHopAttributes>(false));
      chipInfo_->chipProfileIs(profile);
   }
   setup_.begin(scenario_.underlay);
   ledgerEm_ = Brio::makePtr<Ledger::EntityManager>();
}

void Agent::start(bool recover) {
   softwareIs();
   setup_.programmerIs(chipInfo_, ledgerEm_, recover);
}

// Everything in software goes, the chip keeps its rows.
void Agent::restart() {
   programmerDel();
   groups_.clear();
   groupVias_.clear();
   groupNotes_.clear();
   settle();
   ledgerEm_ = nullptr;
   setup_.end();
   chipInfo_ = nullptr;
   start(true);
}

void Agent::stepRun(const Step& step) {
   switch (step.op) {
      case Step::Op::program: {
         auto list = MeridL3Tunnel::l3TunnelOverlayViaFactory();
         for (const auto& v : step.vias) list->viaPush(v);
         HandlePtr block = setup_.programmer->populateOverlayEcmpBlock(list);
         // Taken before the old block is let go, so that what both share stays.
         HandlePtr old = std::move(groups_[step.group]);
         groups_[step.group] = std::move(block);
         old = nullptr;
         groupVias_[step.group] = step.vias;
         break;
      }
      case Step::Op::release:
         groups_.erase(step.group);
         groupVias_.erase(step.group);
         break;
      case Step::Op::restart:
         restart();
         break;
      case Step::Op::reconcile:
         setup_.programmer->purgeStaleEntries();
         break;
   }
}

void Agent::underlayIs(const MeridL3Common::L3AdjIdKey& key, uint32_t wanted) {
   setup_.underlay->entryIs(key, Asic::SwTableBase::success(), wanted);
}

void Agent::underlayDel(const MeridL3Common::L3AdjIdKey& key) { setup_.underlay->entryDel(key); }

bool Agent::underlayHas(const MeridL3Common::L3AdjIdKey& key) const {
   return setup_.underlay && setup_.underlay->entryHas(key);
}

void Agent::groupNoteIs(const std::string& group, GroupNote note) {
   if (!note.reason && note.routes.empty())
      groupNotes_.erase(group);
   else
      groupNotes_[group] = std::move(note);
}

void Agent::settle() { Brio::EventLoop::instance().runUntilIdle(); }

}  // namespace L3TunnelTool
