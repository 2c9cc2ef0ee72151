#ifndef KESTRAV_BENCH_BASELINE_WRITER_H_
#define KESTRAV_BENCH_BASELINE_WRITER_H_

#include <cstdint>
#include <cstdio>
#include <string>

#include "baseline/record.h"

namespace kestrav::baseline {

// Writes a log through a buffer of 64 KiB. One thread at a time.
class Writer {
 public:
  Writer() = default;
  ~Writer();
  Writer(const Writer&) = delete;
  Writer& operator=(const Writer&) = delete;

  // Overwrites the file in place if there is one and writes the provisional stream header.
  bool Open(const std::string& path, const StreamHeader& header);
  // Scrambles the payload where it stands.
  bool Write(Message& message);
  bool Flush();
  // Writes the final stream header over the provisional one.
  bool Close(std::uint32_t duration_ms);

 private:
  bool WriteAll(const std::vector<std::uint8_t>& bytes);

  std::FILE* file_ = nullptr;
  StreamHeader header_;
  std::uint32_t records_ = 0;
};

}  // namespace kestrav::baseline

#endif  // KESTRAV_BENCH_BASELINE_WRITER_H_
