#ifndef KESTRAV_BENCH_SUPPORT_SETTINGS_H_
#define KESTRAV_BENCH_SUPPORT_SETTINGS_H_

#include <cstdint>
#include <string>

namespace kestrav::bench {

// Where measured files stand: KESTRAV_BENCH_DIR, or else the file system in memory.
std::string Directory();

// `amount` times KESTRAV_BENCH_SCALE (1 unless set), at least 1: how much work a measurement does.
std::uint64_t Scaled(std::uint64_t amount);

// The name of a file of this process, which is removed at the end.
class ScratchFile {
 public:
  explicit ScratchFile(const std::string& name);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;

  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

}  // namespace kestrav::bench

#endif  // KESTRAV_BENCH_SUPPORT_SETTINGS_H_
