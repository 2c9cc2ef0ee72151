#include "support/short_memory.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace kestrav::test {
namespace {

thread_local bool limited = false;
thread_local bool was_short = false;
thread_local std::uint32_t grants_left = 0;
thread_local std::size_t largest = 0;
thread_local std::uint32_t own = 0;

constinit FaultPoint process_fault;
constinit std::atomic<std::int64_t> live{0};

bool IsShort() {
  if (limited && grants_left == 0) {
    was_short = true;
    return true;
  }
  if (limited) --grants_left;
  return own == 0 && process_fault.Fails();
}

void* Allocate(std::size_t size, std::size_t alignment) noexcept {
  largest = std::max(largest, size);
  if (IsShort()) return nullptr;
  const std::size_t rounded = (std::max<std::size_t>(size, 1) + alignment - 1) & ~(alignment - 1);
  void* const memory = alignment > alignof(std::max_align_t)
                           ? std::aligned_alloc(alignment, rounded)
                           : std::malloc(rounded);
  if (memory != nullptr) live.fetch_add(1, std::memory_order_relaxed);
  return memory;
}

void* AllocateOrThrow(std::size_t size, std::size_t alignment) {
  void* const memory = Allocate(size, alignment);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

void Free(void* memory) noexcept {
  if (memory != nullptr) live.fetch_sub(1, std::memory_order_relaxed);
  std::free(memory);
}

}  // namespace

ShortMemory::ShortMemory(std::uint32_t grants) {
  grants_left = grants;
  was_short = false;
  limited = true;
}

ShortMemory::~ShortMemory() { limited = false; }

bool ShortMemory::WasShort() const { return was_short; }

FailingMemory::FailingMemory(std::uint32_t at, Extent extent) { process_fault.Arm(at, extent); }

FailingMemory::~FailingMemory() { process_fault.Disarm(); }

std::uint32_t FailingMemory::Failed() const { return process_fault.Failed(); }

OwnMemory::OwnMemory() { ++own; }

OwnMemory::~OwnMemory() { --own; }

std::int64_t LiveAllocations() { return live; }

LargestAllocation::LargestAllocation() { largest = 0; }

std::size_t LargestAllocation::Bytes() const { return largest; }

}  // namespace kestrav::test

namespace test = kestrav::test;

void* operator new(std::size_t size) { return test::AllocateOrThrow(size, 1); }
void* operator new[](std::size_t size) { return test::AllocateOrThrow(size, 1); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return test::Allocate(size, 1);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return test::Allocate(size, 1);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return test::AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return test::AllocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new(std::size_t size, std::align_val_t alignment,
                   const std::nothrow_t& /*tag*/) noexcept {
  return test::Allocate(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment,
                     const std::nothrow_t& /*tag*/) noexcept {
  return test::Allocate(size, static_cast<std::size_t>(alignment));
}

void operator delete(void* memory) noexcept { test::Free(memory); }
void operator delete[](void* memory) noexcept { test::Free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { test::Free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { test::Free(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { test::Free(memory); }
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept { test::Free(memory); }
void operator delete(void* memory, std::align_val_t /*alignment*/) noexcept { test::Free(memory); }
void operator delete[](void* memory, std::align_val_t /*alignment*/) noexcept {
  test::Free(memory);
}
void operator delete(void* memory, std::size_t /*size*/, std::align_val_t /*alignment*/) noexcept {
  test::Free(memory);
}
void operator delete[](void* memory, std::size_t /*size*/,
                       std::align_val_t /*alignment*/) noexcept {
  test::Free(memory);
}
void operator delete(void* memory, std::align_val_t /*alignment*/,
                     const std::nothrow_t& /*tag*/) noexcept {
  test::Free(memory);
}
void operator delete[](void* memory, std::align_val_t /*alignment*/,
                       const std::nothrow_t& /*tag*/) noexcept {
  test::Free(memory);
}
