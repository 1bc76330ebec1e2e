#pragma once
// Intrusive reference counting. The count lives in the object; only the bits
// under `refMask` count references, the rest are flags owned by the framework.
#include <atomic>
#include <cstdint>
#include <utility>

#pragma GCC visibility push(default)
namespace Brio {

// Process-wide switch: counts are adjusted atomically only when it is on.
void threadSafePtrIs(bool on);
bool threadSafePtr();

namespace PtrDetail {
// The switch itself (defined with the functions above), read inline: every
// pointer copy adjusts a count, and a call per copy costs more than the add.
extern bool threadSafe;
}  // namespace PtrDetail

class PtrInterface {
public:
   static constexpr uint32_t refMask = 0x5fffffff;
   // Set while the zero-reference handling runs, so that a count that drops to
   // zero again inside the hook does not delete the object under the hook.
   static constexpr uint32_t zeroingFlag = 0x80000000;
   // Free for the owner's use: "one reference is not counted" (a table that
   // keeps a pointer without counting it).
   static constexpr uint32_t uncountedRefFlag = 0x20000000;

   PtrInterface() = default;
   PtrInterface(const PtrInterface&) : refCount_(0) {}
   PtrInterface& operator=(const PtrInterface&) { return *this; }

   uint32_t references() const { return load() & refMask; }
   void newRef() const { add(1); }
   void deleteRef() const {
      if ((add(-1) & refMask) == 0) onZeroReferences();
   }

   bool flag(uint32_t f) const { return (load() & f) != 0; }
   void flagIs(uint32_t f, bool on) const;

protected:
   virtual ~PtrInterface() = default;
   // Called when the count reaches zero; the object is deleted afterwards unless
   // the hook took a reference again.
   virtual void zeroReferencesIs(bool) {}

private:
   uint32_t load() const {
      if (PtrDetail::threadSafe) return loadAtomic();
      return refCount_;
   }
   uint32_t add(int32_t delta) const {
      if (PtrDetail::threadSafe) return addAtomic(delta);
      refCount_ += uint32_t(delta);
      return refCount_;
   }
   uint32_t loadAtomic() const;
   uint32_t addAtomic(int32_t delta) const;
   void onZeroReferences() const;
   mutable uint32_t refCount_ = 0;
};

template <class T>
class Ptr {
public:
   Ptr() = default;
   Ptr(std::nullptr_t) {}
   Ptr(T* p) : p_(p) {
      if (p_) p_->newRef();
   }
   Ptr(const Ptr& o) : Ptr(o.p_) {}
   Ptr(Ptr&& o) noexcept : p_(std::exchange(o.p_, nullptr)) {}
   template <class U>
   Ptr(const Ptr<U>& o) : Ptr(o.ptr()) {}
   template <class U>
   Ptr(Ptr<U>&& o) noexcept : p_(o.release()) {}
   ~Ptr() { reset(); }

   Ptr& operator=(const Ptr& o) {
      Ptr(o).swap(*this);
      return *this;
   }
   Ptr& operator=(Ptr&& o) noexcept {
      Ptr(std::move(o)).swap(*this);
      return *this;
   }

   T* ptr() const { return p_; }
   T* operator->() const { return p_; }
   T& operator*() const { return *p_; }
   explicit operator bool() const { return p_ != nullptr; }

   void reset() {
      if (T* p = std::exchange(p_, nullptr)) p->deleteRef();
   }
   // Hands the reference over to the caller.
   T* release() { return std::exchange(p_, nullptr); }
   void swap(Ptr& o) noexcept { std::swap(p_, o.p_); }

   template <class U>
   friend bool operator==(const Ptr& a, const Ptr<U>& b) {
      return a.ptr() == b.ptr();
   }
   friend bool operator==(const Ptr& a, std::nullptr_t) { return a.p_ == nullptr; }

private:
   T* p_ = nullptr;
};

template <class T, class U>
Ptr<T> ptr_cast(const Ptr<U>& p) {
   return Ptr<T>(static_cast<T*>(p.ptr()));
}

template <class T, class... A>
Ptr<T> makePtr(A&&... a) {
   return Ptr<T>(new T(std::forward<A>(a)...));
}

}  // namespace Brio
#pragma GCC visibility pop
