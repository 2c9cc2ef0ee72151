#ifndef KESTRAV_HOST_CONFIG_PROBLEM_H_
#define KESTRAV_HOST_CONFIG_PROBLEM_H_

#include <cstddef>

#include "kestrav/host/text/string.h"

namespace kestrav::Config {

// What cannot be used of a configuration file, for the person who edits it.
struct Problem {
  std::size_t line = 0;  // counted from 1; 0: the file as a whole
  String what;

  friend bool operator==(const Problem&, const Problem&) = default;
};

}  // namespace kestrav::Config

#endif  // KESTRAV_HOST_CONFIG_PROBLEM_H_
