#include "Scenario.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <nlohmann/json.hpp>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <utility>

#include "MeridCentral/ChipInfo.h"
#include "MeridL3Tunnel/L3TunnelOverlayEcmpProgrammer.h"
#include "MeridL3Tunnel/TableCatalogue.h"
#include "Toggle/ToggleState.h"

namespace L3TunnelTool {

using Json = nlohmann::json;
using MeridL3Common::L3AdjIdKey;
using MeridL3Common::L3AdjIdKeyType;
using MeridL3Tunnel::L3TunnelOverlayViaEntry;

const std::vector<TableClass>& hardwareTableClasses() {
   static const std::vector<TableClass> classes = [] {
      std::vector<TableClass> v;
      MeridL3Tunnel::CatalogueHwTables::forEach([&]<class Hw>() {
         v.push_back({unqualifiedName(Hw::typeName), Hw::typeName});
      });
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

std::string printableText(std::string_view text) {
   std::string out;
   out.reserve(text.size());
   auto hex = [&](const char* prefix, unsigned char c) {
      char code[8];
      std::snprintf(code, sizeof code, "%s%02x", prefix, c);
      out += code;
   };
   for (size_t i = 0; i < text.size(); ++i) {
      const auto c = static_cast<unsigned char>(text[i]);
      if (c == '\n') {
         out += "\\n";
      } else if (c == '\t') {
         out += "\\t";
      } else if (c == '\r') {
         out += "\\r";
      } else if (c == '\\') {
         out += "\\\\";
      } else if (c < 0x20 || c == 0x7f) {
         hex("\\x", c);
      } else if (c == 0xc2 && i + 1 < text.size() &&
                 static_cast<unsigned char>(text[i + 1]) >= 0x80 &&
                 static_cast<unsigned char>(text[i + 1]) <= 0x9f) {
         // A C1 control in UTF-8: some terminals take U+009B for an escape.
         hex("\\u00", static_cast<unsigned char>(text[++i]));
      } else {
         out += char(c);
      }
   }
   return out;
}

std::string stepText(const Step& step) {
   std::string out(opName(step.op));
   if (step.op == Step::Op::release) out += " " + printableText(step.group);
   if (step.op == Step::Op::program) {
      uint64_t members = 0;
      for (const auto& v : step.vias) members += v.weight();
      out += " " + printableText(step.group) + " (" + std::to_string(step.vias.size()) +
             (step.vias.size() == 1 ? " via, " : " vias, ") + std::to_string(members) +
             (members == 1 ? " member)" : " members)");
   }
   return out;
}

namespace {
// One line, whatever the names in the file hold.
std::string oneLine(std::string text) {
   for (char& c : text)
      if (static_cast<unsigned char>(c) < 0x20) c = ' ';
   return text;
}

std::string messageOf(const ScenarioError::Where& where, const std::string& fault) {
   std::string out = where.file + ": ";
   if (where.step) out += "step " + std::to_string(*where.step) + ": ";
   if (!where.field.empty()) out += where.field + ": ";
   return oneLine(out + fault);
}
}  // namespace

ScenarioError::ScenarioError(const Where& where, const std::string& fault)
    : std::runtime_error(messageOf(where, fault)), where_(where), fault_(fault) {}

uint32_t Scenario::tableSize(std::string_view name) const {
   auto it = tableSizes.find(name);
   return it == tableSizes.end() ? MeridCentral::ChipInfo::defaultTableSize : it->second;
}

namespace {

using Fields = std::initializer_list<std::string_view>;
constexpr std::string_view topFields[] = {"chip", "toggles", "underlay", "steps"};

// The scenario's toggles: those of the programmer's toggle file.
std::map<std::string, bool, std::less<>> scenarioToggles() {
   std::map<std::string, bool, std::less<>> toggles;
   for (const auto& t : knownToggles)
      if (t.file == toggleFileName) toggles.emplace(t.name, t.defaultState);
   return toggles;
}

template <class Names>
std::string listed(const Names& names) {
   std::string out;
   for (const auto& n : names) out += std::string(out.empty() ? "" : ", ") + std::string(n);
   return out;
}

std::string child(const std::string& parent, std::string_view name) {
   return parent.empty() ? std::string(name) : parent + "." + std::string(name);
}

std::string element(const std::string& parent, size_t index) {
   return parent + "[" + std::to_string(index) + "]";
}

std::string kind(const Json& v) {
   if (v.is_number_integer() || v.is_number_float()) return "a number";
   if (v.is_boolean()) return "a boolean";
   const std::string name = v.type_name();
   return (name == "object" || name == "array" ? "an " : "a ") + name;
}

// How numbers were written where that is not how their value prints (1e3,
// 0.5, -0), by field, so that messages quote the file.
using NumberTexts = std::unordered_map<std::string, std::string>;

// Checks the scenario a piece at a time, in the order the file gives them:
// the chip, the toggles, each underlay entry, each step. The first problem
// stops the reading with a message that says where it is.
class Reader {
public:
   Reader(std::string file, const NumberTexts& numberTexts)
       : file_(std::move(file)), numberTexts_(numberTexts) {
      s_.file = file_;
      for (const auto& t : hardwareTableClasses())
         s_.tableSizes[std::string(t.name)] = MeridCentral::ChipInfo::defaultTableSize;
      s_.toggles = scenarioToggles();
   }

   [[noreturn]] void fail(std::optional<uint32_t> step, const std::string& field,
                          const std::string& what) const {
      throw ScenarioError({file_, step, field}, what);
   }

   void chipRead(const Json& chip) {
      fields(chip, "chip", {"testChip", "tableSizes"});
      if (const Json* t = member(chip, "testChip")) s_.testChip = boolean(*t, "chip.testChip");
      if (const Json* sizes = member(chip, "tableSizes")) tableSizesRead(*sizes);
      // Blocks of the steps read so far can be measured now.
      chipRead_ = true;
      for (const auto& [step, members] : unmeasured_) membersCheck(step, members);
      unmeasured_.clear();
   }

   void togglesRead(const Json& toggles) {
      if (!toggles.is_object()) fail("toggles", "expected an object, found " + kind(toggles));
      for (const auto& [name, value] : toggles.items()) {
         auto it = s_.toggles.find(name);
         if (it == s_.toggles.end()) {
            std::vector<std::string> names;
            for (const auto& [n, v] : scenarioToggles()) names.push_back(n);
            fail("toggles." + name, "unknown toggle (known: " + listed(names) + ")");
         }
         it->second = boolean(value, "toggles." + name);
      }
   }

   void underlayRead(const Json& entry, size_t index) {
      const std::string field = element("underlay", index);
      const L3AdjIdKey key = adjacency(entry, field);
      if (!underlayKeys_.insert(uint64_t(key.adjId()) << 8 | uint64_t(key.type())).second)
         fail(field, "adjacency " + std::to_string(key.adjId()) + " of type " +
                         std::to_string(uint32_t(key.type())) + " is listed twice");
      s_.underlay.push_back(key);
   }

   void stepRead(const Json& v, uint32_t step) {
      step_ = step;
      s_.steps.push_back(stepOf(v));
      step_.reset();
   }

   Scenario done() {
      for (const auto& [step, members] : unmeasured_) membersCheck(step, members);
      unmeasured_.clear();
      return std::move(s_);
   }

private:
   [[noreturn]] void fail(const std::string& field, const std::string& what) const {
      fail(step_, field, what);
   }

   // A value as the file has it.
   std::string quoted(const Json& v, const std::string& field) const {
      if (v.is_number()) {
         if (auto it = numberTexts_.find(field); it != numberTexts_.end()) return it->second;
      }
      return v.dump();
   }

   void fields(const Json& v, const std::string& field, Fields known) const {
      if (!v.is_object()) fail(field, "expected an object, found " + kind(v));
      for (const auto& [name, value] : v.items()) {
         bool ok = false;
         for (auto k : known) ok = ok || k == name;
         if (!ok) fail(child(field, name), "unknown field (known: " + listed(known) + ")");
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
      fail(field, quoted(v, field) + " is not an unsigned 32-bit number");
   }

   bool boolean(const Json& v, const std::string& field) const {
      if (!v.is_boolean()) fail(field, quoted(v, field) + " is not true or false");
      return v.get<bool>();
   }

   std::string text(const Json& v, const std::string& field) const {
      if (!v.is_string()) fail(field, quoted(v, field) + " is not a string");
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

   void tableSizesRead(const Json& sizes) {
      if (!sizes.is_object()) fail("chip.tableSizes", "expected an object, found " + kind(sizes));
      for (const auto& [name, value] : sizes.items()) {
         const std::string field = "chip.tableSizes." + name;
         auto it = s_.tableSizes.find(name);
         if (it == s_.tableSizes.end()) {
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

   // Such a block could never be placed, and building it would take long.
   void membersCheck(uint32_t step, uint64_t members) const {
      const uint32_t rows = s_.tableSize("L3EcmpMember0Table");
      if (members > rows)
         fail(step, "vias",
              "the weights add up to " + std::to_string(members) + " members, more than the " +
                  std::to_string(rows) + " rows of L3EcmpMember0Table");
   }

   Step stepOf(const Json& v) {
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
         // The chip may come later in the file; its size is known at the end.
         if (chipRead_)
            membersCheck(*step_, members);
         else
            unmeasured_.emplace_back(*step_, members);
         holding_.insert(step.group);
      } else if (name == "release") {
         step.op = Step::Op::release;
         fields(v, "", {"op", "group"});
         step.group = groupName(v);
         if (!holding_.erase(step.group))
            fail("group", "\"" + step.group +
                              "\" holds no block to release (not programmed since the start, "
                              "the last restart or its last release)");
      } else if (name == "restart") {
         step.op = Step::Op::restart;
         fields(v, "", {"op"});
         holding_.clear();
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
   const NumberTexts& numberTexts_;
   Scenario s_;
   std::optional<uint32_t> step_;
   bool chipRead_ = false;
   std::vector<std::pair<uint32_t, uint64_t>> unmeasured_;  // step, members
   std::unordered_set<std::string> holding_;                // groups that hold a block
   std::unordered_set<uint64_t> underlayKeys_;
};

// Follows the parser's events. The top-level object is never built: its
// fields are checked as their names come, and its values are handed to the
// Reader a piece at a time (the chip, the toggles, each underlay entry, each
// step), each built as a small document and dropped once read.
class SaxReader final : public nlohmann::json_sax<Json> {
public:
   explicit SaxReader(const std::string& file) : reader_(file, numberTexts_) {}

   Scenario done() { return reader_.done(); }

   bool null() override { return scalar(Json()); }
   bool boolean(bool v) override { return scalar(Json(v)); }
   bool number_integer(number_integer_t v) override {
      // Only a leading minus makes the parser call an integer signed.
      return scalar(Json(v), v == 0 ? "-0" : std::string_view());
   }
   bool number_unsigned(number_unsigned_t v) override { return scalar(Json(v)); }
   bool number_float(number_float_t v, const string_t& text) override {
      return scalar(Json(v), text);
   }
   bool string(string_t& v) override { return scalar(Json(std::move(v))); }
   bool binary(binary_t&) override { return scalar(Json()); }  // not in JSON text
   bool start_object(std::size_t) override { return start(Json::value_t::object); }
   bool start_array(std::size_t) override { return start(Json::value_t::array); }
   bool end_object() override { return end(); }
   bool end_array() override { return end(); }

   bool key(string_t& name) override {
      Frame& f = frames_.back();
      if (!f.keys.insert(name).second) {
         const auto [step, field] = where(frames_.size() - 1);
         reader_.fail(step, field, "duplicate key \"" + name + "\"");
      }
      f.key = name;
      if (frames_.size() == 1) {
         bool known = false;
         for (auto k : topFields) known = known || k == name;
         if (!known) reader_.fail({}, name, "unknown field (known: " + listed(topFields) + ")");
      }
      return true;
   }

   bool parse_error(std::size_t, const std::string&,
                    const nlohmann::detail::exception& e) override {
      std::string what = e.what();
      // Drop the library's "[json.exception.parse_error.101] " tag.
      if (const auto close = what.find("] "); what.starts_with("[") && close != std::string::npos)
         what.erase(0, close + 2);
      reader_.fail({}, "", "malformed JSON: " + what);
   }

private:
   // Messages quote the offending value, and quoting recurses: a document
   // nested deeper than any scenario is refused while it is read.
   static constexpr size_t maxDepth = 64;

   // An object or array being read: its keys so far, and where it stands.
   struct Frame {
      bool object;
      std::string key;     // the current one
      uint64_t index = 0;  // of the current element
      std::unordered_set<std::string> keys;
   };

   bool scalar(Json&& v, std::string_view text = {}) {
      begins(v);
      if (inPiece_) {
         if (!text.empty() && text != v.dump()) numberTexts_[where(frames_.size()).second] = text;
         place(std::move(v));
      }
      ended();
      return true;
   }

   bool start(Json::value_t type) {
      if (frames_.size() > maxDepth)
         reader_.fail({}, "", "nested deeper than " + std::to_string(maxDepth) + " levels");
      Json v(type);
      begins(v);
      if (inPiece_) refs_.push_back(place(std::move(v)));
      frames_.push_back(Frame{type == Json::value_t::object, {}, 0, {}});
      return true;
   }

   bool end() {
      frames_.pop_back();
      if (inPiece_) refs_.pop_back();
      ended();
      return true;
   }

   // A value starts: the document, a top-level field's, an entry of the
   // underlay or the steps, or one inside a piece.
   void begins(const Json& v) {
      if (inPiece_) return;
      if (frames_.empty()) {
         if (!v.is_object()) reader_.fail({}, "", "expected an object, found " + kind(v));
         return;
      }
      if (frames_.size() == 1) {
         const std::string& name = frames_[0].key;
         if (name == "chip" || name == "toggles") return pieceBegins();
         if (!v.is_array()) reader_.fail({}, name, "expected an array, found " + kind(v));
         return;
      }
      pieceBegins();
   }

   void pieceBegins() {
      inPiece_ = true;
      pieceDepth_ = frames_.size();
      piece_ = Json();
      refs_.clear();
      numberTexts_.clear();
   }

   Json* place(Json&& v) {
      if (refs_.empty()) {
         piece_ = std::move(v);
         return &piece_;
      }
      Json& parent = *refs_.back();
      if (parent.is_array()) {
         parent.push_back(std::move(v));
         return &parent.back();
      }
      Json& slot = parent[frames_.back().key];
      slot = std::move(v);
      return &slot;
   }

   void ended() {
      if (inPiece_ && frames_.size() == pieceDepth_) {
         inPiece_ = false;
         pieceRead();
         piece_ = Json();
      }
      if (!frames_.empty() && !frames_.back().object) ++frames_.back().index;
   }

   void pieceRead() {
      const std::string& name = frames_[0].key;
      if (name == "chip") return reader_.chipRead(piece_);
      if (name == "toggles") return reader_.togglesRead(piece_);
      const uint64_t index = frames_[1].index;
      if (name == "underlay") return reader_.underlayRead(piece_, size_t(index));
      reader_.stepRead(piece_, uint32_t(index + 1));
   }

   // The step and the field of the value the first `n` frames lead to, named
   // as the Reader names them.
   std::pair<std::optional<uint32_t>, std::string> where(size_t n) const {
      std::optional<uint32_t> step;
      std::string field;
      for (size_t i = 0; i < n; ++i) {
         const Frame& f = frames_[i];
         if (i == 1 && frames_[0].key == "steps") {
            step = uint32_t(f.index + 1);
            field.clear();
         } else if (f.object) {
            field = child(field, f.key);
         } else {
            field = element(field, size_t(f.index));
         }
      }
      return {step, field};
   }

   NumberTexts numberTexts_;  // of the piece being read
   Reader reader_;
   std::vector<Frame> frames_;
   bool inPiece_ = false;
   size_t pieceDepth_ = 0;
   Json piece_;
   std::vector<Json*> refs_;  // the piece's open objects and arrays
};

class Fd {
public:
   explicit Fd(int fd) : fd_(fd) {}
   ~Fd() {
      if (fd_ >= 0) ::close(fd_);
   }
   Fd(const Fd&) = delete;
   Fd& operator=(const Fd&) = delete;
   int get() const { return fd_; }

private:
   int fd_;
};

}  // namespace

Scenario scenarioParse(std::string_view text, const std::string& file) {
   SaxReader reader(file);
   Json::sax_parse(text, &reader);
   return reader.done();
}

Scenario scenarioRead(const std::string& file) {
   auto fault = [&](const std::string& what) { return ScenarioError({file, {}, {}}, what); };
   auto cannotRead = [&] { return fault(std::string("cannot read: ") + std::strerror(errno)); };
   const Fd fd(::open(file.c_str(), O_RDONLY | O_CLOEXEC));
   if (fd.get() < 0) throw cannotRead();
   struct stat st {};
   if (::fstat(fd.get(), &st) != 0) throw cannotRead();
   if (S_ISDIR(st.st_mode)) throw fault("is a directory");
   const ScenarioError tooLarge =
       fault("larger than " + std::string(maxScenarioText) + ", the largest scenario accepted");
   if (S_ISREG(st.st_mode) && uint64_t(st.st_size) > maxScenarioBytes) throw tooLarge;
   // A pipe or a device tells no size: one byte past the bound is enough to know.
   std::string text;
   if (S_ISREG(st.st_mode)) text.reserve(size_t(st.st_size));
   std::vector<char> buffer(size_t(1) << 16);
   for (;;) {
      const size_t room = size_t(maxScenarioBytes + 1 - text.size());
      const ssize_t n = ::read(fd.get(), buffer.data(), std::min(buffer.size(), room));
      if (n < 0 && errno == EINTR) continue;
      if (n < 0) throw cannotRead();
      if (n == 0) break;
      text.append(buffer.data(), size_t(n));
      if (text.size() > maxScenarioBytes) throw tooLarge;
   }
   return scenarioParse(text, file);
}

}  // namespace L3TunnelTool
