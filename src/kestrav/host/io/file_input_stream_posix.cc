#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "kestrav/host/io/file_stream.h"

namespace kestrav::Io {

BufferedFileInputStream::BufferedFileInputStream(std::uint32_t buffer_bytes)
    : buffer_bytes_(std::max<std::uint32_t>(buffer_bytes, 1)) {}

bool BufferedFileInputStream::Open(const String& path) {
  Close();
  error_ = buffer_.Resize(buffer_bytes_) ? file_.OpenForReading(path, size_) : ENOMEM;
  return error_ == 0;
}

void BufferedFileInputStream::Close() {
  file_.Close();
  buffer_start_ = buffered_ = size_ = position_ = 0;
  error_ = 0;
}

bool BufferedFileInputStream::ReadFile(std::uint8_t* data, std::uint32_t size, std::uint32_t at) {
  for (std::uint32_t done = 0; done < size;) {
    const ssize_t got = ::pread(file_.Get(), data + done, size - done, off_t{at} + done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      error_ = got < 0 ? errno : EIO;  // 0: the file has become shorter since it was opened
      return false;
    }
    done += static_cast<std::uint32_t>(got);
  }
  return true;
}

bool BufferedFileInputStream::Fill() {
  const std::uint32_t size = std::min(buffer_bytes_, Remaining());
  buffered_ = 0;
  if (!ReadFile(buffer_.Data(), size, position_)) return false;
  buffer_start_ = position_;
  buffered_ = size;
  return true;
}

bool BufferedFileInputStream::IsBuffered(std::uint32_t size) const {
  return position_ >= buffer_start_ && position_ - buffer_start_ <= buffered_ &&
         size <= buffered_ - (position_ - buffer_start_);
}

std::span<const std::uint8_t> BufferedFileInputStream::View(std::uint32_t size) {
  if (size > Remaining() || size > buffer_bytes_) return {};
  if (!IsBuffered(size) && !Fill()) return {};
  const std::uint32_t start = position_ - buffer_start_;
  return {buffer_.Data() + start, buffered_ - start};
}

bool BufferedFileInputStream::Read(std::uint8_t* data, std::uint32_t size) {
  if (size > Remaining()) return false;
  if (size == 0) return true;
  const bool inside = IsBuffered(size);
  if (!inside && size >= buffer_bytes_) {
    if (!ReadFile(data, size, position_)) return false;
  } else {
    if (!inside && !Fill()) return false;
    std::memcpy(data, buffer_.Data() + (position_ - buffer_start_), size);
  }
  position_ += size;
  return true;
}

bool BufferedFileInputStream::Seek(std::uint32_t position) {
  if (position > size_) return false;
  position_ = position;
  return true;
}

}  // namespace kestrav::Io
