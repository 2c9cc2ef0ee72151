#ifndef KESTRAV_FUZZ_SUPPORT_H_
#define KESTRAV_FUZZ_SUPPORT_H_

#include <cstdint>
#include <string>
#include <vector>

#include "fuzz/targets.h"
#include "kestrav/host/io/stream.h"
#include "kestrav/host/text/string.h"

namespace kestrav::fuzz {

using Bytes = std::vector<std::uint8_t>;

// What `Fail` names beside what does not hold.
void NowDoing(std::string what);

// Ends the process and says what does not hold.
[[noreturn]] void Fail(const char* what);
inline void Require(bool holds, const char* what) {
  if (!holds) Fail(what);
}

// The key byte of a record; 0, which changes nothing, in a plain stream.
std::uint8_t RecordKey(std::uint8_t stream_key, std::uint32_t index);

std::uint32_t LittleEndian32(const std::uint8_t* bytes);

// Reads without letting anybody look at its memory, and counts what it hands out.
class CountingStream final : public Io::IInputStream {
 public:
  explicit CountingStream(Input bytes) : bytes_(bytes) {}

  bool Read(std::uint8_t* data, std::uint32_t size) override;
  bool Seek(std::uint32_t position) override;
  std::uint32_t Position() const override { return position_; }
  std::uint32_t Remaining() const override {
    return static_cast<std::uint32_t>(bytes_.size()) - position_;
  }

  std::uint64_t bytes_read = 0;

 private:
  Input bytes_;
  std::uint32_t position_ = 0;
};

// A file for those parts that take a path. One for the whole process, since a new one each time
// takes most of the time; `Put` makes its content new.
class ScratchFile {
 public:
  static ScratchFile& Get();

  void Put(Input content);
  Bytes Content() const;
  const String& Path() const { return path_; }

 private:
  ScratchFile();

  std::string name_;
  String path_;
};

}  // namespace kestrav::fuzz

#endif  // KESTRAV_FUZZ_SUPPORT_H_
