#include "AsicSim/Chip.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "Brio/EventLoop.h"
#include "MeridCentral/ChipInfo.h"
#include "Orb/CharRange.h"
#include "Orb/GenericValueText.h"
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
   return hwTable_;
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
Orb::Optional<Asic::Index> Util::hwTableEntryIndexField(const Asic::HwTable& hwTable,
                                                        Asic::Index index,
                                                        std::string_view field) const {
   const std::string* row = static_cast<const HwTable&>(hwTable).row(index);
   if (!row) return {};
   const std::string_view text(*row);
   // The name quoted and followed by ": ", without building the pattern.
   for (size_t at = text.find(field); at != std::string_view::npos; at = text.find(field, at + 1)) {
      const size_t after = at + field.size();
      if (at == 0 || text[at - 1] != '\'' || text.substr(after, 3) != "': ") continue;
      const char* first = text.data() + after + 3;
      const char* last = text.data() + text.size();
      Asic::Index value = 0;
      const auto [end, error] = std::from_chars(first, last, value);
      if (error != std::errc() || end == first) return {};
      return value;
   }
   return {};
}

void Util::syncIndexAllocator(Orb::TypeId keyType, Asic::GenericIndexAllocator& allocator,
                              Asic::HwTable& hwTable) {
   auto& t = static_cast<HwTable&>(hwTable);
   for (Asic::Index i = 0; i < t.numEntries(); ++i) {
      const Orb::GenericValue& key = t.rowKey(i);
      if (t.row(i) && key && key.type() == keyType) allocator.requestIndexForKey(i, key);
   }
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

Asic::HwRequestId Chip::write(Util& util, HwTable& table, Asic::Index index,
                              const Asic::EntryBase* entry) {
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

// ---- state file -------------------------------------------------------------
//
//   l3tunnel-chip-state <version>
//   table <unit> <rows> <name>
//   row <index> <text> <key type> <key text>
//   end <checksum>
//
// Strings are written as <length>:<bytes>; the checksum (FNV-1a, 64 bits,
// hex) covers every byte before the "end" line.

namespace {

constexpr std::string_view stateMagic = "l3tunnel-chip-state";

uint64_t fnv1a(std::string_view bytes) {
   uint64_t h = 0xcbf29ce484222325ull;
   for (unsigned char c : bytes) {
      h ^= c;
      h *= 0x100000001b3ull;
   }
   return h;
}

void putString(std::string& out, std::string_view s) {
   out.append(std::to_string(s.size())).append(":").append(s);
}

// The text cursor of the framework, with faults reported by file and line.
class StateReader {
public:
   StateReader(const std::string& path, std::string_view text) : path_(path), r_(text) {}

   [[noreturn]] void fail(const std::string& what) const {
      throw std::runtime_error(path_ + ": " + what + " (line " + std::to_string(line_) + ")");
   }
   // Runs a read of the cursor, whose faults come back as this file's.
   template <class F>
   auto checked(F&& f) {
      try {
         return f();
      } catch (const std::range_error& e) {
         fail(e.what());
      }
   }
   bool atEnd() const { return r_.atEnd(); }
   size_t position() const { return r_.position(); }
   std::string_view word() {
      const std::string_view rest = r_.rest();
      const size_t n = std::min(rest.find(' '), rest.find('\n'));
      if (n == 0) fail("a field is missing");
      const std::string_view w = rest.substr(0, n == rest.npos ? rest.size() : n);
      r_.advance(w.size());
      return w;
   }
   uint32_t number() {
      return checked([&] { return r_.readUnsigned(0xFFFFFFFFu); });
   }
   std::string_view string() {
      const uint32_t n = number();
      checked([&] { r_.needString(":"); });
      if (n > r_.rest().size()) fail("a string runs past the end of the file");
      const std::string_view s = r_.rest().substr(0, n);
      r_.advance(n);
      return s;
   }
   void blank() {
      checked([&] { r_.needString(" "); });
   }
   void lineEnd() {
      checked([&] { r_.needString("\n"); });
      ++line_;
   }

private:
   const std::string& path_;
   Orb::CharRange r_;
   uint32_t line_ = 1;
};

void writeFileAtomically(const std::string& path, const std::string& bytes) {
   const std::string tmp = path + ".tmp." + std::to_string(::getpid());
   auto fail = [&](const char* what) {
      const std::string reason = std::strerror(errno);
      ::unlink(tmp.c_str());
      throw std::runtime_error(path + ": cannot " + what + ": " + reason);
   };
   const int fd = ::open(tmp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
   if (fd < 0) fail("create the new state file");
   size_t done = 0;
   while (done < bytes.size()) {
      const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) {
         ::close(fd);
         fail("write the new state file");
      }
      done += size_t(n);
   }
   if (::fsync(fd) != 0) {
      ::close(fd);
      fail("flush the new state file");
   }
   ::close(fd);
   if (::rename(tmp.c_str(), path.c_str()) != 0) fail("replace the state file");
   // The rename itself must reach the disk too.
   const auto slash = path.find_last_of('/');
   const std::string dir = slash == std::string::npos ? "." : path.substr(0, slash + 1);
   const int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY);
   if (dfd >= 0) {
      ::fsync(dfd);
      ::close(dfd);
   }
}

}  // namespace

void Chip::stateSave(const std::string& path) const {
   std::string out(stateMagic);
   out.append(" ").append(std::to_string(stateVersion)).append("\n");
   for (auto& [id, t] : tables_) {
      out.append("table ").append(std::to_string(id.second)).append(" ");
      out.append(std::to_string(t->numEntries())).append(" ");
      putString(out, id.first);
      out.append("\n");
      for (Asic::Index i = 0; i < t->numEntries(); ++i) {
         const std::string* row = t->row(i);
         if (!row) continue;
         const Orb::GenericValue& key = t->rowKey(i);
         out.append("row ").append(std::to_string(i)).append(" ");
         putString(out, *row);
         out.append(" ");
         putString(out, key ? key.type().name() : std::string_view());
         out.append(" ");
         putString(out, key ? key.text() : std::string());
         out.append("\n");
      }
   }
   char sum[32];
   std::snprintf(sum, sizeof sum, "%016llx", static_cast<unsigned long long>(fnv1a(out)));
   out.append("end ").append(sum).append("\n");
   writeFileAtomically(path, out);
}

void Chip::stateLoad(const std::string& path) {
   std::ifstream in(path, std::ios::binary);
   if (!in) throw std::runtime_error(path + ": cannot open the state file");
   std::ostringstream buf;
   buf << in.rdbuf();
   const std::string text = buf.str();

   StateReader r(path, text);
   if (r.atEnd() || r.word() != stateMagic) r.fail("not a chip state file");
   r.blank();
   const uint32_t version = r.number();
   if (version != stateVersion)
      r.fail("state file version " + std::to_string(version) + ", this program reads version " +
             std::to_string(stateVersion));
   r.lineEnd();
   // The checksum first: nothing of a damaged file is read.
   const size_t endLine = text.rfind("\nend ");
   if (endLine == std::string::npos) r.fail("the file is cut short: no end line");
   {
      StateReader tail(path, std::string_view(text).substr(endLine + 5));
      const std::string_view sum = tail.word();
      char want[32];
      std::snprintf(
          want, sizeof want, "%016llx",
          static_cast<unsigned long long>(fnv1a(std::string_view(text).substr(0, endLine + 1))));
      if (sum != want) r.fail("checksum mismatch: the file is damaged");
      tail.lineEnd();
      if (!tail.atEnd()) r.fail("text after the end line");
   }

   decltype(tables_) loaded;
   Brio::Ptr<HwTable> current;
   uint32_t allRows = 0;
   while (r.position() < endLine + 1) {
      const std::string_view kind = r.word();
      r.blank();
      if (kind == "table") {
         const Asic::UnitId unit = r.number();
         r.blank();
         const uint32_t rows = r.number();
         // A bound a real chip never reaches, over all tables together, so
         // that no file can make us allocate without limit.
         if (rows > (1u << 24) - allRows)
            r.fail("tables of more than " + std::to_string(1u << 24) + " rows in all");
         allRows += rows;
         r.blank();
         const std::string name(r.string());
         if (loaded.count({name, unit})) r.fail("table " + name + " appears twice");
         current = Brio::makePtr<HwTable>(name, unit, rows);
         loaded.emplace(std::pair{name, unit}, current);
      } else if (kind == "row") {
         if (!current) r.fail("a row before any table");
         const Asic::Index index = r.number();
         if (index >= current->numEntries())
            r.fail("row " + std::to_string(index) + " is outside its table");
         r.blank();
         std::string rowText(r.string());
         r.blank();
         const std::string_view keyType = r.string();
         r.blank();
         const std::string_view keyText = r.string();
         Orb::GenericValue key;
         if (!keyType.empty()) {
            try {
               key = Orb::genericValueFromText(keyType, keyText);
            } catch (const std::invalid_argument& e) {
               r.fail(std::string("row key: ") + e.what());
            }
         }
         current->rowTextIs(index, std::move(rowText));
         current->rowKeyIs(index, std::move(key));
      } else {
         r.fail("unknown record '" + std::string(kind) + "'");
      }
      r.lineEnd();
   }
   tables_ = std::move(loaded);
   held_.clear();
}

}  // namespace AsicSim
