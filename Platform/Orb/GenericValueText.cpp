#include "Orb/GenericValueText.h"

#include <map>
#include <stdexcept>
#include <string>

namespace Orb {

namespace {
std::map<std::string, GenericValueParser, std::less<>>& parsers() {
   static auto* p = new std::map<std::string, GenericValueParser, std::less<>>;
   return *p;
}
}  // namespace

void genericValueParserIs(std::string_view typeName, GenericValueParser parser) {
   parsers().insert_or_assign(std::string(typeName), parser);
}

GenericValue genericValueFromText(std::string_view typeName, std::string_view text) {
   auto it = parsers().find(typeName);
   if (it == parsers().end())
      throw std::invalid_argument("no parser for values of type " + std::string(typeName));
   CharRange r(text);
   GenericValue v;
   try {
      v = it->second(r);
   } catch (const std::exception& e) {
      throw std::invalid_argument(std::string(typeName) + " '" + std::string(text) +
                                  "': " + e.what());
   }
   if (!r.atEnd())
      throw std::invalid_argument(std::string(typeName) + " '" + std::string(text) +
                                  "': text after the value at position " +
                                  std::to_string(r.position()));
   return v;
}

}  // namespace Orb
