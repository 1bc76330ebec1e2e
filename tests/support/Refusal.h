#pragma once
// What a call refuses with, for tests of error texts (no gtest here).
#include <string>

namespace test {

// The text of the `E` that `f` throws; "accepted" when it throws nothing.
// Any other exception goes on up and fails the test.
template <class E, class F>
std::string refusal(F&& f) {
   try {
      f();
   } catch (const E& e) {
      return e.what();
   }
   return "accepted";
}

inline bool startsWith(const std::string& text, const std::string& prefix) {
   return text.rfind(prefix, 0) == 0;
}

}  // namespace test
