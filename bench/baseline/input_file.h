#ifndef KESTRAV_BENCH_BASELINE_INPUT_FILE_H_
#define KESTRAV_BENCH_BASELINE_INPUT_FILE_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace kestrav::baseline {

// Reads a file through a buffer of 64 KiB.
class InputFile {
 public:
  InputFile() = default;
  ~InputFile();
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;

  bool Open(const std::string& path);
  // Exactly `size` bytes or, when fewer remain, none.
  bool Read(std::uint8_t* out, std::size_t size);
  void Seek(std::size_t position) { position_ = position; }
  std::size_t Position() const { return position_; }
  std::size_t Remaining() const { return size_ - position_; }

 private:
  bool Fill();

  int descriptor_ = -1;
  std::size_t size_ = 0;
  std::size_t position_ = 0;
  std::vector<std::uint8_t> buffer_;
  std::size_t buffer_start_ = 0;
};

}  // namespace kestrav::baseline

#endif  // KESTRAV_BENCH_BASELINE_INPUT_FILE_H_
