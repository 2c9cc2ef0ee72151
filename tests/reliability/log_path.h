#ifndef KESTRAV_TESTS_RELIABILITY_LOG_PATH_H_
#define KESTRAV_TESTS_RELIABILITY_LOG_PATH_H_

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

namespace kestrav::test {

// A file of this process for thousands of writes and syncs: in memory where the system allows it.
inline std::string LogPath(const std::string& test) {
  const bool in_memory = ::access("/dev/shm", W_OK) == 0;
  const std::string folder = in_memory ? "/dev/shm/" : ::testing::TempDir();
  return folder + "kestrav-" + test + '-' + std::to_string(::getpid()) + ".klog";
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_LOG_PATH_H_
