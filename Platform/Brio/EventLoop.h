#pragma once
// The agent's single-threaded event loop: asynchronous inputs (hardware write
// responses) are queued here and delivered one at a time, in order, when the
// agent runs the loop.
#include <cstdint>
#include <deque>
#include <functional>

#pragma GCC visibility push(default)
namespace Brio {

class EventLoop {
public:
   using Task = std::function<void()>;

   static EventLoop& instance();

   void post(Task t) { tasks_.push_back(std::move(t)); }
   bool runOne();
   // Runs until no task is left, including tasks posted by the tasks it runs.
   uint32_t runUntilIdle();
   uint32_t pending() const { return uint32_t(tasks_.size()); }
   void clear() { tasks_.clear(); }

private:
   std::deque<Task> tasks_;
};

}  // namespace Brio
#pragma GCC visibility pop
