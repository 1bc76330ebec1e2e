#include "Model/ModelRun.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <bit>
#include <exception>
#include <filesystem>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <set>
#include <sstream>
#include <tuple>

#include "Brio/EventLoop.h"
#include "Model/ReferenceModel.h"
#include "Plx/NextHopEntryType.h"
#include "SharedL3/DontCareHandle.h"
#include "support/InvariantChecker.h"
#include "support/RowText.h"

namespace model {

using MeridL3Tunnel::ChainLink;
using MeridL3Tunnel::L3EcmpMember0Table;
using MeridL3Tunnel::L3TunnelKey;
using Programmer = System::Programmer;
using HandlePtr = System::HandlePtr;
using State = Asic::SwTableBase::EntryState;
using Block = L3EcmpMember0Table::EntryHandle;

namespace {

// Adds the pieces, as one line, to `out`.
template <class... A>
void add(std::vector<std::string>& out, const A&... pieces) {
   std::ostringstream os;
   (os << ... << pieces);
   out.push_back(os.str());
}

constexpr Asic::UnitId unit = Programmer::tableUnit;

// Pool keys as the library knows them; the drop key last.
const std::array<L3TunnelKey, keyCount + 1>& tunnelKeys() {
   static const auto keys = [] {
      std::array<L3TunnelKey, keyCount + 1> k;
      for (uint32_t i = 0; i < keyCount; ++i)
         k[i] = L3TunnelKey(Wire::IpGenAddr(keyPool()[i].src), Wire::IpGenAddr(keyPool()[i].dst));
      k[dropKey] = Programmer::getTunnelDropKey();
      return k;
   }();
   return keys;
}

// keyCount + 1 for a key outside the pool.
uint32_t keyIndex(const L3TunnelKey& k) {
   const auto& keys = tunnelKeys();
   return uint32_t(std::find(keys.begin(), keys.end(), k) - keys.begin());
}

std::string nameOf(uint32_t key) { return key == dropKey ? "the drop entry" : keyName(key); }

MeridL3Tunnel::L3TunnelOverlayViaEntry viaEntry(const Via& v) {
   MeridL3Tunnel::L3TunnelOverlayViaEntry e;
   e.weightIs(v.weight);
   if (v.drop) {
      e.nhEntryTypeIs(Plx::nextHopDrop());
      e.srcIpAddrIs(Wire::IpGenAddr("0.0.0.0"));
      e.dstIpAddrIs(Wire::IpGenAddr("0.0.0.0"));
      return e;
   }
   e.nhEntryTypeIs(Plx::nextHopArpResolved());
   e.srcIpAddrIs(tunnelKeys()[v.key].srcIpAddr());
   e.dstIpAddrIs(tunnelKeys()[v.key].dstIpAddr());
   e.ttlIs(v.ttl);
   e.underlayAdjIdIs(test::adj(v.adj));
   return e;
}

std::string stateName(State s) { return std::string(Asic::SwTableBase::entryStateName(s)); }

std::string indexText(Asic::Index i) {
   return Asic::isValidIndex(i) ? std::to_string(i) : std::string("none");
}

std::string field(const std::string& row, std::string_view name) {
   return test::rowField(row, name).value_or("<missing>");
}

}  // namespace

std::string category(const std::string& violation) {
   return violation.substr(0, violation.find(':'));
}

// ---- the system under test ---------------------------------------------------

System::System(const RunConfig& config) : config_(config) {
   Brio::EventLoop::instance().clear();
   chip_ = Brio::makePtr<AsicSim::Chip>();
   chip_->install();
   chipInfo_ = Brio::makePtr<MeridCentral::ChipInfo>();
   for (uint32_t t = 0; t < hwTableCount; ++t)
      chipInfo_->tableSizeIs(hwTableName(HwTable(t)), config.rows[t]);
   agent_.begin(3);
   programmerIs(false);
   deliver();
}

// As the agent goes: the programmer first, so that the groups' blocks delete
// nothing as they go.
System::~System() {
   agent_.programmer = nullptr;
   groups_.clear();
   chip_->holdResponsesIs(false);
   chip_->releaseAllResponses();
   Brio::EventLoop::instance().runUntilIdle();
   Brio::EventLoop::instance().clear();
   chip_->uninstall();
}

void System::programmerIs(bool recover) {
   ledger_ = Brio::makePtr<Ledger::EntityManager>();
   agent_.programmerIs(chipInfo_, ledger_, recover);
}

Brio::Ptr<AsicSim::HwTable> System::hw(HwTable t) const {
   return chip_->table(hwTableName(t), unit);
}

HandlePtr System::group(uint32_t g) const {
   auto it = groups_.find(g);
   return it == groups_.end() ? nullptr : it->second;
}

HandlePtr System::handOver(const std::vector<Via>& vias) const {
   auto list = MeridL3Tunnel::l3TunnelOverlayViaFactory();
   for (const Via& v : vias) list->viaPush(viaEntry(v));
   return agent_.programmer->populateOverlayEcmpBlock(list);
}

// The old handle goes at the end of the statement, after the map changed.
void System::groupIs(uint32_t g, HandlePtr block) { std::exchange(groups_[g], std::move(block)); }

void System::groupDel(uint32_t g) { groups_.extract(g); }

void System::restart(bool acrossProcesses) {
   const std::string path = (std::filesystem::temp_directory_path() /
                             ("model-run-" + std::to_string(::getpid()) + ".state"))
                                .string();
   if (acrossProcesses) chip_->stateSave(path);
   agent_.programmer = nullptr;
   groups_.clear();
   Brio::EventLoop::instance().runUntilIdle();
   if (acrossProcesses) {
      chip_->uninstall();
      chip_ = Brio::makePtr<AsicSim::Chip>();
      chip_->stateLoad(path);
      chip_->install();
      std::filesystem::remove(path);
   }
   programmerIs(true);
}

void System::uncommit(uint32_t key) {
   const auto& intf = agent_.programmer->l3InterfaceTable();
   if (!intf) return;
   std::vector<L3TunnelKey> keys;
   if (key < keyCount)
      keys.push_back(tunnelKeys()[key]);
   else
      intf->forEachEntryHandle([&](const L3TunnelKey& k, const auto&) { keys.push_back(k); });
   for (auto& k : keys) intf->entryRemove(k);
}

void System::deliver() {
   if (!chip_->holdResponses()) chip_->releaseAllResponses();
   Brio::EventLoop::instance().runUntilIdle();
}

void System::calm() {
   chip_->holdResponsesIs(false);
   for (uint32_t t = 0; t < hwTableCount; ++t) chip_->writeFailuresIs(hwTableName(HwTable(t)), 0);
   deliver();
}

// ---- the comparison ------------------------------------------------------------

namespace {

// The chain link of a model table.
constexpr ChainLink linkOf(Table t) {
   constexpr ChainLink links[] = {ChainLink::tunnel, ChainLink::interface, ChainLink::nextHop};
   return links[uint32_t(t)];
}

// Every chip table keyed by tunnel key, of either setting, with the model
// table whose entries it holds.
const std::vector<std::pair<HwTable, Table>>& keyedTables() {
   static const auto tables = [] {
      std::vector<std::pair<HwTable, Table>> out;
      for (uint32_t h = 0; h < hwTableCount; ++h)
         for (Table t : {Table::tunnel, Table::interface, Table::nextHop})
            if (hwTableLink(HwTable(h)) == linkOf(t)) out.emplace_back(HwTable(h), t);
      return out;
   }();
   return tables;
}

// Calls f(hw, index, row) for every used row of the chip table.
template <class F>
void forEachRow(const System& sys, HwTable t, F&& f) {
   auto hw = sys.hw(t);
   for (Asic::Index i = 0; hw && i < hw->numEntries(); ++i)
      if (const std::string* row = hw->row(i)) f(*hw, i, *row);
}

// Indices a key can hold: the tunnel space never hands out index 0.
uint32_t capacity(const RunConfig& config, Table t) {
   return config.rowsOf(hwTablesInUse(config.commonInterface, linkOf(t)).front()) -
          (t == Table::tunnel);
}

// One full check at a quiet point: the chip against the model.
class Checker {
public:
   Checker(const System& sys, const ReferenceModel& m,
           const std::map<HwTable, std::set<Asic::Index>>& stale, bool strict,
           const std::set<BlockId>& noRoom, std::vector<std::string>& out)
       : sys_(sys),
         m_(m),
         p_(sys.programmer()),
         stale_(stale),
         strict_(strict),
         noRoom_(noRoom),
         out_(out) {}

   void run() {
      for (uint32_t t = 0; t < tableCount; ++t) entries(Table(t));
      blocks();
      extras();
      references();
   }
   // Every index a row names is in use: no row names a freed index. This
   // holds while responses are held back too, since a row is written only
   // after what it names is answered, and a named row deleted only after
   // the row naming it.
   void references() {
      std::set<std::string> underlayIndices;
      for (uint32_t adj = 1; adj <= adjCount; ++adj)
         if (auto h = sys_.underlay().entryWeakRef(test::adj(adj)))
            underlayIndices.insert(std::to_string(h->hwIndex()));
      // Each link of a chain into a table in use: a dropping next hop names none.
      const std::tuple<HwTable, const char*, HwTable> links[] = {
          {HwTable::nextHop, "l3Oif1", HwTable::tunnelOif},
          {HwTable::nextHop, "l3Oif1", HwTable::ingIif},
          {HwTable::nextHop, "l3Oif1", HwTable::egrOif},
          {HwTable::tunnelOif, "tunnelIdx", HwTable::tunnelV4},
          {HwTable::egrOif, "tunnelIdx", HwTable::tunnelV4},
          {HwTable::member, "nextHopIdx", HwTable::nextHop}};
      const std::vector<HwTable> inUse = hwTablesInUse(m_.commonInterface());
      for (auto [from, name, to] : links) {
         if (!std::ranges::count(inUse, to)) continue;
         forEachRow(sys_, from, [&](auto&, Asic::Index i, const std::string& row) {
            if (field(row, "drop") != "True" && !used(to, test::rowIndexField(row, name)))
               fail("dangling: ", hwTableShortName(from), " row ", i, " names ",
                    hwTableShortName(to), " row ", field(row, name), ", which is clear");
         });
      }
      // A member row names its underlay group by index.
      forEachRow(sys_, HwTable::member, [&](auto&, Asic::Index i, const std::string& row) {
         const std::string u = field(row, "underlayIdx");
         if (field(row, "resolved") != "True" || u == std::to_string(Asic::invalidIndex)) return;
         // A found row pins its group: the group may go, its index stays taken.
         if (stale(HwTable::member, i)) {
            if (auto index = test::rowIndexField(row, "underlayIdx");
                !index || !sys_.underlay().indexTaken(*index))
               fail("dangling: found member row ", i, " names underlay index ", u,
                    ", which is free");
         } else if (!underlayIndices.count(u)) {
            fail("dangling: member row ", i, " names underlay index ", u,
                 ", which no underlay group holds");
         }
      });
   }
   uint32_t excused = 0;

private:
   struct Status {
      bool exists = false;
      State state = State::unresolved;
      Asic::Index index = Asic::invalidIndex;  // the handle's
      Asic::Index held = Asic::invalidIndex;   // the allocator's, for the key
      bool programmed = false;
      bool excused = false;
      std::string why;
   };

   template <class... A>
   void fail(const A&... pieces) {
      add(out_, pieces...);
   }

   // Calls `f` with the library table that stands for the model's table `t`.
   template <class F>
   auto withTable(Table t, F&& f) const {
      if (t == Table::tunnel) return f(*p_.l3EgrL3Ipv4TunnelTable());
      if (t == Table::nextHop) return f(*p_.l3TunnelIngL3NextHopTable());
      if (m_.commonInterface()) return f(*p_.l3InterfaceTable());
      return f(*p_.l3TunnelEgrL3Oif1Table());
   }

   Brio::Ptr<const Asic::SwTable::EntryHandle> handleOf(Table t, uint32_t key) const {
      return withTable(t, [&](const auto& table) -> Brio::Ptr<const Asic::SwTable::EntryHandle> {
         return table.entryHandle(tunnelKeys()[key]);
      });
   }

   Asic::Index heldIndex(Table t, uint32_t key) const {
      return withTable(t, [&](const auto& table) {
         return table.indexAllocator()->indexForKey(tunnelKeys()[key]);
      });
   }

   // The chip tables holding a model table's rows.
   std::vector<HwTable> hwTables(Table t) const {
      return hwTablesInUse(m_.commonInterface(), linkOf(t));
   }

   uint32_t capacity(Table t) const { return model::capacity(sys_.config(), t); }

   static const char* tableName(Table t) {
      static const char* const names[] = {"tunnel", "interface", "next hop"};
      return names[uint32_t(t)];
   }

   bool failures(Table t, uint32_t since) const {
      return std::ranges::any_of(hwTables(t),
                                 [&](HwTable h) { return m_.failureWindow(h, since); });
   }

   const Status& status(Table t, uint32_t key) {
      auto [it, fresh] = status_.try_emplace({t, key});
      Status& s = it->second;
      if (!fresh) return s;
      auto h = handleOf(t, key);
      s.held = heldIndex(t, key);
      if (!h) return s;
      s.exists = true;
      s.state = h->entryState();
      s.index = h->hwIndex();
      s.programmed = s.state == State::success && !h->outstandingRequest();
      if (s.programmed) return s;
      const uint32_t since = m_.presentSince(t, key);
      switch (s.state) {
         case State::noHwIndex:
            if (Asic::isValidIndex(s.held)) {
               s.excused = failures(t, since);
               s.why = s.excused ? "its write was refused" : "refused with no write failing";
            } else {
               const uint32_t present = m_.presentCount(t, since);
               s.excused = present >= capacity(t);
               s.why = s.excused ? "the table filled"
                                 : "no index though " + std::to_string(present) +
                                       " keys since op " + std::to_string(since) + " cannot fill " +
                                       std::to_string(capacity(t)) + " indices";
            }
            break;
         case State::failedNeededEntry:
         case State::unresolved: {
            bool needed = false;
            if (t == Table::interface) {
               needed = status(Table::tunnel, key).excused ||
                        (m_.commonInterface() && failures(t, since));
            } else if (t == Table::nextHop && key != dropKey) {
               needed = status(Table::interface, key).excused;
            }
            s.excused = needed;
            s.why = needed ? "waits for an excused entry" : "waits for nothing that failed";
            break;
         }
         default:
            s.why = "stuck";
            break;
      }
      // A hand-over writes again what a live group names; only commitments
      // and the drop entry are not written again.
      const bool handedOver = key != dropKey && (m_.keys(Table::nextHop) >> key & 1);
      if (strict_ && handedOver && s.excused) {
         s.excused = false;
         s.why = "still not programmed after a settle (" + s.why + ")";
      }
      return s;
   }

   void expectRowKey(HwTable t, Asic::Index i, uint32_t key, const std::string& what) {
      auto hw = sys_.hw(t);
      const L3TunnelKey* k = hw ? hw->rowKey(i).as<L3TunnelKey>() : nullptr;
      if (!k || !(*k == tunnelKeys()[key]))
         fail("row: ", hwTableShortName(t), " row ", i, " belongs to '",
              hw ? hw->rowKey(i).text() : "", "', not to ", what);
   }

   // The row holds each field as the model expects.
   using Fields = std::vector<std::pair<const char*, std::string>>;
   void expectFields(HwTable t, Asic::Index i, const std::string& what, const Fields& f) {
      auto hw = sys_.hw(t);
      const std::string* row = hw ? hw->row(i) : nullptr;
      if (!row) {
         fail("row: ", what, " is programmed at ", hwTableShortName(t), " row ", indexText(i),
              ", which is clear");
         return;
      }
      for (auto& [name, value] : f) {
         const std::string got = field(*row, name);
         if (got != value)
            fail("row: ", what, " at ", hwTableShortName(t), " row ", i, " has ", name, " ", got,
                 ", the model says ", value);
      }
   }

   void entries(Table t) {
      const KeyMask keys = m_.keys(t);
      for (uint32_t key = 0; key <= dropKey; ++key) {
         if (!(keys >> key & 1)) continue;
         const Status& s = status(t, key);
         const std::string what = std::string(tableName(t)) + " " + nameOf(key);
         if (!s.exists) {
            // A merged interface that found no index keeps no member value,
            // and so nothing holds its tunnel.
            const bool unheld = t == Table::tunnel && m_.commonInterface() && [&] {
               const Status& i = status(Table::interface, key);
               return i.state == State::noHwIndex && !Asic::isValidIndex(i.held) && i.excused;
            }();
            if (unheld)
               ++excused;
            else
               fail("entry: ", what, " has no entry in the library");
            continue;
         }
         if (!s.programmed) {
            if (s.excused)
               ++excused;
            else
               fail("entry: ", what, " is ", stateName(s.state), " (", s.why, ")");
            continue;
         }
         if (s.index != s.held)
            fail("index: ", what, " is programmed at ", indexText(s.index), " but its key holds ",
                 indexText(s.held));
         // The fields the model knows, in every chip table of the entry.
         Fields fields;
         if (t == Table::tunnel)
            fields = {{"srcIpAddr", keyPool()[key].src},
                      {"dstIpAddr", keyPool()[key].dst},
                      {"ttlValue", std::to_string(m_.ttl(key))},
                      {"isIpInIpV4Tunnel", "True"},
                      {"isIpInIpV6Tunnel", "False"}};
         else if (t == Table::nextHop)
            fields = {{"drop", key == dropKey ? "True" : "False"},
                      {"l3Oif1",
                       key == dropKey ? "0" : std::to_string(heldIndex(Table::interface, key))}};
         for (HwTable h : hwTables(t)) {
            expectRowKey(h, s.index, key, what);
            if (t == Table::interface && h != HwTable::ingIif)
               fields = {{"tunnelIdx", std::to_string(heldIndex(Table::tunnel, key))}};
            expectFields(h, s.index, what, fields);
         }
      }
      // The IPv6 table is never written: every tunnel goes to the IPv4 one.
      if (t == Table::tunnel && p_.l3EgrL3Ipv6TunnelTable()->entryHandles())
         fail("entry: the IPv6 tunnel table has ", p_.l3EgrL3Ipv6TunnelTable()->entryHandles(),
              " entries");
   }

   const Asic::SwTableBase::EntryHandle* expectedUnderlay(const UnderlayRef& u) const {
      if (u.kind == UnderlayRef::Kind::dropPlaceholder)
         return SwTableWorkaround::dontCareHandle(0).ptr();
      if (u.kind == UnderlayRef::Kind::group)
         return sys_.underlay().entryWeakRef(test::adj(u.adj)).ptr();
      return nullptr;
   }

   void blocks() {
      std::map<BlockId, const Block*> byId;
      std::map<const Block*, uint32_t> byHandle;  // -> a group holding it
      for (auto& [g, vias] : m_.groups()) {
         HandlePtr h = sys_.group(g);
         const BlockId& id = m_.blockOf(g);
         if (!h) {
            fail("sharing: g", g, " holds no block");
            continue;
         }
         const Block* b = &static_cast<const Block&>(*h);
         auto [byIdIt, newId] = byId.emplace(id, b);
         if (!newId && byIdIt->second != b)
            fail("sharing: g", g,
                 " and another group hand over equal member lists but hold different blocks");
         auto [byHandleIt, newHandle] = byHandle.emplace(b, g);
         if (!newHandle && m_.blockOf(byHandleIt->second) != id)
            fail("sharing: g", g, " and g", byHandleIt->second,
                 " hold one block for different member lists");
         if (newHandle) block(g, id, *b);
      }
   }

   void block(uint32_t g, const BlockId& id, const Block& b) {
      const std::string what = "the block of g" + std::to_string(g);
      if (b.size() != id.size()) {
         fail("block: ", what, " has ", b.size(), " members, the model says ", id.size());
         return;
      }
      for (uint32_t s = 0; s < b.size(); ++s) {
         const auto& e = b.entryBlock().entry(L3EcmpMember0Table::Index(s));
         const Member& mm = id[s];
         if (e.nextHopHandle().ptr() != handleOf(Table::nextHop, mm.key).ptr())
            fail("block: member ", s, " of ", what, " names another next hop than ",
                 nameOf(mm.key));
         if (e.underlayHandle().ptr() != expectedUnderlay(mm.underlay))
            fail("block: member ", s, " of ", what, " names another underlay than adj",
                 mm.underlay.adj);
         if (e.resolved() != mm.resolved)
            fail("block: member ", s, " of ", what, " forwards where the model drops or back");
      }
      const State state = b.entryState();
      if (state == State::success) {
         blockRows(what, id, b);
         return;
      }
      bool ok = false;
      std::string why;
      if (state == State::noHwIndex && b.baseIndex() == Asic::invalidIndex) {
         ok = !strict_ || noRoom_.count(id);
         why = ok ? "no free range" : "no range after a settle found one free";
      } else if (state == State::noHwIndex) {
         ok = m_.failureWindow(HwTable::member, m_.blockSince(id));
         why = ok ? "a row was refused" : "a row refused with no write failing";
      } else if (state == State::failedNeededEntry || state == State::unresolved) {
         for (const Member& mm : id) {
            const Status& st = status(Table::nextHop, mm.key);
            ok |= (!st.programmed && st.excused) || !m_.underlayReady(mm.underlay);
         }
         why = ok ? "waits" : "waits for nothing that failed";
      } else {
         why = "stuck";
      }
      if (ok)
         ++excused;
      else
         fail("block: ", what, " is ", stateName(state), " (", why, ")");
   }

   void blockRows(const std::string& what, const BlockId& id, const Block& b) {
      const Asic::Index base = b.baseIndex();
      if (!Asic::isValidIndex(base) && !id.empty()) {
         fail("block: ", what, " is programmed without a range");
         return;
      }
      auto hw = sys_.hw(HwTable::member);
      for (uint32_t s = 0; s < id.size(); ++s) {
         const Member& mm = id[s];
         const Asic::Index i = base + s;
         std::string underlayIdx = std::to_string(Asic::invalidIndex);
         if (mm.underlay.kind == UnderlayRef::Kind::dropPlaceholder) underlayIdx = "0";
         if (auto* u = expectedUnderlay(mm.underlay);
             u && mm.underlay.kind == UnderlayRef::Kind::group)
            underlayIdx = std::to_string(u->hwIndex());
         const std::string member = "member " + std::to_string(s) + " of " + what;
         expectFields(HwTable::member, i, member,
                      {{"nextHopIdx", std::to_string(heldIndex(Table::nextHop, mm.key))},
                       {"underlayIdx", underlayIdx},
                       {"resolved", mm.resolved ? "True" : "False"}});
         const auto* k = hw ? hw->rowKey(i).as<L3EcmpMember0Table::RowKey>() : nullptr;
         if (!k || !(*k == L3EcmpMember0Table::RowKey(i, base, id.size())))
            fail("row: member row ", i, " is keyed '", hw ? hw->rowKey(i).text() : "",
                 "', not as row ", s, " of ", what, " at ", base);
      }
   }

   // Rows the model has no entry for: only what a restart found may stay,
   // until the reconcile.
   void extras() {
      for (auto [ht, t] : keyedTables()) {
         const bool used = std::ranges::count(hwTables(t), ht);  // others' rows are never wanted
         forEachRow(sys_, ht, [&](auto& hw, Asic::Index i, auto&) {
            if (stale(ht, i)) return;
            const L3TunnelKey* k = hw.rowKey(i).template as<L3TunnelKey>();
            const uint32_t key = k ? keyIndex(*k) : keyCount + 1;
            const bool wanted =
                used && key <= dropKey && (m_.keys(t) >> key & 1) && heldIndex(t, key) == i;
            if (!wanted)
               fail("orphan: ", hwTableShortName(ht), " row ", i, " of '", hw.rowKey(i).text(),
                    "' is used, but no live group or commitment needs it there");
         });
      }
      const auto inUse = hwTablesInUse(m_.commonInterface());
      for (uint32_t t = 0; t < hwTableCount; ++t) {
         const HwTable ht = HwTable(t);
         if (!std::ranges::count(inUse, ht) && sys_.hw(ht) && sys_.hw(ht)->usedRows())
            fail("orphan: ", hwTableShortName(ht), " has rows though the toggle leaves it unused");
      }
      std::vector<std::pair<Asic::Index, Asic::Index>> ranges;
      for (auto& [g, vias] : m_.groups()) {
         HandlePtr h = sys_.group(g);
         if (!h) continue;
         const Block& b = static_cast<const Block&>(*h);
         if (Asic::isValidIndex(b.baseIndex())) ranges.emplace_back(b.baseIndex(), b.size());
      }
      forEachRow(sys_, HwTable::member, [&](auto&, Asic::Index i, auto&) {
         const bool inBlock = std::ranges::any_of(
             ranges, [&](const auto& r) { return i >= r.first && i - r.first < r.second; });
         if (!inBlock && !stale(HwTable::member, i))
            fail("orphan: member row ", i, " is used outside every live block");
      });
   }

   bool stale(HwTable t, Asic::Index i) const {
      auto it = stale_.find(t);
      return it != stale_.end() && it->second.count(i);
   }

   bool used(HwTable t, std::optional<Asic::Index> i) const {
      auto hw = sys_.hw(t);
      return hw && i && hw->row(*i);
   }
   const System& sys_;
   const ReferenceModel& m_;
   const Programmer& p_;
   const std::map<HwTable, std::set<Asic::Index>>& stale_;
   bool strict_;
   const std::set<BlockId>& noRoom_;
   std::vector<std::string>& out_;
   std::map<std::pair<Table, uint32_t>, Status> status_;
};

// Follows one handle's entry state as its clients hear it: success comes
// only after inProgress (the write was made, then answered), except for an
// empty block, which has nothing to write.
class StateWatcher final : public Brio::Notifiee {
public:
   StateWatcher(const Asic::SwTableBase::EntryHandle& h, std::string what,
                std::vector<std::string>& out)
       : handle_(&h), what_(std::move(what)), last_(h.entryState()), out_(out) {
      notifierIs(&const_cast<Asic::SwTableBase::EntryHandle&>(h).notifieeList());
   }
   void onAttribute(Brio::AttrId attr, Brio::KeyRef) override {
      if (attr != Asic::SwTableBase::EntryHandle::entryStateAttr) return;
      const State now = handle_->entryState();
      if (now == last_) return;
      if (now == State::success && last_ != State::inProgress && what_ != "empty block")
         out_.push_back("state: " + what_ + " went from " + stateName(last_) +
                        " to success without inProgress");
      last_ = now;
   }

private:
   const Asic::SwTableBase::EntryHandle* handle_;
   std::string what_;
   State last_;
   std::vector<std::string>& out_;
};

// One run: the system and the model side by side.
class Run {
public:
   Run(const RunConfig& config, const RunOptions& options, RunResult& result)
       : config_(config),
         options_(options),
         result_(result),
         sys_(config),
         model_(config.commonInterface) {
      for (uint32_t adj = 1; adj <= 3; ++adj) model_.underlayAdd(adj, false);
   }

   bool step(uint32_t i, const Op& op) {
      model_.opBegin(i);
      strict_ = false;
      switch (op.kind) {
         case OpKind::program:
            programGroup(op.group, op.vias);
            break;
         case OpKind::release:
            model_.release(op.group);
            sys_.groupDel(op.group);
            break;
         case OpKind::underlayAdd:
            sys_.underlay().entryIs(test::adj(op.adj),
                                    op.flag ? State::inProgress : State::success);
            model_.underlayAdd(op.adj, op.flag);
            break;
         case OpKind::underlayReady:
            sys_.underlay().entryStateIs(test::adj(op.adj), State::success);
            model_.underlayReady(op.adj);
            break;
         case OpKind::underlayDel:
            sys_.underlay().entryDel(test::adj(op.adj));
            for (uint32_t g : model_.underlayDel(op.adj)) programGroup(g, model_.groups().at(g));
            break;
         case OpKind::hold:
            sys_.chip().holdResponsesIs(op.flag);
            break;
         case OpKind::deliverOne:
            if (uint32_t held = sys_.chip().heldResponses())
               sys_.chip().releaseResponse(op.value % held);
            break;
         case OpKind::failWrites:
            sys_.chip().writeFailuresIs(hwTableName(op.table), op.value);
            model_.failWrites(op.table);
            break;
         case OpKind::stopFailing:
            sys_.chip().writeFailuresIs(hwTableName(op.table), 0);
            model_.stopFailing(op.table);
            break;
         case OpKind::restart:
            restart(op);
            break;
         case OpKind::reconcile:
            reconcile();
            break;
         case OpKind::uncommit:
            sys_.uncommit(op.value);
            model_.uncommit(op.value);
            break;
         case OpKind::settle:
            settle();
            break;
      }
      sys_.deliver();
      if (options_.tamper) options_.tamper(sys_, i);
      return check(i);
   }

   // The end of a run: faults stop, the replay is reconciled, every group is
   // released and every commitment removed; then nothing may be left.
   bool finish(uint32_t i) {
      model_.opBegin(i);
      sys_.calm();
      model_.stopFailingAll();
      reconcile();
      sys_.deliver();
      for (auto& [g, vias] : std::map(model_.groups())) {
         model_.release(g);
         sys_.groupDel(g);
      }
      sys_.deliver();
      if (!check(i)) return false;
      sys_.uncommit(keyCount);
      model_.uncommit(keyCount);
      sys_.deliver();
      if (!check(i)) return false;
      std::vector<std::string> v;
      empty(v);
      return verdict(i, std::move(v));
   }

private:
   // The group takes the block of its list, checking that a block handed
   // over while a free range of its size exists gets one.
   void programGroup(uint32_t g, std::vector<Via> vias) {
      model_.program(g, vias);
      const auto& members = *sys_.programmer().l3EcmpMember0Table();
      const uint32_t largestFree = members.indexAllocator().largestFree();
      HandlePtr h = sys_.handOver(vias);
      const Block& b = static_cast<const Block&>(*h);
      if (b.entryState() == State::noHwIndex && b.baseIndex() == Asic::invalidIndex) {
         bool named = true;
         for (const auto& e : b.entryBlock()) {
            named &= e.nextHopHandle() && e.nextHopHandle()->isComplete();
            named &= !e.underlayHandle() || e.underlayHandle()->isComplete();
         }
         if (!named || largestFree < b.size())
            noRoom_.insert(model_.blockOf(g));
         else
            add(pending_, "placement: the block of g", g, " (", b.size(),
                " members) was handed over with everything it names programmed and a free "
                "range of ",
                largestFree, " rows, but got no range");
      }
      sys_.groupIs(g, std::move(h));
   }

   void restart(const Op& op) {
      // A replay that writes what the chip holds changes no row.
      const bool unchanged = lastClean_ && !sys_.chip().holdResponses() &&
                             sys_.chip().heldResponses() == 0 && !anyFailing();
      std::map<uint32_t, uint8_t> ttlBefore;
      for (uint32_t k = 0; k < keyCount; ++k)
         if (model_.keys(Table::tunnel) >> k & 1) ttlBefore[k] = model_.ttl(k);
      const std::set<BlockId> blocksBefore = model_.blocks();
      const uint32_t changesBefore = op.flag ? 0 : changes();
      std::map<std::pair<HwTable, Asic::Index>, std::string> rowsBefore;
      for (uint32_t t = 0; t < hwTableCount; ++t)
         forEachRow(sys_, HwTable(t), [&](auto&, Asic::Index i, const std::string& row) {
            rowsBefore[{HwTable(t), i}] = row;
         });

      sys_.restart(op.flag);
      if (op.flag) model_.stopFailingAll();
      // Rows the recovery found stay until the reconcile.
      for (auto [ht, t] : keyedTables()) {
         KeyMask keys = 0;
         forEachRow(sys_, ht, [&](auto& hw, Asic::Index i, auto&) {
            stale_[ht].insert(i);
            if (auto* k = hw.rowKey(i).template as<L3TunnelKey>(); k && keyIndex(*k) <= dropKey)
               keys |= 1u << keyIndex(*k);
         });
         model_.staleIs(t, keys);
      }
      forEachRow(sys_, HwTable::member,
                 [&](auto&, Asic::Index i, auto&) { stale_[HwTable::member].insert(i); });

      bool sameWrites = true;
      for (uint32_t g : model_.restart(op.mask, op.value)) {
         // Every tunnel write of the replay must write what the chip holds.
         for (const Via& v : model_.groups().at(g))
            sameWrites &= v.drop || !v.weight || ttlBefore[v.key] == uint8_t(v.ttl & 0xFF);
         programGroup(g, model_.groups().at(g));
      }
      sys_.deliver();
      if (!unchanged || !sameWrites) return;
      for (auto& b : model_.blocks())
         if (!blocksBefore.count(b)) return;
      ++result_.flapChecks;
      if (const uint32_t n = changes() - changesBefore) {
         std::string which;
         for (auto& [at, text] : rowsBefore)
            if (!sys_.hw(at.first) || sys_.hw(at.first)->rowText(at.second) != text)
               which += std::string(" ") + hwTableShortName(at.first) + "[" +
                        std::to_string(at.second) + "]";
         add(pending_, "flap: a restart whose replay writes what the chip holds changed ", n,
             " rows; differing now:", which.empty() ? " none" : which);
      }
   }

   void reconcile() {
      sys_.programmer().purgeStaleEntries();
      model_.reconcile();
      stale_.clear();
   }

   // Faults stop and every group is handed over twice: the first retries
   // what failed, the second finds everything it names programmed.
   void settle() {
      sys_.calm();
      model_.stopFailingAll();
      for (int pass = 0; pass < 2; ++pass) {
         noRoom_.clear();
         for (auto& [g, vias] : std::map(model_.groups())) programGroup(g, vias);
         sys_.deliver();
      }
      strict_ = fits();
   }

   bool fits() const {
      for (uint32_t t = 0; t < tableCount; ++t)
         if (uint32_t(std::popcount(model_.keys(Table(t)) | model_.stale(Table(t)))) >
             capacity(config_, Table(t)))
            return false;
      return true;
   }

   bool anyFailing() const {
      for (uint32_t t = 0; t < hwTableCount; ++t)
         if (model_.failureWindow(HwTable(t), model_.now())) return true;
      return false;
   }

   uint32_t changes() const {
      uint32_t n = 0;
      for (uint32_t t = 0; t < hwTableCount; ++t)
         if (auto hw = sys_.hw(HwTable(t))) n += hw->stats().changes;
      return n;
   }

   bool check(uint32_t i) {
      std::vector<std::string> v = std::exchange(pending_, {});
      for (auto& line : std::exchange(transitions_, {})) v.push_back(std::move(line));
      for (auto& line :
           test::InvariantChecker(sys_.chip()).programmer(sys_.programmer()).violations())
         v.push_back("invariant: " + line);
      bool full = sys_.chip().heldResponses() == 0;
      Checker c(sys_, model_, stale_, strict_, noRoom_, v);
      if (full) {
         c.run();
         result_.excused += c.excused;
         ++result_.fullChecks;
         if (strict_) ++result_.strictChecks;
      } else {
         c.references();
      }
      watch();
      lastClean_ = full && v.empty() && c.excused == 0;
      if (options_.extraCheck)
         for (auto& line : options_.extraCheck(sys_, i)) v.push_back(std::move(line));
      if (full && v.empty()) model_.quiet();
      if (v.empty() && options_.log && options_.dumpEach) dumpChip(*options_.log);
      return verdict(i, std::move(v));
   }

   // Watches the state of every handle a client holds or can look up.
   void watch() {
      const Programmer& p = sys_.programmer();
      auto follow = [&](const Asic::SwTableBase::EntryHandle& h, const std::string& what) {
         auto& w = watchers_[&h];
         if (!w || !w->notifier()) w = std::make_unique<StateWatcher>(h, what, transitions_);
      };
      auto addAll = [&](const auto& table, const std::string& what) {
         if (table)
            for (auto& [k, h] : table->entryHandleIteratorConst()) follow(*h, what + h->keyText());
      };
      addAll(p.l3EgrL3Ipv4TunnelTable(), "tunnel ");
      addAll(p.l3TunnelIngL3NextHopTable(), "next hop ");
      addAll(p.l3TunnelEgrL3Oif1Table(), "interface ");
      if (auto& t = p.l3InterfaceTable()) {
         t->forEachEntryHandle(
             [&](const auto&, const auto& h) { follow(*h, "merged interface " + h->keyText()); });
         addAll(t->ingL3Iif(), "IngL3Iif ");
         addAll(t->egrL3Oif1Table(), "EgrL3Oif1Table ");
      }
      for (uint32_t g = 0; g < groupCount; ++g)
         if (HandlePtr h = sys_.group(g))
            follow(*h, static_cast<const Block&>(*h).size() ? "block of g" + std::to_string(g)
                                                            : std::string("empty block"));
   }

   bool verdict(uint32_t i, std::vector<std::string> v) {
      if (v.empty()) return true;
      if (options_.log) dumpChip(*options_.log);
      result_.failed = true;
      result_.step = i;
      result_.violations = std::move(v);
      return false;
   }

   // What the chip holds, for the developer reading a failure.
   void dumpChip(std::ostream& os) const {
      os << "chip rows (" << sys_.chip().heldResponses() << " responses held):\n";
      for (uint32_t t = 0; t < hwTableCount; ++t)
         forEachRow(sys_, HwTable(t), [&](auto& hw, Asic::Index i, const std::string& row) {
            os << "  " << hwTableShortName(HwTable(t)) << "[" << i << "] " << hw.rowKey(i).text()
               << ": " << row << "\n";
         });
   }

   void empty(std::vector<std::string>& v) const {
      const Programmer& p = sys_.programmer();
      auto expect = [&](bool ok, const std::string& what) {
         if (!ok) v.push_back("end: " + what);
      };
      auto emptyTable = [&](const auto& t, uint32_t keep, const char* name) {
         if (!t) return;
         const std::pair<uint32_t, const char*> kept[] = {{t->entryHandles(), "handles"},
                                                          {t->resolvedEntrys(), "values"},
                                                          {t->indexAllocator()->used(), "indices"}};
         for (auto [n, what] : kept)
            expect(n == keep, std::string(name) + " keeps " + std::to_string(n) + " " + what);
      };
      emptyTable(p.l3EgrL3Ipv4TunnelTable(), 0, "the IPv4 tunnel table");
      emptyTable(p.l3EgrL3Ipv6TunnelTable(), 0, "the IPv6 tunnel table");
      emptyTable(p.l3TunnelEgrL3Oif1Table(), 0, "the tunnel interface table");
      emptyTable(p.l3TunnelIngL3NextHopTable(), 1, "the next-hop table (beside the drop entry)");
      if (const auto& intf = p.l3InterfaceTable()) {
         expect(intf->entryHandles() == 0 && intf->mergedEntrys() == 0 &&
                    intf->unresolvedMergedEntrys() == 0,
                "the merged interface table keeps entries");
         expect(intf->indexAllocator()->used() == 0, "the merged interface table keeps indices");
         expect(intf->ingL3Iif()->entryHandles() == 0, "IngL3Iif keeps entries");
         expect(intf->egrL3Oif1Table()->entryHandles() == 0, "EgrL3Oif1Table keeps entries");
      }
      const auto& members = *p.l3EcmpMember0Table();
      expect(members.entryBlocks() == 0, "the member table keeps blocks");
      expect(members.indexAllocator().used() == 0, "the member table keeps rows allocated");
      expect(members.recoveredRows() == 0, "the member table keeps recovered rows");
      for (uint32_t t = 0; t < hwTableCount; ++t) {
         auto hw = sys_.hw(HwTable(t));
         const uint32_t allowed = HwTable(t) == HwTable::nextHop ? 1 : 0;
         if (hw && hw->usedRows() > allowed)
            v.push_back("end: " + std::string(hwTableShortName(HwTable(t))) + " keeps " +
                        std::to_string(hw->usedRows()) + " rows");
      }
   }

   const RunConfig& config_;
   const RunOptions& options_;
   RunResult& result_;
   System sys_;
   ReferenceModel model_;
   std::vector<std::string> pending_;
   std::map<HwTable, std::set<Asic::Index>> stale_;
   std::set<BlockId> noRoom_;
   std::vector<std::string> transitions_;  // what the watchers heard that must not happen
   std::map<const Asic::SwTableBase::EntryHandle*, std::unique_ptr<StateWatcher>> watchers_;
   bool strict_ = false;
   bool lastClean_ = false;
};

// Shared allocators outlive their tables only while a table still uses them.
template <class A>
void expectUnshared(std::vector<std::string>& v) {
   if (uint32_t n = Asic::GenericIndexAllocatorStub::sharers(Orb::typeId<A>()))
      v.push_back("end: " + std::string(A::typeName) + " is still shared by " + std::to_string(n) +
                  " tables after the programmer went");
}

}  // namespace

RunResult runOps(const RunConfig& config, const std::vector<Op>& ops, const RunOptions& options) {
   RunResult r;
   auto log = [&](const std::string& line) {
      if (options.log) *options.log << line << "\n";
   };
   try {
      Run run(config, options, r);
      bool ok = true;
      for (uint32_t i = 0; ok && i < ops.size(); ++i) {
         if (options.progress) options.progress(i);
         log("#" + std::to_string(i) + " " + describe(ops[i]));
         ok = run.step(i, ops[i]);
      }
      if (ok && options.progress) options.progress(uint32_t(ops.size()));
      if (ok) log("end of run: every group released, every commitment removed");
      if (ok) run.finish(uint32_t(ops.size()));
   } catch (const std::exception& e) {
      r.failed = true;
      r.violations = {std::string("exception: ") + e.what()};
   }
   if (!r.failed) {
      std::vector<std::string> v;
      expectUnshared<MeridL3Common::L3EgrL3TunnelSharedAllocator>(v);
      expectUnshared<MeridL3Common::L3EgrL3Oif1TableSharedAllocator>(v);
      expectUnshared<MeridL3Common::L3TunnelNextHopSharedAllocator>(v);
      expectUnshared<MeridL3Common::L3InterfaceSharedAllocator>(v);
      if (!v.empty()) {
         r.failed = true;
         r.step = uint32_t(ops.size());
         r.violations = std::move(v);
      }
   }
   if (r.failed) {
      log("FAILS:");
      for (auto& v : r.violations) log("  " + v);
   }
   return r;
}

Shrunk shrink(const std::vector<Op>& ops, const RunResult& failed, const Runner& run,
              uint32_t maxRuns) {
   Shrunk s;
   s.original = failed;
   auto runSubset = [&](const std::vector<uint32_t>& indices) {
      ++s.runs;
      return run(opsAt(ops, indices));
   };
   auto upTo = [](uint32_t n) {
      std::vector<uint32_t> v(n);
      std::iota(v.begin(), v.end(), 0u);
      return v;
   };
   s.last = failed;
   if (failed.step < ops.size()) {
      s.prefix = upTo(failed.step + 1);
   } else {
      s.prefix = upTo(uint32_t(ops.size()));
      for (uint32_t n = 0; n < ops.size() && s.runs < maxRuns; ++n) {
         RunResult r = runSubset(upTo(n));
         if (!r.failed) continue;
         s.prefix = upTo(n);
         s.last = r;
         break;
      }
   }
   const std::string kind = failed.violations.empty() ? "" : category(failed.violations.front());
   std::vector<uint32_t> kept = s.prefix;
   for (bool dropped = true; dropped && s.runs < maxRuns;) {
      dropped = false;
      for (size_t j = kept.size(); j-- > 0 && s.runs < maxRuns;) {
         std::vector<uint32_t> candidate = kept;
         candidate.erase(candidate.begin() + j);
         RunResult r = runSubset(candidate);
         if (!r.failed || r.violations.empty() || category(r.violations.front()) != kind) continue;
         if (r.step < candidate.size()) candidate.resize(r.step + 1);
         kept = std::move(candidate);
         s.last = r;
         dropped = true;
         j = std::min(j, kept.size());
      }
   }
   s.kept = kept;
   return s;
}

std::string failureReport(const RunConfig& config, uint32_t opCount, const std::vector<Op>& ops,
                          const Shrunk& s) {
   std::ostringstream os;
   os << "model run failed: " << config.describe() << ", " << opCount << " ops\n";
   const RunResult& r = s.original;
   if (r.step < ops.size())
      os << "after op #" << r.step << " (" << describe(ops[r.step]) << "):\n";
   else
      os << "at the end of the run:\n";
   for (auto& v : r.violations) os << "  " << v << "\n";
   os << "shortest failing prefix: " << s.prefix.size() << " ops; with single ops dropped ("
      << s.runs << " runs): " << s.kept.size() << " ops:\n";
   std::string only;
   for (uint32_t i : s.kept) {
      os << "  #" << i << " " << describe(ops[i]) << "\n";
      only += (only.empty() ? "" : ",") + std::to_string(i);
   }
   os << "which fail with:\n";
   for (auto& v : s.last.violations) os << "  " << v << "\n";
   os << "replay: tools/soak.sh --seed " << config.seed << " --toggle "
      << (config.commonInterface ? "on" : "off") << " --ops " << opCount << " --only "
      << (only.empty() ? "none" : only) << "\n";
   return os.str();
}

}  // namespace model
