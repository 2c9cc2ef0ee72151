#include <sys/types.h>
#include <unistd.h>

#include <utility>

#include "kestrav/host/io/file_stream.h"

namespace kestrav::Io {

static_assert(sizeof(off_t) == 8, "a log of 4 GiB needs -D_FILE_OFFSET_BITS=64");

FileHandle::FileHandle(FileHandle&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)) {}

FileHandle& FileHandle::operator=(FileHandle&& other) noexcept {
  Close();
  descriptor_ = std::exchange(other.descriptor_, -1);
  return *this;
}

bool FileHandle::Close() {
  // On Linux the descriptor is gone even when close fails, so it is never closed twice.
  const int descriptor = std::exchange(descriptor_, -1);
  return descriptor < 0 || ::close(descriptor) == 0;
}

}  // namespace kestrav::Io
