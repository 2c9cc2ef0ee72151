#include "support/short_memory.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace kestrav::test {
namespace {

thread_local bool limited = false;
thread_local bool was_short = false;
thread_local std::uint32_t grants_left = 0;
thread_local std::size_t largest = 0;

void* Allocate(std::size_t size) noexcept {
  largest = std::max(largest, size);
  if (limited && grants_left == 0) {
    was_short = true;
    return nullptr;
  }
  if (limited) --grants_left;
  return std::malloc(size > 0 ? size : 1);
}

void* AllocateOrThrow(std::size_t size) {
  void* const memory = Allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

}  // namespace

ShortMemory::ShortMemory(std::uint32_t grants) {
  grants_left = grants;
  was_short = false;
  limited = true;
}

ShortMemory::~ShortMemory() { limited = false; }

bool ShortMemory::WasShort() const { return was_short; }

LargestAllocation::LargestAllocation() { largest = 0; }

std::size_t LargestAllocation::Bytes() const { return largest; }

}  // namespace kestrav::test

void* operator new(std::size_t size) { return kestrav::test::AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return kestrav::test::AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return kestrav::test::Allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
  return kestrav::test::Allocate(size);
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t /*size*/) noexcept { std::free(memory); }
void operator delete(void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }
void operator delete[](void* memory, const std::nothrow_t& /*tag*/) noexcept { std::free(memory); }
