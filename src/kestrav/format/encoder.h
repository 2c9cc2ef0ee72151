#ifndef KESTRAV_FORMAT_ENCODER_H_
#define KESTRAV_FORMAT_ENCODER_H_

#include <atomic>
#include <chrono>
#include <cstdint>

#include "kestrav/format/crypter.h"
#include "kestrav/format/log_message.h"
#include "kestrav/format/record_header.h"
#include "kestrav/format/stream_header.h"
#include "kestrav/host/api.h"
#include "kestrav/host/io/stream.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/memory/ptr.h"

namespace kestrav {

// A thin writer over a shared output stream, which may be null.
class KESTRAV_API Logger {
 public:
  explicit Logger(SmartPtr::Ptr<Io::IOutputStream> stream);
  virtual ~Logger() = default;

  void SetLogStream(const SmartPtr::Ptr<Io::IOutputStream>& stream) { stream_ = stream; }
  bool IsStreamValid() const { return stream_ != nullptr; }

  // false: no data, no size, no stream, or the stream refused; it then took none of the bytes.
  [[nodiscard]] bool Write(const std::uint8_t* data, std::uint32_t size);
  [[nodiscard]] bool SeekStream(std::uint32_t position);
  // Hands what the stream buffers to the system. false: some of it is still buffered.
  bool FlushStream();

 protected:
  const SmartPtr::Ptr<Io::IOutputStream>& Stream() const { return stream_; }

 private:
  SmartPtr::Ptr<Io::IOutputStream> stream_;
};

// Turns messages into a log: a provisional stream header at the start, a record a message, the
// final header at the stop. The bytes are described in docs/log-format.md. One thread at a time,
// except for `EnableEncryption`.
class KESTRAV_API BinaryEncoder : public Logger {
 public:
  explicit BinaryEncoder(SmartPtr::Ptr<Io::IOutputStream> stream = nullptr);

  // Whether records are scrambled (at first they are); new keys are chosen by the next `Reset`.
  void EnableEncryption(bool enable) { scrambling_ = enable; }

  // Prepares a new stream: counters, keys, and a header with the present time.
  // false: a clock cannot be read.
  [[nodiscard]] bool Reset();

  // Starts a log of the clients in `selection` (bit n: client id n) and writes the provisional
  // header. false: an empty selection, no stream, no clock, or the write failed.
  [[nodiscard]] bool Start(std::uint64_t selection);

  // Writes the header at the stream's position; true only for exactly 128 bytes.
  [[nodiscard]] bool WriteStreamHeader();

  // Writes one record in one write of the stream. With scrambling on, the message's payload is
  // scrambled where it stands. false: nothing was written or counted, and the next record takes
  // this one's index.
  [[nodiscard]] bool WriteBinaryLogRecord(const SmartPtr::Ptr<LogMessage>& message);

  // Hands to the system what is buffered. false: some of it is still buffered, and the stream tries
  // again by itself.
  bool Flush();

  // Seconds since the start, rounded; 0 before the first start or when the clock cannot be read.
  std::uint32_t GetRecordingTimeScnds() const;

  // Writes the final header over the provisional one, leaves the stream at its start and lets go of
  // it. Records that the stream still buffers and cannot write are given up. When the stream cannot
  // seek, the provisional header stays.
  void Stop();

  // The three for logs that are made of other logs. Starts one with the fields of `header`, keys
  // too, and writes it as the provisional header. false: no stream, or the write failed.
  [[nodiscard]] bool StartLike(const BinaryLogStreamHeader& header);
  // Writes a record that says what `header` says, under the next index. `payload` holds its bytes,
  // each XORed with `key`; they stay as they are and their checksum is believed. Allocates nothing.
  // false: the stream refused; what it holds is no log then.
  [[nodiscard]] bool CopyRecord(const BinaryLogRecordHeader& header, const std::uint8_t* payload,
                                std::uint8_t key);
  // As `Stop`, with this duration. false: the header cannot be written.
  [[nodiscard]] bool Finish(std::uint32_t duration_ms);

  // Leaves the stream at its start, for another log; what it cannot write any more is given up.
  void Abandon();

  // Since the last `Reset`. Records, without those that were given up by `Stop`.
  std::uint32_t RecordCount() const { return record_count_; }
  // Records that `Stop` gave up.
  std::uint32_t LostRecords() const { return lost_records_; }
  // Of the log, its header included.
  std::uint32_t BytesWritten() const { return bytes_written_; }
  // The longest time that a record, or a flush, waited for the stream.
  std::chrono::microseconds LongestWrite() const {
    return std::chrono::duration_cast<std::chrono::microseconds>(longest_write_);
  }

  struct Content;  // what a record takes from its message

  // A record's index and what its bytes are XORed with.
  struct Keys {
    std::uint32_t index;
    std::uint8_t header;
    std::uint8_t data;
  };

 private:
  [[nodiscard]] bool WriteOtherRecord(LogMessage& message);
  [[nodiscard]] bool WritePieces(const std::uint8_t* header, const std::uint8_t* payload,
                                 std::uint32_t size, std::uint8_t key);
  [[nodiscard]] bool WriteWithoutRoom(const Content& content);
  void DropUnflushed();
  void ResetCounts();
  Keys NextKeys() const {
    if (!scrambling_) return {record_count_, 0, 0};
    return {record_count_, header_crypter_.RecordKey(record_count_),
            data_crypter_.RecordKey(record_count_)};
  }
  void CountRecord(std::uint32_t size, std::uint32_t time_stamp) {
    bytes_written_ += size;
    ++record_count_;
    last_time_stamp_ = time_stamp;
  }

  std::atomic<bool> scrambling_{true};
  Crypter header_crypter_;
  Crypter data_crypter_;
  std::uint32_t record_count_ = 0;
  std::uint32_t start_clock_ = 0;  // 0: not recording
  std::uint32_t bytes_written_ = 0;
  std::uint32_t last_time_stamp_ = 0;
  std::uint32_t first_unflushed_ = 0;  // index of the first record that the stream may still buffer
  std::uint32_t lost_records_ = 0;
  std::chrono::steady_clock::duration longest_write_{};
  BinaryLogStreamHeader stream_header_;
  Memory::MemBlock record_;  // kept from record to record, so that few of them allocate
};

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_ENCODER_H_
