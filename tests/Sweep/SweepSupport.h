#pragma once
// What the fault and restart sweeps share: the scenarios they run, the agent
// driven step by step, and views of the chip and the software that two runs
// can be compared by.
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Agent.h"
#include "Scenario.h"
#include "support/AgentInvariants.h"

namespace sweep {

using L3TunnelTool::Agent;
using L3TunnelTool::Scenario;
using L3TunnelTool::Step;
using Handle = Asic::SwTableBase::EntryHandle;
using Lines = std::vector<std::string>;  // findings; a check holds when it finds none

// The interface-table toggle of this process (SWEEP_COMMON_IIF_OIF_INDEX,
// default on); every scenario runs with it.
bool processToggle();
// The example scenarios but the deliberately bad one, and every *.json in
// the directories of L3TUNNEL_SWEEP_SCENARIOS (colon-separated), sorted.
std::vector<std::string> scenarioFiles();
// The file's scenario with this process's toggle.
Scenario scenarioFor(const std::string& file);
// The same for a scenario given as text; `name` names it in messages.
Scenario scenarioOf(const std::string& text, const std::string& name);
// A test name for the scenario file, the `index`-th swept: its stem, made of
// letters, digits and _.
std::string testName(const std::string& file, size_t index);

// An agent started afresh, whose steps each run until the loop is idle; it
// runs the first `count` of `steps`.
void startFresh(Agent& agent, const std::vector<Step>& steps = {}, size_t count = 0);
void runSteps(Agent& agent, const std::vector<Step>& steps, size_t first, size_t end);
// What `view` returns of an agent started afresh after the scenario's first `count` steps.
template <class View>
auto afterSteps(const Scenario& scenario, size_t count, View view) {
   Agent agent(scenario);
   startFresh(agent, scenario.steps, count);
   return view(agent);
}
// Restart, then program every group that held a block before it, with its
// vias, leaving out `skipped`.
void restartAndReplay(Agent& agent, const std::optional<std::string>& skipped = std::nullopt);
std::vector<Step> replaySteps(const std::map<std::string, Agent::Vias>& groups,
                              const std::optional<std::string>& skipped = std::nullopt);

// Row text by table (unqualified name) and index.
using Rows = std::map<std::string, std::map<uint32_t, std::string>>;
Rows rowsOf(const AsicSim::Chip& chip);
// The rows, with their indices, that only one side has, for messages.
std::string rowsDiff(const Rows& want, const Rows& got);
// Each group's block state by name.
std::map<std::string, std::string> groupStates(const Agent& agent);
// One line per row change, sorted: the order the software issued them in
// does not count.
Lines changesOf(const std::vector<AsicSim::Chip::RowChange>& journal);

// An index space: the indices its allocator holds and the indices a table
// of it has a row at. The merged interface space appears once per member
// table, the tunnel space once for both tunnel tables.
struct Space {
   std::string table;  // the hardware table, qualified
   std::set<uint32_t> held;
   std::set<uint32_t> rows;
};
std::vector<Space> spacesOf(const Agent& agent);
// Held indices without a row and rows without a held index, per space.
std::vector<std::string> allocatorRowMismatches(const Agent& agent);

// The software handles answering for the row `index` of hardware table
// `table` (qualified): the key's handle that holds the index, for a merged
// member row also the merged handle, for a member row the block holding it.
std::vector<const Handle*> ownersOf(const Agent& agent, const std::string& table, uint32_t index);
// Every handle a block's members name, down their chains: next hops,
// interfaces (and merged members), tunnels, underlay groups.
std::vector<const Handle*> chainHandlesOf(const Handle& block);

// The chain a member row leads to, read from the rows and the row keys
// alone: the member, its next hop, interface and tunnel, with the keys the
// chip keeps and without the indices that link them. Faults found on the
// way (a chain that breaks, keys that disagree) go to `faults`.
std::string memberChain(const AsicSim::Chip& chip, bool commonIifOifIndex, uint32_t row,
                        std::vector<std::string>& faults);
// Every member block on the chip, as the chains of its rows, sorted.
std::vector<std::vector<std::string>> blockChains(const AsicSim::Chip& chip, bool commonIifOifIndex,
                                                  std::vector<std::string>& faults);
// The chains of each group's block, for groups whose block holds a range.
std::map<std::string, std::vector<std::string>> groupChains(const Agent& agent,
                                                            std::vector<std::string>& faults);
// Per table, its rows as key and content without the indices that link
// rows, sorted: two chips agree on it when they hold the same rows up to
// where they put them.
using Canonical = std::map<std::string, std::vector<std::string>>;
Canonical canonicalRows(const AsicSim::Chip& chip);
// The lines only one side has, per table, for messages.
std::string canonicalDiff(const Canonical& want, const Canonical& got);

}  // namespace sweep
