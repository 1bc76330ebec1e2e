#pragma once
// The project's assert: a broken invariant stops the process with one line,
//   assertion "<expression as written>" failed: <message> (<file>:<line>)
// where the message is whatever was streamed after the macro:
//   ORB_ASSERT(existingKey != newKey) << "new and existing key can't be same";
// Nothing streamed is evaluated while the condition holds.
#include <sstream>
#include <string_view>

#pragma GCC visibility push(default)
namespace Orb {

// For code that builds its message itself. `file` may be a full path; only its
// base name without extension is printed. An empty message prints no ": ".
[[noreturn]] void assertFail(const char* expr, std::string_view message, const char* file,
                             int line);

// Collects the streamed message of a failed ORB_ASSERT; fails when destroyed.
class AssertLine {
public:
   AssertLine(const char* expr, const char* file, int line)
       : expr_(expr), file_(file), line_(line) {}
   AssertLine(const AssertLine&) = delete;
   AssertLine& operator=(const AssertLine&) = delete;
   [[noreturn]] ~AssertLine() { assertFail(expr_, message_.view(), file_, line_); }

   template <class T>
   AssertLine& operator<<(const T& piece) {
      message_ << piece;
      return *this;
   }

private:
   const char* expr_;
   const char* file_;
   int line_;
   std::ostringstream message_;
};

}  // namespace Orb
#pragma GCC visibility pop

#define ORB_ASSERT(cond)                               \
   if (__builtin_expect(static_cast<bool>(cond), 1)) { \
   } else                                              \
      ::Orb::AssertLine(#cond, __FILE__, __LINE__)
