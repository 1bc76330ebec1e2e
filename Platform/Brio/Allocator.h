#pragma once
// Memory accounting by tag. Containers allocate through `Allocator<T, Tag>` and
// objects derive from `TrackedAllocation<Tag>`, so that the tracker can say how
// many bytes each kind of state holds -- the first question when an agent grows.
// A tag is any type with `static constexpr std::string_view typeName`.
#include <cstddef>
#include <cstdint>
#include <limits>
#include <new>
#include <string_view>

#pragma GCC visibility push(default)
namespace Brio {

class MemoryTracker {
public:
   struct Usage {
      uint64_t bytes = 0;
      uint64_t blocks = 0;  // live allocations (live objects for tracked types)
   };

   // Zero for a tag that never allocated.
   static Usage usage(std::string_view tag);
   static uint64_t bytes(std::string_view tag) { return usage(tag).bytes; }
   static uint64_t blocks(std::string_view tag) { return usage(tag).blocks; }

   static void allocated(std::string_view tag, uint64_t bytes);
   // Freeing more than the tag holds is a broken invariant and stops the process.
   static void freed(std::string_view tag, uint64_t bytes) noexcept;
};

template <class T, class Tag>
class Allocator {
public:
   using value_type = T;
   template <class U>
   struct rebind {
      using other = Allocator<U, Tag>;
   };

   Allocator() noexcept = default;
   template <class U>
   Allocator(const Allocator<U, Tag>&) noexcept {}

   T* allocate(std::size_t n) {
      if (n > std::numeric_limits<std::size_t>::max() / sizeof(T))
         throw std::bad_array_new_length();
      const std::size_t size = n * sizeof(T);
      void* p = ::operator new(size, std::align_val_t(alignof(T)));
      try {
         MemoryTracker::allocated(Tag::typeName, size);
      } catch (...) {
         ::operator delete(p, size, std::align_val_t(alignof(T)));
         throw;
      }
      return static_cast<T*>(p);
   }
   void deallocate(T* p, std::size_t n) noexcept {
      MemoryTracker::freed(Tag::typeName, n * sizeof(T));
      ::operator delete(p, n * sizeof(T), std::align_val_t(alignof(T)));
   }

   // Stateless: any two allocators of a tag free each other's memory.
   template <class U>
   friend bool operator==(const Allocator&, const Allocator<U, Tag>&) noexcept {
      return true;
   }
};

// Class-scope allocation functions that credit the tag with each object's
// size. Objects deleted through a base pointer are debited with their full
// size, because a virtual destructor hands the sized delete the dynamic size.
template <class Tag>
class TrackedAllocation {
public:
   static void* operator new(std::size_t size) {
      void* p = ::operator new(size);
      try {
         MemoryTracker::allocated(Tag::typeName, size);
      } catch (...) {
         ::operator delete(p, size);
         throw;
      }
      return p;
   }
   static void operator delete(void* p, std::size_t size) noexcept {
      MemoryTracker::freed(Tag::typeName, size);
      ::operator delete(p, size);
   }
};

}  // namespace Brio
#pragma GCC visibility pop
