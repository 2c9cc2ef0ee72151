#ifndef KESTRAV_TESTS_TOOL_CPU_TIME_H_
#define KESTRAV_TESTS_TOOL_CPU_TIME_H_

#include <sys/resource.h>

namespace kestrav::test {

// Processor time of the runs so far, which other work on the machine does not lengthen.
inline double CpuScndsOfChildren() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  const auto scnds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return scnds(usage.ru_utime) + scnds(usage.ru_stime);
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_TOOL_CPU_TIME_H_
