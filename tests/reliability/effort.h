#ifndef KESTRAV_TESTS_RELIABILITY_EFFORT_H_
#define KESTRAV_TESTS_RELIABILITY_EFFORT_H_

#include <cstdint>
#include <cstdlib>

namespace kestrav::test {

// How much a long test does: what the environment variable says, else `full`, or `short_form` in
// builds that are many times slower.
inline std::uint32_t Effort(const char* variable, std::uint32_t full, std::uint32_t short_form) {
  if (const char* const value = std::getenv(variable)) {
    return static_cast<std::uint32_t>(std::strtoul(value, nullptr, 10));
  }
#ifdef NDEBUG
  static_cast<void>(short_form);
  return full;
#else
  static_cast<void>(full);
  return short_form;
#endif
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_EFFORT_H_
