#pragma once
// A kernel namespace for a GoogleTest test:
//   if (!support::kernelNamespaceReady()) GTEST_SKIP();
// Where none can be made the test is skipped (the reason said once per
// process), or, where one is required (CI sets L3TUNNEL_REQUIRE_NETNS=1),
// failed.
#include <gtest/gtest.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "support/KernelNamespace.h"

namespace support {

inline bool kernelNamespaceReady() {
   const std::string why = kernelNamespaceIs();
   if (why.empty()) return true;
   if (const char* required = std::getenv("L3TUNNEL_REQUIRE_NETNS");
       required && std::string(required) == "1") {
      ADD_FAILURE() << why;
      return false;
   }
   static bool said = false;
   if (!said) std::cerr << "kernel tests skipped: " << why << "\n";
   said = true;
   return false;
}

}  // namespace support
