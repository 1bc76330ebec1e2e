#pragma once
// The unresolved entry of a key-keyed table: a written value parked until the
// handle it names is ready. The table owns it; resolution and failure forward
// to the engine, instantiated in the table library only.
#include "Asic/SwTable.h"
#include "Asic/UnresolvedEntry.h"

#pragma GCC visibility push(default)
namespace Asic {

template <class Table>
class KeyedUnresolvedEntry final : public SwTable::UnresolvedEntry {
public:
   using Key = typename Table::Key;
   using Entry = typename Table::Entry;

   KeyedUnresolvedEntry(const Key& key, Table* table) : key_(key), table_(table) {}

   const Key& key() const { return key_; }
   const Entry& entry() const { return entry_; }
   Entry& entry() { return entry_; }
   void entryIs(const Entry& e) { entry_ = e; }
   Table* table() const { return table_; }

   void doResolve() override;
   void markFailedNeededEntry() override;

private:
   ~KeyedUnresolvedEntry() override = default;
   Key key_;
   Entry entry_;
   Table* table_;
};

}  // namespace Asic
#pragma GCC visibility pop
