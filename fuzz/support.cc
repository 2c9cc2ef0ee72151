#include "fuzz/support.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "unit/host/temp_dir.h"

namespace kestrav::fuzz {
namespace {

std::string now_doing;

// Closes with its scope.
class Descriptor {
 public:
  Descriptor(const std::string& name, int flags) : number_(::open(name.c_str(), flags, 0600)) {
    Require(number_ >= 0, "the scratch file can be opened");
  }
  ~Descriptor() { ::close(number_); }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int Get() const { return number_; }

 private:
  const int number_;
};

}  // namespace

void NowDoing(std::string what) { now_doing = std::move(what); }

void Fail(const char* what) {
  std::fprintf(stderr, "does not hold: %s %s\n", what, now_doing.c_str());
  std::abort();
}

std::uint8_t RecordKey(std::uint8_t stream_key, std::uint32_t index) {
  if (stream_key == 0) return 0;
  const auto key = static_cast<std::uint8_t>((stream_key + index) % 256);
  return key == 0 ? 1 : key;
}

std::uint32_t LittleEndian32(const std::uint8_t* bytes) {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i) value = value << 8 | bytes[i];
  return value;
}

bool CountingStream::Read(std::uint8_t* data, std::uint32_t size) {
  if (size > Remaining()) return false;
  if (size > 0) std::memcpy(data, bytes_.data() + position_, size);
  position_ += size;
  bytes_read += size;
  return true;
}

bool CountingStream::Seek(std::uint32_t position) {
  if (position > bytes_.size()) return false;
  position_ = position;
  return true;
}

ScratchFile& ScratchFile::Get() {
  static ScratchFile file;
  return file;
}

ScratchFile::ScratchFile() {
  static const test::TempDir folder;
  name_ = folder / "scratch";
  path_ = Text::FromUtf8(name_);
}

void ScratchFile::Put(Input content) {
  const Descriptor file(name_, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC);
  const ssize_t put = ::write(file.Get(), content.data(), content.size());
  Require(put == static_cast<ssize_t>(content.size()), "the scratch file can be written");
}

Bytes ScratchFile::Content() const {
  const Descriptor file(name_, O_RDONLY | O_CLOEXEC);
  Bytes content(static_cast<std::size_t>(::lseek(file.Get(), 0, SEEK_END)));
  const ssize_t got = ::pread(file.Get(), content.data(), content.size(), 0);
  Require(got == static_cast<ssize_t>(content.size()), "the scratch file can be read");
  return content;
}

}  // namespace kestrav::fuzz
