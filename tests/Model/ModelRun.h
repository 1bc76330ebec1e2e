#pragma once
// Runs a generated op sequence against the overlay ECMP programmer on the
// simulated chip and against the reference model side by side, checks them
// after every op, and shrinks a failing sequence to a short one a developer
// can replay.
//
// After every op the event loop runs until idle. When the chip then holds no
// response back, the full check runs: the chip's rows against the model (in
// keys, through the indices the library's handles report), the invariant
// checker, and that every index a row names is in use. While responses are
// held back the invariant checker and the named-index check run; the full
// check follows at the next op that leaves nothing held. Throughout, every
// handle a client can hold is watched: success must follow inProgress.
#include <cstdint>
#include <functional>
#include <map>
#include <ostream>
#include <string>
#include <vector>

#include "Asic/SwTableBase.h"
#include "AsicSim/Chip.h"
#include "Model/ModelOps.h"
#include "support/Setup.h"

namespace model {

// The system under test, set up as the agent sets it up: the chip, the agent's
// common state, the shared underlay group table, the programmer, and the
// block handle each group holds.
class System {
public:
   using HandlePtr = Asic::SwTableBase::EntryHandle::PtrConst;
   using Programmer = MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer;

   explicit System(const RunConfig& config);
   ~System();
   System(const System&) = delete;
   System& operator=(const System&) = delete;

   const RunConfig& config() const { return config_; }
   AsicSim::Chip& chip() const { return *chip_; }
   Programmer& programmer() const { return *agent_.programmer; }
   MeridL3Tunnel::EcmpGroup1Table& underlay() const { return *agent_.underlay; }
   Brio::Ptr<AsicSim::HwTable> hw(HwTable t) const;
   // The block a group holds; null when it holds none.
   HandlePtr group(uint32_t g) const;

   // Hands a via list over and returns the block handle, without storing it.
   HandlePtr handOver(const std::vector<Via>& vias) const;
   // The group takes the new block, then lets the old one go.
   void groupIs(uint32_t g, HandlePtr block);
   void groupDel(uint32_t g);
   // The programmer goes first, then the groups' handles; the chip keeps its
   // rows (across processes: through a state file into a new chip), and a new
   // programmer recovers the tables from them.
   void restart(bool acrossProcesses);
   void uncommit(uint32_t key);
   // Delivers what the chip does not hold back and runs the loop until idle.
   void deliver();
   // Stops holding and failing, and delivers everything.
   void calm();

private:
   void programmerIs(bool recover);

   RunConfig config_;
   Brio::Ptr<AsicSim::Chip> chip_;
   Brio::Ptr<MeridCentral::ChipInfo> chipInfo_;
   Brio::Ptr<Ledger::EntityManager> ledger_;
   test::AgentSetup agent_;
   std::map<uint32_t, HandlePtr> groups_;
};

struct RunOptions {
   // Each op and its outcome, one line each, and the failing check's details.
   std::ostream* log = nullptr;
   // Tests: called after op `step` has run and drained, before its check.
   std::function<void(System&, uint32_t step)> tamper;
   // Tests: a further check; its lines count as violations.
   std::function<std::vector<std::string>(const System&, uint32_t step)> extraCheck;
   // Called before each op runs (a crash then still names its op).
   std::function<void(uint32_t step)> progress;
   // With a log: the chip's rows after every op, not only at a failure.
   bool dumpEach = false;
};

struct RunResult {
   bool failed = false;
   // The op after which the check failed; the op count when the end of the run failed.
   uint32_t step = 0;
   std::vector<std::string> violations;  // "category: detail"
   uint32_t fullChecks = 0;
   uint32_t excused = 0;       // model entries a client-visible state excused, over all checks
   uint32_t strictChecks = 0;  // full checks after a settle that excused nothing a group names
   uint32_t flapChecks = 0;    // restarts whose replay had to change no row
};

RunResult runOps(const RunConfig& config, const std::vector<Op>& ops,
                 const RunOptions& options = {});

// Runs one op sequence: runOps, or something that survives a crash.
using Runner = std::function<RunResult(const std::vector<Op>& ops)>;

struct Shrunk {
   RunResult original;
   std::vector<uint32_t> prefix;  // indices of the shortest failing prefix
   std::vector<uint32_t> kept;    // that prefix with every droppable single op dropped
   RunResult last;                // the failing run of `kept`
   uint32_t runs = 0;
};
// The ops are deterministic from the seed: the shortest failing prefix ends
// at the first failing op (or, for a failure at the end of the run, is found
// by trying longer prefixes); then single ops are dropped while the run still
// fails with the same kind of violation, within `maxRuns` runs.
Shrunk shrink(const std::vector<Op>& ops, const RunResult& failed, const Runner& run,
              uint32_t maxRuns = 400);

// The seed, the violations and the shrunk ops, one op a line, with the
// command that replays them.
std::string failureReport(const RunConfig& config, uint32_t opCount, const std::vector<Op>& ops,
                          const Shrunk& s);

// The kind of a violation: its text up to the first colon.
std::string category(const std::string& violation);

}  // namespace model
