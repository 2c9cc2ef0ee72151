#ifndef KESTRAV_BENCH_SUPPORT_USAGE_H_
#define KESTRAV_BENCH_SUPPORT_USAGE_H_

#include <sys/resource.h>

#include <chrono>

namespace kestrav::bench {

// What this process has used since the construction, all threads together.
class Usage {
 public:
  Usage() { getrusage(RUSAGE_SELF, &start_); }

  std::chrono::steady_clock::time_point Begin() const { return begin_; }
  double Seconds() const { return std::chrono::duration<double>(Clock::now() - begin_).count(); }
  double CpuSeconds() const {
    const rusage now = Now();
    return Seconds(now.ru_utime) - Seconds(start_.ru_utime) + Seconds(now.ru_stime) -
           Seconds(start_.ru_stime);
  }
  // How often a thread went to sleep, for a lock, an event or a time.
  double Waits() const { return static_cast<double>(Now().ru_nvcsw - start_.ru_nvcsw); }

 private:
  using Clock = std::chrono::steady_clock;

  static rusage Now() {
    rusage now;
    getrusage(RUSAGE_SELF, &now);
    return now;
  }
  static double Seconds(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  }

  rusage start_;
  Clock::time_point begin_ = Clock::now();
};

}  // namespace kestrav::bench

#endif  // KESTRAV_BENCH_SUPPORT_USAGE_H_
