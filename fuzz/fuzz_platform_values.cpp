// The framework's value text forms. The first byte picks the parser; the rest
// is the text. A clean rejection is std::range_error from the cursor-based
// parsers and std::invalid_argument from the plain address text and the
// generic-value registry, as their callers expect.
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "Asic/SwTableBase.h"
#include "FuzzSupport.h"
#include "Orb/BitUInt.h"
#include "Orb/CharRange.h"
#include "Orb/GenericValueText.h"
#include "Orb/Strep.h"
#include "Plx/NextHopEntryType.h"
#include "SharedL3/L3EcmpMember0Table.h"
#include "Wire/IpGenAddr.h"

namespace {

using Fuzz::check;
using Handle = Asic::SwTableBase::EntryHandle;

// Printing what was read and reading it again gives the same value and text.
template <class T>
void strepRoundTrip(std::string_view what, std::string_view text) {
   T v{};
   if (!Fuzz::parsedCleanly<std::range_error>(what, [&] { v = Orb::strepToValue<T>(text); }))
      return;
   const std::string printed = Orb::valueToStrep(v);
   T again{};
   try {
      again = Orb::strepToValue<T>(printed);
   } catch (const std::exception& e) {
      Fuzz::fail(std::string(what) + ": its own text does not parse", printed + ": " + e.what());
   }
   check(again == v, std::string(what) + ": round trip changed the value", printed);
   check(Orb::valueToStrep(again) == printed, std::string(what) + ": round trip changed the text",
         printed);
}

void ipAddressText(std::string_view text) {
   Wire::IpGenAddr a;
   if (!Fuzz::parsedCleanly<std::invalid_argument>("IpGenAddr text",
                                                   [&] { a = Wire::IpGenAddr(text); }))
      return;
   check(a.isV4() || a.isV6() || text.empty(), "IpGenAddr: no family for a non-empty text",
         std::string(text));
   const std::string canonical = a.stringValue();
   Wire::IpGenAddr again;
   try {
      again = Wire::IpGenAddr(canonical);
   } catch (const std::exception& e) {
      Fuzz::fail("IpGenAddr: its own text does not parse", canonical + ": " + e.what());
   }
   check(again == a, "IpGenAddr: round trip changed the address", canonical);
   check(again.stringValue() == canonical, "IpGenAddr: text is not canonical", canonical);
   check(a.hash(7) == again.hash(7), "IpGenAddr: equal addresses hash differently", canonical);
}

// "0x0" is null; any other address must be one of the live handles.
void handleText(std::string_view input) {
   const std::string text = Fuzz::withLiveHandles(input);
   Handle::PtrConst h;
   bool whole = false;
   if (!Fuzz::parsedCleanly<std::range_error>("handle", [&] {
          Orb::CharRange r(text);
          h = Handle::handleFromText(r);
          whole = r.atEnd();
       }))
      return;
   if (h) {
      bool live = false;
      for (auto& l : Fuzz::liveHandles()) live = live || l.ptr() == h.ptr();
      check(live, "handle: a text named a handle that was never made", text);
   }
   if (!whole) return;
   const std::string printed = Handle::handleText(h.ptr());
   Orb::CharRange r(printed);
   check(Handle::handleFromText(r).ptr() == h.ptr() && r.atEnd(), "handle: round trip", printed);
}

// The registered key types; an input may also name any other type.
constexpr std::string_view registeredTypes[] = {
    "MeridL3Tunnel::L3TunnelKey",
    "MeridL3Tunnel::L3EcmpMember0Table::RowKey",
};

void genericValue(Fuzz::Input& in) {
   const uint8_t pick = in.byte();
   std::string_view text = in.rest();
   std::string typeName;
   if (pick < 0x80) {
      typeName = registeredTypes[pick % std::size(registeredTypes)];
   } else {
      const size_t nl = text.find('\n');
      typeName = text.substr(0, nl);
      text = nl == text.npos ? std::string_view() : text.substr(nl + 1);
   }
   Orb::GenericValue v;
   if (!Fuzz::parsedCleanly<std::invalid_argument>(
           "generic value", [&] { v = Orb::genericValueFromText(typeName, text); }))
      return;
   check(bool(v) && v.type().name() == typeName, "generic value: wrong type", typeName);
   // The chip stores a row key as this text and reads it back after a restart.
   const std::string printed = v.text();
   Orb::GenericValue again;
   try {
      again = Orb::genericValueFromText(typeName, printed);
   } catch (const std::exception& e) {
      Fuzz::fail("generic value: its own text does not parse", printed + ": " + e.what());
   }
   check(again == v && again.hash() == v.hash(), "generic value: round trip", printed);
   check(again.text() == printed, "generic value: round trip changed the text", printed);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
   // A registry that lost a type would make every one of its inputs a clean
   // rejection and hide the parser from the fuzzer.
   for (auto name : registeredTypes) {
      try {
         Orb::genericValueFromText(name, "");
      } catch (const std::invalid_argument& e) {
         check(std::string_view(e.what()).find("no parser") == std::string_view::npos,
               "type not registered", name);
      }
   }
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Fuzz::Input in(data, size);
   const uint8_t pick = in.byte();
   const std::string_view text = in.rest();
   switch (pick % 13) {
      case 0:
         ipAddressText(text);
         break;
      case 1:
         strepRoundTrip<Wire::IpGenAddr>("IpGenAddr", text);
         break;
      case 2:
         strepRoundTrip<Plx::NextHopEntryType>("NextHopEntryType", text);
         break;
      case 3:
         strepRoundTrip<U5>("U5", text);
         break;
      case 4:
         strepRoundTrip<U2>("U2", text);
         break;
      case 5:
         strepRoundTrip<uint8_t>("uint8", text);
         break;
      case 6:
         strepRoundTrip<uint16_t>("uint16", text);
         break;
      case 7:
         strepRoundTrip<uint32_t>("uint32", text);
         break;
      case 8:
         strepRoundTrip<bool>("bool", text);
         break;
      case 9:
         strepRoundTrip<std::string>("quoted", text);
         break;
      case 10:
         strepRoundTrip<MeridL3Tunnel::L3EcmpMember0Table::Index>("IndexValue", text);
         break;
      case 11:
         handleText(text);
         break;
      case 12:
         genericValue(in);
         break;
   }
   return 0;
}
