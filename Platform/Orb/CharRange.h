#pragma once
// Cursor over a value's text form. Parsing is strict on purpose: the text is
// machine-written, so any difference from what the printer makes is a fault
// worth reporting with its position rather than something to tolerate.
#include <cstddef>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace Orb {

template <class T>
struct StrepTraits;

class CharRange {
public:
   explicit CharRange(std::string_view text) : text_(text) {}

   std::string_view rest() const { return text_.substr(pos_); }
   bool atEnd() const { return pos_ >= text_.size(); }
   std::size_t position() const { return pos_; }
   char peek() const { return atEnd() ? '\0' : text_[pos_]; }
   // Clamped to the end so that a caller's miscount cannot walk off the text.
   void advance(std::size_t n) { pos_ += n < text_.size() - pos_ ? n : text_.size() - pos_; }

   void needString(std::string_view literal);
   // On error the cursor is left where the number started, so the message's
   // position and the cursor agree.
   uint32_t readUnsigned(uint32_t max);
   bool readBool();
   std::string readQuoted();

private:
   [[noreturn]] void fail(std::string_view expected) const;

   std::string_view text_;
   std::size_t pos_ = 0;
};

// Called from inside a catch block: rethrows the exception being handled as a
// std::range_error prefixed with the field name, so that nested values report
// their full path ("outer: inner: message").
[[noreturn]] void rethrowFromDeserializeAttr(const char* attrName);

template <class T>
T deserializeAttr(CharRange& r, const char* attrName) {
   try {
      return StrepTraits<T>::parse(r);
   } catch (const std::range_error&) {
      rethrowFromDeserializeAttr(attrName);
   } catch (const std::invalid_argument&) {
      rethrowFromDeserializeAttr(attrName);
   }
}

}  // namespace Orb
#pragma GCC visibility pop

// The readers above need the per-type traits; pulled in last because Strep.h
// builds on the complete CharRange.
#include "Orb/Strep.h"
