#pragma once
// A FIFO of blocks that double in size (2, 4, ... up to 8192 elements), so a
// queue that is nearly always empty costs one pointer, and a long one does not
// move its elements when it grows. Elements are addressed by a running
// position that keeps counting across dequeues and starts again at 0 once the
// queue has been empty.
#include <cstdint>
#include <new>
#include <utility>

#include "Orb/Assert.h"

#pragma GCC visibility push(default)
namespace Brio {

constexpr bool isPowerOfTwo(uint32_t i) { return i != 0 && (i & (i - 1)) == 0; }

template <class T>
class RQueue {
public:
   static constexpr uint32_t firstBlockCapacity = 2;
   static constexpr uint32_t maxBlockCapacity = 8192;

   RQueue() = default;
   RQueue(const RQueue& o) {
      for (uint32_t p = o.firstPosition(); p < o.endPosition(); ++p) enq(*o.find(p));
   }
   RQueue& operator=(const RQueue& o) {
      if (this != &o) {
         RQueue copy(o);
         std::swap(s_, copy.s_);
      }
      return *this;
   }
   ~RQueue() { delAll(); }

   uint32_t size() const { return s_ ? s_->count : 0; }
   bool empty() const { return size() == 0; }
   uint32_t firstPosition() const { return s_ ? s_->first : 0; }
   uint32_t endPosition() const { return firstPosition() + size(); }

   // Appends a copy; returns its running position.
   uint32_t enq(const T& v) {
      if (!s_) s_ = new State;
      if (!s_->tail || s_->tailUsed == s_->tail->capacity) appendBlock();
      new (s_->tail->slot(s_->tailUsed)) T(v);
      ++s_->tailUsed;
      ++s_->count;
      return s_->first + s_->count - 1;
   }

   void deq() {
      if (empty()) return;
      Block* b = s_->head;
      b->slot(s_->headOff)->~T();
      ++s_->headOff;
      --s_->count;
      ++s_->first;
      const bool blockDone =
          b == s_->tail ? s_->headOff == s_->tailUsed : s_->headOff == b->capacity;
      if (blockDone) {
         s_->head = b->next;
         if (!s_->head) s_->tail = nullptr, s_->tailUsed = 0;
         s_->headOff = 0;
         freeBlock(b);
      }
      if (s_->count == 0) release();
   }

   T front() const { return empty() ? T() : *find(firstPosition()); }
   T back() const { return empty() ? T() : *find(endPosition() - 1); }
   bool has(uint32_t position) const {
      return position >= firstPosition() && position < endPosition();
   }
   T at(uint32_t position) const { return has(position) ? *find(position) : T(); }

   void delAll() {
      while (s_) deq();
   }

   // Capacities of the blocks in queue order; for tests and memory accounting.
   template <class F>
   void forEachBlockCapacity(F&& f) const {
      for (Block* b = s_ ? s_->head : nullptr; b; b = b->next) f(b->capacity);
   }

private:
   struct Block {
      Block* next = nullptr;
      uint32_t capacity = 0;
      T* slot(uint32_t i) {
         return std::launder(
             reinterpret_cast<T*>(reinterpret_cast<unsigned char*>(this) + dataOffset()) + i);
      }
      static constexpr std::size_t dataOffset() {
         return (sizeof(Block) + alignof(T) - 1) / alignof(T) * alignof(T);
      }
   };
   struct State {
      Block* head = nullptr;
      Block* tail = nullptr;
      uint32_t headOff = 0;
      uint32_t tailUsed = 0;
      uint32_t count = 0;
      uint32_t first = 0;
      uint32_t nextCapacity = firstBlockCapacity;
   };

   void appendBlock() {
      const uint32_t i = s_->nextCapacity;
      // clang-format off
      ORB_ASSERT(isPowerOfTwo( i )) << "block capacity " << i;
      // clang-format on
      void* mem = ::operator new(
          Block::dataOffset() + sizeof(T) * i,
          std::align_val_t(alignof(Block) > alignof(T) ? alignof(Block) : alignof(T)));
      Block* b = new (mem) Block;
      b->capacity = i;
      if (s_->tail)
         s_->tail->next = b;
      else
         s_->head = b;
      s_->tail = b;
      s_->tailUsed = 0;
      if (s_->nextCapacity < maxBlockCapacity) s_->nextCapacity *= 2;
   }

   static void freeBlock(Block* b) {
      b->~Block();
      ::operator delete(
          b, std::align_val_t(alignof(Block) > alignof(T) ? alignof(Block) : alignof(T)));
   }

   void release() {
      delete s_;
      s_ = nullptr;
   }

   const T* find(uint32_t position) const {
      uint32_t off = position - s_->first + s_->headOff;
      Block* b = s_->head;
      while (off >= b->capacity) {
         off -= b->capacity;
         b = b->next;
      }
      return b->slot(off);
   }

   State* s_ = nullptr;
};

}  // namespace Brio
#pragma GCC visibility pop
