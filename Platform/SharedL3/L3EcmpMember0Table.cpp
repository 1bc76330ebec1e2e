#include "SharedL3/L3EcmpMember0Table.h"

#include <algorithm>
#include <optional>
#include <unordered_set>

#include "Asic/IndexAllocator.h"
#include "Asic/ProgrammedStateSwitch.h"
#include "Asic/SwTableUtil.h"
#include "Asic/UnresolvedEntry.h"
#include "Brio/VectorErrors.h"
#include "Orb/GenericValueText.h"
#include "Orb/Hash.h"
#include "Orb/Strep.h"
#include "Sidecar/Loader.h"

namespace MeridL3Tunnel {

namespace {

constexpr uint32_t traceWrite = 5;
constexpr uint32_t traceState = 6;
constexpr uint32_t traceHardware = 8;
constexpr uint32_t blockSeed = 0x2c9e41f7;

using State = Asic::SwTableBase::EntryState;

}  // namespace

std::string L3EcmpMember0Entry::rowText() const { return Fields::text(*this, false); }

// ---- block -----------------------------------------------------------------

void L3EcmpMember0Table::EntryBlock::entryIs(Index index, const Entry& entry) {
   const uint32_t i = index.value();
   if (i > entry_.size()) Brio::throwVectorOutOfRange(i, uint32_t(entry_.size()));
   if (i == entry_.size())
      entry_.push_back(entry);
   else
      entry_[i] = entry;
}

const L3EcmpMember0Table::Entry& L3EcmpMember0Table::EntryBlock::entry(Index index) const {
   const uint32_t i = index.value();
   if (i >= entry_.size()) Brio::throwVectorOutOfRange(i, uint32_t(entry_.size()));
   return entry_[i];
}

uint32_t L3EcmpMember0Table::EntryBlock::hash(uint32_t seed) const {
   Orb::Hash h(seed);
   for (auto& e : entry_) h.mix(e.hash(seed));
   return h.result();
}

namespace {
const bool rowKeyTextRegistered =
    (Orb::genericValueParserIs(L3EcmpMember0Table::RowKey::typeName,
                               &Orb::parseGenericValue<L3EcmpMember0Table::RowKey>),
     true);
}  // namespace

uint32_t L3EcmpMember0Table::RowKey::hash(uint32_t seed) const {
   return Orb::Hash(seed).mix(index).mix(base).mix(size).result();
}

// Text form: RowKey(5, 4, 3): row 5 of the block of 3 rows at 4.
std::ostream& operator<<(std::ostream& os, const L3EcmpMember0Table::RowKey& k) {
   return os << "RowKey(" << k.index << ", " << k.base << ", " << k.size << ")";
}

L3EcmpMember0Table::RowKey::RowKey(Orb::CharRange& r) {
   r.needString("RowKey(");
   index = Orb::deserializeAttr<uint32_t>(r, "index");
   r.needString(", ");
   base = Orb::deserializeAttr<uint32_t>(r, "base");
   r.needString(", ");
   size = Orb::deserializeAttr<uint32_t>(r, "size");
   r.needString(")");
}

namespace {
// A block's rows as the chip holds them, hashed, to find them again after a
// restart.
uint32_t rowsHash(const std::vector<std::string>& texts) {
   Orb::Hash h(blockSeed);
   for (auto& t : texts) h.mixBytes(t.data(), t.size());
   return h.result();
}
std::vector<std::string> rowTexts(const L3EcmpMember0Table::EntryBlock& block) {
   std::vector<std::string> texts;
   texts.reserve(block.entrys());
   for (auto& m : block) texts.push_back(m.rowText());
   return texts;
}
}  // namespace

// ---- block handle ------------------------------------------------------------

// Watches the entries a block's members name until all are programmed.
class L3EcmpMember0Table::Resolver final : public Asic::SwTableBase::UnresolvedEntry {
public:
   explicit Resolver(EntryHandle* block) : block_(block) {}
   void doResolve() override {
      if (auto* t = block_->table()) t->program(*block_);
   }
   void markFailedNeededEntry() override { block_->entryStateIs(State::failedNeededEntry); }

private:
   ~Resolver() override = default;
   EntryHandle* block_;
};

L3EcmpMember0Table::EntryHandle::EntryHandle(L3EcmpMember0Table* table, const EntryBlock& block,
                                             uint32_t hash)
    : block_(block), table_(table), hash_(hash) {
   swTable_ = table;
   entryType_ = referenceOnly();
}

L3EcmpMember0Table::EntryHandle::~EntryHandle() { resolverDel(); }

void L3EcmpMember0Table::EntryHandle::statesIs(State s) {
   entryStateIs(s);
   resolvedEntryStateIs(s);
}

// Watchers are stopped before the resolver goes: one may be running it.
void L3EcmpMember0Table::EntryHandle::resolverDel() {
   if (!resolver_) return;
   resolver_->neededEntryHandleSmDelAll();
   resolver_.reset();
}

std::string L3EcmpMember0Table::EntryHandle::keyText() const {
   std::string text = "block";
   if (base_ != Asic::invalidIndex) text.append("@").append(std::to_string(base_));
   return text.append("[").append(std::to_string(size())).append("]");
}

void L3EcmpMember0Table::EntryHandle::zeroReferencesIs(bool zero) {
   if (zero && table_) table_->entryBlockRelease(*this);
}

// ---- table -------------------------------------------------------------------

L3EcmpMember0Table::L3EcmpMember0Table() { hwResponseNeededIs(true); }

L3EcmpMember0Table::~L3EcmpMember0Table() {
   // The rows stay on the chip for whoever comes next; held blocks only
   // forget the table.
   for (auto& [hash, h] : blocks_) {
      h->resolverDel();
      h->table_ = nullptr;
      h->swTableIs(nullptr);
   }
   detachHardware();
}

const Orb::TraceHandle& L3EcmpMember0Table::traceHandle() {
   static const Orb::TraceHandle handle{typeName};
   return handle;
}

Brio::Ptr<Asic::SwTable::Util> L3EcmpMember0Table::doLoadUtil() {
   auto p = Sidecar::Core::Loader::instance("AsicFeature", typeName);
   return Brio::Ptr<Util>(dynamic_cast<Util*>(p.ptr()));
}

void L3EcmpMember0Table::doMountHwTableMountInfo(Ledger::MountGroup& mountGroup) {
   Util::doMountHwTableMountInfo(std::string(typeName) + "::Util", mountGroup, "");
}

void L3EcmpMember0Table::doInitAllocator() { ranges_.indexCountIs(numEntries()); }

Orb::GenericValue L3EcmpMember0Table::hwRowKey(Asic::Index index) const {
   auto it = byBase_.upper_bound(index);
   if (it != byBase_.begin()) {
      --it;
      if (index - it->first < it->second->size())
         return Orb::GenericValue::of(RowKey(index, it->first, it->second->size()));
   }
   return Orb::GenericValue::of(RowKey(index, index, 1));
}

// Rows already on the chip keep their indices out of new blocks' way until a
// block with the same rows claims them or they are purged.
void L3EcmpMember0Table::syncEntries() {
   recoveredRow_.assign(numEntries(), false);
   recoveredRows_ = 0;
   recoveredBlock_.clear();
   if (!util() || !hwTable()) return;
   auto seen = Brio::makePtr<Asic::FirstFreeIndexAllocator>();
   seen->indexCountIs(numEntries());
   seen->initializedIs(true);
   util()->syncIndexAllocator(Orb::typeId<RowKey>(), *seen, *hwTable());
   // Blocks lie in runs of consecutive rows: each run is claimed at once, and
   // row by row only when some of it is taken already.
   auto claim = [&](Asic::Index first, uint32_t n) {
      if (ranges_.rangeClaim(first, n)) {
         for (uint32_t r = 0; r < n; ++r) recoveredRow_[first + r] = true;
         recoveredRows_ += n;
         return;
      }
      for (Asic::Index i = first; i < first + n; ++i) {
         if (!ranges_.rangeClaim(i, 1)) continue;
         recoveredRow_[i] = true;
         ++recoveredRows_;
      }
   };
   Asic::Index runFirst = 0;
   uint32_t run = 0;
   seen->forEachHeldIndex([&](Asic::Index i, const Orb::GenericValue&) {
      if (run && i == runFirst + run) {
         ++run;
         return;
      }
      if (run) claim(runFirst, run);
      runFirst = i;
      run = 1;
   });
   if (run) claim(runFirst, run);
   // A block is recovered whole only when every row of it is there.
   auto rowKey = [&](Asic::Index i) -> std::optional<RowKey> {
      if (!recoveredRowHas(i)) return std::nullopt;
      auto key = seen->keyForIndex(i);
      const RowKey* k = key ? key->as<RowKey>() : nullptr;
      return k ? std::optional<RowKey>(*k) : std::nullopt;
   };
   // A key naming a block that is not inside the table, or not of its own
   // row, is corrupt: its rows belong to no block and are purged unless
   // claimed.
   uint32_t corrupt = 0;
   for (Asic::Index i = 0; i < recoveredRow_.size(); ++i) {
      const auto key = rowKey(i);
      if (!key) continue;
      if (key->index != i || key->base > i || key->size <= i - key->base ||
          key->size > recoveredRow_.size() - key->base) {
         ++corrupt;
         continue;
      }
      if (key->index != key->base) continue;
      // The same hash as rowsHash over the block's texts, taken row by row.
      Orb::Hash hash(blockSeed);
      uint32_t r = 0;
      for (; r < key->size; ++r) {
         const auto row = rowKey(key->base + r);
         if (!row || row->index != key->base + r || row->base != key->base ||
             row->size != key->size)
            break;
         auto text = util()->hwTableEntryText(*hwTable(), key->base + r);
         if (!text) break;
         hash.mixBytes(text->data(), text->size());
      }
      if (r == key->size) recoveredBlock_.emplace(hash.result(), *key);
   }
   ORB_TRACE(traceHandle(), traceState, "syncEntries")
       << " : rows found in use: " << recoveredRows_ << ", whole blocks: " << recoveredBlock_.size()
       << ", keys naming no block: " << corrupt;
}

bool L3EcmpMember0Table::recoveredRowHas(Asic::Index i) const {
   return i < recoveredRow_.size() && recoveredRow_[i];
}

void L3EcmpMember0Table::recoveredRowDel(Asic::Index i) {
   if (!recoveredRowHas(i)) return;
   recoveredRow_[i] = false;
   --recoveredRows_;
   rowChanged(i);  // a block claims the row: its entries hold what it names
}

bool L3EcmpMember0Table::recoveredRowsEqual(Asic::Index base,
                                            const std::vector<std::string>& texts) const {
   for (uint32_t r = 0; r < texts.size(); ++r) {
      if (!recoveredRowHas(base + r)) return false;
      auto text = util()->hwTableEntryText(*hwTable(), base + r);
      if (!text || *text != texts[r]) return false;
   }
   return true;
}

// A recovered block with exactly these rows, else a free range.
Asic::Index L3EcmpMember0Table::rangeFor(const EntryHandle& h) {
   if (!recoveredBlock_.empty() && util() && hwTable()) {
      const std::vector<std::string> texts = rowTexts(h.block_);
      auto [first, last] = recoveredBlock_.equal_range(rowsHash(texts));
      for (auto it = first; it != last; ++it) {
         const RowKey k = it->second;
         if (k.size != h.size() || !recoveredRowsEqual(k.base, texts)) continue;
         recoveredBlock_.erase(it);
         for (uint32_t r = 0; r < k.size; ++r) recoveredRowDel(k.base + r);
         ORB_TRACE(traceHandle(), traceState, "entryBlockRef")
             << " : block takes back its rows at " << k.base;
         return k.base;
      }
   }
   return ranges_.rangeNew(h.size());
}

void L3EcmpMember0Table::purgeStaleEntries() {
   ORB_TRACE(traceHandle(), traceWrite, "purgeStaleEntries")
       << " : rows nobody claimed: " << recoveredRows_;
   for (Asic::Index i = 0; i < recoveredRow_.size(); ++i) {
      if (!recoveredRow_[i]) continue;
      if (util() && hwTable()) util()->hwTableEntryDel(*hwTable(), i);
      rowChanged(i);
      ranges_.rangeDel(i, 1);
   }
   recoveredRow_.clear();
   recoveredRows_ = 0;
   recoveredBlock_.clear();
}

L3EcmpMember0Table::EntryHandlePtrConst L3EcmpMember0Table::entryBlockRef(const EntryBlock& block) {
   const uint32_t hash = block.hash(blockSeed);
   auto [first, last] = blocks_.equal_range(hash);
   for (auto it = first; it != last; ++it) {
      EntryHandle* h = it->second;
      if (!EntryBlock::isEq(h->block_, block)) continue;
      ORB_TRACE(traceHandle(), traceWrite, "entryBlockRef")
          << " : sharing installed block " << h->keyText();
      EntryHandlePtrConst shared(h);
      if (h->entryState() == State::noHwIndex) place(*h);
      return shared;
   }
   auto* h = new EntryHandle(this, block, hash);
   EntryHandlePtrConst ref(h);
   blocks_.emplace(hash, h);
   ORB_TRACE(traceHandle(), traceWrite, "entryBlockRef")
       << " : new block of " << block.entrys() << " members";
   place(*h);
   return ref;
}

// Waits for what the block's members name; the block takes its range when
// they are programmed.
void L3EcmpMember0Table::place(EntryHandle& h) {
   const uint32_t n = h.size();
   if (n == 0) {
      h.statesIs(State::success);
      return;
   }
   h.entryStateIs(State::unresolved);
   h.resolverDel();
   h.resolver_ = Brio::makePtr<Resolver>(&h);
   std::unordered_set<const Asic::SwTableBase::EntryHandle*> watched;
   bool failed = false;
   auto watch = [&](const EntryHandlePtrConst& needed) {
      if (!needed || needed->isComplete() || !watched.insert(needed.ptr()).second) return;
      h.resolver_->neededEntryHandleSmIs(needed.ptr());
      failed |= needed->isFailed();
   };
   for (auto& m : h.block_)
      Entry::Fields::forEachDependent(
          [&](const auto& d, Asic::RowFieldRead) { watch(m.*d.handle); });
   if (failed) h.entryStateIs(State::failedNeededEntry);
   if (h.resolver_->neededEntryHandleSms() == 0) program(h);
}

void L3EcmpMember0Table::program(EntryHandle& h) {
   h.resolverDel();
   for (auto& m : h.block_.entry_) {
      Entry::Fields::forEachDependent([&](const auto& d, Asic::RowFieldRead) {
         const EntryHandlePtrConst& needed = m.*d.handle;
         Asic::dependentIndexIs(
             m, d,
             needed ? Asic::SwTableBase::getHwIndexForDependentField(*needed) : Asic::invalidIndex);
      });
   }
   if (h.base_ == Asic::invalidIndex) {
      h.base_ = rangeFor(h);
      if (h.base_ == Asic::invalidIndex) {
         ORB_TRACE(traceHandle(), traceState, "entryBlockRef")
             << " : no free range of " << h.size()
             << " members, largest free: " << ranges_.largestFree();
         h.statesIs(State::noHwIndex);
         return;
      }
      byBase_.emplace(h.base_, &h);
   }
   requestsForget(h);
   h.writeRefused_ = false;
   h.statesIs(State::inProgress);
   if (!util() || !hwTable()) return;
   ORB_TRACE(traceHandle(), traceHardware, "hwTableEntryIs")
       << " : block " << h.keyText() << " rows " << h.base_ << ".." << h.base_ + h.size() - 1;
   for (uint32_t i = 0; i < h.size(); ++i) {
      const Asic::HwRequestId id =
          util()->hwTableEntryIs(*hwTable(), h.base_ + i, &h.block_.entry_[i]);
      rowChanged(h.base_ + i);
      if (!id) continue;
      inFlight_.requestIs(id, &h);
      ++h.outstanding_;
   }
   h.rowsWritten_ = true;
   if (!Asic::programmedAtIssue(h.outstanding_ != 0)) return;
   requestsForget(h);
   h.hwIndexIs(h.base_);
   h.statesIs(State::success);
}

void L3EcmpMember0Table::doHandleWriteResponse(Asic::HwRequestId id, Asic::Index,
                                               Asic::WriteStatus status) {
   auto request = inFlight_.requestDel(id);
   if (!request) return;
   EntryHandle& h = *request->waiter;
   if (status != Asic::WriteStatus::ok) h.writeRefused_ = true;
   if (--h.outstanding_) return;
   const State s = h.writeRefused_ ? State::noHwIndex : State::success;
   if (s == State::success) h.hwIndexIs(h.base_);
   h.statesIs(s);
}

void L3EcmpMember0Table::requestsForget(EntryHandle& h) {
   if (!h.outstanding_) return;
   inFlight_.waiterDel(&h);
   h.outstanding_ = 0;
}

// Rows go before their range is freed, and the range before the entries the
// members name are let go: no index is reused while a row still uses it.
void L3EcmpMember0Table::rowsDel(EntryHandle& h) {
   h.resolverDel();
   requestsForget(h);
   if (h.base_ == Asic::invalidIndex) return;
   if (h.rowsWritten_ && util() && hwTable()) {
      ORB_TRACE(traceHandle(), traceHardware, "hwTableEntryDel") << " : block " << h.keyText();
      for (uint32_t i = 0; i < h.size(); ++i) {
         util()->hwTableEntryDel(*hwTable(), h.base_ + i);
         rowChanged(h.base_ + i);
      }
   }
   ranges_.rangeDel(h.base_, h.size());
   byBase_.erase(h.base_);
   h.base_ = Asic::invalidIndex;
   h.rowsWritten_ = false;
}

void L3EcmpMember0Table::entryBlockRelease(EntryHandle& h) {
   ORB_TRACE(traceHandle(), traceWrite, "entryBlockRelease") << " : block " << h.keyText();
   auto [first, last] = blocks_.equal_range(h.hash_);
   for (auto it = first; it != last; ++it) {
      if (it->second != &h) continue;
      blocks_.erase(it);
      break;
   }
   rowsDel(h);
   h.table_ = nullptr;
   h.block_.entry_.clear();
}

void L3EcmpMember0Table::entryBlockRemoveAll() {
   std::vector<EntryHandlePtrConst> held;
   held.reserve(blocks_.size());
   for (auto& [hash, h] : blocks_) held.emplace_back(h);
   blocks_.clear();
   for (auto& p : held) {
      auto& h = const_cast<EntryHandle&>(static_cast<const EntryHandle&>(*p));
      rowsDel(h);
      h.table_ = nullptr;
      h.swTableIs(nullptr);
      h.entryTypeIs(EntryHandle::inDeletion());
      h.hwIndexIs(Asic::invalidIndex);
      h.block_.entry_.clear();
   }
}

Brio::Ptr<L3EcmpMember0Table> l3EcmpMember0TableFactory() {
   return Brio::makePtr<L3EcmpMember0Table>();
}

}  // namespace MeridL3Tunnel
