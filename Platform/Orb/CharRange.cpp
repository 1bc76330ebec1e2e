#include "Orb/CharRange.h"

#include <exception>

namespace Orb {

namespace {
constexpr std::size_t excerptLength = 20;
}

void CharRange::fail(std::string_view expected) const {
   throw std::range_error("expected \"" + std::string(expected) + "\" at position " +
                          std::to_string(pos_) + ", found \"" +
                          std::string(rest().substr(0, excerptLength)) + "\"");
}

void CharRange::needString(std::string_view literal) {
   if (!rest().starts_with(literal)) fail(literal);
   pos_ += literal.size();
}

uint32_t CharRange::readUnsigned(uint32_t max) {
   const std::string_view r = rest();
   std::size_t n = 0;
   while (n < r.size() && r[n] >= '0' && r[n] <= '9') ++n;
   if (n == 0) throw std::range_error("expected a number at position " + std::to_string(pos_));
   // 64 bits hold any 32-bit value times ten plus a digit, so the check below
   // sees an overflow before it can wrap.
   uint64_t v = 0;
   for (std::size_t i = 0; i < n && v <= max; ++i) v = v * 10 + uint64_t(r[i] - '0');
   if (v > max) {
      throw std::range_error("value " + std::string(r.substr(0, n)) +
                             " out of range (max = " + std::to_string(max) + ")");
   }
   pos_ += n;
   return uint32_t(v);
}

bool CharRange::readBool() {
   const std::string_view r = rest();
   if (r.starts_with("True")) {
      pos_ += 4;
      return true;
   }
   if (r.starts_with("False")) {
      pos_ += 5;
      return false;
   }
   fail("True\" or \"False");
}

std::string CharRange::readQuoted() {
   if (peek() != '\'') fail("'");
   std::string out;
   for (std::size_t i = pos_ + 1; i < text_.size(); ++i) {
      char c = text_[i];
      if (c == '\'') {
         pos_ = i + 1;
         return out;
      }
      if (c == '\\' && ++i < text_.size()) c = text_[i];
      out += c;
   }
   throw std::range_error("unterminated quoted text starting at position " + std::to_string(pos_));
}

void rethrowFromDeserializeAttr(const char* attrName) {
   if (!std::current_exception()) {
      throw std::logic_error("rethrowFromDeserializeAttr called outside a catch block");
   }
   try {
      throw;
   } catch (const std::exception& e) {
      throw std::range_error(std::string(attrName) + ": " + e.what());
   }
}

}  // namespace Orb
