#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Brio/Publisher.h"

namespace {

using Brio::Publisher;

struct OtherKey {
   static constexpr std::string_view typeName = "Test::OtherKey";
};

struct Rec : Brio::Notifiee {
   Rec(std::string* log, std::string name) : log(log), name(std::move(name)) {}
   std::string* log;
   std::string name;
   std::function<void()> once;  // runs on the first change heard
   Brio::KeyRef lastKey;
   void onAttribute(Brio::AttrId attr, Brio::KeyRef key) override {
      *log += (log->empty() ? "" : " ") + name + std::to_string(attr);
      lastKey = key;
      // Moved out first: the action may destroy this notifiee.
      if (auto f = std::exchange(once, nullptr)) f();
   }
};

// a, b and c listen to one publisher; d is spare.
struct World {
   std::string log;
   std::unique_ptr<Publisher> pub = std::make_unique<Publisher>();
   std::unique_ptr<Rec> a = rec("a", pub.get()), b = rec("b", pub.get()), c = rec("c", pub.get()),
                        d = rec("d", nullptr);
   std::unique_ptr<Rec> rec(const char* n, Publisher* p) {
      auto r = std::make_unique<Rec>(&log, n);
      r->notifierIs(p);
      return r;
   }
   std::string round() {
      log.clear();
      if (pub) pub->notify(1);
      return log;
   }
};

TEST(Publisher, ReentrantChangesDuringDelivery) {
   using W = World&;
   // What b does on hearing the first change; what is heard then and next time.
   const struct {
      const char* what;
      std::function<void(World&)> act;
      const char *first, *second;
      uint32_t notifiees;
   } cases[] = {
       {"detach self", [](W w) { w.b->notifierIs(nullptr); }, "a1 b1 c1", "a1 c1", 2},
       {"detach later one", [](W w) { w.c->notifierIs(nullptr); }, "a1 b1", "a1 b1", 2},
       {"detach earlier one", [](W w) { w.a->notifierIs(nullptr); }, "a1 b1 c1", "b1 c1", 2},
       {"destroy self", [](W w) { w.b.reset(); }, "a1 b1 c1", "a1 c1", 2},
       {"destroy later one", [](W w) { w.c.reset(); }, "a1 b1", "a1 b1", 2},
       {"zombie later one", [](W w) { w.c->zombieIs(true); }, "a1 b1", "a1 b1", 3},
       {"attach new", [](W w) { w.d->notifierIs(w.pub.get()); }, "a1 b1 c1", "a1 b1 c1 d1", 4},
       {"re-attach self", [](W w) { w.b->notifierIs(nullptr), w.b->notifierIs(w.pub.get()); },
        "a1 b1 c1", "a1 c1 b1", 3},
       {"all leave", [](W w) { w.a.reset(), w.b->notifierIs(nullptr), w.c.reset(); }, "a1 b1", "",
        0},
       {"nested change", [](W w) { w.pub->notify(2); }, "a1 b1 a2 b2 c2 c1", "a1 b1 c1", 3},
       {"attach, nested change", [](W w) { w.d->notifierIs(w.pub.get()), w.pub->notify(2); },
        "a1 b1 a2 b2 c2 d2 c1", "a1 b1 c1 d1", 4},
       {"destroy publisher", [](W w) { w.pub.reset(); }, "a1 b1", "", 0},
       {"destroy publisher in nested change",
        [](W w) { w.c->once = [&w] { w.pub.reset(); }, w.pub->notify(2); }, "a1 b1 a2 b2 c2", "",
        0},
   };
   for (const auto& c : cases) {
      SCOPED_TRACE(c.what);
      World w;
      w.b->once = [&w, act = c.act] { act(w); };
      EXPECT_EQ(w.round(), c.first);
      EXPECT_EQ(w.round(), c.second);
      EXPECT_EQ(w.pub ? w.pub->notifiees() : 0u, c.notifiees);
      if (!w.pub) {
         EXPECT_EQ(w.a->notifier(), nullptr);
         continue;
      }
      // The list must still work after a delivery reshaped it.
      w.d->notifierIs(w.pub.get());
      EXPECT_TRUE(w.round().ends_with("d1"));
   }
}

}  // namespace
