#pragma once
// The shared table of underlay ECMP groups, keyed by adjacency. Another agent
// component owns it and programs the groups; overlay code only finds a
// group's handle with a weak lookup, which keeps nothing alive.
//
// A group's handle state is moved by the owner (`entryIs`, `entryStateIs`):
// typically inProgress while its hardware write is out, then success. Each
// group holds one index of the table while it exists; a group that is removed
// gives its index back, and a handle still held elsewhere is left unresolved
// with no index.
#include <cstdint>
#include <string>
#include <unordered_map>

#include "Asic/IndexAllocator.h"
#include "Asic/SwTableBase.h"
#include "MeridL3Common/L3AdjIdKey.h"
#include "Orb/Entity.h"

#pragma GCC visibility push(default)
namespace MeridL3Tunnel {

class EcmpGroup1Table final : public Orb::Entity {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::EcmpGroup1Table";
   static constexpr std::string_view mountPath = "l3/swTable/shared/destination/ecmp";
   using Key = MeridL3Common::L3AdjIdKey;
   using EntryHandlePtrConst = Asic::SwTableBase::EntryHandle::PtrConst;
   class EntryHandle;

   explicit EcmpGroup1Table(uint32_t indexCount = 4096);
   ~EcmpGroup1Table() override;
   std::string_view entityTypeName() const override { return typeName; }

   // The owner's side. A new group takes the lowest free index; with none free
   // its state is noHwIndex whatever was asked.
   EntryHandlePtrConst entryIs(const Key& key,
                               Asic::SwTableBase::EntryState state = Asic::SwTableBase::success());
   void entryStateIs(const Key& key, Asic::SwTableBase::EntryState state);
   void entryDel(const Key& key);

   // The group's handle, or null when there is no such group.
   EntryHandlePtrConst entryWeakRef(const Key& key) const;
   bool entryHas(const Key& key) const { return groups_.count(key) != 0; }
   uint32_t entrys() const { return uint32_t(groups_.size()); }
   uint32_t indexCount() const { return allocator_->indexCount(); }

private:
   struct KeyHash {
      size_t operator()(const Key& k) const { return k.hash(0); }
   };
   Brio::Ptr<Asic::FirstFreeIndexAllocator> allocator_;
   std::unordered_map<Key, Brio::Ptr<EntryHandle>, KeyHash> groups_;
};

class EcmpGroup1Table::EntryHandle final : public Asic::SwTableBase::EntryHandle {
public:
   static constexpr std::string_view typeName = "MeridL3Tunnel::EcmpGroup1Table::EntryHandle";
   explicit EntryHandle(const Key& key) : key_(key) {}
   const Key& key() const { return key_; }
   Orb::TypeId fwkType() const override { return Orb::typeId<EntryHandle>(); }
   std::string keyText() const override { return key_.stringValue(); }

private:
   friend class EcmpGroup1Table;
   ~EntryHandle() override = default;
   Key key_;
};

}  // namespace MeridL3Tunnel
#pragma GCC visibility pop
