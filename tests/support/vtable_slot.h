#ifndef KESTRAV_TESTS_SUPPORT_VTABLE_SLOT_H_
#define KESTRAV_TESTS_SUPPORT_VTABLE_SLOT_H_

#include <array>
#include <bit>
#include <cstddef>

namespace kestrav::test {

// Where a virtual operation stands in the table: a pointer to it holds the offset in bytes, with
// the lowest bit as a mark on some machines.
template <class Operation>
std::size_t VtableSlot(Operation operation) {
  static_assert(sizeof(operation) == sizeof(std::array<std::size_t, 2>));
  return (std::bit_cast<std::array<std::size_t, 2>>(operation)[0] & ~std::size_t{1}) /
         sizeof(void*);
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_VTABLE_SLOT_H_
