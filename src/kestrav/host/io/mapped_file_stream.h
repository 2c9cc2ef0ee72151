#ifndef KESTRAV_HOST_IO_MAPPED_FILE_STREAM_H_
#define KESTRAV_HOST_IO_MAPPED_FILE_STREAM_H_

#include <cstdint>

#include "kestrav/host/io/stream.h"
#include "kestrav/host/text/string.h"

namespace kestrav::Io {

// Reads a regular file where the system keeps it in memory: the quickest way through a long log.
// For files that nobody shortens and whose device stays: where the system cannot supply the bytes,
// it raises SIGBUS in the reading thread. A head unit that plays logs from a stick reads them
// through `BufferedFileInputStream`.
class KESTRAV_API MappedFileInputStream final : public IInputStream {
 public:
  MappedFileInputStream() = default;
  ~MappedFileInputStream() override { Close(); }
  MappedFileInputStream(const MappedFileInputStream&) = delete;
  MappedFileInputStream& operator=(const MappedFileInputStream&) = delete;

  // Closes an earlier file. false: there is no such regular file, or it cannot be read. `Error`
  // tells why. Of a file longer than 4 GiB the first 4,294,967,295 bytes can be reached.
  [[nodiscard]] bool Open(const String& path);
  void Close();

  // The errno value of the last call that the system failed, 0 if none.
  int Error() const { return error_; }

  [[nodiscard]] bool Read(std::uint8_t* data, std::uint32_t size) override;
  [[nodiscard]] bool Seek(std::uint32_t position) override;
  std::uint32_t Position() const override { return position_; }
  std::uint32_t Remaining() const override { return size_ - position_; }
  std::span<const std::uint8_t> View(std::uint32_t size) override;
  void Advance(std::uint32_t size) override { position_ += size; }

 private:
  const std::uint8_t* data_ = nullptr;
  std::uint32_t size_ = 0;
  std::uint32_t position_ = 0;
  int error_ = 0;
};

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_MAPPED_FILE_STREAM_H_
