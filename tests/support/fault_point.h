#ifndef KESTRAV_TESTS_SUPPORT_FAULT_POINT_H_
#define KESTRAV_TESTS_SUPPORT_FAULT_POINT_H_

#include <atomic>
#include <cstdint>

namespace kestrav::test {

enum class Extent { kOnce, kFromThenOn };

inline const char* Name(Extent extent) { return extent == Extent::kOnce ? "once" : "from then on"; }

// Counts events of one kind and says which of them fail. Any thread may ask.
class FaultPoint {
 public:
  // The events from now on are counted from 0; the one numbered `at` fails, or it and all later
  // ones.
  void Arm(std::uint32_t at, Extent extent) {
    armed_ = false;
    at_ = at;
    extent_ = extent;
    seen_ = 0;
    failed_ = 0;
    armed_ = true;
  }
  void Disarm() { armed_ = false; }

  bool Fails() {
    if (!armed_) return false;
    const std::uint32_t number = seen_++;
    const bool fails = extent_ == Extent::kOnce ? number == at_ : number >= at_;
    if (fails) ++failed_;
    return fails;
  }

  // How many failed since the last `Arm`.
  std::uint32_t Failed() const { return failed_; }

 private:
  std::atomic<bool> armed_{false};
  std::atomic<std::uint32_t> at_{0};
  std::atomic<Extent> extent_{Extent::kOnce};
  std::atomic<std::uint32_t> seen_{0};
  std::atomic<std::uint32_t> failed_{0};
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_FAULT_POINT_H_
