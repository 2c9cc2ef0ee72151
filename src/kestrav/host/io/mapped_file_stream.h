#ifndef KESTRAV_HOST_IO_MAPPED_FILE_STREAM_H_
#define KESTRAV_HOST_IO_MAPPED_FILE_STREAM_H_

#include <cstdint>

#include "kestrav/host/io/memory_stream.h"
#include "kestrav/host/text/string.h"

namespace kestrav::Io {

// Reads a regular file where the system keeps it in memory: the quickest way through a long log.
// For files that nobody shortens and whose device stays: where the system cannot supply the bytes,
// it raises SIGBUS in the reading thread. A head unit that plays logs from a stick reads them
// through `BufferedFileInputStream`.
class KESTRAV_API MappedFileInputStream final : public MemoryInputStream {
 public:
  MappedFileInputStream() : MemoryInputStream(nullptr, 0) {}
  ~MappedFileInputStream() override { Close(); }
  MappedFileInputStream(const MappedFileInputStream&) = delete;
  MappedFileInputStream& operator=(const MappedFileInputStream&) = delete;

  // Closes an earlier file. false: there is no such regular file, or it cannot be read. `Error`
  // tells why. Of a file longer than 4 GiB the first 4,294,967,295 bytes can be reached.
  [[nodiscard]] bool Open(const String& path);
  void Close();

  // The errno value of the last call that the system failed, 0 if none.
  int Error() const { return error_; }

 private:
  void* map_ = nullptr;
  std::uint32_t map_size_ = 0;
  int error_ = 0;
};

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_MAPPED_FILE_STREAM_H_
