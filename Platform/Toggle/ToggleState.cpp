#include "Toggle/ToggleState.h"

#include <cctype>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

#include "Orb/Env.h"

namespace {

// Reads the flat object of a toggle file: "name": true | false | number.
class ToggleFileReader {
public:
   ToggleFileReader(std::string path, std::string text)
       : path_(std::move(path)), text_(std::move(text)) {}

   std::optional<uint32_t> find(std::string_view wanted) {
      std::optional<uint32_t> found;
      expect('{');
      if (peek() == '}') {
         ++pos_;
      } else {
         for (;;) {
            const std::string name = readString();
            expect(':');
            const uint32_t value = readValue();
            if (name == wanted) found = value;
            const char c = next();
            if (c == '}') break;
            if (c != ',') fail("',' or '}' expected");
         }
      }
      if (peek() != '\0') fail("text after the object");
      return found;
   }

private:
   [[noreturn]] void fail(const std::string& what) const {
      throw std::invalid_argument("toggle file " + path_ + ": " + what + " at byte " +
                                  std::to_string(pos_));
   }
   void skipBlanks() {
      while (pos_ < text_.size() && std::isspace(static_cast<unsigned char>(text_[pos_]))) ++pos_;
   }
   char peek() {
      skipBlanks();
      return pos_ < text_.size() ? text_[pos_] : '\0';
   }
   char next() {
      const char c = peek();
      if (c) ++pos_;
      return c;
   }
   void expect(char c) {
      if (next() != c) fail(std::string("'") + c + "' expected");
   }
   std::string readString() {
      expect('"');
      std::string s;
      while (pos_ < text_.size() && text_[pos_] != '"') {
         if (text_[pos_] == '\\') fail("escapes are not allowed in toggle names");
         s += text_[pos_++];
      }
      if (pos_ == text_.size()) fail("unterminated string");
      ++pos_;
      return s;
   }
   uint32_t readValue() {
      skipBlanks();
      if (text_.compare(pos_, 4, "true") == 0) {
         pos_ += 4;
         return 1;
      }
      if (text_.compare(pos_, 5, "false") == 0) {
         pos_ += 5;
         return 0;
      }
      if (pos_ < text_.size() && std::isdigit(static_cast<unsigned char>(text_[pos_]))) {
         uint64_t v = 0;
         while (pos_ < text_.size() && std::isdigit(static_cast<unsigned char>(text_[pos_]))) {
            v = v * 10 + uint64_t(text_[pos_++] - '0');
            if (v > 0xFFFFFFFFu) fail("number too large");
         }
         return uint32_t(v);
      }
      fail("true, false or an unsigned number expected");
   }

   std::string path_;
   std::string text_;
   size_t pos_ = 0;
};

}  // namespace

uint32_t getToggleState(std::string_view name, std::string_view file, bool defaultState) {
   const auto dir = Orb::envValue(toggleDirVariable);
   if (!dir || dir->empty()) return defaultState;
   std::string path = *dir;
   if (path.back() != '/') path += '/';
   path.append(file);
   std::ifstream in(path, std::ios::binary);
   if (!in) return defaultState;
   std::ostringstream text;
   text << in.rdbuf();
   const auto value = ToggleFileReader(path, text.str()).find(name);
   return value ? *value : uint32_t(defaultState);
}
