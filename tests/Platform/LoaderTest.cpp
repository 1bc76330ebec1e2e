#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "Sidecar/Loader.h"

namespace {

using Sidecar::Core::Loader;

struct Impl : Brio::PtrInterface {
   Impl(std::string tag, std::string_view suffix)
       : text(std::move(tag) + ":" + std::string(suffix)) {}
   std::string text;
};

Loader::Factory factory(std::string tag) {
   return [tag](std::string_view suffix) {
      return Brio::Ptr<Brio::PtrInterface>(new Impl(tag, suffix));
   };
}

// "tag:suffix" of what the loader built, "none" when nothing.
std::string loaded(Brio::Ptr<Brio::PtrInterface> p) {
   if (!p) return "none";
   EXPECT_EQ(p->references(), 1u);
   return dynamic_cast<Impl&>(*p).text;
}
std::string loaded(std::string_view prefix, std::string_view suffix) {
   return loaded(Loader::instance(prefix, suffix));
}

TEST(Loader, ExactBeatsDefaultThenReplaceAndDelete) {
   Loader::implementationIs("Test::P", "X", factory("px"));
   Loader::defaultImplementationIs("Test::P", factory("pdefault"));
   Loader::implementationIs("Test::Q", "X", factory("qx"));
   const struct {
      const char *prefix, *suffix, *want;
   } cases[] = {{"Test::P", "X", "px:X"}, {"Test::P", "Y", "pdefault:Y"}, {"Test::Q", "X", "qx:X"},
                {"Test::Q", "Y", "none"}, {"Test::P::Sub", "X", "none"},  {"Test", "P", "none"}};
   for (const auto& c : cases) EXPECT_EQ(loaded(c.prefix, c.suffix), c.want) << c.prefix;
   EXPECT_NE(Loader::instance("Test::P", "X"), Loader::instance("Test::P", "X"));

   Loader::implementationIs("Test::P", "X", factory("px2"));
   Loader::defaultImplementationIs("Test::P", factory("pdefault2"));
   EXPECT_EQ(loaded("Test::P", "X"), "px2:X");
   Loader::implementationDel("Test::P", "X");
   Loader::implementationDel("Test::P", "Nothing");
   EXPECT_EQ(loaded("Test::P", "X"), "pdefault2:X");
   Loader::defaultImplementationDel("Test::P");
   Loader::defaultImplementationDel("Test::P");
   EXPECT_EQ(loaded("Test::P", "X"), "none");
   EXPECT_EQ(loaded("Test::Q", "X"), "qx:X");
}

}  // namespace
