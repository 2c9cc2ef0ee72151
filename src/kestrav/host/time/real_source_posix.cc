#include <time.h>

#include <cstdio>
#include <cstring>

#include "kestrav/host/time/real_source.h"

namespace kestrav::Time {

static_assert(sizeof(time_t) == 8, "the time after 2038 needs -D_TIME_BITS=64");

namespace {

constexpr std::uint32_t kNsPerMs = 1'000'000;
// A processor may look at its counter somewhat before the program says so.
constexpr std::uint32_t kMarginNs = 2'000;

#if defined(__x86_64__)

// The processor's counter of ticks, where the system's clock is made of it. It runs at more than a
// tick each two nanoseconds on every processor whose counter is good enough to be a clock.
bool IsClockMadeOfTicks() {
  char name[16] = {};
  std::FILE* const file =
      std::fopen("/sys/devices/system/clocksource/clocksource0/current_clocksource", "re");
  if (file == nullptr) return false;
  const bool read = std::fgets(name, sizeof(name), file) != nullptr;
  std::fclose(file);
  return read && std::strcmp(name, "tsc\n") == 0;
}

std::uint64_t ReadTicks() { return __builtin_ia32_rdtsc(); }

#else

bool IsClockMadeOfTicks() { return false; }
std::uint64_t ReadTicks() { return 0; }

#endif

// The millisecond that this thread read last, which holds for `good_for` ticks from `ticks` on. To
// look at the counter takes a third of the time that a reading of the clock does, and clients that
// hand over many messages read it many times a millisecond.
struct Reading {
  std::uint64_t ticks;
  std::uint64_t good_for;
  std::uint32_t ms;
};

constinit thread_local Reading last __attribute__((tls_model("initial-exec"))) = {};

}  // namespace

bool RealSource::ReadMs(std::uint32_t& now_ms) {
  static const bool has_ticks = IsClockMadeOfTicks();
  const std::uint64_t ticks = has_ticks ? ReadTicks() : 0;
  if (ticks - last.ticks < last.good_for) {
    now_ms = last.ms;
    return true;
  }
  timespec now{};
  if (clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
  const auto ns = static_cast<std::uint32_t>(now.tv_nsec);
  now_ms = static_cast<std::uint32_t>(std::uint64_t(now.tv_sec) * 1000 + ns / kNsPerMs);
  // The ticks were read before the clock, so they end before the millisecond does.
  const std::uint32_t left_ns = kNsPerMs - ns % kNsPerMs;
  const bool keep = has_ticks && left_ns > kMarginNs;
  last = {ticks, keep ? (left_ns - kMarginNs) / 2 : 0, now_ms};
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
