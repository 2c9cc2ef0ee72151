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
namespace {

constexpr std::uint32_t kLongestFile = std::numeric_limits<std::uint32_t>::max();
constexpr mode_t kCreationMode = 0640;

int Flags(OpenMode mode) {
  const int flags = O_WRONLY | O_CLOEXEC | O_NONBLOCK;
  return mode == OpenMode::kCreate ? flags | O_CREAT | O_TRUNC : flags;
}

}  // namespace

BufferedFileOutputStream::BufferedFileOutputStream(std::uint32_t buffer_bytes)
    : buffer_bytes_(std::max<std::uint32_t>(buffer_bytes, 1)) {}

BufferedFileOutputStream::~BufferedFileOutputStream() { Close(); }

bool BufferedFileOutputStream::Open(const String& path, OpenMode mode) {
  Close();
  error_ = 0;
  std::string name;
  if (!Memory::Try([&] { name = Text::ToUtf8(path); }) || !buffer_.Resize(buffer_bytes_)) {
    Fail(ENOMEM);
    return false;
  }
  if (name.find('\0') != std::string::npos) {
    Fail(EINVAL);
    return false;
  }
  FileHandle file(::open(name.c_str(), Flags(mode), kCreationMode));
  struct stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) {
    Fail(errno);
    return false;
  }
  // A log is rewritten at its start, which only a regular file allows.
  if (!S_ISREG(status.st_mode) || status.st_size > kLongestFile) {
    Fail(S_ISREG(status.st_mode) ? EFBIG : EINVAL);
    return false;
  }
  file_ = std::move(file);
  end_ = static_cast<std::uint32_t>(status.st_size);
  StartBuffer(0);
  return true;
}

bool BufferedFileOutputStream::Close() {
  if (!file_.IsOpen()) return true;
  bool whole = Flush();
  if (!file_.Close()) {
    Fail(errno);
    whole = false;
  }
  buffer_start_ = room_ = end_ = 0;
  SetRoom(nullptr, nullptr);
  return whole;
}

void BufferedFileOutputStream::StartBuffer(std::uint32_t position) {
  buffer_start_ = position;
  room_ = std::min(buffer_bytes_, kLongestFile - position);
  SetRoom(buffer_.Data(), buffer_.Data() + room_);
}

void BufferedFileOutputStream::Fail(int error) {
  if (error_ == 0) error_ = error;
}

// All or nothing: what a failed write left behind the end of the file is cut off again.
bool BufferedFileOutputStream::WriteFile(const std::uint8_t* data, std::uint32_t size,
                                         std::uint32_t at) {
  for (std::uint32_t done = 0; done < size;) {
    const ssize_t put = ::pwrite(file_.Get(), data + done, size - done, off_t{at} + done);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) {
      Fail(put < 0 ? errno : EIO);
      if (at + done > end_ && ::ftruncate(file_.Get(), end_) != 0) Fail(errno);
      return false;
    }
    done += static_cast<std::uint32_t>(put);
  }
  end_ = std::max(end_, at + size);
  return true;
}

bool BufferedFileOutputStream::Flush() {
  const std::uint32_t size = Buffered();
  if (size == 0) return true;
  if (!WriteFile(buffer_.Data(), size, buffer_start_)) return false;
  StartBuffer(buffer_start_ + size);
  return true;
}

bool BufferedFileOutputStream::Write(const std::uint8_t* data, std::uint32_t size) {
  if (!file_.IsOpen()) return false;
  if (size > kLongestFile - Position()) {
    Fail(EFBIG);
    return false;
  }
  if (size > RoomSize() && !Flush()) return false;
  if (size >= buffer_bytes_) {
    if (!WriteFile(data, size, buffer_start_)) return false;
    StartBuffer(buffer_start_ + size);
    return true;
  }
  if (size > 0) std::memcpy(Reserve(size), data, size);
  Commit(size);
  return true;
}

bool BufferedFileOutputStream::MakeRoom(std::uint32_t size) {
  const bool can = file_.IsOpen() && size <= buffer_bytes_ && size <= kLongestFile - Position();
  return can && Flush();
}

bool BufferedFileOutputStream::Seek(std::uint32_t position) {
  if (!file_.IsOpen() || position > std::max(end_, Position()) || !Flush()) return false;
  StartBuffer(position);
  return true;
}

}  // namespace kestrav::Io
