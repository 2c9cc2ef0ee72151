#ifndef KESTRAV_HOST_MEMORY_POOL_H_
#define KESTRAV_HOST_MEMORY_POOL_H_

#include <cstddef>
#include <memory>
#include <new>

#include "kestrav/host/api.h"
#include "kestrav/host/memory/ptr.h"

namespace kestrav::Memory {

// Blocks of one size that many threads take and others give back. Each thread keeps some of its
// own; between threads they travel by the batch, so that the lock in the middle is rarely taken.
// The memory of the largest burst stays with the pool, for the next one. Any thread may call any
// operation, but nobody in a child that was forked off while others ran.
//
// Freeing what another thread allocated is the dear part of a general allocator, and it is what a
// recorder does with every message.
class KESTRAV_API BlockPool {
 public:
  static constexpr std::size_t kBlockBytes = 160;

  // Null: memory is short.
  static void* Take() noexcept;
  static void Give(void* block) noexcept;
};

// Hands a shared object its memory out of the pool.
template <class T>
struct PoolAllocator {
  using value_type = T;

  PoolAllocator() = default;
  template <class Other>
  explicit PoolAllocator(const PoolAllocator<Other>&) {}

  T* allocate(std::size_t) {
    static_assert(sizeof(T) <= BlockPool::kBlockBytes && alignof(T) <= alignof(std::max_align_t));
    void* const block = BlockPool::Take();
    if (block == nullptr) throw std::bad_alloc();
    return static_cast<T*>(block);
  }
  void deallocate(T* block, std::size_t) noexcept { BlockPool::Give(block); }

  friend bool operator==(const PoolAllocator&, const PoolAllocator&) { return true; }
};

// A new shared T in memory of the pool, or an empty pointer when memory is short.
template <class T>
[[nodiscard]] SmartPtr::Ptr<T> MakePooled() noexcept {
  try {
    return std::allocate_shared<T>(PoolAllocator<T>());
  } catch (...) {
    return {};
  }
}

}  // namespace kestrav::Memory

#endif  // KESTRAV_HOST_MEMORY_POOL_H_
