#include "Snapshot.h"

#include <algorithm>
#include <set>
#include <tuple>
#include <type_traits>

#include "MeridL3Tunnel/TableCatalogue.h"
#include "SharedL3/EcmpGroup1Table.h"
#include "SharedL3/L3EcmpMember0Table.h"

namespace L3TunnelTool {

using namespace MeridL3Tunnel;
using Handle = Asic::SwTableBase::EntryHandle;
using State = Asic::SwTableBase::EntryState;
using NextHopHandle = L3TunnelIngL3NextHopTable::EntryHandle;

namespace {

constexpr Asic::UnitId unit = L3TunnelOverlayEcmpProgrammer::tableUnit;

std::optional<uint32_t> indexOf(Asic::Index i) {
   if (!Asic::isValidIndex(i)) return std::nullopt;
   return i;
}

std::string_view stateName(State s) { return Asic::SwTableBase::entryStateName(s); }

void handleStates(const Handle& h, EntryView& e) {
   e.hwIndex = indexOf(h.hwIndex());
   e.entryState = stateName(h.entryState());
   e.entryType = Handle::entryTypeName(h.entryType());
}

KeyView keyView(const L3TunnelKey& k) {
   KeyView v;
   v.tunnel = true;
   v.srcIpAddr = k.srcIpAddr().stringValue();
   v.dstIpAddr = k.dstIpAddr().stringValue();
   return v;
}

template <class Name>
KeyView keyView(const Asic::IndexValue<Name>& k) {
   KeyView v;
   v.index = k.value();
   return v;
}

// Indices an allocator keeps out of use (a tunnel table's index 0).
template <class Allocator>
uint32_t reservedBelow(const Brio::Ptr<Allocator>& a, uint32_t rows) {
   if constexpr (std::is_base_of_v<Asic::FirstFreeIndexAllocator, Allocator>)
      return a ? a->reservedBelow(rows) : 0;
   return 0;
}

// Capacity and use come from the hardware table the rows are in.
Usage usageOf(const AsicSim::Chip& chip, std::string_view hwTableName, uint32_t reserved) {
   Usage u;
   if (auto hw = chip.table(hwTableName, unit)) {
      u.capacity = hw->numEntries();
      u.used = hw->usedRows();
   }
   u.usable = u.capacity - std::min(reserved, u.capacity);
   u.free = u.usable - std::min(u.used, u.usable);
   return u;
}

// Entries in output order: rows first in index order, then what has no row,
// by key. Sorting a position per entry keeps the values unbuilt.
template <class Key, class Handle>
std::vector<std::pair<const Key*, const Handle*>> ordered(
    std::vector<std::pair<const Key*, const Handle*>> v) {
   auto rank = [](const auto& e) {
      const Asic::Index i = e.second->hwIndex();
      return std::tuple(!Asic::isValidIndex(i), Asic::isValidIndex(i) ? i : 0);
   };
   std::sort(v.begin(), v.end(), [&](const auto& a, const auto& b) {
      const auto ra = rank(a), rb = rank(b);
      if (ra != rb) return ra < rb;
      return *a.first < *b.first;
   });
   return v;
}

// What an entry's fields tell beyond its text, per entry type.
template <class Name>
void entryFields(const MeridL3Tunnel::EgrL3IpTunnelEntry<Name>& e, EntryView& v) {
   v.ttl = e.ttlValue();
}

// A dependent index means something only once the entry it names is
// programmed: until then the field holds a placeholder.
std::optional<uint32_t> dependentIndex(const Handle* named, uint32_t value) {
   if (!named || named->entryState() != State::success) return std::nullopt;
   return value;
}

template <class Entry>
auto entryFields(const Entry& e, EntryView& v) -> decltype(e.tunnelIdxHandle(), void()) {
   v.tunnelIndex = dependentIndex(e.tunnelIdxHandle().ptr(), e.tunnelIdx());
}

void entryFields(const L3TunnelIngL3NextHopEntry& e, EntryView& v) {
   v.drop = e.drop();
   if (!v.drop) v.interfaceIndex = dependentIndex(e.l3Oif1Handle().ptr(), e.l3Oif1());
}

void entryFields(const IngL3IifEntry&, EntryView&) {}

}  // namespace

uint32_t Usage::percentTenths() const {
   if (usable == 0) return used ? 1000 : 0;
   return uint32_t((uint64_t(std::min(used, usable)) * 1000 + usable / 2) / usable);
}

Usage::Level Usage::level() const {
   if (usable > 0 && free == 0) return Level::full;
   const uint32_t tenths = percentTenths();
   if (tenths >= criticalPercent * 10) return Level::critical;
   if (tenths >= highPercent * 10) return Level::high;
   return Level::ok;
}

std::string_view levelName(Usage::Level level) {
   switch (level) {
      case Usage::Level::ok:
         return "ok";
      case Usage::Level::high:
         return "high";
      case Usage::Level::critical:
         return "critical";
      case Usage::Level::full:
         return "full";
   }
   return "?";
}

void HardwareView::rowsVisit(
    const std::function<void(uint32_t index, const std::string& row)>& f) const {
   if (!rows) return;
   for (uint32_t i = 0; i < rows->numEntries(); ++i)
      if (const std::string* row = rows->row(i)) f(i, *row);
}

// The chain behind members, walked by the key the programmer writes every
// link of a via's chain under, and the groups behind each next hop.
class Snapshot::Chains {
public:
   Chains(const Agent& agent, const std::vector<TableView>& tables)
       : p_(agent.programmer()), tables_(tables) {
      uint32_t position = 0;
      for (const auto& [name, handle] : agent.groups()) {
         const auto& block = static_cast<const L3EcmpMember0Table::EntryHandle&>(*handle);
         for (const auto& m : block.entryBlock()) {
            auto& groups = groupsByNextHop_[m.nextHopHandle().ptr()];
            if (groups.empty() || groups.back() != position) groups.push_back(position);
         }
         ++position;
      }
   }

   // The positions of the groups whose members use the next hop of `key`.
   const std::vector<uint32_t>* groupsOf(const L3TunnelKey& key) const {
      if (!p_ || !p_->l3TunnelIngL3NextHopTable()) return nullptr;
      auto nh = p_->l3TunnelIngL3NextHopTable()->entryHandle(key);
      auto it = groupsByNextHop_.find(nh.ptr());
      return it == groupsByNextHop_.end() ? nullptr : &it->second;
   }

   // One link: the handle of `key` in the first of the tables that has one.
   template <class... Tables>
   static const Handle* handleIn(const L3TunnelKey& key, const Tables&... tables) {
      const Handle* found = nullptr;
      auto look = [&](const auto& t) {
         if (!found && t)
            if (auto h = t->entryHandle(key)) found = h.ptr();
      };
      (look(tables), ...);
      return found;
   }
   const Handle* tunnelHandle(const L3TunnelKey& key) const {
      return handleIn(key, p_->l3EgrL3Ipv4TunnelTable(), p_->l3EgrL3Ipv6TunnelTable());
   }
   std::string_view tunnelTableName(const L3TunnelKey& key) const {
      if (handleIn(key, p_->l3EgrL3Ipv6TunnelTable()))
         return unqualifiedName(L3EgrL3Ipv6TunnelTable::typeName);
      return unqualifiedName(L3EgrL3Ipv4TunnelTable::typeName);
   }
   const Handle* interfaceHandle(const L3TunnelKey& key) const {
      return handleIn(key, p_->l3InterfaceTable(), p_->l3TunnelEgrL3Oif1Table());
   }
   std::string_view interfaceTableName() const {
      return p_->l3InterfaceTable() ? unqualifiedName(L3InterfaceTable::typeName)
                                    : unqualifiedName(L3TunnelEgrL3Oif1Table::typeName);
   }

   const Usage* usage(std::string_view table) const {
      for (const auto& t : tables_)
         if (t.name == table) return &t.usage;
      return nullptr;
   }

   // What is wrong with an entry that is not programmed, naming its table.
   std::string linkProblem(std::string_view what, std::string_view table, const Handle& h) const {
      const std::string subject = std::string(what);
      switch (h.entryState()) {
         case State::noHwIndex: {
            const Usage* u = usage(table);
            if (u && u->free == 0)
               return std::string(table) + " is full (" + std::to_string(u->used) + " of " +
                      std::to_string(u->usable) + " usable rows used): " + subject +
                      " has no index";
            return subject + " has no index in " + std::string(table) +
                   ": the chip refused its row";
         }
         case State::inProgress:
            return subject + " in " + std::string(table) + " waits for the chip's response";
         default:
            return subject + " in " + std::string(table) + " is " +
                   std::string(stateName(h.entryState()));
      }
   }

   // The chain of one member, cached by its next hop: members share chains.
   struct Chain {
      LinkView nextHop, interface, tunnel;
      std::string src, dst;
      std::optional<uint32_t> ttl;
      bool drop = false;
      std::optional<std::string> reason;
   };

   const Chain& chain(const Handle* nextHop) {
      auto [it, added] = chains_.try_emplace(nextHop);
      if (added) it->second = chainOf(nextHop);
      return it->second;
   }

   Chain chainOf(const Handle* h) const {
      Chain c;
      if (!h) {
         c.reason = "no next hop";
         return c;
      }
      c.nextHop = {indexOf(h->hwIndex()), stateName(h->entryState())};
      if (h->fwkType() != Orb::typeId<NextHopHandle>()) return c;
      const L3TunnelKey& key = static_cast<const NextHopHandle*>(h)->key();
      const std::string nhTable(unqualifiedName(L3TunnelIngL3NextHopTable::typeName));
      const auto& table = *p_->l3TunnelIngL3NextHopTable();
      Orb::Optional<L3TunnelIngL3NextHopEntry> value = table.resolvedEntry(key);
      if (!value)
         if (auto ue = table.unresolvedEntry(key)) value = ue->entry();
      c.drop = value && value->drop();
      if (c.drop) {
         if (h->entryState() != State::success)
            c.reason = linkProblem("the reserved drop next hop", nhTable, *h);
         return c;
      }
      c.src = key.srcIpAddr().stringValue();
      c.dst = key.dstIpAddr().stringValue();
      const std::string tunnel = c.src + " -> " + c.dst;
      const Handle* intf = interfaceHandle(key);
      const Handle* tun = tunnelHandle(key);
      if (intf) c.interface = {indexOf(intf->hwIndex()), stateName(intf->entryState())};
      if (tun) {
         c.tunnel = {indexOf(tun->hwIndex()), stateName(tun->entryState())};
         if (auto v4 = p_->l3EgrL3Ipv4TunnelTable())
            if (auto e = v4->resolvedEntry(key)) c.ttl = e->ttlValue();
         if (auto v6 = p_->l3EgrL3Ipv6TunnelTable(); v6 && !c.ttl)
            if (auto e = v6->resolvedEntry(key)) c.ttl = e->ttlValue();
      }
      // The deepest link that is not programmed is what the others wait for.
      if (tun && tun->entryState() != State::success) {
         c.reason = linkProblem("tunnel " + tunnel, tunnelTableName(key), *tun) +
                    ", its interface and next hop wait for it";
      } else if (intf && intf->entryState() != State::success) {
         c.reason = linkProblem("interface " + tunnel, interfaceTableName(), *intf) +
                    ", its next hop waits for it";
      } else if (h->entryState() != State::success) {
         c.reason = linkProblem("next hop " + tunnel, nhTable, *h);
      }
      return c;
   }

   const L3TunnelOverlayEcmpProgrammer* p_;
   const std::vector<TableView>& tables_;
   std::unordered_map<const Handle*, std::vector<uint32_t>> groupsByNextHop_;
   std::unordered_map<const Handle*, Chain> chains_;
};

namespace {

// Gives a view its visit (entries in output order, from the handles
// `collect` lists) and, for tables keyed by a tunnel, its look-up by key;
// `build` makes one entry's view.
template <class Key, class H, class Table, class Collect, class Build>
void visitsIs(TableView& v, const Table& t, Collect collect, Build build) {
   v.visit = [&t, collect, build](const TableView::EntryVisitor& f, bool texts) {
      std::vector<std::pair<const Key*, const H*>> all;
      all.reserve(t.entryHandles());
      collect([&](const Key& key, const H& handle) { all.emplace_back(&key, &handle); });
      EntryView e;
      for (const auto& [key, handle] : ordered(std::move(all))) {
         build(*key, *handle, e, texts);
         f(e);
      }
   };
   if constexpr (std::is_same_v<Key, L3TunnelKey>) {
      v.entryOf = [&t, build](const L3TunnelKey& key) -> std::optional<EntryView> {
         auto handle = t.entryHandle(key);
         if (!handle) return std::nullopt;
         EntryView e;
         build(key, *handle, e, true);
         return e;
      };
   }
}

// A table keyed by tunnel key or index: one entry per handle, with the value
// in hardware, or else the one waiting for the entry it names.
template <class Table, class FieldsOf>
TableView keyedView(const Table& t, const AsicSim::Chip& chip, TableKind kind, FieldsOf fieldsOf,
                    const Snapshot::Chains* chains) {
   using Key = typename Table::Key;
   using H = typename Table::EntryHandle;
   TableView v;
   v.name = std::string(unqualifiedName(Table::typeName));
   v.kind = kind;
   uint32_t reserved = 0;  // an index-keyed table reserves nothing of its own
   if constexpr (!Table::knownIndex) reserved = reservedBelow(t.indexAllocator(), t.numEntries());
   v.usage = usageOf(chip, Table::typeName, reserved);
   v.entries = t.entryHandles();
   for (const auto& [key, handle] : t.entryHandleIteratorConst())
      if (handle->entryState() == State::noHwIndex) ++v.usage.refused;
   const bool groups = kind == TableKind::tunnel && chains;
   auto build = [&t, fieldsOf, chains, groups](const Key& key, const H& handle, EntryView& e,
                                               bool texts) {
      e = EntryView();
      e.key = keyView(key);
      handleStates(handle, e);
      Orb::Optional<typename Table::Entry> value = t.resolvedEntry(key);
      if constexpr (Table::hasDependentField) {
         if (!value)
            if (auto ue = t.unresolvedEntry(key)) value = ue->entry();
      }
      if (value) {
         e.valued = true;
         if (texts) e.entry = value->rowText();
         fieldsOf(*value, e);
      }
      if constexpr (std::is_same_v<Key, L3TunnelKey>) {
         if (groups)
            if (const auto* g = chains->groupsOf(key)) e.groups = *g;
      }
   };
   visitsIs<Key, H>(
       v, t,
       [&t](const auto& add) {
          for (const auto& [key, handle] : t.entryHandleIteratorConst()) add(key, *handle);
       },
       build);
   return v;
}

// The merged table's value is the pair of its members' values; the index it
// shares with them lives in IngL3Iif's rows.
TableView interfaceView(const L3InterfaceTable& t, const AsicSim::Chip& chip) {
   TableView v;
   v.name = std::string(unqualifiedName(L3InterfaceTable::typeName));
   v.kind = TableKind::interface;
   const uint32_t rows = t.ingL3Iif() ? t.ingL3Iif()->numEntries() : 0;
   v.usage = usageOf(chip, IngL3Iif::typeName, reservedBelow(t.indexAllocator(), rows));
   v.entries = t.entryHandles();
   t.forEachEntryHandle([&](const L3TunnelKey&, const auto& handle) {
      if (handle->entryState() == State::noHwIndex) ++v.usage.refused;
   });
   using H = L3InterfaceTable::EntryHandle;
   auto build = [&t](const L3TunnelKey& key, const H& handle, EntryView& e, bool texts) {
      e = EntryView();
      e.key = keyView(key);
      handleStates(handle, e);
      if (t.mergedEntryHas(key) || t.unresolvedMergedEntryHas(key)) {
         EgrL3Oif1Table::Entry egress = t.egrL3Oif1TableEntry(key);
         entryFields(egress, e);
         e.valued = true;
         egress.tunnelIdxHandleIs(nullptr);
         if (texts) e.entry = valueToStrep(L3InterfaceTable::Entry(t.ingL3IifEntry(key), egress));
      }
   };
   visitsIs<L3TunnelKey, H>(
       v, t,
       [&t](const auto& add) {
          t.forEachEntryHandle(
              [&](const L3TunnelKey& key, const auto& handle) { add(key, *handle); });
       },
       build);
   return v;
}

// One entry per member row; members of a block without rows have no key.
TableView memberView(const L3EcmpMember0Table& t, const AsicSim::Chip& chip) {
   TableView v;
   v.name = std::string(unqualifiedName(L3EcmpMember0Table::typeName));
   v.kind = TableKind::member;
   v.usage = usageOf(chip, L3EcmpMember0Table::typeName, 0);
   v.usage.largestFree = t.indexAllocator().largestFree();
   t.forEachEntryBlock([&](const L3EcmpMember0Table::EntryHandle& block) {
      v.entries += block.size();
      if (block.entryState() == State::noHwIndex) v.usage.refused += block.size();
   });
   v.visit = [&t](const TableView::EntryVisitor& f, bool texts) {
      using H = L3EcmpMember0Table::EntryHandle;
      std::vector<const H*> blocks;
      t.forEachEntryBlock([&](const H& block) { blocks.push_back(&block); });
      std::sort(blocks.begin(), blocks.end(), [](const H* a, const H* b) {
         if (a->baseIndex() != b->baseIndex()) return a->baseIndex() < b->baseIndex();
         return a->keyText() < b->keyText();
      });
      EntryView e;
      for (const H* block : blocks) {
         // Members carry indices once the block was placed or tried to be.
         const State s = block->entryState();
         const bool placed = s == State::inProgress || s == State::success || s == State::noHwIndex;
         uint32_t slot = 0;
         for (const auto& m : block->entryBlock()) {
            e = EntryView();
            handleStates(*block, e);
            e.hwIndex.reset();
            if (block->baseIndex() != Asic::invalidIndex) {
               KeyView k;
               k.index = block->baseIndex() + slot;
               e.key = k;
               e.hwIndex = k.index;
            }
            e.valued = true;
            if (texts) e.entry = m.rowText();
            if (placed) {
               e.nextHopIndex = indexOf(m.nextHopIdx());
               // A dropping member names a placeholder, not an underlay group.
               const auto& u = m.underlayHandle();
               if (u && u->fwkType() == Orb::typeId<EcmpGroup1Table::EntryHandle>())
                  e.underlayIndex = indexOf(m.underlayIdx());
            }
            e.resolved = m.resolved();
            f(e);
            ++slot;
         }
      }
   };
   return v;
}

HardwareView hardwareView(const AsicSim::HwTable& hw, std::string_view qualifiedName) {
   HardwareView v;
   v.name = std::string(unqualifiedName(qualifiedName));
   v.capacity = hw.numEntries();
   v.used = hw.usedRows();
   v.writes = hw.stats().writes;
   v.deletes = hw.stats().deletes;
   v.changes = hw.stats().changes;
   v.rows = &hw;
   return v;
}

TableKind kindOf(ChainLink link) {
   switch (link) {
      case ChainLink::tunnel:
         return TableKind::tunnel;
      case ChainLink::interface:
         return TableKind::interface;
      case ChainLink::nextHop:
         return TableKind::nextHop;
      case ChainLink::member:
         break;
   }
   return TableKind::member;
}

// The views of one table of the catalogue: a keyed table's own; the merged
// table's members' and its own; the member table's blocks'.
template <class Table>
void viewsAppend(std::vector<TableView>& out, const Table& t, const AsicSim::Chip& chip,
                 TableKind kind, const Snapshot::Chains* chains) {
   out.push_back(keyedView(
       t, chip, kind, [](const auto& e, EntryView& v) { entryFields(e, v); }, chains));
}

void viewsAppend(std::vector<TableView>& out, const L3InterfaceTable& t, const AsicSim::Chip& chip,
                 TableKind kind, const Snapshot::Chains* chains) {
   if (t.ingL3Iif()) viewsAppend(out, *t.ingL3Iif(), chip, TableKind::ingressInterface, chains);
   if (t.egrL3Oif1Table()) viewsAppend(out, *t.egrL3Oif1Table(), chip, kind, chains);
   out.push_back(interfaceView(t, chip));
}

void viewsAppend(std::vector<TableView>& out, const L3EcmpMember0Table& t,
                 const AsicSim::Chip& chip, TableKind, const Snapshot::Chains*) {
   out.push_back(memberView(t, chip));
}

// Tables that share an index space but not a size: the larger one's size
// wins, and the smaller one refuses the rows past its end.
void sizesCheck(const L3TunnelOverlayEcmpProgrammer& p, std::vector<std::string>& warnings) {
   auto check = [&](std::string_view a, uint32_t aRows, std::string_view b, uint32_t bRows,
                    uint32_t space, std::string_view what) {
      if (aRows == bRows) return;
      const bool aSmaller = aRows < bRows;
      warnings.push_back(std::string(a) + " has " + std::to_string(aRows) + " rows and " +
                         std::string(b) + " " + std::to_string(bRows) + ", but they share " +
                         std::string(what) + " of " + std::to_string(space) +
                         " indices: entries given an index past " +
                         std::to_string((aSmaller ? aRows : bRows) - 1) + " are refused by " +
                         std::string(aSmaller ? a : b));
   };
   if (p.l3EgrL3Ipv4TunnelTable() && p.l3EgrL3Ipv6TunnelTable()) {
      const auto& v4 = *p.l3EgrL3Ipv4TunnelTable();
      const auto& v6 = *p.l3EgrL3Ipv6TunnelTable();
      check(unqualifiedName(L3EgrL3Ipv4TunnelTable::typeName), v4.numEntries(),
            unqualifiedName(L3EgrL3Ipv6TunnelTable::typeName), v6.numEntries(),
            v4.indexAllocator() ? v4.indexAllocator()->indexCount() : 0, "one index space");
   }
   if (const auto& merged = p.l3InterfaceTable();
       merged && merged->ingL3Iif() && merged->egrL3Oif1Table()) {
      check(unqualifiedName(IngL3Iif::typeName), merged->ingL3Iif()->numEntries(),
            unqualifiedName(EgrL3Oif1Table::typeName), merged->egrL3Oif1Table()->numEntries(),
            merged->indexAllocator() ? merged->indexAllocator()->indexCount() : 0,
            "the merged interface table's index space");
   }
}

}  // namespace

Snapshot::Snapshot(const Agent& agent) : agent_(agent) {
   const AsicSim::Chip& chip = agent.chip();
   for (const auto& group : agent.groups()) {
      groupNames_.push_back(group.first);
      groups_.push_back(&group);
   }
   // Listed after the programmed ones, so that those keep the positions the
   // chains give them.
   for (const auto& [name, note] : agent.groupNotes())
      if (note.reason && !agent.groups().count(name)) groupNames_.push_back(name);
   // The chains read the tables' usage when they explain a failure; they
   // are read only after the list is complete.
   chains_ = std::make_unique<Chains>(agent, tables_);
   if (const auto* p = agent.programmer()) {
      // Tunnels first, members last: each table's entries name those above.
      const Chains* chains = chains_.get();
      auto add = [&]<class Line>() {
         if (const auto& t = p->table<typename Line::Table>())
            viewsAppend(tables_, *t, chip, kindOf(Line::link), chains);
      };
      MeridL3Tunnel::forEachLineOf<ChainLink::tunnel>(add);
      MeridL3Tunnel::forEachLineOf<ChainLink::interface>(add);
      MeridL3Tunnel::forEachLineOf<ChainLink::nextHop>(add);
      MeridL3Tunnel::forEachLineOf<ChainLink::member>(add);
      sizesCheck(*p, warnings_);
   }

   std::set<std::string> listed;
   for (const auto& t : hardwareTableClasses()) {
      if (auto hw = chip.table(t.qualifiedName, unit)) {
         hardware_.push_back(hardwareView(*hw, t.qualifiedName));
         listed.insert(std::string(t.qualifiedName));
      }
   }
   for (const auto& name : chip.tableNames()) {
      auto hw = chip.table(name, unit);
      if (hw && !listed.count(name)) hardware_.push_back(hardwareView(*hw, name));
   }
}

Snapshot::~Snapshot() = default;

RunView Snapshot::run(const RunView& start) const {
   RunView r = start;
   r.hardwareWrites = r.hardwareDeletes = r.changedRows = 0;
   for (const auto& h : hardware_) {
      r.hardwareWrites += h.writes;
      r.hardwareDeletes += h.deletes;
      r.changedRows += h.changes;
   }
   return r;
}

uint64_t Snapshot::members() const {
   uint64_t n = 0;
   for (const auto& [name, handle] : agent_.groups())
      n += static_cast<const L3EcmpMember0Table::EntryHandle&>(*handle).size();
   return n;
}

GroupView Snapshot::group(uint32_t position) const {
   GroupView g;
   g.name = groupNames_.at(position);
   const auto note = agent_.groupNotes().find(g.name);
   if (note != agent_.groupNotes().end()) g.routes = note->second.routes;
   if (position >= groups_.size()) {
      g.state = notProgrammed;
      g.reason = note->second.reason;
      return g;
   }
   const auto* it = groups_[position];
   const auto& block = static_cast<const L3EcmpMember0Table::EntryHandle&>(*it->second);
   g.state = stateName(block.entryState());
   g.base = indexOf(block.baseIndex());
   g.size = block.size();

   // The via behind each slot, for the adjacency a missing underlay names.
   const Agent::Vias* vias = nullptr;
   if (auto v = agent_.groupVias().find(it->first); v != agent_.groupVias().end())
      vias = &v->second;
   size_t via = 0;
   uint32_t viaSlotsLeft = vias && !vias->empty() ? (*vias)[0].weight() : 0;

   uint32_t slot = 0;
   uint32_t troubled = 0;
   std::optional<std::string> firstTrouble;
   for (const auto& m : block.entryBlock()) {
      while (vias && viaSlotsLeft == 0 && via + 1 < vias->size())
         viaSlotsLeft = (*vias)[++via].weight();
      const L3TunnelOverlayViaEntry* viaEntry =
          vias && via < vias->size() ? &(*vias)[via] : nullptr;
      if (viaSlotsLeft) --viaSlotsLeft;

      MemberView mv;
      mv.slot = slot;
      mv.resolved = m.resolved();
      const Chains::Chain& c = chains_->chain(m.nextHopHandle().ptr());
      mv.nextHop = c.nextHop;
      mv.interface = c.interface;
      mv.tunnel = c.tunnel;
      mv.srcIpAddr = c.src;
      mv.dstIpAddr = c.dst;
      mv.ttl = c.ttl;
      mv.drop = c.drop;
      mv.reason = c.reason;
      if (!mv.drop) {
         if (viaEntry) {
            mv.underlayAdjId = viaEntry->underlayAdjId().adjId();
            mv.underlayType = uint32_t(viaEntry->underlayAdjId().type());
         }
         const auto& u = m.underlayHandle();
         if (u && u->fwkType() == Orb::typeId<EcmpGroup1Table::EntryHandle>()) {
            const auto& group = static_cast<const EcmpGroup1Table::EntryHandle&>(*u);
            mv.underlayExists = true;
            mv.underlayAdjId = group.key().adjId();
            mv.underlayType = uint32_t(group.key().type());
            mv.underlayIndex = indexOf(u->hwIndex());
         }
         if (mv.underlayAdjId) mv.underlayName = agent_.underlayName(*mv.underlayAdjId);
         if (!mv.reason) {
            std::string adjacency =
                "underlay adjacency " +
                (mv.underlayAdjId ? std::to_string(*mv.underlayAdjId) : std::string("?"));
            if (mv.underlayName) adjacency += " (" + *mv.underlayName + ")";
            if (!mv.underlayExists)
               mv.reason = adjacency + " not resolved: EcmpGroup1Table has no such group";
            else if (u->entryState() != State::success)
               mv.reason = adjacency + ": its group in EcmpGroup1Table is " +
                           std::string(stateName(u->entryState()));
         }
      }
      if (mv.reason) {
         if (!troubled) firstTrouble = "member " + std::to_string(slot) + ": " + *mv.reason;
         ++troubled;
      }
      g.members.push_back(std::move(mv));
      ++slot;
   }

   const std::string members = std::string(unqualifiedName(L3EcmpMember0Table::typeName));
   const std::string range =
       g.base ? "rows " + std::to_string(*g.base) + ".." + std::to_string(*g.base + g.size - 1)
              : std::string();
   switch (block.entryState()) {
      case State::noHwIndex:
         if (!g.base) {
            const auto& table = *agent_.programmer()->l3EcmpMember0Table();
            const uint32_t largest = table.indexAllocator().largestFree();
            g.reason = members + ": no free range of " + std::to_string(g.size) + " members";
            // Ranges freed since the block was refused are not tried again
            // until the group is programmed again.
            if (largest < g.size)
               g.reason->append(", largest free: " + std::to_string(largest));
            else
               g.reason->append(" when the block was placed; " + std::to_string(largest) +
                                " are free in a row now, programming the group again retries");
         } else {
            g.reason = members + ": the chip refused a row of " + range;
         }
         break;
      case State::inProgress:
         g.reason = members + ": " + range + " written, waiting for the chip's response";
         break;
      case State::success:
         break;
      default:
         // Waiting for, or failed by, an entry its members name.
         g.reason = firstTrouble.value_or(members + ": waiting for the entries its members name");
   }
   if (!g.reason && firstTrouble) g.reason = firstTrouble;
   if (g.reason && firstTrouble && *g.reason == *firstTrouble && troubled > 1)
      g.reason->append(" (and " + std::to_string(troubled - 1) + " more members)");
   return g;
}

std::vector<std::pair<const TableView*, EntryView>> Snapshot::tunnelChain(
    const L3TunnelKey& key) const {
   std::vector<std::pair<const TableView*, EntryView>> chain;
   for (const auto& t : tables_)
      if (t.entryOf)
         if (auto e = t.entryOf(key)) chain.emplace_back(&t, std::move(*e));
   return chain;
}

std::vector<std::pair<std::string, std::vector<uint32_t>>> Snapshot::tunnelGroups(
    const L3TunnelKey& key) const {
   std::vector<std::pair<std::string, std::vector<uint32_t>>> out;
   const auto* p = agent_.programmer();
   if (!p || !p->l3TunnelIngL3NextHopTable()) return out;
   const auto nh = p->l3TunnelIngL3NextHopTable()->entryHandle(key);
   if (!nh) return out;
   for (const auto& [name, handle] : agent_.groups()) {
      const auto& block = static_cast<const L3EcmpMember0Table::EntryHandle&>(*handle);
      std::vector<uint32_t> slots;
      uint32_t slot = 0;
      for (const auto& m : block.entryBlock()) {
         if (m.nextHopHandle().ptr() == nh.ptr()) slots.push_back(slot);
         ++slot;
      }
      if (!slots.empty()) out.emplace_back(name, std::move(slots));
   }
   return out;
}

}  // namespace L3TunnelTool
