// The tables' keys and entry values. The first byte picks the type; the rest is
// the text, where "$0" to "$3" stand for live entry handles. Every reader here
// reports a bad text with std::range_error (naming the field), so that is the
// one clean rejection.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "FuzzSupport.h"
#include "MeridL3Tunnel/EgrL3Oif1Table.h"
#include "MeridL3Tunnel/IngL3Iif.h"
#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"
#include "MeridL3Tunnel/L3EgrL3Ipv6TunnelTable.h"
#include "MeridL3Tunnel/L3TunnelEgrL3Oif1Table.h"
#include "MeridL3Tunnel/L3TunnelIngL3NextHopTable.h"
#include "MeridL3Tunnel/L3TunnelInterfaceTable.h"
#include "MeridL3Tunnel/L3TunnelKey.h"
#include "Orb/Strep.h"
#include "SharedL3/L3EcmpMember0Table.h"

namespace {

using namespace MeridL3Tunnel;
using Fuzz::check;

template <class T>
std::string textOf(const T& v) {
   if constexpr (requires { Orb::valueToStrep(v); })
      return Orb::valueToStrep(v);
   else {
      std::ostringstream os;
      os << v;
      return os.str();
   }
}

template <class T>
T parseWhole(std::string_view text) {
   Orb::CharRange r(text);
   T v(r);
   if (!r.atEnd())
      throw std::range_error("unexpected trailing text at position " +
                             std::to_string(r.position()));
   return v;
}

template <class T>
T reparse(std::string_view what, const std::string& text) {
   try {
      return parseWhole<T>(text);
   } catch (const std::exception& e) {
      Fuzz::fail(std::string(what) + ": its own text does not parse", text + ": " + e.what());
   }
}

// Read, print, read again: the same value and the same text. Entries also
// print the row the chip keeps (handles shown as null), which must read back
// as the same row.
template <class T>
void roundTrip(std::string_view what, std::string_view input) {
   const std::string text = Fuzz::withLiveHandles(input);
   std::optional<T> v;
   if (!Fuzz::parsedCleanly<std::range_error>(what, [&] { v.emplace(parseWhole<T>(text)); }))
      return;
   const std::string printed = textOf(*v);
   const T again = reparse<T>(what, printed);
   check(again == *v, std::string(what) + ": round trip changed the value", printed);
   check(textOf(again) == printed, std::string(what) + ": round trip changed the text", printed);
   if constexpr (std::is_base_of_v<Asic::EntryBase, T>) {
      const std::string row = v->rowText();
      check(textOf(reparse<T>(what, row)) == row, std::string(what) + ": row text round trip", row);
      check(v->isEqEntry(again) && v->stringValue() == printed,
            std::string(what) + ": generic view disagrees", printed);
   }
   if constexpr (requires { v->hash(0u); })
      check(v->hash(3) == again.hash(3), std::string(what) + ": equal values hash differently",
            printed);
}

// The merged table's per-key record holds member handles and a callable: it
// has no text form, and reading one is a programming error that stops the
// process. That is checked once, in a child, rather than fuzzed.
void mergedEntryRefusesText() {
   int out[2];
   if (::pipe(out) != 0) Fuzz::fail("pipe", "");
   const pid_t child = ::fork();
   if (child == 0) {
      ::dup2(out[1], 2);
      Orb::CharRange r("");
      L3InterfaceTable::MergedEntry e(r);
      ::_exit(0);
   }
   ::close(out[1]);
   std::string message;
   char buf[256];
   for (ssize_t n; (n = ::read(out[0], buf, sizeof buf)) > 0;) message.append(buf, size_t(n));
   ::close(out[0]);
   int status = 0;
   ::waitpid(child, &status, 0);
   check(WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT &&
             message.find("No String constructor for MergedEntry") != std::string::npos,
         "MergedEntry text constructor did not stop the process", message);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
   mergedEntryRefusesText();
   return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
   Fuzz::Input in(data, size);
   const uint8_t pick = in.byte();
   const std::string_view text = in.rest();
   switch (pick % 10) {
      case 0:
         roundTrip<L3TunnelKey>("L3TunnelKey", text);
         break;
      case 1:
         roundTrip<L3EgrL3Ipv4TunnelTable::Entry>("Ipv4 tunnel entry", text);
         break;
      case 2:
         roundTrip<L3EgrL3Ipv6TunnelTable::Entry>("Ipv6 tunnel entry", text);
         break;
      case 3:
         roundTrip<EgrL3Oif1Table::Entry>("EgrL3Oif1Table entry", text);
         break;
      case 4:
         roundTrip<L3TunnelEgrL3Oif1Table::Entry>("L3TunnelEgrL3Oif1Table entry", text);
         break;
      case 5:
         roundTrip<IngL3Iif::Entry>("IngL3Iif entry", text);
         break;
      case 6:
         roundTrip<L3InterfaceTable::Entry>("L3InterfaceTable entry", text);
         break;
      case 7:
         roundTrip<L3TunnelIngL3NextHopTable::Entry>("next-hop entry", text);
         break;
      case 8:
         roundTrip<L3EcmpMember0Table::Entry>("member entry", text);
         break;
      case 9:
         roundTrip<L3EcmpMember0Table::RowKey>("member RowKey", text);
         break;
   }
   return 0;
}
