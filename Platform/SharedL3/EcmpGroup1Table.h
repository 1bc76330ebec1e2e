#pragma once
// The shared table of underlay ECMP groups, keyed by adjacency. Another agent
// component owns it and programs the groups; overlay code only finds a
// group's handle with a weak lookup, which keeps nothing alive.
//
// A group's handle state is moved by the owner (`entryIs`, `entryStateIs`):
// typically inProgress while its hardware write is out, then success. Each
// group holds one index of the table while it exists. A removed group's handle
// is left unresolved with no index, but the index itself stays taken until the
// last holder of the handle lets go: member rows written with it still name
// it, and a new group must not take it under them. Member rows found at a
// restart name groups by index only; they pin them (see IndexPins).
#include <cstdint>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "Asic/IndexAllocator.h"
#include "Asic/IndexPins.h"
#include "Asic/SwTableBase.h"
#include "MeridL3Common/L3AdjIdKey.h"
#include "Orb/Entity.h"
#include "Orb/Hash.h"

#pragma GCC visibility push(default)
namespace MeridL3Tunnel {

class EcmpGroup1Table final : public Orb::Entity, public Asic::IndexPinned {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::EcmpGroup1Table";
   static constexpr std::string_view mountPath = "l3/swTable/shared/destination/ecmp";
   using Key = MeridL3Common::L3AdjIdKey;
   using EntryHandlePtrConst = Asic::SwTableBase::EntryHandle::PtrConst;
   class EntryHandle;

   static constexpr uint32_t defaultIndexCount = 4096;
   explicit EcmpGroup1Table(uint32_t indexCount = defaultIndexCount);
   ~EcmpGroup1Table() override;
   std::string_view entityTypeName() const override { return typeName; }

   // The owner's side. A new group takes `wanted` when that index is free (an
   // owner re-creating its groups after a restart asks for the indices they
   // had, which member rows name), else the lowest free index; with none
   // free its state is noHwIndex whatever was asked. A group that holds an
   // index keeps it.
   EntryHandlePtrConst entryIs(const Key& key,
                               Asic::SwTableBase::EntryState state = Asic::SwTableBase::success(),
                               Asic::Index wanted = Asic::invalidIndex);
   void entryStateIs(const Key& key, Asic::SwTableBase::EntryState state);
   void entryDel(const Key& key);

   // The group's handle, or null when there is no such group.
   EntryHandlePtrConst entryWeakRef(const Key& key) const;
   bool entryHas(const Key& key) const { return groups_.count(key) != 0; }
   // The groups' handles by their index, for rows naming groups by index.
   std::vector<EntryHandlePtrConst> entryByIndex() const;
   uint32_t entrys() const { return uint32_t(groups_.size()); }
   uint32_t indexCount() const { return allocator_->indexCount(); }
   // Taken by a group, or by a removed group's handle someone still holds.
   bool indexTaken(Asic::Index index) const { return allocator_->held(index); }

private:
   uint32_t pinnableIndices() const override { return indexCount(); }
   struct KeyHash {
      size_t operator()(const Key& k) const { return k.hash(0); }
   };
   // Indices are held per handle, not per adjacency: a group removed and made
   // again has two handles, each with an index of its own, while both live.
   struct Serial {
      static constexpr std::string_view typeName = "MeridL3Tunnel::EcmpGroup1Table::Serial";
      uint32_t value = 0;
      uint32_t hash(uint32_t seed) const { return Orb::hashSingleAttr(value, seed); }
      friend bool operator==(const Serial&, const Serial&) = default;
      friend std::ostream& operator<<(std::ostream& os, const Serial& s) { return os << s.value; }
   };
   Brio::Ptr<Asic::FirstFreeIndexAllocator> allocator_;
   std::unordered_map<Key, Brio::Ptr<EntryHandle>, KeyHash> groups_;
   uint32_t serials_ = 0;
};

class EcmpGroup1Table::EntryHandle final : public Asic::SwTableBase::EntryHandle {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::EcmpGroup1Table::EntryHandle";
   const Key& key() const { return key_; }
   Orb::TypeId fwkType() const override { return Orb::typeId<EntryHandle>(); }
   std::string keyText() const override { return key_.stringValue(); }

protected:
   // The last holder gone: the index goes back.
   void zeroReferencesIs(bool zero) override;

private:
   friend class EcmpGroup1Table;
   EntryHandle(const Key& key, Brio::Ptr<Asic::FirstFreeIndexAllocator> allocator, uint32_t serial)
       : key_(key), allocator_(std::move(allocator)), serial_{serial} {}
   ~EntryHandle() override = default;
   Asic::Index indexTake(Asic::Index wanted) {
      if (allocator_->requestIndexForKey(wanted, serial_)) return wanted;
      return allocator_->newIndexForKey(serial_);
   }

   Key key_;
   Brio::Ptr<Asic::FirstFreeIndexAllocator> allocator_;
   Serial serial_;
};

}  // namespace MeridL3Tunnel
#pragma GCC visibility pop
