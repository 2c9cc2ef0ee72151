#ifndef KESTRAV_BENCH_SUPPORT_DLT_LOG_H_
#define KESTRAV_BENCH_SUPPORT_DLT_LOG_H_

#include <cstdint>
#include <string>

namespace kestrav::bench {

// A log file of libdlt; one at a time in a process.
class DltLog {
 public:
  // The library counts a message's bytes in 16 bits.
  static constexpr std::uint32_t kLargestPayload = 4096;

  explicit DltLog(const std::string& path);
  ~DltLog();
  DltLog(const DltLog&) = delete;
  DltLog& operator=(const DltLog&) = delete;

  bool IsGood() const { return good_; }
  bool Write(const std::uint8_t* data, std::uint32_t size);

 private:
  bool good_ = false;
};

}  // namespace kestrav::bench

#endif  // KESTRAV_BENCH_SUPPORT_DLT_LOG_H_
