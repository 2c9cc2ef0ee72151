#include "support/settings.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace kestrav::bench {

std::string Directory() {
  const char* const set = std::getenv("KESTRAV_BENCH_DIR");
  return set != nullptr ? set : "/dev/shm";
}

std::uint64_t Scaled(std::uint64_t amount) {
  const char* const set = std::getenv("KESTRAV_BENCH_SCALE");
  const double scale = set != nullptr ? std::atof(set) : 1;
  return std::max<std::uint64_t>(1,
                                 static_cast<std::uint64_t>(static_cast<double>(amount) * scale));
}

ScratchFile::ScratchFile(const std::string& name)
    : path_(Directory() + "/kestrav-bench-" + std::to_string(getpid()) + "-" + name) {
  std::remove(path_.c_str());
}

ScratchFile::~ScratchFile() { std::remove(path_.c_str()); }

}  // namespace kestrav::bench
