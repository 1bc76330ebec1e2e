#pragma once
// Reading generic values back from their text. A value's type registers how
// its text form parses; whoever stores generic values as text (a chip's row
// keys kept across processes) reads them back by type name.
#include <string_view>

#include "Orb/CharRange.h"
#include "Orb/GenericValue.h"

#pragma GCC visibility push(default)
namespace Orb {

using GenericValueParser = GenericValue (*)(CharRange&);

void genericValueParserIs(std::string_view typeName, GenericValueParser parser);

// The value of type `typeName` that `text` (its GenericValue's text) spells.
// Throws std::invalid_argument for a type nobody registered or a text that is
// not exactly one value.
GenericValue genericValueFromText(std::string_view typeName, std::string_view text);

// A parser for a type with a text constructor.
template <class T>
GenericValue parseGenericValue(CharRange& r) {
   return GenericValue::of(T(r));
}

}  // namespace Orb
#pragma GCC visibility pop
