#ifndef KESTRAV_TESTS_RELIABILITY_HOSTILE_LOGS_H_
#define KESTRAV_TESTS_RELIABILITY_HOSTILE_LOGS_H_

#include <ostream>
#include <string>
#include <vector>

#include "support/streams.h"

namespace kestrav::test {

struct HostileLog {
  std::string name;
  Bytes bytes;

  friend std::ostream& operator<<(std::ostream& out, const HostileLog& log) {
    return out << log.name;
  }
};

// The logs of tests/corpus, and those that are too large to be kept there.
std::vector<HostileLog> HostileLogs();

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_HOSTILE_LOGS_H_
