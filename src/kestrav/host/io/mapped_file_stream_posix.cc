#include <sys/mman.h>

#include <cerrno>

#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/io/mapped_file_stream.h"

namespace kestrav::Io {

bool MappedFileInputStream::Open(const String& path) {
  Close();
  FileHandle file;
  std::uint32_t size = 0;
  error_ = file.OpenForReading(path, size);
  if (error_ != 0) return false;
  if (size == 0) return true;  // nothing to map
  void* const map = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file.Get(), 0);
  if (map == MAP_FAILED) {
    error_ = errno;
    return false;
  }
  static_cast<void>(::madvise(map, size, MADV_SEQUENTIAL));
  map_ = map;
  map_size_ = size;
  SetBytes(static_cast<const std::uint8_t*>(map), size);
  return true;
}

void MappedFileInputStream::Close() {
  if (map_ != nullptr) ::munmap(map_, map_size_);
  map_ = nullptr;
  SetBytes(nullptr, 0);
  error_ = 0;
}

}  // namespace kestrav::Io
