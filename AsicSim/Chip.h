#pragma once
// A simulated switching chip: the default hardware plug-in of every table.
//
// Per hardware table it keeps rows sized from the chip information. Writes and
// deletes land in the rows at once; their write responses are delivered later
// by the agent's event loop, in order, unless a test holds them back.
//
// Test controls: hold responses and release them one at a time or out of
// order, fail the next writes of a table or the n-th write of all, change a
// table's size, count hardware writes, deletes, claims and row changes per table,
// and keep a journal of every row change. Rows belong to the chip,
// not to the software tables, so they survive software tables being destroyed
// and made again.
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Asic/EntryBase.h"
#include "Asic/HwTable.h"
#include "Asic/SwTableUtil.h"
#include "Brio/Ptr.h"
#include "Orb/GenericValue.h"

namespace AsicSim {

class Chip;

class HwTable final : public Asic::HwTable {
public:
   struct Stats {
      uint32_t writes = 0;
      uint32_t deletes = 0;
      uint32_t changes = 0;  // writes and deletes that changed a row's content
      uint32_t claims = 0;   // found rows already holding what was written: not written
   };

   HwTable(std::string name, Asic::UnitId unit, uint32_t rows);

   uint32_t numEntries() const override { return uint32_t(rows_.size()); }
   void numEntriesIs(uint32_t rows) {
      rows_.resize(rows);
      keys_.resize(rows);
   }

   // The row's content (the entry's row text), or null when the row is clear.
   const std::string* row(Asic::Index index) const;
   std::string rowText(Asic::Index index) const;
   uint32_t usedRows() const;
   const Stats& stats() const { return stats_; }

   // The text of a field of the row (`{'name': value, ...}`) found by its
   // name, or nothing when the row is clear or has no such field: for tests
   // that look into or edit rows. The tables read a row's fields through
   // their entries' descriptions instead (Util::hwTableEntryIndexField).
   std::optional<std::string_view> rowField(Asic::Index index, std::string_view field) const;
   // The same read as an index, or nothing when it is no unsigned 32-bit number.
   std::optional<Asic::Index> rowIndexField(Asic::Index index, std::string_view field) const;

   // False when the index is outside the table.
   bool rowIs(Asic::Index index, const Asic::EntryBase* value);
   // The key the software gave the row, as a chip driver's shadow keeps it,
   // for rows whose content does not carry it.
   const Orb::GenericValue& rowKey(Asic::Index index) const;
   void rowKeyIs(Asic::Index index, Orb::GenericValue key);
   // Sets a row's content as it was saved, without counting a write.
   void rowTextIs(Asic::Index index, std::string text);

private:
   friend class Chip;
   std::vector<std::optional<std::string>> rows_;
   std::vector<Orb::GenericValue> keys_;
   Stats stats_;
};

// The plug-in of one table. On a warm start it keeps, as a driver's shadow
// of the hardware does, the rows its table held when it mounted it. Each
// such row leaves the found state at the first write or delete through this
// Util, moved by the chip:
//   found -> claimed: a write of the content and row key the row holds
//            already (the replay after a restart) touches nothing and is no
//            write, yet is answered as a write is;
//   found -> written: any other write, or a delete, goes to the row.
// From then on every write goes to the row.
class Util final : public Asic::SwTable::Util {
public:
   Util(Chip* chip, std::string tableName);

   Brio::Ptr<Asic::HwTable> doMountHwTable(const Asic::SwTable& table) override;
   Asic::HwRequestId hwTableEntryIs(Asic::HwTable& hwTable, Asic::Index index,
                                    const Asic::EntryBase* entry) override;
   Asic::HwRequestId hwTableEntryDel(Asic::HwTable& hwTable, Asic::Index index) override;
   Orb::Optional<std::string> hwTableEntryText(const Asic::HwTable& hwTable,
                                               Asic::Index index) const override;
   Orb::Optional<Asic::Index> hwTableEntryIndexField(const Asic::HwTable& hwTable,
                                                     Asic::Index index,
                                                     Asic::RowFieldRead read) const override;
   Asic::Index maxIndex() const override;
   bool hwTableRowsFound(Asic::UnitId unit) const override;
   void syncIndexAllocator(Orb::TypeId keyType, Asic::GenericIndexAllocator& allocator,
                           Asic::HwTable& hwTable) override;

   // Rows the table held when this Util mounted it, not written or deleted
   // through it since.
   bool foundRow(Asic::Index index) const { return index < foundRow_.size() && foundRow_[index]; }

private:
   friend class Chip;
   void foundRowDel(Asic::Index index);

   Brio::Ptr<Chip> chip_;
   std::string tableName_;
   Brio::Ptr<HwTable> hwTable_;
   std::vector<bool> foundRow_;
   uint32_t foundRows_ = 0;  // the bitmap goes with the last
};

// The chip's hardware tables by name and unit.
using HwTables = std::map<std::pair<std::string, Asic::UnitId>, Brio::Ptr<HwTable>, std::less<>>;

class Chip final : public Brio::PtrInterface {
public:
   static constexpr std::string_view prefixPath = "AsicFeature";

   // Makes this chip the plug-in that tables load from now on.
   void install();
   // Stops serving new tables and drops the responses it still holds.
   void uninstall();

   // The hardware table of `name` on `unit`, or null when none is mounted yet.
   Brio::Ptr<HwTable> table(std::string_view name, Asic::UnitId unit = 0) const;
   Brio::Ptr<HwTable> tableIs(std::string_view name, Asic::UnitId unit, uint32_t rows);
   std::vector<std::string> tableNames() const;
   void tableSizeIs(std::string_view name, uint32_t rows, Asic::UnitId unit = 0);

   // The rows and row keys of every table, kept across processes. Saving
   // writes a new file and renames it over the old one, so a crash leaves
   // either. Loading replaces this chip's tables only when the whole file is
   // sound; else it throws std::runtime_error naming the file and the fault.
   // The file's format is in AsicSim/ChipState.h.
   static constexpr uint32_t stateVersion = 1;
   void stateSave(const std::string& path) const;
   void stateLoad(const std::string& path);

   // Responses.
   bool holdResponses() const { return holdResponses_; }
   void holdResponsesIs(bool hold);
   uint32_t heldResponses() const { return uint32_t(held_.size()); }
   // Hands the held response at `position` (0 is the oldest) to the event loop.
   void releaseResponse(uint32_t position = 0);
   void releaseAllResponses();
   // Forgets the held responses: they are never delivered.
   void heldResponsesDelAll() { held_.clear(); }

   // The next `count` writes of the table fail: the row is left as it was and
   // the response reports the failure.
   void writeFailuresIs(std::string_view tableName, uint32_t count);
   // Utils created from now on ask the engine to record written indices at once.
   void recordHwIndexOnWriteIs(bool b) { recordHwIndexOnWrite_ = b; }

   // Writes requested so far over all tables, refused ones included. A
   // claimed row is no write: it neither counts here nor meets a failure
   // asked for below.
   uint32_t writes() const { return writes_; }
   // Writes of found rows that held their content and row key already.
   uint32_t claims() const { return claims_; }
   // The `k`-th write from now (1: the next one) fails, whatever its table:
   // the row is left as it was and the response reports the failure. May be
   // called again to fail several writes; 0 does nothing.
   void writeFailureAtIs(uint32_t k);
   // Forgets the failures asked for that have not happened yet.
   void writeFailureAtDelAll() { failAt_.clear(); }
   uint32_t writeFailuresPending() const { return uint32_t(failAt_.size()); }

   // A write the chip refused, for whichever reason.
   struct FailedWrite {
      std::string table;
      Asic::UnitId unit = 0;
      Asic::Index index = 0;
      uint32_t ordinal = 0;  // its place among writes(), counted from 1
   };
   const std::vector<FailedWrite>& failedWrites() const { return failedWrites_; }
   void failedWritesDelAll() { failedWrites_.clear(); }

   // The row journal: while on, every write or delete that changes a row's
   // content is recorded in order. Off by default; turning it on starts an
   // empty journal.
   struct RowChange {
      std::string table;
      Asic::UnitId unit = 0;
      Asic::Index index = 0;
      std::optional<std::string> before;  // none: the row was clear
      std::optional<std::string> after;   // none: the row is cleared
   };
   bool journaling() const { return journaling_; }
   void journalingIs(bool on);
   const std::vector<RowChange>& journal() const { return journal_; }
   void journalDelAll() { journal_.clear(); }

   // Called by the plug-in's Util.
   Asic::HwRequestId write(Util& util, HwTable& table, Asic::Index index,
                           const Asic::EntryBase* entry);
   Asic::HwRequestId erase(Util& util, HwTable& table, Asic::Index index);

private:
   friend class Util;
   struct Response {
      Brio::Ptr<Util> util;
      Asic::HwRequestId id;
      Asic::Index index;
      Asic::WriteStatus status;
   };
   ~Chip() override;
   Asic::HwRequestId respond(Util& util, Asic::Index index, Asic::WriteStatus status);
   // Sets the row and journals the change; false when the index is outside the table.
   bool rowSet(HwTable& table, Asic::Index index, const Asic::EntryBase* entry);
   // Whether the write of `entry` at a found row finds it holding that
   // already, with `key` as its row key.
   static bool claimable(const HwTable& table, Asic::Index index, const Asic::EntryBase& entry,
                         const Orb::GenericValue& key);
   static void deliver(const Response& r);

   HwTables tables_;
   std::map<std::string, uint32_t, std::less<>> writeFailures_;
   std::deque<Response> held_;
   Asic::HwRequestId nextRequest_ = 0;
   bool holdResponses_ = false;
   bool recordHwIndexOnWrite_ = false;
   bool installed_ = false;
   uint32_t writes_ = 0;
   uint32_t claims_ = 0;
   std::set<uint32_t> failAt_;  // ordinals among writes_ that fail
   std::vector<FailedWrite> failedWrites_;
   bool journaling_ = false;
   std::vector<RowChange> journal_;
};

}  // namespace AsicSim
