#include "baseline/input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace kestrav::baseline {
namespace {

constexpr std::size_t kBufferSize = 64 * 1024;

}  // namespace

InputFile::~InputFile() {
  if (descriptor_ >= 0) close(descriptor_);
}

bool InputFile::Open(const std::string& path) {
  descriptor_ = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status;
  if (descriptor_ < 0 || fstat(descriptor_, &status) != 0) return false;
  size_ = static_cast<std::size_t>(status.st_size);
  return true;
}

bool InputFile::Read(std::uint8_t* out, std::size_t size) {
  if (size > Remaining()) return false;
  while (size > 0) {
    const bool buffered = position_ >= buffer_start_ && position_ < buffer_start_ + buffer_.size();
    if (!buffered && !Fill()) return false;
    const std::size_t offset = position_ - buffer_start_;
    const std::size_t part = std::min(size, buffer_.size() - offset);
    std::memcpy(out, buffer_.data() + offset, part);
    position_ += part;
    out += part;
    size -= part;
  }
  return true;
}

bool InputFile::Fill() {
  buffer_.resize(kBufferSize);
  buffer_start_ = position_;
  const ssize_t got =
      pread(descriptor_, buffer_.data(), kBufferSize, static_cast<off_t>(position_));
  buffer_.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return got > 0;
}

}  // namespace kestrav::baseline
