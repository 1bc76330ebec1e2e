#include "Scenario.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <sstream>

#include "MeridCentral/ChipInfo.h"
#include "MeridL3Tunnel/EgrL3Oif1Table.h"
#include "MeridL3Tunnel/IngL3Iif.h"
#include "MeridL3Tunnel/L3EgrL3Ipv4TunnelTable.h"
#include "MeridL3Tunnel/L3EgrL3Ipv6TunnelTable.h"
#include "MeridL3Tunnel/L3TunnelEgrL3Oif1Table.h"
#include "MeridL3Tunnel/L3TunnelIngL3NextHopTable.h"
#include "MeridL3Tunnel/L3TunnelInterfaceTable.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "SharedL3/L3EcmpMember0Table.h"

namespace L3TunnelTool {

using Json = nlohmann::json;
using MeridL3Common::L3AdjIdKey;
using MeridL3Common::L3AdjIdKeyType;
using MeridL3Tunnel::L3TunnelOverlayViaEntry;

const std::vector<TableClass>& hardwareTableClasses() {
   using namespace MeridL3Tunnel;
   static const std::vector<TableClass> classes = [] {
      std::vector<TableClass> v;
      for (std::string_view q :
           {L3EcmpMember0Table::typeName, L3TunnelIngL3NextHopTable::typeName,
            L3TunnelEgrL3Oif1Table::typeName, IngL3Iif::typeName, EgrL3Oif1Table::typeName,
            L3EgrL3Ipv4TunnelTable::typeName, L3EgrL3Ipv6TunnelTable::typeName})
         v.push_back({unqualifiedName(q), q});
      return v;
   }();
   return classes;
}

std::string_view unqualifiedName(std::string_view qualifiedName) {
   const auto colons = qualifiedName.rfind("::");
   return colons == std::string_view::npos ? qualifiedName : qualifiedName.substr(colons + 2);
}

std::string_view opName(Step::Op op) {
   switch (op) {
      case Step::Op::program:
         return "program";
      case Step::Op::release:
         return "release";
      case Step::Op::restart:
         return "restart";
      case Step::Op::reconcile:
         return "reconcile";
   }
   return "?";
}

std::string stepText(const Step& step) {
   std::string out(opName(step.op));
   if (step.op == Step::Op::release) out += " " + step.group;
   if (step.op == Step::Op::program) {
      uint64_t members = 0;
      for (const auto& v : step.vias) members += v.weight();
      out += " " + step.group + " (" + std::to_string(step.vias.size()) +
             (step.vias.size() == 1 ? " via, " : " vias, ") + std::to_string(members) +
             (members == 1 ? " member)" : " members)");
   }
   return out;
}

uint32_t Scenario::tableSize(std::string_view name) const {
   auto it = tableSizes.find(name);
   return it == tableSizes.end() ? MeridCentral::ChipInfo::defaultTableSize : it->second;
}

namespace {

const std::map<std::string, bool, std::less<>>& knownToggles() {
   static const std::map<std::string, bool, std::less<>> toggles{{"CommonIifOifIndex", true}};
   return toggles;
}

std::string listed(const std::vector<std::string>& names) {
   std::string out;
   for (const auto& n : names) out += (out.empty() ? "" : ", ") + n;
   return out;
}

std::string child(const std::string& parent, std::string_view name) {
   return parent.empty() ? std::string(name) : parent + "." + std::string(name);
}

std::string element(const std::string& parent, size_t index) {
   return parent + "[" + std::to_string(index) + "]";
}

// Checks as it reads; the first problem stops the reading with a message
// that says where it is.
class Reader {
public:
   explicit Reader(std::string file) : file_(std::move(file)) {}

   Scenario read(const Json& doc) {
      Scenario s;
      s.file = file_;
      fields(doc, "", {"chip", "toggles", "underlay", "steps"});
      chipRead(doc, s);
      togglesRead(doc, s);
      underlayRead(doc, s);
      if (const Json* steps = member(doc, "steps")) {
         if (!steps->is_array()) fail("steps", "expected an array, found " + kind(*steps));
         std::set<std::string> holding;  // groups that hold a block
         for (size_t i = 0; i < steps->size(); ++i) {
            step_ = uint32_t(i + 1);
            s.steps.push_back(stepRead((*steps)[i], s, holding));
         }
         step_.reset();
      }
      return s;
   }

private:
   [[noreturn]] void fail(const std::string& field, const std::string& what) const {
      std::string out = file_ + ": ";
      if (step_) out += "step " + std::to_string(*step_) + ": ";
      if (!field.empty()) out += field + ": ";
      out += what;
      // The message is one line, whatever the names in the file hold.
      for (char& c : out)
         if (static_cast<unsigned char>(c) < 0x20) c = ' ';
      throw ScenarioError(out);
   }

   static std::string kind(const Json& v) {
      if (v.is_number_integer() || v.is_number_float()) return "a number";
      if (v.is_boolean()) return "a boolean";
      const std::string name = v.type_name();
      return (name == "object" || name == "array" ? "an " : "a ") + name;
   }

   void fields(const Json& v, const std::string& field,
               std::initializer_list<std::string_view> known) const {
      if (!v.is_object()) fail(field, "expected an object, found " + kind(v));
      for (const auto& [name, value] : v.items()) {
         bool ok = false;
         for (auto k : known) ok = ok || k == name;
         if (ok) continue;
         std::vector<std::string> names;
         for (auto k : known) names.emplace_back(k);
         fail(child(field, name), "unknown field (known: " + listed(names) + ")");
      }
   }

   static const Json* member(const Json& obj, std::string_view name) {
      auto it = obj.find(name);
      return it == obj.end() ? nullptr : &*it;
   }

   const Json& required(const Json& obj, const std::string& field, std::string_view name) const {
      const Json* v = member(obj, name);
      if (!v) fail(child(field, name), "missing");
      return *v;
   }

   uint32_t u32(const Json& v, const std::string& field) const {
      if (v.is_number_unsigned() && v.get<uint64_t>() <= 0xFFFFFFFFu) return v.get<uint32_t>();
      fail(field, v.dump() + " is not an unsigned 32-bit number");
   }

   bool boolean(const Json& v, const std::string& field) const {
      if (!v.is_boolean()) fail(field, v.dump() + " is not true or false");
      return v.get<bool>();
   }

   std::string text(const Json& v, const std::string& field) const {
      if (!v.is_string()) fail(field, v.dump() + " is not a string");
      return v.get<std::string>();
   }

   Wire::IpGenAddr address(const Json& v, const std::string& field) const {
      const std::string t = text(v, field);
      if (t.empty()) fail(field, "an address is needed, found \"\"");
      try {
         return Wire::IpGenAddr(t);
      } catch (const std::invalid_argument&) {
         fail(field, v.dump() + " is not an IPv4 or IPv6 address");
      }
   }

   L3AdjIdKey adjacency(const Json& v, const std::string& field) const {
      fields(v, field, {"adjId", "type"});
      const uint32_t id = u32(required(v, field, "adjId"), child(field, "adjId"));
      uint32_t type = uint32_t(L3AdjIdKeyType::adjIdTypeEcmp);
      if (const Json* t = member(v, "type")) {
         type = u32(*t, child(field, "type"));
         if (type > uint32_t(L3AdjIdKeyType::adjIdTypeTunnel))
            fail(child(field, "type"), std::to_string(type) +
                                           " is not an adjacency type (0 unknown, 1 ecmp, " +
                                           "2 next hop, 3 tunnel)");
      }
      return {id, L3AdjIdKeyType(type)};
   }

   void chipRead(const Json& doc, Scenario& s) const {
      for (const auto& t : hardwareTableClasses())
         s.tableSizes[std::string(t.name)] = MeridCentral::ChipInfo::defaultTableSize;
      const Json* chip = member(doc, "chip");
      if (!chip) return;
      fields(*chip, "chip", {"testChip", "tableSizes"});
      if (const Json* t = member(*chip, "testChip")) s.testChip = boolean(*t, "chip.testChip");
      const Json* sizes = member(*chip, "tableSizes");
      if (!sizes) return;
      if (!sizes->is_object()) fail("chip.tableSizes", "expected an object, found " + kind(*sizes));
      for (const auto& [name, value] : sizes->items()) {
         const std::string field = "chip.tableSizes." + name;
         auto it = s.tableSizes.find(name);
         if (it == s.tableSizes.end()) {
            if (name == unqualifiedName(MeridL3Tunnel::L3InterfaceTable::typeName))
               fail(field,
                    "the merged table has no rows of its own: size IngL3Iif and "
                    "EgrL3Oif1Table");
            std::vector<std::string> names;
            for (const auto& t : hardwareTableClasses()) names.emplace_back(t.name);
            fail(field, "unknown table name (known: " + listed(names) + ")");
         }
         const uint32_t rows = u32(value, field);
         if (rows == 0 || rows > maxTableSize)
            fail(field, std::to_string(rows) + " rows: a table has 1 to " +
                            std::to_string(maxTableSize) + " rows");
         it->second = rows;
      }
   }

   void togglesRead(const Json& doc, Scenario& s) const {
      s.toggles = knownToggles();
      const Json* toggles = member(doc, "toggles");
      if (!toggles) return;
      if (!toggles->is_object()) fail("toggles", "expected an object, found " + kind(*toggles));
      for (const auto& [name, value] : toggles->items()) {
         auto it = s.toggles.find(name);
         if (it == s.toggles.end()) {
            std::vector<std::string> names;
            for (const auto& [n, v] : knownToggles()) names.push_back(n);
            fail("toggles." + name, "unknown toggle (known: " + listed(names) + ")");
         }
         it->second = boolean(value, "toggles." + name);
      }
   }

   void underlayRead(const Json& doc, Scenario& s) const {
      const Json* underlay = member(doc, "underlay");
      if (!underlay) return;
      if (!underlay->is_array()) fail("underlay", "expected an array, found " + kind(*underlay));
      for (size_t i = 0; i < underlay->size(); ++i) {
         const std::string field = element("underlay", i);
         const L3AdjIdKey key = adjacency((*underlay)[i], field);
         for (const auto& k : s.underlay)
            if (k == key)
               fail(field, "adjacency " + std::to_string(key.adjId()) + " of type " +
                               std::to_string(uint32_t(key.type())) + " is listed twice");
         s.underlay.push_back(key);
      }
   }

   Step stepRead(const Json& v, const Scenario& s, std::set<std::string>& holding) const {
      if (!v.is_object()) fail("", "expected an object, found " + kind(v));
      const Json& op = required(v, "", "op");
      const std::string name = text(op, "op");
      Step step;
      if (name == "program") {
         step.op = Step::Op::program;
         fields(v, "", {"op", "group", "vias"});
         step.group = groupName(v);
         const Json& vias = required(v, "", "vias");
         if (!vias.is_array()) fail("vias", "expected an array, found " + kind(vias));
         uint64_t members = 0;
         for (size_t i = 0; i < vias.size(); ++i) {
            step.vias.push_back(via(vias[i], element("vias", i)));
            members += step.vias.back().weight();
         }
         // Such a block could never be placed, and building it would take long.
         const uint32_t rows = s.tableSize("L3EcmpMember0Table");
         if (members > rows)
            fail("vias", "the weights add up to " + std::to_string(members) +
                             " members, more than the " + std::to_string(rows) +
                             " rows of L3EcmpMember0Table");
         holding.insert(step.group);
      } else if (name == "release") {
         step.op = Step::Op::release;
         fields(v, "", {"op", "group"});
         step.group = groupName(v);
         if (!holding.erase(step.group))
            fail("group", "\"" + step.group +
                              "\" holds no block to release (not programmed since the start, "
                              "the last restart or its last release)");
      } else if (name == "restart") {
         step.op = Step::Op::restart;
         fields(v, "", {"op"});
         holding.clear();
      } else if (name == "reconcile") {
         step.op = Step::Op::reconcile;
         fields(v, "", {"op"});
      } else {
         fail("op", op.dump() + " is not an op (program, release, restart, reconcile)");
      }
      return step;
   }

   std::string groupName(const Json& v) const {
      std::string name = text(required(v, "", "group"), "group");
      if (name.empty()) fail("group", "a group needs a name");
      return name;
   }

   L3TunnelOverlayViaEntry via(const Json& v, const std::string& field) const {
      fields(v, field, {"nhEntryType", "srcIpAddr", "dstIpAddr", "ttl", "weight", "underlayAdjId"});
      L3TunnelOverlayViaEntry e;
      const std::string typeField = child(field, "nhEntryType");
      const std::string type = text(required(v, field, "nhEntryType"), typeField);
      const bool drop = type == "nextHopDrop";
      if (drop)
         e.nhEntryTypeIs(Plx::nextHopDrop());
      else if (type == "nextHopArpResolved")
         e.nhEntryTypeIs(Plx::nextHopArpResolved());
      else
         fail(typeField, "\"" + type + "\" is not nextHopArpResolved or nextHopDrop");
      // A dropping via names no tunnel, so its addresses and underlay may be left out.
      auto field_ = [&](std::string_view name) -> const Json* {
         return drop ? member(v, name) : &required(v, field, name);
      };
      if (const Json* a = field_("srcIpAddr"))
         e.srcIpAddrIs(address(*a, child(field, "srcIpAddr")));
      if (const Json* a = field_("dstIpAddr"))
         e.dstIpAddrIs(address(*a, child(field, "dstIpAddr")));
      e.ttlIs(64);
      if (const Json* t = member(v, "ttl")) e.ttlIs(u32(*t, child(field, "ttl")));
      e.weightIs(1);
      if (const Json* w = member(v, "weight")) e.weightIs(u32(*w, child(field, "weight")));
      if (const Json* a = field_("underlayAdjId"))
         e.underlayAdjIdIs(adjacency(*a, child(field, "underlayAdjId")));
      // The reserved drop next hop owns this key; a tunnel on it would rewrite it.
      if (!drop && MeridL3Tunnel::L3TunnelKey(e.srcIpAddr(), e.dstIpAddr()) ==
                       MeridL3Tunnel::L3TunnelOverlayEcmpProgrammer::getTunnelDropKey())
         fail(field, "0.0.0.0 -> 0.0.0.0 is the reserved drop next hop's key");
      return e;
   }

   std::string file_;
   std::optional<uint32_t> step_;
};

}  // namespace

Scenario scenarioParse(std::string_view text, const std::string& file) {
   // Messages quote the offending value, and quoting recurses: a document
   // nested deeper than any scenario is refused while it is read.
   constexpr int maxDepth = 64;
   auto depthChecked = [&](int depth, Json::parse_event_t, Json&) {
      if (depth > maxDepth)
         throw ScenarioError(file + ": nested deeper than " + std::to_string(maxDepth) + " levels");
      return true;
   };
   Json doc;
   try {
      doc = Json::parse(text, depthChecked);
   } catch (const Json::exception& e) {  // also a number too large to hold
      std::string what = e.what();
      // Drop the library's "[json.exception.parse_error.101] " tag.
      if (const auto close = what.find("] "); what.starts_with("[") && close != std::string::npos)
         what.erase(0, close + 2);
      throw ScenarioError(file + ": malformed JSON: " + what);
   }
   return Reader(file).read(doc);
}

Scenario scenarioRead(const std::string& file) {
   std::ifstream in(file, std::ios::binary);
   if (!in) throw ScenarioError(file + ": cannot read: " + std::strerror(errno));
   std::ostringstream text;
   text << in.rdbuf();
   if (in.bad()) throw ScenarioError(file + ": cannot read: " + std::strerror(errno));
   return scenarioParse(text.str(), file);
}

}  // namespace L3TunnelTool
