#include "Brio/EventLoop.h"

namespace Brio {

EventLoop& EventLoop::instance() {
   static EventLoop loop;
   return loop;
}

bool EventLoop::runOne() {
   if (tasks_.empty()) return false;
   Task t = std::move(tasks_.front());
   tasks_.pop_front();
   t();
   return true;
}

uint32_t EventLoop::runUntilIdle() {
   uint32_t n = 0;
   while (runOne()) ++n;
   return n;
}

}  // namespace Brio
