#ifndef KESTRAV_HOST_MEMORY_PTR_H_
#define KESTRAV_HOST_MEMORY_PTR_H_

#include <memory>

namespace kestrav::SmartPtr {

// Shared, reference-counted ownership.
template <class T>
using Ptr = std::shared_ptr<T>;

}  // namespace kestrav::SmartPtr

#endif  // KESTRAV_HOST_MEMORY_PTR_H_
