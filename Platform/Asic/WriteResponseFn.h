#pragma once
// The callable an entry value may carry to hear how its programming ended.
// One counted pointer wide, so entries that carry none stay small.
#include <functional>
#include <type_traits>
#include <utility>

#include "Asic/SwTableBase.h"
#include "Brio/Ptr.h"

#pragma GCC visibility push(default)
namespace Asic {

class WriteResponseFn {
public:
   using State = SwTableBase::EntryState;

   WriteResponseFn() = default;
   template <class F>
   requires(std::is_invocable_v<F, State> && !std::is_same_v<std::decay_t<F>, WriteResponseFn>)
       WriteResponseFn(F&& f)
       : impl_(new Impl(std::function<void(State)>(std::forward<F>(f)))) {}

   explicit operator bool() const { return impl_ && impl_->fn; }
   void operator()(State s) const {
      if (*this) impl_->fn(s);
   }
   // The same callable, not an equal one: callables have no value equality.
   friend bool operator==(const WriteResponseFn& a, const WriteResponseFn& b) {
      return a.impl_ == b.impl_;
   }

private:
   struct Impl : Brio::PtrInterface {
      explicit Impl(std::function<void(State)> f) : fn(std::move(f)) {}
      std::function<void(State)> fn;
   };
   Brio::Ptr<Impl> impl_;
};

}  // namespace Asic
#pragma GCC visibility pop
