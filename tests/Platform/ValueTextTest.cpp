#include <gtest/gtest.h>

#include <cstring>
#include <sstream>
#include <string>

#include "Orb/BitUInt.h"
#include "Orb/CharRange.h"
#include "Orb/Hash.h"
#include "Orb/Strep.h"
#include "support/Refusal.h"

namespace {

std::string errorOf(auto&& f) { return test::refusal<std::range_error>(f); }

TEST(CharRange, needStringConsumesExactLiteralOrReportsWhere) {
   Orb::CharRange r("Value('x', ** {})");
   r.needString("Value(");
   EXPECT_EQ(r.position(), 6u);
   EXPECT_EQ(r.peek(), '\'');
   EXPECT_EQ(errorOf([&] { r.needString("'y'"); }),
             "expected \"'y'\" at position 6, found \"'x', ** {})\"");
   EXPECT_EQ(r.position(), 6u);
   // Blanks are literal too, and the excerpt stops at 20 characters.
   Orb::CharRange spaced(" True, 0123456789abcdefghij");
   EXPECT_EQ(errorOf([&] { spaced.needString("True"); }),
             "expected \"True\" at position 0, found \" True, 0123456789abc\"");
   r.advance(100);
   EXPECT_TRUE(r.atEnd());
   EXPECT_EQ(r.peek(), '\0');
}

TEST(Strep, numbersBoolsAndQuotedText) {
   struct Case {
      const char* text;
      uint32_t max;
      const char* error;  // nullptr: the text reads back as its own number
   };
   const Case cases[] = {
       {"4294967295", 0xffffffffu, nullptr},
       {"256", 255, "value 256 out of range (max = 255)"},
       {"4294967296", 0xffffffffu, "value 4294967296 out of range (max = 4294967295)"},
       {"99999999999999999999", 0xffffffffu,
        "value 99999999999999999999 out of range (max = 4294967295)"},
       {"-1", 255, "expected a number at position 0"},
       {" 1", 255, "expected a number at position 0"},
   };
   for (const Case& c : cases) {
      SCOPED_TRACE(c.text);
      Orb::CharRange r(c.text);
      if (c.error) {
         EXPECT_EQ(errorOf([&] { r.readUnsigned(c.max); }), c.error);
      } else {
         EXPECT_EQ(std::to_string(r.readUnsigned(c.max)), c.text);
      }
   }
   EXPECT_EQ(Orb::valueToStrep(uint8_t(200)), "200");
   EXPECT_EQ(errorOf([] { Orb::strepToValue<uint8_t>("256"); }),
             "value 256 out of range (max = 255)");
   EXPECT_EQ(Orb::strepToValue<uint16_t>("65535"), 65535);
   EXPECT_EQ(errorOf([] { Orb::strepToValue<uint32_t>("12 "); }),
             "unexpected trailing text at position 2");

   Orb::CharRange b("TrueFalsetrue");
   EXPECT_TRUE(b.readBool());
   EXPECT_FALSE(b.readBool());
   EXPECT_EQ(errorOf([&] { b.readBool(); }),
             "expected \"True\" or \"False\" at position 9, found \"true\"");
   EXPECT_EQ(Orb::valueToStrep(false), "False");

   for (const std::string s : {"", "it's", "back\\slash", "'\\'"}) {
      SCOPED_TRACE(s);
      EXPECT_EQ(Orb::strepToValue<std::string>(Orb::valueToStrep(s)), s);
   }
   EXPECT_THROW(Orb::strepToValue<std::string>("bare"), std::range_error);
   EXPECT_EQ(errorOf([] { Orb::strepToValue<std::string>("'x}"); }),
             "unterminated quoted text starting at position 0");
}

TEST(BitUInt, rangeIsCheckedOnEveryWayIn) {
   EXPECT_EQ(U5(31).value(), 31);
   EXPECT_EQ(errorOf([] { U5(32); }), "U5: value 32 out of range (max = 31)");
   EXPECT_EQ(errorOf([] { U2(4); }), "U2: value 4 out of range (max = 3)");
   U2 v(3);
   EXPECT_THROW(v.valueIs(4), std::range_error);
   EXPECT_EQ(v.value(), 3);
   EXPECT_EQ(errorOf([] { Orb::strepToValue<U5>("40"); }), "U5: value 40 out of range (max = 31)");
   EXPECT_EQ(Orb::strepToValue<U5>(Orb::valueToStrep(U5(17))), U5(17));
   EXPECT_LT(U5(3), U5(4));
   std::ostringstream os;
   os << U5(9);
   EXPECT_EQ(os.str(), "9");
}

TEST(Hash, matchesMurmur3ReferenceVectors) {
   struct Case {
      const char* text;
      uint32_t seed;
      uint32_t expected;
   };
   // Published MurmurHash3_x86_32 values: a wrong constant, rotation or tail
   // order changes them.
   const Case cases[] = {
       {"", 0, 0},
       {"", 1, 0x514e28b7u},
       {"test", 0, 0xba6bd213u},
       {"Hello, world!", 1234, 0xfaf6cdb3u},
       {"The quick brown fox jumps over the lazy dog", 0, 0x2e4ff723u},
   };
   for (const Case& c : cases) {
      SCOPED_TRACE(c.text);
      EXPECT_EQ(Orb::Hash(c.seed).mixBytes(c.text, std::strlen(c.text)).result(), c.expected);
   }
   EXPECT_EQ(Orb::hashSingleAttr(0x74736574u, 0), 0xba6bd213u);  // "test" as one word
   EXPECT_NE(Orb::hashSingleAttr(1, 0), Orb::hashSingleAttr(1, 1));
}

}  // namespace
