#include <sys/mman.h>

#include <cerrno>
#include <cstring>

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
  void* const data = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file.Get(), 0);
  if (data == MAP_FAILED) {
    error_ = errno;
    return false;
  }
  static_cast<void>(::madvise(data, size, MADV_SEQUENTIAL));
  data_ = static_cast<const std::uint8_t*>(data);
  size_ = size;
  return true;
}

void MappedFileInputStream::Close() {
  if (data_ != nullptr) ::munmap(const_cast<std::uint8_t*>(data_), size_);
  data_ = nullptr;
  size_ = position_ = 0;
  error_ = 0;
}

bool MappedFileInputStream::Read(std::uint8_t* data, std::uint32_t size) {
  if (size > Remaining()) return false;
  if (size > 0) std::memcpy(data, data_ + position_, size);
  position_ += size;
  return true;
}

bool MappedFileInputStream::Seek(std::uint32_t position) {
  if (position > size_) return false;
  position_ = position;
  return true;
}

std::span<const std::uint8_t> MappedFileInputStream::View(std::uint32_t size) {
  if (size > Remaining()) return {};
  return {data_ + position_, Remaining()};
}

}  // namespace kestrav::Io
