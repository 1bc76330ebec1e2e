#include "JsonWriter.h"

#include <array>
#include <charconv>

#include "Orb/Assert.h"

namespace L3TunnelTool {

namespace {
constexpr size_t flushAt = size_t(1) << 16;
}

JsonWriter::JsonWriter(std::ostream& os) : os_(&os) { buffer_.reserve(flushAt + 4096); }

JsonWriter::JsonWriter() : os_(nullptr) {}

JsonWriter::~JsonWriter() { flush(); }

void JsonWriter::flush() {
   if (buffer_.empty() || !os_) return;
   os_->write(buffer_.data(), std::streamsize(buffer_.size()));
   buffer_.clear();
}

// Before a value or a key: the comma after the previous element.
void JsonWriter::separate() {
   if (levels_.empty()) return;
   Level& l = levels_.back();
   if (l.object && l.keyed) {
      l.keyed = false;
      return;
   }
   ORB_ASSERT(!l.object) << "a value in an object needs a key first";
   if (l.filled) buffer_ += ',';
   l.filled = true;
   if (buffer_.size() >= flushAt) flush();
}

JsonWriter& JsonWriter::rawValue(std::string_view json) {
   separate();
   raw(json);
   return *this;
}

JsonWriter& JsonWriter::key(std::string_view name) {
   ORB_ASSERT(!levels_.empty() && levels_.back().object && !levels_.back().keyed)
       << "a key stands only in an object, before its value";
   Level& l = levels_.back();
   if (l.filled) buffer_ += ',';
   l.filled = true;
   escaped(name);
   buffer_ += ':';
   l.keyed = true;
   if (buffer_.size() >= flushAt) flush();
   return *this;
}

JsonWriter& JsonWriter::objectBegin() {
   separate();
   buffer_ += '{';
   levels_.push_back({true});
   return *this;
}

JsonWriter& JsonWriter::objectEnd() {
   ORB_ASSERT(!levels_.empty() && levels_.back().object && !levels_.back().keyed)
       << "an object ends after a complete member";
   levels_.pop_back();
   buffer_ += '}';
   return *this;
}

JsonWriter& JsonWriter::arrayBegin() {
   separate();
   buffer_ += '[';
   levels_.push_back({false});
   return *this;
}

JsonWriter& JsonWriter::arrayEnd() {
   ORB_ASSERT(!levels_.empty() && !levels_.back().object) << "no array is open";
   levels_.pop_back();
   buffer_ += ']';
   return *this;
}

JsonWriter& JsonWriter::value(std::string_view s) {
   separate();
   escaped(s);
   return *this;
}

template <class Number>
JsonWriter& JsonWriter::number(Number n) {
   separate();
   char digits[24];
   const auto r = std::to_chars(digits, digits + sizeof digits, n);
   buffer_.append(digits, r.ptr);
   return *this;
}

JsonWriter& JsonWriter::value(uint64_t n) { return number(n); }

JsonWriter& JsonWriter::value(int n) { return number(n); }

JsonWriter& JsonWriter::value(bool b) {
   separate();
   raw(b ? "true" : "false");
   return *this;
}

JsonWriter& JsonWriter::valueTenths(uint32_t tenths) {
   separate();
   char digits[16];
   auto r = std::to_chars(digits, digits + sizeof digits, tenths / 10);
   *r.ptr++ = '.';
   *r.ptr++ = char('0' + tenths % 10);
   buffer_.append(digits, r.ptr);
   return *this;
}

JsonWriter& JsonWriter::null() {
   separate();
   raw("null");
   return *this;
}

void JsonWriter::lineEnd() {
   ORB_ASSERT(levels_.empty()) << "a document ends with everything it opened closed";
   buffer_ += '\n';
   flush();
}

// Quotes, backslashes and control characters escaped; other bytes, UTF-8
// sequences included, as they are.
void JsonWriter::escaped(std::string_view s) {
   // Most texts need no escape: one table look-up per byte finds the few.
   static constexpr auto special = [] {
      std::array<bool, 256> t{};
      for (int c = 0; c < 0x20; ++c) t[size_t(c)] = true;
      t['"'] = t['\\'] = true;
      return t;
   }();
   buffer_ += '"';
   size_t plain = 0;
   for (size_t i = 0; i < s.size(); ++i) {
      const auto c = static_cast<unsigned char>(s[i]);
      if (!special[c]) continue;
      buffer_.append(s.data() + plain, i - plain);
      plain = i + 1;
      switch (c) {
         case '"':
            raw("\\\"");
            break;
         case '\\':
            raw("\\\\");
            break;
         case '\n':
            raw("\\n");
            break;
         case '\r':
            raw("\\r");
            break;
         case '\t':
            raw("\\t");
            break;
         case '\b':
            raw("\\b");
            break;
         case '\f':
            raw("\\f");
            break;
         default: {
            static constexpr char hex[] = "0123456789abcdef";
            const char code[] = {'\\', 'u', '0', '0', hex[c >> 4], hex[c & 15]};
            buffer_.append(code, sizeof code);
         }
      }
   }
   buffer_.append(s.data() + plain, s.size() - plain);
   buffer_ += '"';
}

}  // namespace L3TunnelTool
