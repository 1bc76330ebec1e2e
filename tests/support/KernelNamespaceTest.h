#pragma once
// A kernel namespace for a GoogleTest test:
//   if (!support::kernelNamespaceReady()) GTEST_SKIP();
// Where none can be made the test is skipped (the reason said once per
// process), or, where one is required (CI), failed.
#include <gtest/gtest.h>

#include <iostream>
#include <string>

#include "support/KernelNamespace.h"

namespace support {

inline bool kernelNamespaceReady() {
   const std::string why = kernelNamespaceIs();
   if (why.empty()) return true;
   if (kernelNamespaceRequired()) {
      ADD_FAILURE() << why;
      return false;
   }
   static bool said = false;
   if (!said) std::cerr << "kernel tests skipped: " << why << "\n";
   said = true;
   return false;
}

}  // namespace support
