#ifndef KESTRAV_HOST_TIME_REAL_SOURCE_H_
#define KESTRAV_HOST_TIME_REAL_SOURCE_H_

#include "kestrav/host/time/source.h"

namespace kestrav::Time {

// The system's monotonic clock and its wall clock.
class KESTRAV_API RealSource final : public ISource {
 public:
  [[nodiscard]] bool ReadMs(std::uint32_t& now_ms) override;
  [[nodiscard]] bool ReadWallClockScnds(std::int64_t& now_scnds) override;
  bool Wait(Waiter& waiter, std::uint32_t timeout_ms) override;
};

}  // namespace kestrav::Time

#endif  // KESTRAV_HOST_TIME_REAL_SOURCE_H_
