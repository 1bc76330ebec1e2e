// One via chain keeps one copy of its tunnel key: the tunnel, interface and
// next-hop handles made under it share the key's holder.
#include "support/ProgrammerFixture.h"

namespace test {
namespace {

using KeySharing = ProgrammerFixture;

TEST_F(KeySharing, TheHandlesOfOneChainShareTheirTunnelKey) {
   start();
   const HandlePtr group = program({via("10.0.0.1", "10.0.0.2", 1)});
   ASSERT_EQ(group->entryState(), State::success);
   const L3TunnelKey key{addr("10.0.0.1"), addr("10.0.0.2")};
   auto tunnel = v4->entryHandle(key);
   auto next = nh->entryHandle(key);
   ASSERT_TRUE(tunnel && next);
   EXPECT_EQ(&tunnel->key(), &next->key());
   if (expectedToggle()) {
      auto merged = intf->entryHandle(key);
      ASSERT_TRUE(merged);
      EXPECT_EQ(&merged->key(), &tunnel->key());
   } else {
      auto interface = oif->entryHandle(key);
      ASSERT_TRUE(interface);
      EXPECT_EQ(&interface->key(), &tunnel->key());
   }
}

}  // namespace
}  // namespace test
