#ifndef KESTRAV_BENCH_BASELINE_READER_H_
#define KESTRAV_BENCH_BASELINE_READER_H_

#include <cstdint>
#include <string>
#include <vector>

#include "baseline/input_file.h"
#include "baseline/record.h"

namespace kestrav::baseline {

enum class Result { kGood, kDamaged, kNotEnough };

// Reads a log. One thread at a time.
class Reader {
 public:
  // false: the file cannot be read or is no log.
  bool Open(const std::string& path);

  // Reads the next record that is whole. false: there is none.
  bool Next(Message& message);

  // The rule for finding the way after damage, step by step: read 50 bytes (20 near the end),
  // unscramble the first 20 of them, look for a marker among all of them, try the header and the
  // payload that stand there. A good one: stand before it. A bad header: go on one byte behind its
  // start. A bad payload: go on behind what was read of it. false: the file ends first.
  bool ScanForNextHeader();

  void Seek(std::size_t position) { file_.Seek(position); }
  std::size_t Position() const { return file_.Position(); }

 private:
  Result ReadHeader(RecordHeader& header);
  Result ReadPayload(const RecordHeader& header, std::vector<std::uint8_t>& payload);
  bool NextHeader(RecordHeader& header);

  InputFile file_;
  StreamHeader stream_;
  std::uint32_t expected_index_ = 0;
};

}  // namespace kestrav::baseline

#endif  // KESTRAV_BENCH_BASELINE_READER_H_
