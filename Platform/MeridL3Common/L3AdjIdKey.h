#pragma once
// The key of an underlay adjacency in the shared L3 state: the id the
// forwarding agent gave the adjacency and what kind of object the id names.
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#pragma GCC visibility push(default)
namespace MeridL3Common {

enum class L3AdjIdKeyType : uint8_t {
   adjIdTypeUnknown = 0,
   adjIdTypeEcmp = 1,
   adjIdTypeNextHop = 2,
   adjIdTypeTunnel = 3,
};

// The enumerator's name; a value outside the enumeration prints as its number.
std::string valueToStrep(L3AdjIdKeyType t);
std::ostream& operator<<(std::ostream& os, L3AdjIdKeyType t);

class L3AdjIdKey {
public:
   static constexpr std::string_view typeName = "MeridL3Common::L3AdjIdKey";

   constexpr L3AdjIdKey() = default;
   constexpr L3AdjIdKey(uint32_t adjId, L3AdjIdKeyType type) : adjId_(adjId), type_(type) {}

   constexpr uint32_t adjId() const { return adjId_; }
   void adjIdIs(uint32_t id) { adjId_ = id; }
   constexpr L3AdjIdKeyType type() const { return type_; }
   void typeIs(L3AdjIdKeyType t) { type_ = t; }

   static constexpr bool isEq(const L3AdjIdKey& a, const L3AdjIdKey& b) {
      return a.adjId_ == b.adjId_ && a.type_ == b.type_;
   }
   friend constexpr bool operator==(const L3AdjIdKey& a, const L3AdjIdKey& b) { return isEq(a, b); }
   friend constexpr bool operator<(const L3AdjIdKey& a, const L3AdjIdKey& b) {
      if (a.adjId_ != b.adjId_) return a.adjId_ < b.adjId_;
      return a.type_ < b.type_;
   }

   uint32_t hash(uint32_t seed) const;
   // "L3AdjIdKey{adjId:7 type:adjIdTypeEcmp": the key's established text, which
   // has no closing brace.
   std::string stringValue() const;
   friend std::ostream& operator<<(std::ostream& os, const L3AdjIdKey& k);

private:
   uint32_t adjId_ = 0;
   L3AdjIdKeyType type_ = L3AdjIdKeyType::adjIdTypeUnknown;
};

}  // namespace MeridL3Common
#pragma GCC visibility pop
