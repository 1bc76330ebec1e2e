#include "SharedL3/EcmpGroup1Table.h"

namespace MeridL3Tunnel {

EcmpGroup1Table::EcmpGroup1Table(uint32_t indexCount)
    : allocator_(Brio::makePtr<Asic::FirstFreeIndexAllocator>()) {
   allocator_->indexCountIs(indexCount);
   allocator_->initializedIs(true);
}

EcmpGroup1Table::~EcmpGroup1Table() {
   for (auto& [key, h] : groups_) {
      h->hwIndexIs(Asic::invalidIndex);
      h->entryStateIs(Asic::SwTableBase::unresolved());
   }
}

EcmpGroup1Table::EntryHandlePtrConst EcmpGroup1Table::entryIs(const Key& key,
                                                              Asic::SwTableBase::EntryState state,
                                                              Asic::Index wanted) {
   auto& h = groups_[key];
   if (!h) {
      h = Brio::Ptr<EntryHandle>(new EntryHandle(key, allocator_, ++serials_));
      h->entryTypeIs(EntryHandle::committed());
   }
   if (!h->isHwIndexValid()) h->hwIndexIs(h->indexTake(wanted));
   if (!h->isHwIndexValid()) state = Asic::SwTableBase::noHwIndex();
   h->entryStateIs(state);
   return h;
}

void EcmpGroup1Table::entryStateIs(const Key& key, Asic::SwTableBase::EntryState state) {
   auto it = groups_.find(key);
   if (it == groups_.end() || !it->second->isHwIndexValid()) return;
   it->second->entryStateIs(state);
}

void EcmpGroup1Table::entryDel(const Key& key) {
   auto it = groups_.find(key);
   if (it == groups_.end()) return;
   Brio::Ptr<EntryHandle> h = std::move(it->second);
   groups_.erase(it);
   h->entryTypeIs(EntryHandle::inDeletion());
   h->hwIndexIs(Asic::invalidIndex);
   h->entryStateIs(Asic::SwTableBase::unresolved());
}

void EcmpGroup1Table::EntryHandle::zeroReferencesIs(bool zero) {
   if (zero) allocator_->releaseIndex(Orb::GenericValue::of(serial_));
}

EcmpGroup1Table::EntryHandlePtrConst EcmpGroup1Table::entryWeakRef(const Key& key) const {
   auto it = groups_.find(key);
   return it == groups_.end() ? nullptr : EntryHandlePtrConst(it->second);
}

std::vector<EcmpGroup1Table::EntryHandlePtrConst> EcmpGroup1Table::entryByIndex() const {
   std::vector<EntryHandlePtrConst> byIndex;
   for (auto& [key, h] : groups_) {
      if (!h->isHwIndexValid()) continue;
      if (h->hwIndex() >= byIndex.size()) byIndex.resize(size_t(h->hwIndex()) + 1);
      byIndex[h->hwIndex()] = h;
   }
   return byIndex;
}

}  // namespace MeridL3Tunnel
