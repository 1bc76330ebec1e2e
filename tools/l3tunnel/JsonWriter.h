#pragma once
// JSON written as it is produced, compact, with no document tree: the output
// of a large chip would otherwise be held twice (as a tree, then as text).
// The writer checks the nesting it is given (a key only inside an object, a
// value only where one may stand) with assertions, and escapes strings as
// JSON does; strings must be UTF-8, as every text of the agent is.
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace L3TunnelTool {

class JsonWriter {
public:
   explicit JsonWriter(std::ostream& os);
   // Keeps the text instead: text() reads it, clear() starts again.
   JsonWriter();
   ~JsonWriter();
   JsonWriter(const JsonWriter&) = delete;
   JsonWriter& operator=(const JsonWriter&) = delete;

   JsonWriter& objectBegin();
   JsonWriter& objectEnd();
   JsonWriter& arrayBegin();
   JsonWriter& arrayEnd();
   JsonWriter& key(std::string_view name);

   JsonWriter& value(std::string_view s);
   JsonWriter& value(const char* s) { return value(std::string_view(s)); }
   JsonWriter& value(const std::string& s) { return value(std::string_view(s)); }
   JsonWriter& value(uint64_t n);
   JsonWriter& value(uint32_t n) { return value(uint64_t(n)); }
   JsonWriter& value(int n);
   JsonWriter& value(bool b);
   // A number with one decimal (a percentage).
   JsonWriter& valueTenths(uint32_t tenths);
   JsonWriter& null();
   template <class T>
   JsonWriter& value(const std::optional<T>& v) {
      return v ? value(*v) : null();
   }

   // A whole document written: a line end, and the text handed to the stream.
   void lineEnd();
   // Hands what is buffered to the stream.
   void flush();
   // A value that is JSON text already.
   JsonWriter& rawValue(std::string_view json);

   const std::string& text() const { return buffer_; }
   void clear() {
      buffer_.clear();
      levels_.clear();
   }

private:
   void separate();
   template <class Number>
   JsonWriter& number(Number n);
   void escaped(std::string_view s);
   void raw(std::string_view s) { buffer_.append(s); }

   std::ostream* os_;
   std::string buffer_;
   // Per open object or array: whether it holds an element yet, and whether
   // it is an object (whose next element must be a key).
   struct Level {
      bool object;
      bool filled = false;
      bool keyed = false;  // an object's key written, its value not yet
   };
   std::vector<Level> levels_;
};

}  // namespace L3TunnelTool
