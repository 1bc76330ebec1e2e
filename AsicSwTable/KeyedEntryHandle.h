#pragma once
// The entry handle of a table keyed by `Table::Key`: the framework handle plus
// the key and the queue of values waiting behind the one in hardware. Its
// reactors forward to the table engine, which is instantiated in the table
// library only (see SwTableAccessor.h).
#include <sstream>
#include <string>

#include "Asic/HandleKey.h"
#include "Asic/SwTable.h"
#include "Brio/RQueue.h"
#include "Orb/Optional.h"

#pragma GCC visibility push(default)
namespace Asic {

template <class Table>
class KeyedEntryHandle final : public SwTable::EntryHandle {
public:
   using Key = typename Table::Key;
   using Entry = typename Table::Entry;
   static constexpr std::string_view typeName = Table::entryHandleTypeName;

   KeyedEntryHandle(const Key& key, Table* table) : key_(key) { swTable_ = table; }

   const Key& key() const { return key_.get(); }
   // The key in generic form, for the allocator to share.
   decltype(auto) keyGeneric() const { return key_.generic(); }
   Table* table() const { return static_cast<Table*>(swTable()); }

   Entry pendingEntry(uint32_t position) const { return pendingEntry_.at(position); }
   bool pendingEntryHas(uint32_t position) const { return pendingEntry_.has(position); }
   Entry pendingEntryFront() const { return pendingEntry_.front(); }
   Entry pendingEntryBack() const { return pendingEntry_.back(); }
   uint32_t pendingEntrys() const { return pendingEntry_.size(); }
   void pendingEntryEnq(const Entry& e) {
      const Brio::Position position{pendingEntry_.enq(e)};
      publisher_.notify(pendingEntryAttr, Brio::KeyRef(position));
   }
   void pendingEntryDeq() {
      if (pendingEntry_.empty()) return;
      pendingEntry_.deq();
      publisher_.notify(pendingEntryAttr);
   }
   void pendingEntryDelAll() {
      if (pendingEntry_.empty()) return;
      pendingEntry_.delAll();
      publisher_.notify(pendingEntryAttr);
   }

   // The table's value at the key while this handle stands for it in the
   // table (see ResolvedEntryMap): `held` says a value node exists, which
   // may be an empty optional.
   struct HeldValue {
      Orb::Optional<Entry> value;
      bool held = false;
   };
   HeldValue& heldValue() { return heldValue_; }

   Orb::TypeId fwkType() const override { return Orb::typeId<KeyedEntryHandle>(); }
   std::string keyText() const override {
      std::ostringstream os;
      os << key_.get();
      return os.str();
   }
   void handleEntryState() override;
   void handleResolvedEntryState() override;
   Index hwIndexForDependentField() const override;

protected:
   void zeroReferencesIs(bool zero) override;

private:
   ~KeyedEntryHandle() override = default;
   HandleKey<Key> key_;
   Brio::RQueue<Entry> pendingEntry_;
   HeldValue heldValue_;
};

}  // namespace Asic
#pragma GCC visibility pop
