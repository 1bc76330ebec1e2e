// The table engine: every generic algorithm of a software table, written once
// and instantiated per table from the table's traits (nested `Key`, `Entry`,
// `EntryHandle`, `Allocator`, the trace handle and the reserved index range).
// The algorithms live in the engine's parts (see EnginePart.h); `Accessor`
// composes them all for the keyed tables. The operations of KeyedSwTable, of
// its handle and of its unresolved entry are defined at the end, each
// forwarding here in one line. Only table sources include this header, and
// each instantiates those classes for its table, so the engine stays inside
// the table library.
//
// One key's life, as the engine moves it:
//   write (entryWriteHelper) stores the value in `resolvedEntry` and calls
//   handleEntry, which takes an index and writes the row; the write response
//   sets the resolved-entry state, and handleResolvedEntryState copies it to the
//   entry state. Removal withdraws the commitment; when the handle's last
//   reference goes, cleanup empties the value (the "delete dance"): the row is
//   cleared and its index released, and the delete's response drops the value
//   node and the handle.
#include "Asic/SwTable.h"
#include "AsicSwTable/EntryHandleStore.h"
#include "AsicSwTable/IndexHolding.h"
#include "AsicSwTable/KeyedEntryHandle.h"
#include "AsicSwTable/KeyedSwTable.h"
#include "AsicSwTable/KeyedUnresolvedEntry.h"
#include "AsicSwTable/Lookups.h"
#include "AsicSwTable/Programming.h"
#include "AsicSwTable/Recovery.h"
#include "AsicSwTable/Removal.h"
#include "AsicSwTable/Resolution.h"
#include "AsicSwTable/ResolvedValues.h"
#include "AsicSwTable/WritePath.h"

namespace Asic {

// The whole engine, as the keyed tables use it.
template <class T>
struct SwTable::Accessor : TableEngine::Handles<T>,
                           TableEngine::Values<T>,
                           TableEngine::WritePath<T>,
                           TableEngine::Indices<T>,
                           TableEngine::Programming<T>,
                           TableEngine::Removal<T>,
                           TableEngine::Resolution<T>,
                           TableEngine::Recovery<T>,
                           TableEngine::Lookups<T> {};

template <class Table>
void KeyedUnresolvedEntry<Table>::doResolve() {
   SwTable::Accessor<Table>::doResolve(*table_, *this);
}

template <class Table>
void KeyedUnresolvedEntry<Table>::markFailedNeededEntry() {
   SwTable::Accessor<Table>::markFailedNeededEntry(*table_, *this);
}

// The handle's reactors, instantiated with the engine.
template <class Table>
void KeyedEntryHandle<Table>::handleEntryState() {
   if (Table* t = table()) SwTable::Accessor<Table>::handleEntryState(*t, *this, key());
}

template <class Table>
void KeyedEntryHandle<Table>::handleResolvedEntryState() {
   if (Table* t = table()) SwTable::Accessor<Table>::handleResolvedEntryState(*t, *this);
}

template <class Table>
Index KeyedEntryHandle<Table>::hwIndexForDependentField() const {
   if (Table* t = table()) return SwTable::Accessor<Table>::hwIndexForDependentField(*t, *this);
   return hwIndex();
}

template <class Table>
void KeyedEntryHandle<Table>::zeroReferencesIs(bool zero) {
   if (!zero) return;
   if (Table* t = table()) SwTable::Accessor<Table>::cleanup(*t, *this);
}

// The table a member of its keyed base runs on.
template <class T, class Base>
T& tableOf(Base& base) {
   return static_cast<T&>(base);
}
template <class T, class Base>
const T& tableOf(const Base& base) {
   return static_cast<const T&>(base);
}

// The table's operations, instantiated with the engine.
template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryRef(const Key& k, const Entry& e) -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryRef(tableOf<T>(*this), k, e);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryCommit(const Key& k, const Entry& e) -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryCommit(tableOf<T>(*this), k, e);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryWontProgram(const Key& k) -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryWontProgram(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryWriteAtIndex(Asic::Index i, const Key& k, const Entry& e)
    -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryWriteAtIndex(tableOf<T>(*this), i, k, e);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryWeakRef(const Key& k) const -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryWeakRef(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryHold(const Key& k) -> EntryHandlePtrConst {
   return SwTable::Accessor<T>::entryHold(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::entryRemove(const Key& k) {
   SwTable::Accessor<T>::entryRemove(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::entryRemoveAll() {
   SwTable::Accessor<T>::entryRemoveAll(tableOf<T>(*this));
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entry(const Key& k) const -> Entry {
   return SwTable::Accessor<T>::entry(tableOf<T>(*this), k);
}

template <class T, class Ty>
bool KeyedSwTable<T, Ty>::entryHas(const Key& k) const {
   return SwTable::Accessor<T>::entryHas(tableOf<T>(*this), k);
}

template <class T, class Ty>
uint32_t KeyedSwTable<T, Ty>::entrys() const {
   return SwTable::Accessor<T>::entrys(tableOf<T>(*this));
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryIteratorConst(const Key& k) const -> EntryCursor<Key, Entry> {
   return SwTable::Accessor<T>::entryIteratorConst(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryHandle(const Key& k) const -> Brio::Ptr<EntryHandle> {
   return SwTable::Accessor<T>::entryHandle(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryHandleIs(const Key& k) -> Brio::Ptr<EntryHandle> {
   return SwTable::Accessor<T>::entryHandleIs(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::entryHandleDel(const Key& k) -> Brio::Ptr<EntryHandle> {
   return SwTable::Accessor<T>::entryHandleDel(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::entryHandleDelAll() {
   SwTable::Accessor<T>::entryHandleDelAll(tableOf<T>(*this));
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::resolvedEntry(const Key& k) const -> Orb::Optional<Entry> {
   return SwTable::Accessor<T>::resolvedEntry(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::resolvedEntryIs(const Key& k, const Orb::Optional<Entry>& e) {
   SwTable::Accessor<T>::resolvedEntryIs(tableOf<T>(*this), k, e);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::resolvedEntryDel(const Key& k) {
   SwTable::Accessor<T>::resolvedEntryDel(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::resolvedEntryDelAll() {
   SwTable::Accessor<T>::resolvedEntryDelAll(tableOf<T>(*this));
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::handleEntry(const Key& k) {
   SwTable::Accessor<T>::handleEntry(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doCompleteEntryHandleForTesting(const Key& k,
                                                          Orb::Optional<Asic::Index> i) {
   SwTable::Accessor<T>::doCompleteEntryHandleForTesting(tableOf<T>(*this), k, i);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::cleanup() {
   SwTable::Accessor<T>::cleanupTable(tableOf<T>(*this));
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::syncEntries() {
   SwTable::Accessor<T>::syncEntries(tableOf<T>(*this));
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::purgeStaleEntries() {
   SwTable::Accessor<T>::purgeStaleEntries(tableOf<T>(*this));
}

template <class T, class Ty>
Orb::GenericValue KeyedSwTable<T, Ty>::hwRowKey(Asic::Index i) const {
   return SwTable::Accessor<T>::hwRowKey(tableOf<T>(*this), i);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doMountHwTableMountInfo(Ledger::MountGroup& mg) {
   Util::doMountHwTableMountInfo(std::string(typeName) + "::Util", mg, "");
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doRecoverHwTable(RecoverGroup& rg, UnitId unit,
                                           Brio::Ptr<Ledger::EntityManager> em,
                                           Brio::Ptr<const MeridCentral::ChipInfo> chip) {
   Util::doRecoverHwTable(Orb::typeId<T>(), tableOf<T>(*this), rg, unit, std::move(em),
                          std::move(chip), "");
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doReleaseHwIndex(const Key& k) {
   SwTable::Accessor<T>::doReleaseHwIndex(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::hwIndexOnlyForCrossAgentCommunication(const Key& k) const
    -> CrossAgentIndex {
   return SwTable::Accessor<T>::hwIndexOnlyForCrossAgentCommunication(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::swKeyFromHwIndex(Asic::Index i) const -> Orb::Optional<Key> {
   return SwTable::Accessor<T>::swKeyFromHwIndex(tableOf<T>(*this), i);
}

template <class T, class Ty>
bool KeyedSwTable<T, Ty>::allocatorKeyHeld(uint32_t attrId, Orb::GenericValueRef k) const {
   return SwTable::Accessor<T>::allocatorKeyHeld(tableOf<T>(*this), attrId, k);
}

template <class T, class Ty>
void KeyedSwTable<T, Ty>::doHandleWriteResponse(HwRequestId id, Asic::Index i, WriteStatus s) {
   SwTable::Accessor<T>::doHandleWriteResponse(tableOf<T>(*this), id, i, s);
}

template <class T, class Ty>
const Orb::TraceHandle& KeyedSwTable<T, Ty>::traceHandle() {
   static const Orb::TraceHandle handle{typeName};
   return handle;
}

template <class T, class Ty>
auto KeyedSwTable<T, Ty>::doLoadUtil() -> Brio::Ptr<Util> {
   return UtilLoader::instance().util();
}

template <class T, class Ty>
auto KeyedDependentTable<T, Ty>::unresolvedEntry(const Key& k) const -> Brio::Ptr<UnresolvedEntry> {
   return SwTable::Accessor<T>::unresolvedEntry(tableOf<T>(*this), k);
}

template <class T, class Ty>
auto KeyedDependentTable<T, Ty>::unresolvedEntryIs(const Key& k) -> Brio::Ptr<UnresolvedEntry> {
   return SwTable::Accessor<T>::unresolvedEntryIs(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedDependentTable<T, Ty>::unresolvedEntryDel(const Key& k) {
   SwTable::Accessor<T>::unresolvedEntryDel(tableOf<T>(*this), k);
}

template <class T, class Ty>
void KeyedDependentTable<T, Ty>::unresolvedEntryDelAll() {
   SwTable::Accessor<T>::unresolvedEntryDelAll(tableOf<T>(*this));
}

template <class T, class Ty>
void KeyedDependentTable<T, Ty>::initUnresolvedEntry(UnresolvedEntry& ue, const Entry& e) {
   SwTable::Accessor<T>::initUnresolvedEntry(tableOf<T>(*this), ue, e);
}

template <class T, class Ty>
void KeyedDependentTable<T, Ty>::doResolve(UnresolvedEntry& ue) {
   SwTable::Accessor<T>::doResolve(tableOf<T>(*this), ue);
}

}  // namespace Asic
