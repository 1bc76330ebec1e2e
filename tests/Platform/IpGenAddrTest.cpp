#include <gtest/gtest.h>

#include "Orb/Strep.h"
#include "Wire/IpGenAddr.h"
#include "support/Refusal.h"

namespace {

using Wire::AddressFamily;
using Wire::IpGenAddr;

TEST(IpGenAddr, parsesAndPrintsCanonically) {
   struct Case {
      const char* text;
      AddressFamily family;
      const char* canonical;
   };
   const Case cases[] = {
       {"10.0.0.1", AddressFamily::ipv4, "10.0.0.1"},
       {"0.0.0.0", AddressFamily::ipv4, "0.0.0.0"},
       {"255.255.255.255", AddressFamily::ipv4, "255.255.255.255"},
       {"", AddressFamily::unspecified, ""},
       {"::", AddressFamily::ipv6, "::"},
       {"::1", AddressFamily::ipv6, "::1"},
       {"1::", AddressFamily::ipv6, "1::"},
       {"2001:DB8:0:0:0:0:0:1", AddressFamily::ipv6, "2001:db8::1"},
       {"2001:0db8:0000:0000:0001:0000:0000:0001", AddressFamily::ipv6, "2001:db8::1:0:0:1"},
       {"2001:db8:0:1:1:1:1:1", AddressFamily::ipv6, "2001:db8:0:1:1:1:1:1"},
       {"1:0:0:2:0:0:0:3", AddressFamily::ipv6, "1:0:0:2::3"},
       {"1:2:3:4:5:6:7::", AddressFamily::ipv6, "1:2:3:4:5:6:7:0"},
       {"::2:3:4:5:6:7:8", AddressFamily::ipv6, "0:2:3:4:5:6:7:8"},
       {"0:0:1:0:0:0:0:0", AddressFamily::ipv6, "0:0:1::"},
       {"::ffff:1.2.3.4", AddressFamily::ipv6, "::ffff:102:304"},
       {"1:2:3:4:5:6:10.0.0.1", AddressFamily::ipv6, "1:2:3:4:5:6:a00:1"},
   };
   for (const Case& c : cases) {
      SCOPED_TRACE(c.text);
      const IpGenAddr a(c.text);
      EXPECT_EQ(a.family(), c.family);
      EXPECT_EQ(a.stringValue(), c.canonical);
      EXPECT_EQ(IpGenAddr(a.stringValue()), a);
      const std::string strep = Orb::valueToStrep(a);
      EXPECT_EQ(strep, std::string("'").append(c.canonical).append("'"));
      EXPECT_EQ(Orb::strepToValue<IpGenAddr>(strep), a);
   }
}

TEST(IpGenAddr, rejectsMalformedText) {
   for (const char* text : {"010.0.0.1",
                            "256.0.0.1",
                            "1.2.3",
                            "1.2.3.4.5",
                            "1.2.3.4 ",
                            " 1.2.3.4",
                            "1..2.3",
                            "a.b.c.d",
                            "1.2.3.-4",
                            ":",
                            ":::",
                            "1:::2",
                            "1::2::3",
                            ":1::",
                            "1:2:3:4:5:6:7",
                            "1:2:3:4:5:6:7:8:9",
                            "1::2:3:4:5:6:7:8",
                            "12345::",
                            "g::",
                            "::1%eth0",
                            "[::1]",
                            "1.2.3.4::",
                            "::1.2.3.4:5",
                            "1:2:3:4:5:6:7:1.2.3.4"}) {
      EXPECT_EQ(test::refusal<std::invalid_argument>([&] { (void)IpGenAddr(text); }),
                "invalid IP address: '" + std::string(text) + "'");
   }
   const std::string what =
       test::refusal<std::range_error>([] { Orb::strepToValue<IpGenAddr>("'10.0.0.256'"); });
   EXPECT_NE(what.find("'10.0.0.256'"), std::string::npos) << what;
   EXPECT_THROW(Orb::strepToValue<IpGenAddr>("10.0.0.1"), std::range_error);
}

}  // namespace
