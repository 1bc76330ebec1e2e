// The counted pointer's zero-reference hook: it may take the object up again,
// and a nested drop to zero inside it deletes the object once.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "Brio/Ptr.h"

namespace {

using Brio::Ptr;
using Brio::PtrInterface;

// Counted outside the object: it may be gone when we look.
struct Obj : PtrInterface {
   static inline int32_t destroyed = 0, hooks = 0;
   bool nest = false;         // the hook drops to zero once more inside itself
   Ptr<Obj>* keep = nullptr;  // the hook resurrects the object into this, once
   ~Obj() override { ++destroyed; }
   void zeroReferencesIs(bool) override {
      ++hooks;
      if (std::exchange(nest, false)) newRef(), deleteRef();
      if (keep) *std::exchange(keep, nullptr) = Ptr<Obj>(this);
   }
};

class PtrTest : public ::testing::Test {
protected:
   void SetUp() override { Obj::destroyed = Obj::hooks = 0; }
};

TEST_F(PtrTest, ZeroHookResurrectsAndNestedZeroDeletesOnce) {
   const struct {
      bool nest, keep;
      int32_t hooks;
   } cases[] = {{false, false, 1}, {false, true, 1}, {true, false, 2}, {true, true, 2}};
   for (const auto& c : cases) {
      SCOPED_TRACE(::testing::Message() << "nest " << c.nest << " keep " << c.keep);
      SetUp();
      Ptr<Obj> keeper;
      auto p = Brio::makePtr<Obj>();
      p->nest = c.nest;
      if (c.keep) p->keep = &keeper;
      p.reset();
      EXPECT_EQ(Obj::hooks, c.hooks);
      EXPECT_EQ(Obj::destroyed, c.keep ? 0 : 1);
      if (!c.keep) continue;
      ASSERT_TRUE(keeper);
      EXPECT_EQ(keeper->references(), 1u);
      keeper.reset();
      EXPECT_EQ(Obj::hooks, c.hooks + 1);
      EXPECT_EQ(Obj::destroyed, 1);
   }
}

}  // namespace
