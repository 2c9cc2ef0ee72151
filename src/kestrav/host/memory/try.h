#ifndef KESTRAV_HOST_MEMORY_TRY_H_
#define KESTRAV_HOST_MEMORY_TRY_H_

#include <memory>
#include <new>
#include <utility>

#include "kestrav/host/memory/ptr.h"

namespace kestrav::Memory {

// Runs `step`, which may throw: a container that grows, or foreign code such as a client's
// callback. false: it threw, and the exception ends here.
template <class Step>
[[nodiscard]] bool Try(Step&& step) noexcept {
  try {
    std::forward<Step>(step)();
    return true;
  } catch (...) {
    return false;
  }
}

// Puts `value` at the end of `container`. false: memory is short and nothing changed.
template <class Container, class Value>
[[nodiscard]] bool Append(Container& container, Value&& value) noexcept {
  return Try([&] { container.emplace_back(std::forward<Value>(value)); });
}

// `to` becomes a copy of `from`. false: memory is short.
template <class To, class From>
[[nodiscard]] bool Copy(To& to, const From& from) noexcept {
  return Try([&] { to = from; });
}

// A new shared T, or an empty pointer when memory is short.
template <class T, class... Args>
[[nodiscard]] SmartPtr::Ptr<T> MakeShared(Args&&... args) noexcept {
  SmartPtr::Ptr<T> result;
  if (!Try([&] { result = std::make_shared<T>(std::forward<Args>(args)...); })) result.reset();
  return result;
}

}  // namespace kestrav::Memory

#endif  // KESTRAV_HOST_MEMORY_TRY_H_
