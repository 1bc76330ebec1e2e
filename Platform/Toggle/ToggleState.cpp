#include "Toggle/ToggleState.h"

#include <cctype>
#include <fstream>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>

#include "Orb/CharRange.h"
#include "Orb/Env.h"
#include "Orb/Trace.h"

namespace {

// Off by default like all of the trace: level 0 is the first to come on, and
// the level the library reports failures at.
const Orb::TraceHandle trace{"Toggle::ToggleState"};

bool known(std::string_view file, std::string_view name) {
   for (const auto& t : knownToggles)
      if (t.file == file && t.name == name) return true;
   return false;
}

std::string knownList(std::string_view file) {
   std::string out;
   for (const auto& t : knownToggles)
      if (t.file == file) out += std::string(out.empty() ? "" : ", ") + std::string(t.name);
   return out.empty() ? "none" : out;
}

// Reads the flat object of a toggle file: "name": true | false | number.
class ToggleFileReader {
public:
   ToggleFileReader(std::string path, std::string_view file, std::string_view text)
       : path_(std::move(path)), file_(file), r_(text) {}

   std::optional<uint32_t> find(std::string_view wanted) {
      try {
         return parse(wanted);
      } catch (const std::range_error& e) {
         throw std::invalid_argument("toggle file " + path_ + ": " + e.what());
      }
   }

private:
   std::optional<uint32_t> parse(std::string_view wanted) {
      std::optional<uint32_t> found;
      need("{");
      if (blanksSkipped() == '}') {
         r_.advance(1);
      } else {
         for (;;) {
            need("\"");
            const std::string_view rest = r_.rest();
            const size_t end = rest.find('"');
            if (end == std::string_view::npos || rest.substr(0, end).find('\\') != rest.npos)
               fail("a toggle name without escapes");
            const std::string_view name = rest.substr(0, end);
            r_.advance(end + 1);
            need(":");
            const uint32_t value = readValue();
            if (name == wanted) found = value;
            if (!known(file_, name)) {
               ORB_TRACE(trace, 0, "getToggleState")
                   << " : " << path_ << ": unknown toggle \"" << name
                   << "\" (known: " << knownList(file_) << ")";
            }
            if (blanksSkipped() != ',') break;
            r_.advance(1);
         }
         need("}");
      }
      if (blanksSkipped() != '\0') fail("nothing after the object");
      return found;
   }

   [[noreturn]] void fail(const std::string& expected) const {
      throw std::range_error("expected " + expected + " at position " +
                             std::to_string(r_.position()));
   }
   char blanksSkipped() {
      while (std::isspace(static_cast<unsigned char>(r_.peek()))) r_.advance(1);
      return r_.peek();
   }
   void need(std::string_view literal) {
      blanksSkipped();
      r_.needString(literal);
   }
   uint32_t readValue() {
      blanksSkipped();
      if (r_.rest().starts_with("true")) {
         r_.advance(4);
         return 1;
      }
      if (r_.rest().starts_with("false")) {
         r_.advance(5);
         return 0;
      }
      return r_.readUnsigned(0xFFFFFFFFu);
   }

   std::string path_;
   std::string_view file_;
   Orb::CharRange r_;
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
   const std::string content = text.str();
   const auto value = ToggleFileReader(path, file, content).find(name);
   return value ? *value : uint32_t(defaultState);
}
