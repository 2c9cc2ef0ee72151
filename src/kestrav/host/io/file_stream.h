#ifndef KESTRAV_HOST_IO_FILE_STREAM_H_
#define KESTRAV_HOST_IO_FILE_STREAM_H_

#include <atomic>
#include <cstdint>
#include <memory>

#include "kestrav/host/io/stream.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/text/string.h"

namespace kestrav::Io {

inline constexpr std::uint32_t kFileBufferBytes = 64 * 1024;

// A file descriptor, closed at the end of its owner.
class KESTRAV_API FileHandle {
 public:
  explicit FileHandle(int descriptor = -1) : descriptor_(descriptor) {}
  ~FileHandle() { Close(); }
  FileHandle(FileHandle&& other) noexcept;
  FileHandle& operator=(FileHandle&& other) noexcept;

  // Opens a regular file. `size` is its length, of a file longer than 4 GiB 4,294,967,295.
  // 0, or the errno value that tells why it cannot be read.
  [[nodiscard]] int OpenForReading(const String& path, std::uint32_t& size);

  bool IsOpen() const { return descriptor_ >= 0; }
  int Get() const { return descriptor_; }
  // false: the system reported an error, such as a write that failed late.
  bool Close();

 private:
  int descriptor_;
};

// Reads a regular file through a buffer. Its length is taken when it is opened; of a file longer
// than 4 GiB the first 4,294,967,295 bytes can be reached.
class KESTRAV_API BufferedFileInputStream final : public IInputStream {
 public:
  explicit BufferedFileInputStream(std::uint32_t buffer_bytes = kFileBufferBytes);

  // Closes an earlier file. false: there is no such regular file, it cannot be read, or memory is
  // short. `Error` tells why.
  [[nodiscard]] bool Open(const String& path);
  void Close();

  // The errno value of the last call that the system failed, 0 if none.
  int Error() const { return error_; }

  [[nodiscard]] bool Read(std::uint8_t* data, std::uint32_t size) override;
  [[nodiscard]] bool Seek(std::uint32_t position) override;
  std::uint32_t Position() const override {
    return buffer_end_ - static_cast<std::uint32_t>(ViewSize());
  }
  std::uint32_t Remaining() const override { return size_ - Position(); }

 protected:
  [[nodiscard]] bool LoadView(std::uint32_t size) override;

 private:
  bool ReadFile(std::uint8_t* data, std::uint32_t size, std::uint32_t at);
  // Empties the buffer; the position is `position`.
  void StartBuffer(std::uint32_t position);

  const std::uint32_t buffer_bytes_;
  FileHandle file_;
  Memory::MemBlock buffer_;
  std::uint32_t buffer_end_ = 0;  // where in the file the byte behind the buffered ones stands
  std::uint32_t buffered_ = 0;
  std::uint32_t size_ = 0;
  int error_ = 0;
};

enum class OpenMode {
  kInPlace,  // an existing regular file, nothing truncated
  kCreate,   // a new file, or an existing one emptied; created with mode 0640
};

struct FileOutputSettings {
  // What is gathered before the system gets it in one write.
  std::uint32_t buffer_bytes = kFileBufferBytes;

  // The file is synced to its device this long after the system got bytes, and once more when it is
  // closed. 0: the system decides when its bytes get there.
  std::uint32_t sync_interval_ms = 1000;

  // What the stream leaves free on the file system for others; it asks now and then, so that what
  // others take meanwhile may count late. Writing over old bytes needs no space.
  std::uint64_t reserve_bytes = 0;
};

// What became of a file since `Open`. Writes are calls of the system for what was buffered, or for
// what is too long to be buffered.
struct FileOutputCounts {
  std::uint64_t bytes = 0;   // handed to the system
  std::uint64_t writes = 0;  // that it took whole
  std::uint64_t failed_writes = 0;
  std::uint64_t syncs = 0;
  std::uint64_t failed_syncs = 0;
  std::uint64_t longest_write_us = 0;  // failed ones included
  int error = 0;                       // as `Error`
};

class FileSyncer;

// Writes a file through a buffer. The file never grows past what a 32-bit position can address.
// When the system refuses bytes (a full disk, the reserve), they stay buffered and are offered
// again by the next write, flush or close; a write that would need their room meanwhile is refused
// whole. What a failed write left behind the end of the file is cut off again; bytes that it was to
// replace may be lost.
//
// The file is synced on a thread of its own, `Kestrav-Sync`, which starts with the first bytes that
// the system gets and ends with `Close`. No write waits for a sync, `Close` does. A sync that
// failed is repeated an interval later.
class KESTRAV_API BufferedFileOutputStream final : public IOutputStream {
 public:
  explicit BufferedFileOutputStream(std::uint32_t buffer_bytes = kFileBufferBytes);
  explicit BufferedFileOutputStream(const FileOutputSettings& settings);
  ~BufferedFileOutputStream() override;

  // Closes an earlier file. false: it cannot be opened, or memory is short. `Error` tells why.
  [[nodiscard]] bool Open(const String& path, OpenMode mode);

  // Flushes, syncs unless that is off, and closes. false: bytes were lost and the file ends with
  // the last write that is whole in it, or what a failed write left behind that could not be cut
  // off, or the file may not be on the device. `Error` tells why.
  bool Close();

  // The errno value of the first call that failed since `Open`, 0 if none did. ENOSPC also when a
  // write would have taken from the reserve; EAGAIN when there was no thread for syncing, which
  // `Close` alone then does; ENOMEM when there was no memory to sync at all. Any thread may ask,
  // but not during `Open`.
  int Error() const { return error_.load(std::memory_order_relaxed); }

  // Any thread may ask, but not during `Open`. The counts of a closed file stay until the next one.
  FileOutputCounts Counts() const;

  [[nodiscard]] bool Write(const std::uint8_t* data, std::uint32_t size) override;
  [[nodiscard]] bool Seek(std::uint32_t position) override;
  std::uint32_t Position() const override { return buffer_start_ + Buffered(); }
  bool Flush() override;
  std::uint32_t Unflushed() const override { return Buffered(); }
  void DropUnflushed() override;

 protected:
  [[nodiscard]] bool MakeRoom(std::uint32_t size) override;

 private:
  std::uint32_t Buffered() const { return room_ - static_cast<std::uint32_t>(RoomSize()); }
  // Empties the buffer; the position is `position`.
  void StartBuffer(std::uint32_t position);
  void ResetCounts();
  bool WriteFile(const std::uint8_t* data, std::uint32_t size, std::uint32_t at);
  bool LeavesReserve(std::uint32_t growth);
  int WriteWhole(const std::uint8_t* data, std::uint32_t size, std::uint32_t at);
  bool CutTornEnd();
  void Fail(int error);

  const FileOutputSettings settings_;
  FileHandle file_;
  std::unique_ptr<FileSyncer> syncer_;  // stays after `Close` for its counts
  Memory::MemBlock buffer_;
  std::uint32_t buffer_start_ = 0;  // where in the file the buffer's first byte belongs
  std::uint32_t room_ = 0;          // what the empty buffer holds
  std::uint32_t end_ = 0;           // the length of the file without what is buffered
  bool torn_ = false;               // behind the end stands what could not be cut off
  bool flush_failed_ = false;       // of what is buffered now
  // By which the file may grow before its free space is asked for.
  std::uint64_t unasked_bytes_ = 0;
  std::uint64_t asked_after_sync_ = 0;  // how many syncs there had been when it was
  std::atomic<std::uint64_t> bytes_{0};
  std::atomic<std::uint64_t> writes_{0};
  std::atomic<std::uint64_t> failed_writes_{0};
  std::atomic<std::uint64_t> longest_write_us_{0};
  std::atomic<int> error_{0};
};

}  // namespace kestrav::Io

#endif  // KESTRAV_HOST_IO_FILE_STREAM_H_
