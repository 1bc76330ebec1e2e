#include "Flit/Flit.h"

#include <algorithm>
#include <mutex>

namespace Flit {

namespace {

struct Ring {
   std::mutex mutex;
   // Sized on the first record: a process that never records pays nothing.
   std::vector<Record> slots;
   uint32_t capacity = defaultCapacity;
   uint32_t next = 0;
   uint32_t count = 0;

   uint32_t oldest() const { return (next + capacity - count) % capacity; }
};

Ring& ring() {
   static Ring r;
   return r;
}

std::string formatted(const Record& r) {
   std::vector<std::string_view> args;
   args.reserve(r.args);
   for (uint32_t pos = 0, i = 0; i < r.args; ++i) {
      const uint8_t length = uint8_t(r.text[pos]);
      args.emplace_back(r.text + pos + 1, length);
      pos += 1u + length;
   }
   std::string line;
   std::string_view format = r.format ? r.format : "";
   std::size_t nextArg = 0;
   for (;;) {
      const auto brace = format.find("{}");
      line += format.substr(0, brace);
      if (brace == std::string_view::npos) break;
      line += nextArg < args.size() ? args[nextArg++] : std::string_view("{}");
      format.remove_prefix(brace + 2);
   }
   for (; nextArg < args.size(); ++nextArg) {
      line += " | ";
      line += args[nextArg];
   }
   if (r.truncated) line += " [truncated]";
   return line;
}

// Caller holds the mutex.
template <class F>
void forEachRecord(const Ring& r, F&& f) {
   for (uint32_t i = 0, slot = r.count ? r.oldest() : 0; i < r.count; ++i) {
      f(r.slots[slot]);
      slot = (slot + 1) % r.capacity;
   }
}

}  // namespace

void configIs(std::string_view settings) {
   Orb::Trace::configIs(Orb::Trace::Channel::flit, settings);
}
std::string config() { return Orb::Trace::config(Orb::Trace::Channel::flit); }

void capacityIs(uint32_t records) {
   Ring& r = ring();
   std::lock_guard lock(r.mutex);
   std::vector<Record> kept;
   const uint32_t keep = std::min(records, r.count);
   if (keep) {
      kept.reserve(records);
      uint32_t skip = r.count - keep;
      forEachRecord(r, [&](const Record& rec) {
         if (skip) {
            --skip;
            return;
         }
         kept.push_back(rec);
      });
      kept.resize(records);
   }
   r.slots = std::move(kept);
   r.capacity = records;
   r.count = keep;
   r.next = records ? keep % records : 0;
}

uint32_t capacity() {
   Ring& r = ring();
   std::lock_guard lock(r.mutex);
   return r.capacity;
}

void dump(std::ostream& out) {
   for (const std::string& line : records()) out << line << '\n';
}

std::vector<std::string> records() {
   Ring& r = ring();
   std::vector<Record> copy;
   {
      // Format outside the lock: recording must not wait on a slow reader.
      std::lock_guard lock(r.mutex);
      copy.reserve(r.count);
      forEachRecord(r, [&](const Record& rec) { copy.push_back(rec); });
   }
   std::vector<std::string> lines;
   lines.reserve(copy.size());
   for (const Record& rec : copy) lines.push_back(formatted(rec));
   return lines;
}

void clear() {
   Ring& r = ring();
   std::lock_guard lock(r.mutex);
   r.count = 0;
   r.next = 0;
}

RecordWriter::RecordWriter(const char* format) : out_(&buffer_) { record_.format = format; }

bool RecordWriter::argBegin() {
   // A cut argument fills the record, so everything after it is dropped too.
   if (record_.used + 1u > sizeof(record_.text)) {
      record_.truncated = true;
      return false;
   }
   buffer_.areaIs(record_.text + record_.used + 1, record_.text + sizeof(record_.text));
   return true;
}

void RecordWriter::argEnd() {
   const auto length = uint32_t(buffer_.position() - (record_.text + record_.used + 1));
   record_.text[record_.used] = char(length);
   record_.used = uint8_t(record_.used + 1 + length);
   ++record_.args;
   if (out_.bad()) {
      record_.truncated = true;
      out_.clear();
   }
}

void RecordWriter::commit() {
   Ring& r = ring();
   std::lock_guard lock(r.mutex);
   if (r.capacity == 0) return;
   if (r.slots.size() != r.capacity) r.slots.resize(r.capacity);
   r.slots[r.next] = record_;
   r.next = (r.next + 1) % r.capacity;
   r.count = std::min(r.count + 1, r.capacity);
}

}  // namespace Flit
