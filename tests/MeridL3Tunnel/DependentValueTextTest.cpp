// Values that name another table's entry by its handle: their text form, and
// how the handle and the derived index take part in comparison and writes.
#include <gtest/gtest.h>

#include <functional>
#include <sstream>

#include "Orb/Strep.h"
#include "Orb/Trace.h"
#include "support/InvariantChecker.h"
#include "support/SimFixture.h"

namespace test {
namespace {

struct BadField {
   std::string from, to, field;
};

struct OifKind {
   using Entry = Oif::Entry;
   static constexpr bool nextHop = false;
   static constexpr const char* handleField = "tunnelIdxHandle";
   static constexpr const char* indexField = "tunnelIdx";
   static Entry sample(HandlePtr h) { return Entry(std::move(h), 7, 10, U5(3)); }
   static Entry bare(HandlePtr h) { return Entry(std::move(h), 0, 0, U5()); }
   static std::string text(const std::string& handle) {
      return "Value('MeridL3Tunnel::L3TunnelEgrL3Oif1Table::Entry', ** {'tunnelIdxHandle': " +
             handle + ", 'tunnelIdx': 7, 'ttlThreshold': 10, 'strengthPrflIndex': 3})";
   }
   static uint16_t index(const Entry& e) { return e.tunnelIdx(); }
   static void indexIs(Entry& e, uint16_t i) { e.tunnelIdxIs(i); }
   // Each raises one field of `sample`, in declaration order.
   static std::vector<std::function<void(Entry&)>> raises() {
      return {[](Entry& e) { e.ttlThresholdIs(11); },
              [](Entry& e) { e.strengthPrflIndexIs(U5(4)); }};
   }
   static std::vector<BadField> badFields() {
      return {{"'tunnelIdx': 7", "'tunnelIdx': 65536", "tunnelIdx"},
              {"'ttlThreshold': 10", "'ttlThreshold': 256", "ttlThreshold"},
              {"'strengthPrflIndex': 3", "'strengthPrflIndex': 32", "strengthPrflIndex"}};
   }
};

struct NhKind {
   using Entry = Nh::Entry;
   static constexpr bool nextHop = true;
   static constexpr const char* handleField = "l3Oif1Handle";
   static constexpr const char* indexField = "l3Oif1";
   static Entry sample(HandlePtr h) { return Entry(std::move(h), 7, false, U5(3), U2(1)); }
   static Entry bare(HandlePtr h) { return Entry(std::move(h), 0, false, U5(), U2()); }
   static std::string text(const std::string& handle) {
      return "Value('MeridL3Tunnel::L3TunnelIngL3NextHopTable::Entry', ** {'l3Oif1Handle': " +
             handle + ", 'l3Oif1': 7, 'drop': False, 'strengthProfileIdx': 3, 'viewType': 1})";
   }
   static uint16_t index(const Entry& e) { return e.l3Oif1(); }
   static void indexIs(Entry& e, uint16_t i) { e.l3Oif1Is(i); }
   static std::vector<std::function<void(Entry&)>> raises() {
      return {[](Entry& e) { e.dropIs(true); }, [](Entry& e) { e.strengthProfileIdxIs(U5(4)); },
              [](Entry& e) { e.viewTypeIs(U2(2)); }};
   }
   static std::vector<BadField> badFields() {
      return {{"'l3Oif1': 7", "'l3Oif1': 65536", "l3Oif1"},
              {"'drop': False", "'drop': false", "drop"},
              {"'strengthProfileIdx': 3", "'strengthProfileIdx': 32", "strengthProfileIdx"},
              {"'viewType': 1", "'viewType': 4", "viewType"}};
   }
};

template <class K>
class DependentValueText : public SimFixture {
protected:
   using Entry = typename K::Entry;
   void SetUp() override {
      SimFixture::SetUp();
      makeChainTables();
   }
   // The live handle a value of this kind names for key `n`, programmed.
   HandlePtr needed(uint32_t n) {
      HandlePtr t = v4->entryRef(tunnelKey(n), tunnelEntry<V4>(tunnelKey(n)));
      runLoop();
      if constexpr (!K::nextHop) return t;
      HandlePtr o = oif->entryRef(tunnelKey(n), oifEntry(t));
      runLoop();
      return o;
   }
   auto& table() {
      if constexpr (K::nextHop)
         return *nh;
      else
         return *oif;
   }
   static std::string addressText(const void* p) {
      std::ostringstream os;
      os << "0x" << std::hex << reinterpret_cast<uintptr_t>(p);
      return os.str();
   }
   static std::string errorOf(const std::string& text) {
      try {
         Orb::strepToValue<Entry>(text);
      } catch (const std::range_error& e) {
         return e.what();
      }
      return "accepted";
   }
};
using Kinds = ::testing::Types<OifKind, NhKind>;
TYPED_TEST_SUITE(DependentValueText, Kinds);

TYPED_TEST(DependentValueText, PrintsTheHandleAddressAndParsesBackWhileItLives) {
   using Entry = typename TestFixture::Entry;
   const HandlePtr h = this->needed(1);
   auto e = TypeParam::sample(h);
   e.writeResponseFnIs([](State) {});
   EXPECT_EQ(e.stringValue(), TypeParam::text(this->addressText(h.ptr())));
   EXPECT_EQ(TypeParam::sample(nullptr).stringValue(), TypeParam::text("0x0"));
   for (const Entry& v : {e, TypeParam::sample(nullptr), Entry()}) {
      const auto parsed = Orb::strepToValue<Entry>(v.stringValue());
      EXPECT_TRUE(Entry::isEq(parsed, v)) << v;
      EXPECT_EQ(parsed.neededEntryHandle().ptr(), v.neededEntryHandle().ptr());
      EXPECT_EQ(TypeParam::index(parsed), TypeParam::index(v)) << "the index is in the text";
      EXPECT_FALSE(parsed.writeResponseFn());
   }
   // A row shows no software handle but keeps the index the hardware uses.
   EXPECT_EQ(e.rowText(), TypeParam::text("0x0"));
   EXPECT_EQ(e.neededEntryHandle(), h) << "printing the row leaves the value alone";
}

TYPED_TEST(DependentValueText, HandleThatNoLongerLivesIsRefusedNamingTheField) {
   const auto k = tunnelKey(2);
   HandlePtr h = this->needed(2);
   const std::string text = TypeParam::sample(h).stringValue();
   h.reset();  // the last reference: the named entry and its handle go
   for (int i = 0; i < 3; ++i) this->runLoop();
   ASSERT_FALSE(this->oif->entryHandle(k));
   ASSERT_FALSE(this->v4->entryHandle(k));
   const std::string error = this->errorOf(text);
   EXPECT_EQ(error.rfind(std::string(TypeParam::handleField) + ": ", 0), 0u) << error;
}

TYPED_TEST(DependentValueText, BadFieldsAndLiteralsAreRefused) {
   const HandlePtr named = this->needed(1);  // lives through the test: its address is in the text
   const std::string good = TypeParam::sample(named).stringValue();
   auto edit = [&](const std::string& from, const std::string& to) {
      std::string s = good;
      s.replace(s.find(from), from.size(), to);
      return s;
   };
   auto cases = TypeParam::badFields();
   const std::string handle = this->addressText(named.ptr());
   cases.push_back({handle, "0xg", TypeParam::handleField});
   cases.push_back({handle, "(nil)", TypeParam::handleField});
   for (auto& c : cases) {
      const std::string error = this->errorOf(edit(c.from, c.to));
      EXPECT_EQ(error.rfind(c.field + ": ", 0), 0u) << c.to << " -> " << error;
   }
   const std::string index = std::string("'") + TypeParam::indexField + "': ";
   for (auto [from, to] :
        std::vector<std::pair<std::string, std::string>>{{"** {", "**{"},
                                                         {", " + index, "," + index},
                                                         {index, index + " "},
                                                         {"})", "} )"},
                                                         {"Value('", "Value(\""},
                                                         {"::Entry'", "::Entry '"}}) {
      EXPECT_NE(this->errorOf(edit(from, to)), "accepted") << to;
   }
   EXPECT_NE(this->errorOf(good + " "), "accepted");
   using Other = std::conditional_t<TypeParam::nextHop, OifKind, NhKind>;
   EXPECT_NE(this->errorOf(Other::sample(nullptr).stringValue()), "accepted");
}

// Fails: the address reader does not check for overflow, so an address wider
// than a pointer wraps around onto the live handle it ends with.
TYPED_TEST(DependentValueText, AddressWiderThanAPointerIsRefused) {
   const HandlePtr h = this->needed(1);
   const std::string handle = this->addressText(h.ptr());
   const std::string digits = handle.substr(2);
   const std::string wide =
       "0x1" + std::string(sizeof(uintptr_t) * 2 - digits.size(), '0') + digits;
   std::string text = TypeParam::sample(h).stringValue();
   text.replace(text.find(handle), handle.size(), wide);
   const std::string error = this->errorOf(text);
   EXPECT_EQ(error.rfind(std::string(TypeParam::handleField) + ": ", 0), 0u) << error;
}

TYPED_TEST(DependentValueText, IndexAndCallbackAreNoPartOfTheValueNorItsTruth) {
   using Entry = typename TestFixture::Entry;
   Entry onlyIndex;
   TypeParam::indexIs(onlyIndex, 5);
   EXPECT_FALSE(bool(Entry()) || bool(onlyIndex));
   const auto k = tunnelKey(1);
   // Two handles of one tunnel key: the value tells them apart by identity.
   const HandlePtr a = this->v4->entryRef(k, tunnelEntry<V4>(k));
   const HandlePtr b = this->v6->entryRef(k, tunnelEntry<V6>(k));
   auto x = TypeParam::sample(a), y = TypeParam::sample(a);
   TypeParam::indexIs(y, 9);
   y.writeResponseFnIs([](State) {});
   EXPECT_TRUE(Entry::isEq(x, y));
   EXPECT_FALSE(x < y || y < x);
   auto z = TypeParam::sample(b);
   EXPECT_FALSE(Entry::isEq(x, z));
   EXPECT_NE(x < z, z < x);
   EXPECT_TRUE(bool(TypeParam::bare(a))) << "the handle alone";

   // The handle address decides before every other field, then the fields in order.
   const bool aFirst = std::less<>()(a.ptr(), b.ptr());
   auto lo = TypeParam::sample(aFirst ? a : b), hi = TypeParam::sample(aFirst ? b : a);
   for (auto& raise : TypeParam::raises()) raise(lo);
   EXPECT_TRUE(lo < hi);
   EXPECT_FALSE(hi < lo);
   const auto raises = TypeParam::raises();
   for (size_t i = 0; i < raises.size(); ++i) {
      auto up = TypeParam::sample(a);
      raises[i](up);
      EXPECT_TRUE(TypeParam::sample(a) < up) << "field " << i;
      EXPECT_FALSE(Entry::isEq(TypeParam::sample(a), up)) << "field " << i;
      Entry one;
      raises[i](one);
      EXPECT_TRUE(bool(one)) << "field " << i << " alone";
      for (size_t j = i + 1; j < raises.size(); ++j) {
         auto later = TypeParam::sample(a);
         raises[j](later);
         EXPECT_TRUE(later < up) << "field " << i << " decides before field " << j;
      }
   }
}

// A rewrite that differs only in the derived index is the value already
// programmed: no new resolution and no hardware write.
TYPED_TEST(DependentValueText, RewriteDifferingOnlyInTheIndexKeepsTheProgrammedValue) {
   const HandlePtr needed = this->needed(1);
   auto& t = this->table();
   auto h = t.entryCommit(tunnelKey(3), TypeParam::sample(needed));
   this->runLoop();
   ASSERT_EQ(h->entryState(), State::success);
   const auto programmed = *t.resolvedEntry(tunnelKey(3));
   const uint16_t index = TypeParam::index(programmed);
   EXPECT_EQ(index, Asic::SwTableBase::getHwIndexForDependentField(*needed));
   const auto writes = this->stats(t.name()).writes;

   Orb::TraceCapture trace("MeridL3Tunnel::*/9");
   auto again = TypeParam::sample(needed);
   TypeParam::indexIs(again, uint16_t(index + 40));
   EXPECT_EQ(t.entryCommit(tunnelKey(3), again), h);
   this->runLoop();
   int found = 0;
   for (auto& l : trace.lines())
      found += l.find(" : Found already existing resolved entry at key : ") != std::string::npos;
   EXPECT_EQ(found, 1);
   EXPECT_EQ(this->stats(t.name()).writes, writes);
   EXPECT_FALSE(t.unresolvedEntry(tunnelKey(3)));
   EXPECT_EQ(TypeParam::index(*t.resolvedEntry(tunnelKey(3))), index);
   EXPECT_EQ(h->entryState(), State::success);
   auto v = InvariantChecker(*this->chip)
                .table(*this->v4)
                .table(*this->oif)
                .table(*this->nh)
                .violations();
   EXPECT_EQ(v, Lines{});
}

}  // namespace
}  // namespace test
