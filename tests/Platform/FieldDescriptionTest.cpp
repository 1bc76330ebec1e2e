// What an entry's field description derives beyond what the value suite
// checks of every table's value: the parser reads the fields in their printed
// order only, and a row is read field by field.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Asic/DescribedEntry.h"
#include "Orb/BitUInt.h"
#include "SharedL3/DontCareHandle.h"
#include "Wire/IpGenAddr.h"
#include "support/Refusal.h"

namespace {

using HandlePtr = Asic::SwTableBase::EntryHandle::PtrConst;
using SwTableWorkaround::dontCareHandle;

// Every kind of field, a value field before the handle so that a row is read
// past a typed field.
struct Probe : Asic::DescribedEntry<Probe> {
   static constexpr std::string_view typeName = "test::Probe";
   Probe() = default;
   Probe(bool on, HandlePtr target, uint16_t targetIdx, U5 level, const char* addr)
       : on_(on), target_(std::move(target)), targetIdx_(targetIdx), level_(level), addr_(addr) {}
   explicit Probe(Orb::CharRange& r) { fieldsRead(r); }

   bool on_ = false;
   HandlePtr target_;
   uint16_t targetIdx_ = 0;
   U5 level_;
   Wire::IpGenAddr addr_;

   static constexpr auto fields = std::tuple{
       Asic::valueField("on", &Probe::on_), Asic::handleField("target", &Probe::target_),
       Asic::dependentField("targetIdx", &Probe::targetIdx_, &Probe::target_, "test::Named",
                            "test::Other"),
       Asic::valueField("level", &Probe::level_), Asic::valueField("addr", &Probe::addr_)};
};

Probe sample() { return Probe(true, dontCareHandle(1), 7, U5(3), "10.0.0.1"); }

std::string errorOf(const std::string& text) {
   return test::refusal<std::range_error>([&] { Orb::strepToValue<Probe>(text); });
}

std::string replaced(std::string text, const std::string& from, const std::string& to) {
   const auto at = text.find(from);
   EXPECT_NE(at, std::string::npos) << from;
   return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

TEST(FieldDescription, ParserReadsTheFieldsInOrderOnly) {
   const std::string good = sample().rowText();
   struct Case {
      std::string from, to, error;  // the error starts with it
   };
   const std::vector<Case> cases{
       // A bad field's own refusal is the value suite's, for every table's.
       // Two fields swapped: the first is not where the second was expected.
       {"'on': True, 'target': 0x0", "'target': 0x0, 'on': True", "expected \"'on': \""},
       {"'level': 3, 'addr': '10.0.0.1'", "'addr': '10.0.0.1', 'level': 3",
        "expected \", 'level': \""},
       {"'level': 3, ", "", "expected \", 'level': \""},
       {"Value('test::Probe', ** {", "Value('test::Other', ** {",
        "expected \"Value('test::Probe', ** {\" at position 0"},
       {"})", "} )", "expected \"})\""},
   };
   for (const Case& c : cases) {
      const std::string error = errorOf(replaced(good, c.from, c.to));
      EXPECT_EQ(error.rfind(c.error, 0), 0u) << c.to << " -> " << error;
   }
   EXPECT_EQ(errorOf(good + " ").rfind("unexpected trailing text", 0), 0u);
}

// The reader of a dependent field walks the row as the description lays it
// out: the field's raw text, whatever it holds, and nothing for a row of
// another layout.
TEST(FieldDescription, RowReaderFindsTheDependentFieldByItsPlace) {
   std::vector<Asic::RowFieldRead> reads;
   std::vector<std::vector<std::string_view>> named;
   Probe::Fields::forEachDependent([&](const auto& d, Asic::RowFieldRead read) {
      reads.push_back(read);
      named.emplace_back(d.named.begin(), d.named.end());
   });
   ASSERT_EQ(reads.size(), 1u);
   EXPECT_EQ(named[0], (std::vector<std::string_view>{"test::Named", "test::Other"}));
   const std::string row = sample().rowText();
   struct Case {
      std::string from, to;
      std::optional<std::string_view> text;
   };
   const std::vector<Case> cases{
       {"", "", "7"},
       {"'targetIdx': 7", "'targetIdx': 4000000000", "4000000000"},
       {"'targetIdx': 7", "'targetIdx': 1\x1b[31m\n", "1\x1b[31m\n"},
       // A brace ends the field's text as a comma does.
       {"'targetIdx': 7", "'targetIdx': 8}", "8"},
       {"'on': True", "'on': maybe", std::nullopt},
       {"'on': True, 'target'", "'on': True, 'targetIdx': 7, 'target'", std::nullopt},
       {"test::Probe", "test::Other", std::nullopt},
       {"'target': 0x0", "'target': 0x", std::nullopt},
   };
   for (const Case& c : cases) {
      const std::string text = c.from.empty() ? row : replaced(row, c.from, c.to);
      EXPECT_EQ(reads[0](text), c.text) << text;
   }
   EXPECT_EQ(Asic::fieldIndex("4000000000"), 4000000000u);
   for (std::string_view bad : {"", "99999999999", "-1", "1 ", "0x1"})
      EXPECT_FALSE(Asic::fieldIndex(bad)) << bad;
}

}  // namespace
