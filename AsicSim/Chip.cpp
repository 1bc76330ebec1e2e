#include "AsicSim/Chip.h"

#include <algorithm>

#include "AsicSim/ChipState.h"
#include "Brio/EventLoop.h"
#include "MeridCentral/ChipInfo.h"
#include "Sidecar/Loader.h"

namespace AsicSim {

HwTable::HwTable(std::string name, Asic::UnitId unit, uint32_t rows)
    : Asic::HwTable(std::move(name), unit), rows_(rows), keys_(rows) {}

const Orb::GenericValue& HwTable::rowKey(Asic::Index index) const {
   static const Orb::GenericValue none;
   return index < keys_.size() ? keys_[index] : none;
}

void HwTable::rowKeyIs(Asic::Index index, Orb::GenericValue key) {
   if (index < keys_.size()) keys_[index] = std::move(key);
}

const std::string* HwTable::row(Asic::Index index) const {
   return index < rows_.size() && rows_[index] ? &*rows_[index] : nullptr;
}

std::string HwTable::rowText(Asic::Index index) const {
   const std::string* r = row(index);
   return r ? *r : std::string();
}

uint32_t HwTable::usedRows() const {
   uint32_t n = 0;
   for (auto& r : rows_)
      if (r) ++n;
   return n;
}

void HwTable::rowTextIs(Asic::Index index, std::string text) {
   if (index < rows_.size()) rows_[index] = std::move(text);
}

bool HwTable::rowIs(Asic::Index index, const Asic::EntryBase* value) {
   if (index >= rows_.size()) return false;
   auto& r = rows_[index];
   std::optional<std::string> content;
   if (value) content = value->rowText();
   value ? ++stats_.writes : ++stats_.deletes;
   if (content == r) return true;
   ++stats_.changes;
   r = std::move(content);
   return true;
}

Util::Util(Chip* chip, std::string tableName) : chip_(chip), tableName_(std::move(tableName)) {
   recordHwIndexOnWriteIs(chip->recordHwIndexOnWrite_);
}

Brio::Ptr<Asic::HwTable> Util::doMountHwTable(const Asic::SwTable& table) {
   hwTable_ = chip_->table(tableName_, table.unitId());
   if (!hwTable_) {
      const uint32_t rows = table.chipInfo() ? table.chipInfo()->tableSize(tableName_)
                                             : MeridCentral::ChipInfo::defaultTableSize;
      hwTable_ = chip_->tableIs(tableName_, table.unitId(), rows);
   }
   // What the table holds now is what a warm start finds.
   foundRow_.clear();
   foundRows_ = 0;
   for (Asic::Index i = 0; i < hwTable_->numEntries(); ++i) {
      if (!hwTable_->row(i)) continue;
      if (foundRow_.empty()) foundRow_.resize(hwTable_->numEntries());
      foundRow_[i] = true;
      ++foundRows_;
   }
   return hwTable_;
}

void Util::foundRowDel(Asic::Index index) {
   if (!foundRow(index)) return;
   foundRow_[index] = false;
   if (--foundRows_ == 0) std::vector<bool>().swap(foundRow_);
}

Asic::HwRequestId Util::hwTableEntryIs(Asic::HwTable& hwTable, Asic::Index index,
                                       const Asic::EntryBase* entry) {
   return chip_->write(*this, static_cast<HwTable&>(hwTable), index, entry);
}

Asic::HwRequestId Util::hwTableEntryDel(Asic::HwTable& hwTable, Asic::Index index) {
   return chip_->erase(*this, static_cast<HwTable&>(hwTable), index);
}

Orb::Optional<std::string> Util::hwTableEntryText(const Asic::HwTable& hwTable,
                                                  Asic::Index index) const {
   const std::string* row = static_cast<const HwTable&>(hwTable).row(index);
   if (!row) return {};
   return *row;
}

// Rows are kept as their entries' text forms: `{'name': value, ...}`.
std::optional<std::string_view> HwTable::rowField(Asic::Index index, std::string_view field) const {
   const std::string* r = row(index);
   if (!r) return {};
   const std::string_view text(*r);
   // The name quoted and followed by ": ", without building the pattern.
   for (size_t at = text.find(field); at != std::string_view::npos; at = text.find(field, at + 1)) {
      const size_t after = at + field.size();
      if (at == 0 || text[at - 1] != '\'' || text.substr(after, 3) != "': ") continue;
      const std::string_view value = text.substr(after + 3);
      return value.substr(0, std::min(value.find(','), value.find('}')));
   }
   return {};
}

std::optional<Asic::Index> HwTable::rowIndexField(Asic::Index index, std::string_view field) const {
   const auto value = rowField(index, field);
   if (!value) return {};
   return Asic::fieldIndex(*value);
}

// A row is its entry's row text, which `read` walks.
Orb::Optional<Asic::Index> Util::hwTableEntryIndexField(const Asic::HwTable& hwTable,
                                                        Asic::Index index,
                                                        Asic::RowFieldRead read) const {
   const std::string* row = static_cast<const HwTable&>(hwTable).row(index);
   if (!row) return {};
   const auto text = read(*row);
   if (!text) return {};
   return Asic::fieldIndex(*text);
}

void Util::syncIndexAllocator(Orb::TypeId keyType, Asic::GenericIndexAllocator& allocator,
                              Asic::HwTable& hwTable) {
   auto& t = static_cast<HwTable&>(hwTable);
   for (Asic::Index i = 0; i < t.numEntries(); ++i) {
      const Orb::GenericValue& key = t.rowKey(i);
      if (t.row(i) && key && key.type() == keyType) allocator.requestIndexForKey(i, key);
   }
}

bool Util::hwTableRowsFound(Asic::UnitId unit) const {
   const auto t = chip_->table(tableName_, unit);
   return t && t->usedRows() != 0;
}

Asic::Index Util::maxIndex() const {
   return hwTable_ && hwTable_->numEntries() ? hwTable_->numEntries() - 1 : 0;
}

Chip::~Chip() = default;

void Chip::install() {
   installed_ = true;
   Sidecar::Core::Loader::defaultImplementationIs(
       prefixPath, [this](std::string_view suffix) -> Brio::Ptr<Brio::PtrInterface> {
          return Brio::makePtr<Util>(this, std::string(suffix));
       });
}

void Chip::uninstall() {
   held_.clear();
   if (!installed_) return;
   installed_ = false;
   Sidecar::Core::Loader::defaultImplementationDel(prefixPath);
}

Brio::Ptr<HwTable> Chip::table(std::string_view name, Asic::UnitId unit) const {
   auto it = tables_.find(std::pair{std::string(name), unit});
   return it == tables_.end() ? nullptr : it->second;
}

Brio::Ptr<HwTable> Chip::tableIs(std::string_view name, Asic::UnitId unit, uint32_t rows) {
   auto& t = tables_[{std::string(name), unit}];
   if (!t)
      t = Brio::makePtr<HwTable>(std::string(name), unit, rows);
   else
      t->numEntriesIs(rows);
   return t;
}

std::vector<std::string> Chip::tableNames() const {
   std::vector<std::string> names;
   for (auto& [k, t] : tables_)
      if (names.empty() || names.back() != k.first) names.push_back(k.first);
   return names;
}

void Chip::tableSizeIs(std::string_view name, uint32_t rows, Asic::UnitId unit) {
   tableIs(name, unit, rows);
}

void Chip::holdResponsesIs(bool hold) { holdResponses_ = hold; }

void Chip::releaseResponse(uint32_t position) {
   if (position >= held_.size()) return;
   Response r = std::move(held_[position]);
   held_.erase(held_.begin() + position);
   Brio::EventLoop::instance().post([r] { deliver(r); });
}

void Chip::releaseAllResponses() {
   while (!held_.empty()) releaseResponse(0);
}

void Chip::writeFailuresIs(std::string_view tableName, uint32_t count) {
   writeFailures_.insert_or_assign(std::string(tableName), count);
}

void Chip::writeFailureAtIs(uint32_t k) {
   if (k) failAt_.insert(writes_ + k);
}

void Chip::stateSave(const std::string& path) const { chipStateSave(path, tables_); }

void Chip::stateLoad(const std::string& path) {
   tables_ = chipStateLoad(path);
   held_.clear();
}

void Chip::journalingIs(bool on) {
   journaling_ = on;
   journal_.clear();
}

bool Chip::rowSet(HwTable& table, Asic::Index index, const Asic::EntryBase* entry) {
   if (!journaling_) return table.rowIs(index, entry);
   const std::string* old = table.row(index);
   std::optional<std::string> before;
   if (old) before = *old;
   if (!table.rowIs(index, entry)) return false;
   const std::string* now = table.row(index);
   std::optional<std::string> after;
   if (now) after = *now;
   if (before != after)
      journal_.push_back({table.name(), table.unit(), index, std::move(before), std::move(after)});
   return true;
}

bool Chip::claimable(const HwTable& table, Asic::Index index, const Asic::EntryBase& entry,
                     const Orb::GenericValue& key) {
   const std::string* row = table.row(index);
   return row && table.rowKey(index) == key && *row == entry.rowText();
}

Asic::HwRequestId Chip::write(Util& util, HwTable& table, Asic::Index index,
                              const Asic::EntryBase* entry) {
   if (util.foundRow(index)) {
      util.foundRowDel(index);
      // Answered as a write is, so the tables cannot tell the difference.
      if (entry && util.swTable() &&
          claimable(table, index, *entry, util.swTable()->hwRowKey(index))) {
         ++table.stats_.claims;
         ++claims_;
         return respond(util, index, Asic::WriteStatus::ok);
      }
   }
   ++writes_;
   bool fail = failAt_.erase(writes_) != 0;
   if (auto it = writeFailures_.find(table.name()); it != writeFailures_.end() && it->second) {
      --it->second;
      fail = true;
   }
   if (!fail) fail = !rowSet(table, index, entry);
   if (fail) failedWrites_.push_back({table.name(), table.unit(), index, writes_});
   if (!fail && util.swTable()) table.rowKeyIs(index, util.swTable()->hwRowKey(index));
   return respond(util, index, fail ? Asic::WriteStatus::failed : Asic::WriteStatus::ok);
}

Asic::HwRequestId Chip::erase(Util& util, HwTable& table, Asic::Index index) {
   util.foundRowDel(index);
   const bool ok = rowSet(table, index, nullptr);
   table.rowKeyIs(index, {});
   return respond(util, index, ok ? Asic::WriteStatus::ok : Asic::WriteStatus::failed);
}

Asic::HwRequestId Chip::respond(Util& util, Asic::Index index, Asic::WriteStatus status) {
   if (++nextRequest_ == 0) ++nextRequest_;  // 0 means "no response"
   Response r{Brio::Ptr<Util>(&util), nextRequest_, index, status};
   if (holdResponses_)
      held_.push_back(std::move(r));
   else
      Brio::EventLoop::instance().post([r] { deliver(r); });
   return r.id;
}

void Chip::deliver(const Response& r) { r.util->doNotifyWriteResponse(r.id, r.index, r.status); }

}  // namespace AsicSim
