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
  StartBuffer(0);
  size_ = 0;
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

void BufferedFileInputStream::StartBuffer(std::uint32_t position) {
  buffer_end_ = position;
  buffered_ = 0;
  SetView(nullptr, nullptr);
}

bool BufferedFileInputStream::LoadView(std::uint32_t size) {
  if (size > Remaining() || size > buffer_bytes_) return false;
  StartBuffer(Position());
  const std::uint32_t part = std::min(buffer_bytes_, Remaining());
  if (!ReadFile(buffer_.Data(), part, buffer_end_)) return false;
  buffer_end_ += part;
  buffered_ = part;
  SetView(buffer_.Data(), buffer_.Data() + part);
  return true;
}

bool BufferedFileInputStream::Read(std::uint8_t* data, std::uint32_t size) {
  if (size > Remaining()) return false;
  if (size == 0) return true;
  if (size > ViewSize() && size >= buffer_bytes_) {
    if (!ReadFile(data, size, Position())) return false;
    StartBuffer(Position() + size);
    return true;
  }
  const std::span<const std::uint8_t> bytes = View(size);
  if (bytes.empty()) return false;
  std::memcpy(data, bytes.data(), size);
  Advance(size);
  return true;
}

bool BufferedFileInputStream::Seek(std::uint32_t position) {
  if (position > size_) return false;
  if (position <= buffer_end_ && buffer_end_ - position <= buffered_) {
    const std::uint8_t* const end = buffer_.Data() + buffered_;
    SetView(end - (buffer_end_ - position), end);
  } else {
    StartBuffer(position);
  }
  return true;
}

}  // namespace kestrav::Io
