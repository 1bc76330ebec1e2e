#pragma once
// A chip row's text form, "Value('T', ** {'name': value, ...})", read and
// rewritten field by field, for the tests that look at rows as text.
#include <algorithm>
#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace test {

// Where a field's value starts and how long it is (a quoted value without its
// quotes); nothing when the row has no such field.
inline std::optional<std::pair<size_t, size_t>> rowFieldAt(const std::string& row,
                                                           std::string_view name) {
   const std::string tag = "'" + std::string(name) + "': ";
   size_t p = row.find(tag);
   if (p == std::string::npos) return std::nullopt;
   p += tag.size();
   const bool quoted = p < row.size() && row[p] == '\'';
   const size_t end = quoted ? row.find('\'', p + 1) : row.find_first_of(",}", p);
   return std::pair(p + quoted, std::min(end, row.size()) - p - quoted);
}

inline std::optional<std::string> rowField(const std::string& row, std::string_view name) {
   const auto at = rowFieldAt(row, name);
   return at ? std::optional(row.substr(at->first, at->second)) : std::nullopt;
}

// A field that holds an index; nothing when it is missing or not a number.
inline std::optional<uint32_t> rowIndexField(const std::string& row, std::string_view name) {
   const auto text = rowField(row, name).value_or("");
   uint32_t i = 0;
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), i);
   if (text.empty() || error != std::errc() || end != text.data() + text.size())
      return std::nullopt;
   return i;
}

// The row with the field's value replaced; as it was when it has no such field.
inline std::string rowWithField(std::string row, std::string_view name, std::string_view value) {
   if (const auto at = rowFieldAt(row, name)) row.replace(at->first, at->second, value);
   return row;
}

}  // namespace test
