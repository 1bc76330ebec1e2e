#include <gtest/gtest.h>

#include <thread>
#include <utility>
#include <vector>

#include "Brio/Ptr.h"

namespace {

using Brio::Ptr;
using Brio::PtrInterface;
constexpr uint32_t uncounted = PtrInterface::uncountedRefFlag;
constexpr uint32_t zeroing = PtrInterface::zeroingFlag;

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
struct Sub : Obj {};

class PtrTest : public ::testing::Test {
protected:
   void SetUp() override { Obj::destroyed = Obj::hooks = 0; }
};

TEST_F(PtrTest, FlagBitsDoNotCount) {
   for (uint32_t f : {uncounted, zeroing, uncounted | zeroing}) {
      auto p = Brio::makePtr<Obj>();
      p->flagIs(f, true);
      p->newRef();
      p->deleteRef();
      EXPECT_EQ(p->references(), 1u) << f;
      p->flagIs(zeroing, false);
      EXPECT_EQ(p->flag(uncounted), (f & uncounted) != 0) << f;
   }
   // The last reference goes even with the uncounted flag still set.
   EXPECT_EQ(Obj::destroyed, 3);
}

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

TEST_F(PtrTest, CopyMoveAssignCompareConvert) {
   auto a = Brio::makePtr<Sub>();
   Sub* raw = a.ptr();
   Ptr<Sub> b = a;
   Ptr<Sub> c = std::move(b);
   EXPECT_TRUE(b == nullptr);
   Ptr<Sub>& alias = c;
   c = alias;
   c = std::move(alias);
   EXPECT_TRUE(c == a);
   EXPECT_EQ(raw->references(), 2u);
   Ptr<PtrInterface> base = c;
   Ptr<Obj> mid = std::move(c);
   EXPECT_TRUE(base == a && mid == a && !c);
   EXPECT_EQ(Brio::ptr_cast<Sub>(mid).release(), raw);
   raw->deleteRef();
   EXPECT_EQ(raw->references(), 3u);
   auto other = Brio::makePtr<Obj>();
   EXPECT_TRUE(other != mid);
   other = mid;
   EXPECT_EQ(Obj::destroyed, 1);
   a = nullptr, base.reset(), mid.reset();
   EXPECT_EQ(raw->references(), 1u);
   other.reset();
   EXPECT_EQ(Obj::destroyed, 2);
}

TEST_F(PtrTest, ThreadSafeCountingUnderContention) {
   struct Restore {
      bool was = Brio::threadSafePtr();
      ~Restore() { Brio::threadSafePtrIs(was); }
   } restore;
   Brio::threadSafePtrIs(true);
   auto p = Brio::makePtr<Obj>();
   std::vector<std::thread> threads;
   for (int32_t t = 0; t < 3; ++t) {
      threads.emplace_back([&p] {
         for (int32_t i = 0; i < 20000; ++i) p->newRef(), p->deleteRef();
      });
   }
   // Flag updates race with the counting too; neither may lose the other.
   threads.emplace_back([&p] {
      for (int32_t i = 0; i < 20000; ++i) p->flagIs(uncounted, i % 2 == 0);
   });
   for (auto& t : threads) t.join();
   EXPECT_EQ(p->references(), 1u);
   EXPECT_FALSE(p->flag(uncounted));
   Brio::threadSafePtrIs(false);
   EXPECT_FALSE(Brio::threadSafePtr());
   p.reset();
   EXPECT_EQ(Obj::destroyed, 1);
}

}  // namespace
