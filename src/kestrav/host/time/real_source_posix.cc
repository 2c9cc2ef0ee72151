#include <time.h>

#include "kestrav/host/time/real_source.h"

namespace kestrav::Time {

static_assert(sizeof(time_t) == 8, "the time after 2038 needs -D_TIME_BITS=64");

bool RealSource::ReadMs(std::uint32_t& now_ms) {
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
  now_ms = static_cast<std::uint32_t>(std::uint64_t(now.tv_sec) * 1000 +
                                      std::uint64_t(now.tv_nsec) / 1'000'000);
  return true;
}

bool RealSource::ReadWallClockScnds(std::int64_t& now_scnds) {
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
  now_scnds = now.tv_sec;
  return true;
}

bool RealSource::Wait(Waiter& waiter, std::uint32_t timeout_ms) { return waiter.Block(timeout_ms); }

}  // namespace kestrav::Time
