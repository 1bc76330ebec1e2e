#include "SweepSupport.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <sstream>

#include "SharedL3/L3EcmpMember0Table.h"
#include "support/Installed.h"
#include "support/RowText.h"

namespace sweep {

using namespace MeridL3Tunnel;
using L3TunnelTool::hardwareTableClasses;
using L3TunnelTool::unqualifiedName;

namespace {

constexpr Asic::UnitId unit = L3TunnelOverlayEcmpProgrammer::tableUnit;
using NextHopHandle = L3TunnelIngL3NextHopTable::EntryHandle;
using OifHandle = L3TunnelEgrL3Oif1Table::EntryHandle;
using MergedHandle = L3InterfaceTable::EntryHandle;
using Block = L3EcmpMember0Table::EntryHandle;

template <class Alloc>
std::set<uint32_t> heldOf(const Alloc& alloc) {
   std::set<uint32_t> held;
   if (alloc) alloc->forEachHeldIndex([&](Asic::Index i, const auto&) { held.insert(i); });
   return held;
}

std::set<uint32_t> rowIndices(const AsicSim::Chip& chip, std::string_view table) {
   std::set<uint32_t> rows;
   if (auto hw = chip.table(table, unit))
      for (uint32_t i = 0; i < hw->numEntries(); ++i)
         if (hw->row(i)) rows.insert(i);
   return rows;
}

// The handle of the key that holds `index` in the table's allocator.
template <class TablePtr>
const Handle* handleAt(const TablePtr& t, uint32_t index) {
   using Key = typename std::remove_cvref_t<decltype(*t)>::Key;
   const auto key =
       t && t->indexAllocator() ? t->indexAllocator()->keyForIndex(index) : std::nullopt;
   const auto* k = key ? key->template as<Key>() : nullptr;
   return k ? t->entryHandle(*k).ptr() : nullptr;
}

// The value standing for a key of a table whose entries name another: the
// one in hardware, else the one waiting.
template <class Table>
std::optional<typename Table::Entry> valueOf(const Table& t, const typename Table::Key& key) {
   if (auto v = t.resolvedEntry(key)) return *v;
   if (auto ue = t.unresolvedEntry(key)) return ue->entry();
   return std::nullopt;
}

}  // namespace

bool processToggle() {
   const char* e = std::getenv("SWEEP_COMMON_IIF_OIF_INDEX");
   return !e || std::string(e) != "0";
}

std::vector<std::string> scenarioFiles() { return test::sweptScenarios(L3TUNNEL_EXAMPLES); }

Scenario scenarioFor(const std::string& file) {
   Scenario s = L3TunnelTool::scenarioRead(file);
   s.toggles["CommonIifOifIndex"] = processToggle();
   return s;
}

Scenario scenarioOf(const std::string& text, const std::string& name) {
   Scenario s = L3TunnelTool::scenarioParse(text, name);
   s.toggles["CommonIifOifIndex"] = processToggle();
   return s;
}

std::string testName(const std::string& file, size_t index) {
   std::string name = std::filesystem::path(file).stem().string();
   for (char& c : name)
      if (!std::isalnum(static_cast<unsigned char>(c))) c = '_';
   // Scenarios from elsewhere may share an example's name.
   if (std::filesystem::path(file).parent_path() != std::filesystem::path(L3TUNNEL_EXAMPLES))
      name += "_" + std::to_string(index);
   return name;
}

void startFresh(Agent& agent, const std::vector<Step>& steps, size_t count) {
   agent.start(false);
   agent.settle();
   runSteps(agent, steps, 0, count);
}

void runSteps(Agent& agent, const std::vector<Step>& steps, size_t first, size_t end) {
   for (size_t i = first; i < end && i < steps.size(); ++i) {
      agent.stepRun(steps[i]);
      agent.settle();
   }
}

std::vector<Step> replaySteps(const std::map<std::string, Agent::Vias>& groups,
                              const std::optional<std::string>& skipped) {
   std::vector<Step> steps;
   for (const auto& [name, vias] : groups)
      if (!skipped || name != *skipped) steps.push_back({Step::Op::program, name, vias});
   return steps;
}

void restartAndReplay(Agent& agent, const std::optional<std::string>& skipped) {
   const auto replay = replaySteps(agent.groupVias(), skipped);
   agent.stepRun({Step::Op::restart, {}, {}});
   agent.settle();
   runSteps(agent, replay, 0, replay.size());
}

Rows rowsOf(const AsicSim::Chip& chip) {
   Rows rows;
   for (const auto& t : hardwareTableClasses()) {
      auto hw = chip.table(t.qualifiedName, unit);
      for (uint32_t i = 0; hw && i < hw->numEntries(); ++i)
         if (const std::string* r = hw->row(i)) rows[std::string(t.name)][i] = *r;
   }
   return rows;
}

std::string rowsDiff(const Rows& want, const Rows& got) {
   auto lines = [](const Rows& rows) {
      Canonical out;
      for (const auto& [t, rs] : rows)
         for (const auto& [i, text] : rs) out[t].push_back(std::to_string(i) + ": " + text);
      for (auto& [t, l] : out) std::sort(l.begin(), l.end());
      return out;
   };
   return canonicalDiff(lines(want), lines(got));
}

std::map<std::string, std::string> groupStates(const Agent& agent) {
   std::map<std::string, std::string> states;
   for (const auto& [name, h] : agent.groups())
      states[name] = std::string(Asic::SwTableBase::entryStateName(h->entryState()));
   return states;
}

Lines changesOf(const std::vector<AsicSim::Chip::RowChange>& journal) {
   Lines out;
   for (const auto& c : journal)
      out.push_back(c.table + "[" + std::to_string(c.index) + "] " + c.before.value_or("(clear)") +
                    " -> " + c.after.value_or("(clear)"));
   std::sort(out.begin(), out.end());
   return out;
}

std::vector<Space> spacesOf(const Agent& agent) {
   std::vector<Space> spaces;
   const auto* p = agent.programmer();
   if (!p) return spaces;
   const AsicSim::Chip& chip = agent.chip();
   auto keyed = [&](const auto& table, std::initializer_list<std::string_view> hwTables) {
      if (!table) return;
      Space s{std::string(hwTables.begin()[0]), heldOf(table->indexAllocator()), {}};
      for (auto t : hwTables) s.rows.merge(rowIndices(chip, t));
      spaces.push_back(std::move(s));
   };
   keyed(p->l3EgrL3Ipv4TunnelTable(),
         {L3EgrL3Ipv4TunnelTable::typeName, L3EgrL3Ipv6TunnelTable::typeName});
   keyed(p->l3TunnelIngL3NextHopTable(), {L3TunnelIngL3NextHopTable::typeName});
   keyed(p->l3TunnelEgrL3Oif1Table(), {L3TunnelEgrL3Oif1Table::typeName});
   if (const auto& merged = p->l3InterfaceTable()) {
      for (auto t : {IngL3Iif::typeName, EgrL3Oif1Table::typeName})
         spaces.push_back({std::string(t), heldOf(merged->indexAllocator()), rowIndices(chip, t)});
   }
   if (const auto& members = p->l3EcmpMember0Table()) {
      const std::string_view t = L3EcmpMember0Table::typeName;
      auto& held =
          spaces.emplace_back(std::string(t), std::set<uint32_t>(), rowIndices(chip, t)).held;
      for (uint32_t i = 0; i < members->indexAllocator().indexCount(); ++i)
         if (!members->indexAllocator().isFree(i)) held.insert(i);
   }
   return spaces;
}

std::vector<std::string> allocatorRowMismatches(const Agent& agent) {
   std::vector<std::string> out;
   for (const auto& s : spacesOf(agent)) {
      for (uint32_t i : s.held)
         if (!s.rows.count(i))
            out.push_back(std::string(unqualifiedName(s.table)) + ": index " + std::to_string(i) +
                          " is held without a row");
      for (uint32_t i : s.rows)
         if (!s.held.count(i))
            out.push_back(std::string(unqualifiedName(s.table)) + ": row " + std::to_string(i) +
                          " has no held index");
   }
   return out;
}

std::vector<const Handle*> ownersOf(const Agent& agent, const std::string& table, uint32_t index) {
   std::vector<const Handle*> owners;
   const auto* p = agent.programmer();
   if (!p) return owners;
   auto add = [&](const Handle* h) {
      if (h) owners.push_back(h);
   };
   const auto& merged = p->l3InterfaceTable();
   // The tunnel tables share one allocator.
   if (table == L3EgrL3Ipv4TunnelTable::typeName || table == L3EgrL3Ipv6TunnelTable::typeName) {
      add(handleAt(p->l3EgrL3Ipv4TunnelTable(), index));
      add(handleAt(p->l3EgrL3Ipv6TunnelTable(), index));
   } else if (table == L3TunnelIngL3NextHopTable::typeName) {
      add(handleAt(p->l3TunnelIngL3NextHopTable(), index));
   } else if (table == L3TunnelEgrL3Oif1Table::typeName) {
      add(handleAt(p->l3TunnelEgrL3Oif1Table(), index));
   } else if ((table == IngL3Iif::typeName || table == EgrL3Oif1Table::typeName) && merged) {
      if (table == IngL3Iif::typeName)
         add(merged->ingL3Iif()->entryHandle(IngL3Iif::Index(index)).ptr());
      else
         add(merged->egrL3Oif1Table()->entryHandle(EgrL3Oif1Table::Index(index)).ptr());
      if (merged->indexAllocator()) {
         const auto key = merged->indexAllocator()->keyForIndex(index);
         if (const auto* k = key ? key->as<L3TunnelKey>() : nullptr)
            add(merged->entryHandle(*k).ptr());
      }
   } else if (table == L3EcmpMember0Table::typeName && p->l3EcmpMember0Table()) {
      p->l3EcmpMember0Table()->forEachEntryBlock([&](const Block& b) {
         if (b.baseIndex() != Asic::invalidIndex && index >= b.baseIndex() &&
             index < b.baseIndex() + b.size())
            add(&b);
      });
   }
   return owners;
}

std::vector<const Handle*> chainHandlesOf(const Handle& blockHandle) {
   std::vector<const Handle*> chain;
   const auto& block = static_cast<const Block&>(blockHandle);
   for (const auto& m : block.entryBlock()) {
      if (const auto& u = m.underlayHandle()) chain.push_back(u.ptr());
      const auto& hop = m.nextHopHandle();
      if (!hop) continue;
      chain.push_back(hop.ptr());
      if (hop->fwkType() != Orb::typeId<NextHopHandle>()) continue;
      const auto& nh = static_cast<const NextHopHandle&>(*hop);
      const auto nhValue = nh.table() ? valueOf(*nh.table(), nh.key()) : std::nullopt;
      const auto& intf = nhValue ? nhValue->l3Oif1Handle() : Handle::PtrConst();
      if (!intf) continue;
      chain.push_back(intf.ptr());
      Handle::PtrConst tunnel;
      if (intf->fwkType() == Orb::typeId<MergedHandle>()) {
         const auto& h = static_cast<const MergedHandle&>(*intf);
         const L3InterfaceTable* t = h.table();
         if (!t) continue;
         auto merged = t->mergedEntry(h.key());
         if (auto ume = t->unresolvedMergedEntry(h.key())) merged = ume->mergedEntry();
         for (const auto& member : merged.mergedEntryHandle()) chain.push_back(member.ptr());
         tunnel = t->egrL3Oif1TableEntry(h.key()).tunnelIdxHandle();
      } else if (intf->fwkType() == Orb::typeId<OifHandle>()) {
         const auto& h = static_cast<const OifHandle&>(*intf);
         if (auto v = h.table() ? valueOf(*h.table(), h.key()) : std::nullopt)
            tunnel = v->tunnelIdxHandle();
      }
      if (tunnel) chain.push_back(tunnel.ptr());
   }
   return chain;
}

std::string memberChain(const AsicSim::Chip& chip, bool commonIifOifIndex, uint32_t row,
                        std::vector<std::string>& faults) {
   auto hw = [&](std::string_view name) { return chip.table(name, unit); };
   const auto members = hw(L3EcmpMember0Table::typeName);
   const auto nextHops = hw(L3TunnelIngL3NextHopTable::typeName);
   const auto intfs =
       hw(commonIifOifIndex ? EgrL3Oif1Table::typeName : L3TunnelEgrL3Oif1Table::typeName);
   const auto ingress = hw(IngL3Iif::typeName);
   const auto tunnels = hw(L3EgrL3Ipv4TunnelTable::typeName);
   auto fault = [&](const std::string& what) {
      faults.push_back(what);
      return " (" + what + ")";
   };
   const std::string* member = members ? members->row(row) : nullptr;
   if (!member) return fault("member row " + std::to_string(row) + " is clear");
   std::string out = test::rowWithField(*member, "nextHopIdx", "*");
   const auto nhIndex = test::rowIndexField(*member, "nextHopIdx");
   const std::string* nh = nextHops && nhIndex ? nextHops->row(*nhIndex) : nullptr;
   if (!nh) return out + fault("member " + std::to_string(row) + " names no next-hop row");
   const std::string key = nextHops->rowKey(*nhIndex).text();
   out += " -> " + key + " " + test::rowWithField(*nh, "l3Oif1", "*");
   if (nh->find("'drop': True") != std::string::npos) return out;
   const auto intfIndex = test::rowIndexField(*nh, "l3Oif1");
   const std::string* intf = intfs && intfIndex ? intfs->row(*intfIndex) : nullptr;
   if (!intf) return out + fault("next hop " + key + " names no interface row");
   if (commonIifOifIndex && !(ingress && ingress->row(*intfIndex)))
      return out + fault("interface " + key + " has no ingress row");
   if (intfs->rowKey(*intfIndex).text() != key)
      return out + fault("next hop " + key + " names the interface of " +
                         intfs->rowKey(*intfIndex).text());
   out += " -> " + test::rowWithField(*intf, "tunnelIdx", "*");
   const auto tunnelIndex = test::rowIndexField(*intf, "tunnelIdx");
   const std::string* tunnel = tunnels && tunnelIndex ? tunnels->row(*tunnelIndex) : nullptr;
   if (!tunnel) return out + fault("interface " + key + " names no tunnel row");
   if (tunnels->rowKey(*tunnelIndex).text() != key)
      return out + fault("interface " + key + " names the tunnel of " +
                         tunnels->rowKey(*tunnelIndex).text());
   return out + " -> " + *tunnel;
}

std::vector<std::vector<std::string>> blockChains(const AsicSim::Chip& chip, bool commonIifOifIndex,
                                                  std::vector<std::string>& faults) {
   const auto members = chip.table(L3EcmpMember0Table::typeName, unit);
   std::map<uint32_t, std::vector<std::string>> byBase;
   for (uint32_t i = 0; members && i < members->numEntries(); ++i) {
      if (!members->row(i)) continue;
      const auto* k = members->rowKey(i).as<L3EcmpMember0Table::RowKey>();
      if (!k) {
         faults.push_back("member row " + std::to_string(i) + " has no row key");
         continue;
      }
      auto& block = byBase[k->base];
      if (i != k->base + block.size())
         faults.push_back("member row " + std::to_string(i) + " is out of its block's order");
      block.push_back(memberChain(chip, commonIifOifIndex, i, faults));
   }
   std::vector<std::vector<std::string>> blocks;
   for (auto& [base, chains] : byBase) blocks.push_back(std::move(chains));
   std::sort(blocks.begin(), blocks.end());
   return blocks;
}

std::map<std::string, std::vector<std::string>> groupChains(const Agent& agent,
                                                            std::vector<std::string>& faults) {
   std::map<std::string, std::vector<std::string>> chains;
   for (const auto& [name, h] : agent.groups()) {
      const auto& block = static_cast<const Block&>(*h);
      if (block.baseIndex() == Asic::invalidIndex) continue;
      auto& c = chains[name];
      for (uint32_t s = 0; s < block.size(); ++s)
         c.push_back(
             memberChain(agent.chip(), agent.commonIifOifIndex(), block.baseIndex() + s, faults));
   }
   return chains;
}

Canonical canonicalRows(const AsicSim::Chip& chip) {
   Canonical out;
   for (const auto& t : hardwareTableClasses()) {
      auto hw = chip.table(t.qualifiedName, unit);
      for (uint32_t i = 0; hw && i < hw->numEntries(); ++i) {
         const std::string* r = hw->row(i);
         if (!r) continue;
         std::string key = hw->rowKey(i).text();
         if (const auto* k = hw->rowKey(i).as<L3EcmpMember0Table::RowKey>())
            key = "slot " + std::to_string(i - k->base) + " of " + std::to_string(k->size);
         std::string text = *r;
         for (const char* f : {"nextHopIdx", "l3Oif1", "tunnelIdx"})
            text = test::rowWithField(text, f, "*");
         out[std::string(t.name)].push_back(key + " | " + text);
      }
   }
   for (auto& [t, rows] : out) std::sort(rows.begin(), rows.end());
   return out;
}

std::string canonicalDiff(const Canonical& want, const Canonical& got) {
   std::ostringstream os;
   std::set<std::string> tables;
   for (const Canonical* c : {&want, &got})
      for (const auto& [t, rows] : *c) tables.insert(t);
   for (const auto& t : tables) {
      const auto w = want.count(t) ? want.at(t) : std::vector<std::string>();
      const auto g = got.count(t) ? got.at(t) : std::vector<std::string>();
      std::vector<std::string> missing, extra;
      std::set_difference(w.begin(), w.end(), g.begin(), g.end(), std::back_inserter(missing));
      std::set_difference(g.begin(), g.end(), w.begin(), w.end(), std::back_inserter(extra));
      for (const auto& m : missing) os << "\n  " << t << " lacks " << m;
      for (const auto& e : extra) os << "\n  " << t << " has extra " << e;
   }
   return os.str();
}

}  // namespace sweep
