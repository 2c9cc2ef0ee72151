#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <utility>

#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/try.h"

namespace kestrav::Io {

static_assert(sizeof(off_t) == 8, "a log of 4 GiB needs -D_FILE_OFFSET_BITS=64");

FileHandle::FileHandle(FileHandle&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)) {}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
  Close();
  descriptor_ = std::exchange(other.descriptor_, -1);
  return *this;
}

int FileHandle::OpenForReading(const String& path, std::uint32_t& size) {
  std::string name;
  if (!Memory::Try([&] { name = Text::ToUtf8(path); })) return ENOMEM;
  if (name.find('\0') != std::string::npos) return EINVAL;
  // Without O_NONBLOCK a pipe without a writer would hold up the open.
  FileHandle file(::open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  struct stat status {};
  if (!file.IsOpen() || ::fstat(file.Get(), &status) != 0) return errno;
  if (!S_ISREG(status.st_mode)) return S_ISDIR(status.st_mode) ? EISDIR : EINVAL;
  *this = std::move(file);
  size = static_cast<std::uint32_t>(
      std::min<std::int64_t>(status.st_size, std::numeric_limits<std::uint32_t>::max()));
  return 0;
}

bool FileHandle::Close() {
  // On Linux the descriptor is gone even when close fails, so it is never closed twice.
  const int descriptor = std::exchange(descriptor_, -1);
  return descriptor < 0 || ::close(descriptor) == 0;
}

}  // namespace kestrav::Io
