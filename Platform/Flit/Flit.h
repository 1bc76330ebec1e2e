#pragma once
// Ring-buffer trace: cheap records kept in memory, read back after the fact.
//
//   FLIT(handle, 6, "{}: {} entryState: {}", typeName, "handleEntryState", state);
//
// Switched per type name and level like the text trace, from L3TUNNEL_FLIT (same
// syntax). A record keeps the format pointer, so formats must be string literals,
// and the arguments as text rendered when recorded; a record is bounded
// (`recordBytes`) and cut arguments are marked. The ring is process-wide and
// overwrites its oldest record when full.
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <streambuf>
#include <string>
#include <string_view>
#include <vector>

#include "Orb/Trace.h"

#pragma GCC visibility push(default)
namespace Flit {

// The text trace handle carries the ring's level as well: one static per type.
using Handle = Orb::TraceHandle;

void configIs(std::string_view settings);
std::string config();

constexpr uint32_t defaultCapacity = 4096;
// Keeps the newest records that still fit.
void capacityIs(uint32_t records);
uint32_t capacity();

// Oldest first, one line per record: each "{}" takes the next argument, extra
// arguments follow as " | arg", and a record whose arguments did not fit ends
// with " [truncated]".
void dump(std::ostream& out);
std::vector<std::string> records();
void clear();

constexpr uint32_t recordBytes = 160;

struct Record {
   const char* format = nullptr;
   uint16_t args = 0;  // arguments stored in `text`
   uint8_t used = 0;   // bytes of `text` in use
   bool truncated = false;
   // Each argument is a length byte followed by its text.
   char text[recordBytes - sizeof(const char*) - 4];
};
static_assert(sizeof(Record) == recordBytes);
static_assert(sizeof(Record::text) < 256, "argument lengths are single bytes");

// Renders the arguments of one record straight into it, with no allocation.
class RecordWriter {
public:
   explicit RecordWriter(const char* format);
   RecordWriter(const RecordWriter&) = delete;
   RecordWriter& operator=(const RecordWriter&) = delete;

   template <class T>
   void arg(const T& value) {
      if (!argBegin()) return;
      out_ << value;
      argEnd();
   }
   void commit();

private:
   class Buffer : public std::streambuf {
   public:
      void areaIs(char* begin, char* end) { setp(begin, end); }
      char* position() const { return pptr(); }
   };
   bool argBegin();
   void argEnd();

   Record record_;
   Buffer buffer_;
   std::ostream out_;
};

template <std::size_t N, class... Args>
void record(const char (&format)[N], const Args&... args) {
   RecordWriter writer(format);
   (writer.arg(args), ...);
   writer.commit();
}

}  // namespace Flit
#pragma GCC visibility pop

// The arguments are not evaluated when the level is off.
#define FLIT(handle, level, format, ...)                                                  \
   do {                                                                                   \
      if ((handle).flitEnabled(level)) ::Flit::record(format __VA_OPT__(, ) __VA_ARGS__); \
   } while (0)
