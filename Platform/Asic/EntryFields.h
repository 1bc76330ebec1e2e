#pragma once
// An entry value described once by its fields, and everything derived from
// that description: equality, order, the value hash, the text form and its
// parser, the chip's row text and, for a row found on the chip, the index a
// field of it names. A field left out of one of them, or read back under
// another name than it was printed with, cannot happen.
//
// An entry type lists its fields, in text order, after its data members:
//
//   static constexpr auto fields = std::tuple{
//       Asic::handleField("tunnelIdxHandle", &Entry::tunnelIdxHandle_),
//       Asic::dependentField("tunnelIdx", &Entry::tunnelIdx_, &Entry::tunnelIdxHandle_,
//                            TunnelTable::typeName),
//       Asic::valueField("ttlThreshold", &Entry::ttlThreshold_)};
//
// Kinds of field:
//   value      part of the value, in its own text form;
//   handle     the handle of the entry the value names: part of the value by
//              identity, shown as the handle's address (null in a chip row);
//   dependent  the hardware index of the entry a handle field names, written
//              when the entry is resolved. Derived, so no part of equality,
//              order or hash. Its width is its member's type; it holds an
//              index of one of the tables it lists (alternatives).
//
// The text form is `Value('<typeName>', ** {'<name>': <text>, ...})`; an entry
// without fields has an empty one.
#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

#include "Asic/Cast.h"
#include "Asic/EntryBase.h"
#include "Asic/Index.h"
#include "Asic/SwTableBase.h"
#include "Orb/CharRange.h"
#include "Orb/Hash.h"
#include "Orb/Strep.h"

#pragma GCC visibility push(default)
namespace Asic {

enum class FieldKind : uint8_t { value, handle, dependent };

// Names are taken from string literals only, so that a name's data() ends in
// the NUL the framework's field errors need.
template <class E, class T>
struct ValueField {
   static constexpr FieldKind kind = FieldKind::value;
   using Type = T;
   std::string_view name;
   T E::*member;
};

template <class E>
struct HandleField {
   static constexpr FieldKind kind = FieldKind::handle;
   using Type = SwTableBase::EntryHandle::PtrConst;
   std::string_view name;
   Type E::*member;
};

template <class E, class W, size_t N>
struct DependentField {
   static constexpr FieldKind kind = FieldKind::dependent;
   using Type = W;
   static_assert(std::is_same_v<W, uint8_t> || std::is_same_v<W, uint16_t> ||
                     std::is_same_v<W, uint32_t>,
                 "a dependent index field is unsigned, of 8, 16 or 32 bits");
   static_assert(N >= 1, "a dependent index names at least one table");
   std::string_view name;
   W E::*member;
   SwTableBase::EntryHandle::PtrConst E::*handle;  // the entry whose index it holds
   std::array<std::string_view, N> named;          // type names of the tables it may name
};

template <class E, class T, size_t L>
constexpr ValueField<E, T> valueField(const char (&name)[L], T E::*member) {
   return {std::string_view(name, L - 1), member};
}

template <class E, size_t L>
constexpr HandleField<E> handleField(const char (&name)[L],
                                     SwTableBase::EntryHandle::PtrConst E::*member) {
   return {std::string_view(name, L - 1), member};
}

template <class E, class W, size_t L, class... Named>
constexpr DependentField<E, W, sizeof...(Named)> dependentField(
    const char (&name)[L], W E::*member, SwTableBase::EntryHandle::PtrConst E::*handle,
    Named... named) {
   return {std::string_view(name, L - 1), member, handle, {std::string_view(named)...}};
}

// Reads the text of one field in a chip row: nothing when the row is not of
// the entry type the reader was derived for.
using RowFieldRead = std::optional<std::string_view> (*)(std::string_view row);

// The index a field's text holds: nothing unless it is all an unsigned
// 32-bit number.
inline std::optional<Index> fieldIndex(std::string_view text) {
   Index n = 0;
   const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), n);
   if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
   return n;
}

namespace FieldsDetail {

template <class D>
inline constexpr FieldKind kindOf = std::remove_cvref_t<D>::kind;

template <class E, class F>
constexpr void forEachField(F&& f) {
   std::apply([&](const auto&... d) { (f(d), ...); }, E::fields);
}

// The literal text of E's text form, made once at compile time: the prefix
// `Value('<typeName>', ** {`, each field's `'<name>': ` (`, '<name>': ` after
// the first) and the closing `})`. Printing appends each piece whole, and the
// parser needs each as the hand-written parsers did, so its errors quote them.
template <class E>
constexpr size_t piecesSize() {
   size_t n = E::typeName.size() + 16, k = 0;
   forEachField<E>([&](const auto& d) { n += (k++ ? 6 : 4) + d.name.size(); });
   return n;
}

template <class E>
struct Pieces {
   static constexpr size_t fields = std::tuple_size_v<decltype(E::fields)>;
   std::array<char, piecesSize<E>()> chars{};
   std::array<size_t, fields + 3> start{};  // of piece k; the last is the end

   constexpr std::string_view piece(size_t k) const {
      return {chars.data() + start[k], start[k + 1] - start[k]};
   }
};

template <class E>
constexpr Pieces<E> makePieces() {
   Pieces<E> p;
   size_t at = 0, k = 0;
   auto put = [&](std::string_view text) {
      for (char c : text) p.chars[at++] = c;
   };
   p.start[k++] = at;
   put("Value('");
   put(E::typeName);
   put("', ** {");
   forEachField<E>([&](const auto& d) {
      p.start[k] = at;
      put(k++ == 1 ? "'" : ", '");
      put(d.name);
      put("': ");
   });
   p.start[k++] = at;
   put("})");
   p.start[k] = at;
   return p;
}

template <class E>
inline constexpr Pieces<E> pieces = makePieces<E>();

// A dependent field is read from a row as its raw text: whatever a damaged
// row holds there is reported as it stands.
inline std::string_view rawField(std::string_view rest) {
   return rest.substr(0, std::min(rest.find(','), rest.find('}')));
}

}  // namespace FieldsDetail

// The operations derived from `E::fields`.
template <class E>
struct EntryFields {
   static constexpr size_t count() { return std::tuple_size_v<decltype(E::fields)>; }

   template <class F>
   static constexpr void forEach(F&& f) {
      FieldsDetail::forEachField<E>(f);
   }

   static constexpr size_t dependentCount() {
      size_t n = 0;
      forEach(
          [&](const auto& d) { n += FieldsDetail::kindOf<decltype(d)> == FieldKind::dependent; });
      return n;
   }

   // Handles by identity, the rest by their own equality; dependent fields
   // follow from the handles and take no part.
   static bool isEq(const E& a, const E& b) {
      bool eq = true;
      forEach([&](const auto& d) {
         if constexpr (FieldsDetail::kindOf<decltype(d)> != FieldKind::dependent)
            eq = eq && a.*d.member == b.*d.member;
      });
      return eq;
   }

   // The same fields, first difference deciding; handles by address.
   static bool less(const E& a, const E& b) {
      int order = 0;
      forEach([&](const auto& d) {
         constexpr FieldKind kind = FieldsDetail::kindOf<decltype(d)>;
         if (order || kind == FieldKind::dependent) return;
         if constexpr (kind == FieldKind::handle) {
            const auto* x = (a.*d.member).ptr();
            const auto* y = (b.*d.member).ptr();
            if (x != y) order = std::less<>()(x, y) ? -1 : 1;
         } else if constexpr (kind == FieldKind::value) {
            const auto& x = a.*d.member;
            const auto& y = b.*d.member;
            if (!(x == y)) order = x < y ? -1 : 1;
         }
      });
      return order < 0;
   }

   // Equal values hash alike: the fields of equality, in order.
   static uint32_t hash(const E& e, uint32_t seed) {
      Orb::Hash h(seed);
      forEach([&](const auto& d) {
         if constexpr (FieldsDetail::kindOf<decltype(d)> != FieldKind::dependent)
            hashValueField(h, e.*d.member, seed);
      });
      return h.result();
   }

   // The text form; without `handles` the chip's row, which holds no
   // software handle. Built in one buffer: every write prints one.
   static std::string text(const E& e, bool handles) {
      std::string out;
      if constexpr (count() != 0) {
         out.reserve(FieldsDetail::pieces<E>.chars.size() + 8 * count());
         out.append(piece(0));
         [&]<size_t... K>(std::index_sequence<K...>) { (printField<K>(out, e, handles), ...); }
         (std::make_index_sequence<count()>());
         out.append(piece(count() + 1));
      }
      return out;
   }

   // Reads the text form into `e`. A bad field is refused naming it; the
   // literal pieces must stand exactly as printed.
   static void read(E& e, Orb::CharRange& r) {
      if constexpr (count() != 0) {
         r.needString(piece(0));
         [&]<size_t... K>(std::index_sequence<K...>) { (readField<K>(e, r), ...); }
         (std::make_index_sequence<count()>());
         r.needString(piece(count() + 1));
      }
   }

   // The text of field `I` in a chip row of this entry type, found by walking
   // the fields before it as the row text lays them out.
   template <size_t I>
   static std::optional<std::string_view> rowField(std::string_view row) {
      static_assert(I < count());
      if (!row.starts_with(piece(0))) return {};
      size_t at = piece(0).size();
      std::optional<std::string_view> found;
      try {
         [&]<size_t... K>(std::index_sequence<K...>) {
            (rowFieldStep<K, I>(row, at, found) && ...);
         }
         (std::make_index_sequence<I + 1>());
      } catch (const std::exception&) {
         return {};  // a field before it does not read as its type
      }
      return found;
   }

   // Calls `f(descriptor, read)` for each dependent field in order, `read`
   // being the reader of that field in a chip row.
   template <class F>
   static constexpr void forEachDependent(F&& f) {
      [&]<size_t... K>(std::index_sequence<K...>) { (dependentAt<K>(f), ...); }
      (std::make_index_sequence<count()>());
   }

   // The one dependent field of an entry that names one other entry.
   static constexpr const auto& dependent() {
      static_assert(dependentCount() == 1, "the entry names more or fewer than one entry");
      return std::get<dependentIndex()>(E::fields);
   }

private:
   static constexpr std::string_view piece(size_t k) { return FieldsDetail::pieces<E>.piece(k); }

   template <size_t K>
   static void printField(std::string& out, const E& e, bool handles) {
      constexpr const auto& d = std::get<K>(E::fields);
      out.append(piece(K + 1));
      if constexpr (FieldsDetail::kindOf<decltype(d)> == FieldKind::handle)
         out.append(SwTableBase::EntryHandle::handleText(handles ? (e.*d.member).ptr() : nullptr));
      else
         Orb::StrepTraits<typename std::remove_cvref_t<decltype(d)>::Type>::print(out, e.*d.member);
   }

   template <size_t K>
   static void readField(E& e, Orb::CharRange& r) {
      constexpr const auto& d = std::get<K>(E::fields);
      r.needString(piece(K + 1));
      if constexpr (FieldsDetail::kindOf<decltype(d)> == FieldKind::handle)
         e.*d.member = SwTableBase::EntryHandle::handleFromText(r, d.name.data());
      else
         e.*d.member = Orb::deserializeAttr<typename std::remove_cvref_t<decltype(d)>::Type>(
             r, d.name.data());
   }

   static constexpr size_t dependentIndex() {
      size_t i = 0, found = 0;
      forEach([&](const auto& d) {
         if (FieldsDetail::kindOf<decltype(d)> == FieldKind::dependent) found = i;
         ++i;
      });
      return found;
   }

   template <size_t K, class F>
   static constexpr void dependentAt(F& f) {
      constexpr const auto& d = std::get<K>(E::fields);
      if constexpr (FieldsDetail::kindOf<decltype(d)> == FieldKind::dependent)
         f(d, RowFieldRead(&rowField<K>));
   }

   // Steps over field K of a row; at field I, takes its text. False stops.
   template <size_t K, size_t I>
   static bool rowFieldStep(std::string_view row, size_t& at,
                            std::optional<std::string_view>& found) {
      constexpr const auto& d = std::get<K>(E::fields);
      if (!row.substr(at).starts_with(piece(K + 1))) return false;
      at += piece(K + 1).size();
      std::string_view text;
      if constexpr (FieldsDetail::kindOf<decltype(d)> == FieldKind::dependent) {
         text = FieldsDetail::rawField(row.substr(at));
         at += text.size();
      } else {
         text = readText<std::remove_cvref_t<decltype(d)>>(row, at);
      }
      if constexpr (K == I) found = text;
      return true;
   }

   // Reads a field as its type at `at` and moves past it; its text.
   template <class D>
   static std::string_view readText(std::string_view row, size_t& at) {
      Orb::CharRange r(row.substr(at));
      if constexpr (D::kind == FieldKind::handle)
         SwTableBase::EntryHandle::handleFromText(r);
      else
         Orb::StrepTraits<typename D::Type>::parse(r);
      const std::string_view text = row.substr(at, r.position());
      at += r.position();
      return text;
   }
};

// Writes `index` into the dependent field `d` of `e` at the field's width.
// An index that does not fit is refused with the framework's cast error,
// unless `truncated`: the index of an entry kept out of hardware, which no
// row uses.
template <class E, class D>
void dependentIndexIs(E& e, const D& d, Index index, bool truncated = false) {
   using W = typename D::Type;
   e.*d.member = truncated ? static_cast<W>(index) : Detail::castIntegral<W>(index);
}

}  // namespace Asic
#pragma GCC visibility pop
