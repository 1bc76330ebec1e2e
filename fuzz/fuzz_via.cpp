// The via entry's text form. Its adjacency part is printed for people and
// must be empty when read, so the round trip reads the printed text with that
// part taken out; the value read carries the default adjacency. A bad text is
// std::range_error naming the field.
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "FuzzSupport.h"
#include "MeridL3Tunnel/L3TunnelOverlayVia.h"

namespace {

using Fuzz::check;
using MeridL3Tunnel::L3TunnelOverlayViaEntry;

L3TunnelOverlayViaEntry parseWhole(std::string_view text) {
   Orb::CharRange r(text);
   L3TunnelOverlayViaEntry v(r);
   if (!r.atEnd())
      throw std::range_error("unexpected trailing text at position " +
                             std::to_string(r.position()));
   return v;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   const std::string_view text(reinterpret_cast<const char*>(data), size);
   std::optional<L3TunnelOverlayViaEntry> v;
   if (!Fuzz::parsedCleanly<std::range_error>("via", [&] { v.emplace(parseWhole(text)); }))
      return 0;
   check(v->underlayAdjId() == MeridL3Common::L3AdjIdKey(), "via: an adjacency was read");

   std::string printed = valueToStrep(*v);
   const std::string adjacency = v->underlayAdjId().stringValue();
   const size_t at = printed.rfind(adjacency);
   check(at != std::string::npos && at + adjacency.size() + 2 == printed.size(),
         "via: the adjacency is not where it is read from", printed);
   printed.erase(at, adjacency.size());

   L3TunnelOverlayViaEntry again;
   try {
      again = parseWhole(printed);
   } catch (const std::exception& e) {
      Fuzz::fail("via: its own text does not parse", printed + ": " + e.what());
   }
   check(again == *v && !(again < *v) && !(*v < again), "via: round trip changed the value",
         printed);
   check(again.hash(11) == v->hash(11), "via: equal vias hash differently", printed);

   // Reflection shows the same fields as the text.
   for (Orb::AttrNumber n = 0; n < L3TunnelOverlayViaEntry::attrCount; ++n) {
      Orb::AttrValue field;
      check(v->attr(n, field) == Orb::AttrResult::success, "via: attribute missing");
      if (n == 5) continue;  // the adjacency, taken out above
      const std::string shown = "'" + std::string(field.name) + "': " + field.text;
      check(printed.find(shown) != std::string::npos, "via: attribute not in the text",
            shown + " / " + printed);
   }
   return 0;
}
