#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>

#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/try.h"

namespace kestrav::Io {

BufferedFileInputStream::BufferedFileInputStream(std::uint32_t buffer_bytes)
    : buffer_bytes_(std::max<std::uint32_t>(buffer_bytes, 1)) {}

bool BufferedFileInputStream::Open(const String& path) {
  Close();
  std::string name;
  if (!Memory::Try([&] { name = Text::ToUtf8(path); }) || !buffer_.Resize(buffer_bytes_)) {
    error_ = ENOMEM;
    return false;
  }
  if (name.find('\0') != std::string::npos) {
    error_ = EINVAL;
    return false;
  }
  // Without O_NONBLOCK a pipe without a writer would hold up the open.
  FileHandle file(::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
    error_ = errno;
    return false;
  }
  if (!S_ISREG(status.st_mode)) {
    error_ = S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
    return false;
  }
  file_ = std::move(file);
  size_ = static_cast<std::uint32_t>(
      std::min<std::int64_t>(status.st_size, std::numeric_limits<std::uint32_t>::max()));
  return true;
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

bool BufferedFileInputStream::Read(std::uint8_t* data, std::uint32_t size) {
  if (size > Remaining()) return false;
  if (size == 0) return true;
  const bool inside = position_ >= buffer_start_ && position_ - buffer_start_ <= buffered_ &&
                      size <= buffered_ - (position_ - buffer_start_);
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
