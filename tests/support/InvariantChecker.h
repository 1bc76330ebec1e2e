#pragma once
// Checks what must hold between the software tables, their allocators and the
// simulated chip whenever the event loop is idle:
//  - no two keys hold one index of an index space;
//  - every programmed handle's row holds exactly its resolved entry, at the
//    index the allocator gives its key;
//  - every used row belongs to a key that holds its index (no orphan rows);
//  - every index the allocator holds belongs to a key some table still has
//    (no leaked index), and no reserved index is held.
// Returns the violations found, one line each; empty when all hold.
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "AsicSim/Chip.h"
#include "MeridL3Tunnel/L3TunnelInterfaceTable.h"
#include "SharedL3/L3EcmpMember0Table.h"

namespace test {

// Lines of findings; a check holds when it finds none.
using Lines = std::vector<std::string>;

class InvariantChecker {
public:
   explicit InvariantChecker(const AsicSim::Chip& chip) : chip_(chip) {}

   template <class Table>
   InvariantChecker& table(const Table& t) {
      checkHandles(t);
      checkRows(t);
      if constexpr (Table::hasDependentField) checkDependents(t);
      keysOf_[allocatorOf(t)];  // every allocator gets checked, even an empty one
      for (auto& [key, node] : t.entryIteratorConst()) keysOf_[allocatorOf(t)].insert(text(key));
      for (auto& [key, h] : t.entryHandleIteratorConst()) keysOf_[allocatorOf(t)].insert(text(key));
      return *this;
   }

   // The merged table: its members' rows sit at the index the merged
   // allocator gives the key, and no index is held by a key the table lost
   // while no member row uses it.
   InvariantChecker& mergedTable(const MeridL3Tunnel::L3InterfaceTable& t) {
      table(*t.ingL3Iif());
      table(*t.egrL3Oif1Table());
      const auto& alloc = t.indexAllocator();
      auto& keys = keysOf_[alloc.ptr()];
      t.forEachEntryHandle([&](const auto& key, const auto& h) {
         keys.insert(text(key));
         if (h->entryState() != Asic::SwTableBase::success()) return;
         if (alloc->indexForKey(key) != h->hwIndex())
            fail(t.name(), ": ", key, " resolved at ", h->hwIndex(), " but its allocator says ",
                 alloc->indexForKey(key));
      });
      // A held index may outlive its key only while a member still uses it,
      // in software or in a row; and no member row is without its index.
      auto ingHw = chip_.table(t.ingL3Iif()->name(), t.ingL3Iif()->unitId());
      auto egrHw = chip_.table(t.egrL3Oif1Table()->name(), t.egrL3Oif1Table()->unitId());
      auto rowUsed = [](const auto& hw, Asic::Index i) { return hw && hw->row(i); };
      alloc->forEachHeldIndex([&](Asic::Index i, const Orb::GenericValue& key) {
         const bool used =
             t.ingL3Iif()->resolvedEntryHas(MeridL3Tunnel::IngL3Iif::Index(i)) ||
             t.egrL3Oif1Table()->resolvedEntryHas(MeridL3Tunnel::EgrL3Oif1Table::Index(i)) ||
             rowUsed(ingHw, i) || rowUsed(egrHw, i);
         if (used) keys.insert(key.text());
      });
      for (auto& hw : {ingHw, egrHw})
         for (Asic::Index i = 0; hw && i < hw->numEntries(); ++i)
            if (hw->row(i) && !alloc->keyForIndex(i))
               fail(hw->name(), ": row ", i, " is used but its merged index is free");
      return *this;
   }

   // Member blocks: ranges disjoint and allocated, programmed rows equal to
   // their members, member indices equal to what they name, and no used row
   // or allocated index outside a block (or the rows found at a restart).
   InvariantChecker& memberTable(const MeridL3Tunnel::L3EcmpMember0Table& t) {
      auto hw = chip_.table(t.name(), t.unitId());
      std::map<Asic::Index, Asic::Index> ranges;  // first -> one past last
      uint32_t placed = 0;
      t.forEachEntryBlock([&](const auto& b) {
         if (b.baseIndex() == Asic::invalidIndex) return;
         const Asic::Index first = b.baseIndex(), end = first + b.size();
         placed += b.size();
         auto next = ranges.lower_bound(first);
         if ((next != ranges.end() && next->first < end) ||
             (next != ranges.begin() && std::prev(next)->second > first))
            fail(t.name(), ": block ", b.keyText(), " overlaps another block");
         ranges.emplace(first, end);
         for (Asic::Index i = first; i < end; ++i)
            if (t.indexAllocator().isFree(i))
               fail(t.name(), ": row ", i, " of block ", b.keyText(), " is free in the allocator");
         if (b.entryState() != Asic::SwTableBase::success()) return;
         for (uint32_t s = 0; s < b.size(); ++s) {
            const auto& m = b.entryBlock().entry(MeridL3Tunnel::L3EcmpMember0Table::Index(s));
            const std::string* row = hw ? hw->row(first + s) : nullptr;
            if (hw && (!row || *row != m.rowText()))
               fail(t.name(), ": row ", first + s, " holds '", (row ? *row : "nothing"),
                    "', not member ", s, " of ", b.keyText());
            for (auto [named, field] : {std::pair{m.nextHopHandle().ptr(), m.nextHopIdx()},
                                        std::pair{m.underlayHandle().ptr(), m.underlayIdx()}})
               if (named && named->isComplete() &&
                   Asic::SwTableBase::getHwIndexForDependentField(*named) != field)
                  fail(t.name(), ": member ", s, " of ", b.keyText(), " carries index ", field,
                       ", its ", named->keyText(), " has ", named->hwIndex());
         }
      });
      if (t.indexAllocator().used() != placed + t.recoveredRows())
         fail(t.name(), ": ", t.indexAllocator().used(), " indices allocated, blocks hold ", placed,
              " and ", t.recoveredRows(), " were found at a restart");
      for (Asic::Index i = 0; hw && i < hw->numEntries(); ++i)
         if (hw->row(i) && t.indexAllocator().isFree(i))
            fail(t.name(), ": row ", i, " is used but its index is free");
      return *this;
   }

   // Every table the overlay ECMP programmer holds.
   template <class Programmer>
   InvariantChecker& programmer(const Programmer& p) {
      if (p.l3EgrL3Ipv4TunnelTable()) table(*p.l3EgrL3Ipv4TunnelTable());
      if (p.l3EgrL3Ipv6TunnelTable()) table(*p.l3EgrL3Ipv6TunnelTable());
      if (p.l3TunnelEgrL3Oif1Table()) table(*p.l3TunnelEgrL3Oif1Table());
      if (p.l3TunnelIngL3NextHopTable()) table(*p.l3TunnelIngL3NextHopTable());
      if (p.l3InterfaceTable()) mergedTable(*p.l3InterfaceTable());
      if (p.l3EcmpMember0Table()) memberTable(*p.l3EcmpMember0Table());
      return *this;
   }

   std::vector<std::string> violations() {
      for (auto& [alloc, keys] : keysOf_) {
         if (!alloc) continue;
         alloc->forEachHeldIndex([&](Asic::Index i, const Orb::GenericValue& key) {
            if (!keys.count(key.text()))
               fail("index ", i, " is held by ", key.text(), ", which no table has (leaked)");
         });
      }
      return std::move(violations_);
   }

private:
   // The allocator a table takes its indices from: none when its key is the
   // index.
   template <class Table>
   static const auto* allocatorOf(const Table& t) {
      if constexpr (Table::knownIndex)
         return static_cast<const Asic::GenericIndexAllocator*>(nullptr);
      else
         return t.indexAllocator().ptr();
   }

   template <class K>
   static std::string text(const K& k) {
      std::ostringstream os;
      os << k;
      return os.str();
   }

   template <class... A>
   void fail(const A&... pieces) {
      std::ostringstream os;
      (os << ... << pieces);
      violations_.push_back(os.str());
   }

   template <class Table>
   void checkHandles(const Table& t) {
      auto hw = chip_.table(t.name(), t.unitId());
      const auto* alloc = allocatorOf(t);
      auto& owners = owners_[alloc];
      for (auto& [key, h] : t.entryHandleIteratorConst()) {
         if (h->swTable() != &t)
            fail(t.name(), ": handle of ", key, " does not point at its table");
         if (h->entryState() != Asic::SwTableBase::success() || h->outstandingRequest()) continue;
         auto value = t.resolvedEntry(key);
         if (!value) continue;
         const Asic::Index i = h->hwIndex();
         if (alloc && alloc->indexForKey(key) != i)
            fail(t.name(), ": ", key, " is programmed at ", i, " but its allocator says ",
                 alloc->indexForKey(key));
         bool reserved = false;
         if constexpr (requires { alloc->reserved(i); }) reserved = alloc && alloc->reserved(i);
         if (reserved) fail(t.name(), ": ", key, " is programmed at reserved index ", i);
         auto [it, fresh] = owners.emplace(i, text(key));
         if (!fresh && it->second != text(key))
            fail("index ", i, " is held by ", it->second, " and ", key);
         const std::string* row = hw ? hw->row(i) : nullptr;
         if (hw && (!row || *row != value->rowText()))
            fail(t.name(), ": row ", i, " of ", key, " holds '",
                 (row ? *row : std::string("nothing")), "', not its resolved entry");
      }
   }

   // A resolved value carries the index of the entry it names; a value that
   // still waits has its key's handle.
   template <class Table>
   void checkDependents(const Table& t) {
      for (auto& [key, node] : t.entryIteratorConst()) {
         if (!node || !node->neededEntryHandle()) continue;
         const auto& needed = *node->neededEntryHandle();
         if (needed.entryState() != Asic::SwTableBase::success()) continue;
         const auto expected = uint16_t(Asic::SwTableBase::getHwIndexForDependentField(needed));
         if (dependentField(*node) != expected)
            fail(t.name(), ": ", key, " carries index ", dependentField(*node),
                 ", its needed entry has ", expected);
      }
      for (auto& [key, ue] : t.unresolvedEntryIteratorConst())
         if (!t.entryHandle(key)) fail(t.name(), ": unresolved entry at ", key, " has no handle");
   }

   template <class Entry>
   static uint32_t dependentField(const Entry& e) {
      if constexpr (requires { e.tunnelIdx(); })
         return e.tunnelIdx();
      else
         return e.l3Oif1();
   }

   template <class Table>
   void checkRows(const Table& t) {
      auto hw = chip_.table(t.name(), t.unitId());
      const auto* alloc = allocatorOf(t);
      if (!hw || !alloc) return;
      // A row the software has not claimed again since a restart still holds
      // its index.
      auto& keys = keysOf_[alloc];
      for (Asic::Index i = 0; i < hw->numEntries(); ++i) {
         if (!hw->row(i)) continue;
         if (hw->rowKey(i)) keys.insert(hw->rowKey(i).text());
         if (!alloc->keyForIndex(i))
            fail(t.name(), ": row ", i, " is used but no key holds its index");
      }
   }

   const AsicSim::Chip& chip_;
   std::map<const Asic::GenericIndexAllocator*, std::set<std::string>> keysOf_;
   std::map<const Asic::GenericIndexAllocator*, std::map<Asic::Index, std::string>> owners_;
   std::vector<std::string> violations_;
};

}  // namespace test
