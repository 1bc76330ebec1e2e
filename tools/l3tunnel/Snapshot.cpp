#include "Snapshot.h"

#include <algorithm>
#include <set>
#include <tuple>

#include "SharedL3/EcmpGroup1Table.h"
#include "SharedL3/L3EcmpMember0Table.h"

namespace L3TunnelTool {

using namespace MeridL3Tunnel;
using Handle = Asic::SwTableBase::EntryHandle;
using Fields = std::vector<std::pair<std::string, std::string>>;

namespace {

constexpr Asic::UnitId unit = L3TunnelOverlayEcmpProgrammer::tableUnit;

std::optional<uint32_t> indexOf(Asic::Index i) {
   if (!Asic::isValidIndex(i)) return std::nullopt;
   return i;
}

std::string indexText(Asic::Index i) {
   return Asic::isValidIndex(i) ? std::to_string(i) : std::string("none");
}

void handleStates(const Handle& h, EntryView& e) {
   e.hwIndex = indexOf(h.hwIndex());
   e.entryState = std::string(Asic::SwTableBase::entryStateName(h.entryState()));
   e.entryType = std::string(Handle::entryTypeName(h.entryType()));
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

// Capacity and use come from the hardware table the rows are in.
void rowsOf(const AsicSim::Chip& chip, std::string_view hwTableName, TableView& v) {
   if (auto hw = chip.table(hwTableName, unit)) {
      v.capacity = hw->numEntries();
      v.used = hw->usedRows();
   }
}

// Rows first in index order, then what has no row, by key.
void sortEntries(std::vector<EntryView>& entries) {
   auto rank = [](const EntryView& e) {
      const KeyView k = e.key.value_or(KeyView());
      return std::tuple(!e.hwIndex, e.hwIndex.value_or(0), k.srcIpAddr, k.dstIpAddr, k.index);
   };
   std::stable_sort(entries.begin(), entries.end(),
                    [&](const EntryView& a, const EntryView& b) { return rank(a) < rank(b); });
}

template <class Entry>
void tunnelFields(const Entry& e, Fields& f) {
   f.emplace_back("ttl", std::to_string(e.ttlValue()));
}

template <class Entry>
void interfaceFields(const Entry& e, Fields& f) {
   f.emplace_back("tunnel", std::to_string(e.tunnelIdx()));
}

void nextHopFields(const L3TunnelIngL3NextHopEntry& e, Fields& f) {
   if (e.drop())
      f.emplace_back("drop", "");
   else
      f.emplace_back("interface", std::to_string(e.l3Oif1()));
}

void noFields(const IngL3IifEntry&, Fields&) {}

// A table keyed by tunnel key or index: one entry per handle, with the value
// in hardware, or else the one waiting for the entry it names.
template <class Table, class FieldsOf>
TableView keyedView(const Table& t, const AsicSim::Chip& chip, FieldsOf fieldsOf) {
   TableView v;
   v.name = std::string(unqualifiedName(Table::typeName));
   rowsOf(chip, Table::typeName, v);
   for (const auto& [key, handle] : t.entryHandleIteratorConst()) {
      EntryView e;
      e.key = keyView(key);
      handleStates(*handle, e);
      Orb::Optional<typename Table::Entry> value = t.resolvedEntry(key);
      if constexpr (Table::hasDependentField) {
         if (!value)
            if (auto ue = t.unresolvedEntry(key)) value = ue->entry();
      }
      if (value) {
         e.entry = value->rowText();
         fieldsOf(*value, e.fields);
      }
      v.entries.push_back(std::move(e));
   }
   sortEntries(v.entries);
   return v;
}

// The merged table's value is the pair of its members' values; the index it
// shares with them lives in IngL3Iif's rows.
TableView interfaceView(const L3InterfaceTable& t, const AsicSim::Chip& chip) {
   TableView v;
   v.name = std::string(unqualifiedName(L3InterfaceTable::typeName));
   rowsOf(chip, IngL3Iif::typeName, v);
   t.forEachEntryHandle([&](const L3TunnelKey& key, const auto& handle) {
      EntryView e;
      e.key = keyView(key);
      handleStates(*handle, e);
      if (t.mergedEntryHas(key) || t.unresolvedMergedEntryHas(key)) {
         EgrL3Oif1Table::Entry egress = t.egrL3Oif1TableEntry(key);
         egress.tunnelIdxHandleIs(nullptr);
         e.entry = valueToStrep(L3InterfaceTable::Entry(t.ingL3IifEntry(key), egress));
         interfaceFields(egress, e.fields);
      }
      v.entries.push_back(std::move(e));
   });
   sortEntries(v.entries);
   return v;
}

// One entry per member row; members of a block without rows have no key.
TableView memberView(const L3EcmpMember0Table& t, const AsicSim::Chip& chip) {
   TableView v;
   v.name = std::string(unqualifiedName(L3EcmpMember0Table::typeName));
   rowsOf(chip, L3EcmpMember0Table::typeName, v);
   t.forEachEntryBlock([&](const L3EcmpMember0Table::EntryHandle& block) {
      uint32_t slot = 0;
      for (const auto& m : block.entryBlock()) {
         EntryView e;
         handleStates(block, e);
         e.hwIndex.reset();
         if (block.baseIndex() != Asic::invalidIndex) {
            KeyView k;
            k.index = block.baseIndex() + slot;
            e.key = k;
            e.hwIndex = k.index;
         }
         e.entry = m.rowText();
         e.fields = {{"next hop", indexText(m.nextHopIdx())},
                     {"underlay", indexText(m.underlayIdx())},
                     {"resolved", m.resolved() ? "yes" : "no"}};
         v.entries.push_back(std::move(e));
         ++slot;
      }
   });
   sortEntries(v.entries);
   return v;
}

HardwareView hardwareView(const AsicSim::HwTable& hw, std::string_view qualifiedName) {
   HardwareView v;
   v.name = std::string(unqualifiedName(qualifiedName));
   v.capacity = hw.numEntries();
   for (uint32_t i = 0; i < hw.numEntries(); ++i)
      if (const std::string* row = hw.row(i)) v.rows.push_back({i, *row});
   v.writes = hw.stats().writes;
   v.deletes = hw.stats().deletes;
   v.changes = hw.stats().changes;
   return v;
}

MemberView memberOf(uint32_t slot, const L3EcmpMember0Entry& m) {
   MemberView v;
   v.slot = slot;
   v.resolved = m.resolved();
   if (const auto& nh = m.nextHopHandle()) {
      v.nextHopIndex = indexOf(nh->hwIndex());
      v.nextHopState = std::string(Asic::SwTableBase::entryStateName(nh->entryState()));
   } else {
      v.nextHopState = "none";
   }
   if (const auto& u = m.underlayHandle()) {
      if (u->fwkType() == Orb::typeId<EcmpGroup1Table::EntryHandle>()) {
         v.underlayAdjId = static_cast<const EcmpGroup1Table::EntryHandle&>(*u).key().adjId();
         v.underlayIndex = indexOf(u->hwIndex());
      } else {
         v.underlayAdjId = 0;  // a dropping member's placeholder
         v.drop = true;
      }
   }
   return v;
}

}  // namespace

Snapshot snapshotOf(const Agent& agent) {
   Snapshot s;
   const AsicSim::Chip& chip = agent.chip();
   if (const auto* p = agent.programmer()) {
      auto tunnel = [](const auto& e, Fields& f) { tunnelFields(e, f); };
      auto intf = [](const auto& e, Fields& f) { interfaceFields(e, f); };
      if (p->l3EgrL3Ipv4TunnelTable())
         s.tables.push_back(keyedView(*p->l3EgrL3Ipv4TunnelTable(), chip, tunnel));
      if (p->l3EgrL3Ipv6TunnelTable())
         s.tables.push_back(keyedView(*p->l3EgrL3Ipv6TunnelTable(), chip, tunnel));
      if (p->l3TunnelEgrL3Oif1Table())
         s.tables.push_back(keyedView(*p->l3TunnelEgrL3Oif1Table(), chip, intf));
      if (const auto& merged = p->l3InterfaceTable()) {
         if (merged->ingL3Iif()) s.tables.push_back(keyedView(*merged->ingL3Iif(), chip, noFields));
         if (merged->egrL3Oif1Table())
            s.tables.push_back(keyedView(*merged->egrL3Oif1Table(), chip, intf));
         s.tables.push_back(interfaceView(*merged, chip));
      }
      if (p->l3TunnelIngL3NextHopTable())
         s.tables.push_back(keyedView(*p->l3TunnelIngL3NextHopTable(), chip, nextHopFields));
      if (p->l3EcmpMember0Table()) s.tables.push_back(memberView(*p->l3EcmpMember0Table(), chip));
   }

   std::set<std::string> listed;
   for (const auto& t : hardwareTableClasses()) {
      if (auto hw = chip.table(t.qualifiedName, unit)) {
         s.hardware.push_back(hardwareView(*hw, t.qualifiedName));
         listed.insert(std::string(t.qualifiedName));
      }
   }
   for (const auto& name : chip.tableNames()) {
      auto hw = chip.table(name, unit);
      if (hw && !listed.count(name)) s.hardware.push_back(hardwareView(*hw, name));
   }

   for (const auto& [name, handle] : agent.groups()) {
      const auto& block = static_cast<const L3EcmpMember0Table::EntryHandle&>(*handle);
      GroupView g;
      g.name = name;
      g.baseIndex = indexOf(block.baseIndex());
      g.blockState = std::string(Asic::SwTableBase::entryStateName(block.entryState()));
      uint32_t slot = 0;
      for (const auto& m : block.entryBlock()) g.members.push_back(memberOf(slot++, m));
      s.groups.push_back(std::move(g));
   }
   return s;
}

}  // namespace L3TunnelTool
