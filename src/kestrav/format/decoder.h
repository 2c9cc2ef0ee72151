#ifndef KESTRAV_FORMAT_DECODER_H_
#define KESTRAV_FORMAT_DECODER_H_

#include <cstdint>

#include "kestrav/format/crypter.h"
#include "kestrav/format/log_message.h"
#include "kestrav/format/record_header.h"
#include "kestrav/format/stream_header.h"
#include "kestrav/host/api.h"
#include "kestrav/host/io/stream.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/types/client_id_set.h"

namespace kestrav {

enum ResultCode : std::uint32_t {
  kSuccess = 0,
  kDamaged = 1,  // damaged data, a read or seek that failed, or a message that cannot be filled
  kNotEnoughData = 2,  // fewer bytes remain than the step needs
};

// A thin reader over a shared input stream. Without a stream it behaves as on an empty one.
class KESTRAV_API Reader {
 public:
  explicit Reader(SmartPtr::Ptr<Io::IInputStream> stream);
  virtual ~Reader() = default;

  void SetInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) { stream_ = stream; }
  bool IsStreamValid() const { return stream_ != nullptr; }
  std::uint32_t Getoffset() const { return stream_ ? stream_->Position() : 0; }
  [[nodiscard]] bool SetOffset(std::uint32_t offset);
  std::uint32_t GetRemainingBytes() const { return stream_ ? stream_->Remaining() : 0; }
  // Reads exactly `size` bytes. false: null data, or the read failed and the position is as before.
  [[nodiscard]] bool ReadData(std::uint8_t* data, std::uint32_t size);

 protected:
  const SmartPtr::Ptr<Io::IInputStream>& Stream() const { return stream_; }

 private:
  SmartPtr::Ptr<Io::IInputStream> stream_;
};

// Reads a log back: walks the records, checks them, finds its way again after damage and skips what
// is not selected. The bytes, and the way back after damage, are described in docs/log-format.md.
// Damaged records are dropped silently. One thread at a time.
class KESTRAV_API BinaryDecoder : public Reader {
 public:
  explicit BinaryDecoder(SmartPtr::Ptr<Io::IInputStream> stream = nullptr);

  // Reads the header from the start of the stream. false: no stream, or no log.
  [[nodiscard]] bool Initialize();
  // The same from a block of exactly 128 bytes, for records that are then handed in one by one.
  [[nodiscard]] bool Initialize(const Memory::MemBlock& header);
  // Reads at the position. kNotEnoughData: fewer than 128 bytes remain. kDamaged: not a log.
  [[nodiscard]] ResultCode ReadBinaryLogStreamHeader(BinaryLogStreamHeader& header);

  // The clients whose records `GetNextPlaybackMessage` delivers.
  void SetPlaybackSelection(const ClientIdSet& selection) { selection_ = selection; }

  // Lets go of the stream and the selection.
  void Stop();

  // The header read last.
  const BinaryLogStreamHeader& StreamHeader() const { return stream_header_; }

  // Reads a record header at the position, taking it for the one of record `index`.
  // kNotEnoughData: fewer than 20 bytes remain, none was read. kDamaged: 20 bytes were read.
  [[nodiscard]] ResultCode ReadLogRecordHeader(BinaryLogRecordHeader& header, std::uint32_t index);

  // Reads `size` payload bytes of record `index` into `block` and unscrambles them.
  // kNotEnoughData: fewer than `size` bytes remain; nothing was read or allocated.
  // kDamaged: `size` is 0, the block cannot be sized, or the read failed.
  [[nodiscard]] ResultCode ReadRecordData(Memory::MemBlock& block, std::uint32_t size,
                                          std::uint32_t index);
  // The same, and kDamaged too when the checksum differs.
  [[nodiscard]] ResultCode GetRecordData(Memory::MemBlock& block, std::uint32_t size,
                                         std::uint32_t index, std::uint8_t checksum);
  [[nodiscard]] ResultCode SkipData(std::uint32_t size);

  // Steps back over the record just read, whose payload had `payloadSize` bytes, so that it is read
  // again. false: the position is not beyond such a record, or the seek failed.
  [[nodiscard]] bool SetToPreviousLogRecord(std::uint32_t payloadSize);

  // Reads the next valid header; the position is then at its payload.
  [[nodiscard]] ResultCode GetNextRecordHeader(BinaryLogRecordHeader& header);
  // The same, and skips the payload.
  [[nodiscard]] ResultCode GetNextLogRecordHeader(BinaryLogRecordHeader& header);
  // Reads the next record that is whole.
  [[nodiscard]] ResultCode GetNextLogRecord(LogMessage& message);
  // Reads the next record that is whole and selected.
  [[nodiscard]] ResultCode GetNextPlaybackMessage(LogMessage& message);
  // Decodes one record, header and payload, that stands alone in `rawRecord`.
  [[nodiscard]] ResultCode GetLogMessage(LogMessage& message, const Memory::MemBlock& rawRecord);

  // Finds the next valid record from the position on and stands before it. In a scrambled stream
  // only a record with the expected index can be found. kDamaged: there is none, or a seek or read
  // failed.
  [[nodiscard]] ResultCode ScanForNextValidHeader();

  // Rebuilds selection, duration and length of the stream header from the records and lets go of
  // the stream. false: no log, its time stamps end before it starts, or a seek failed.
  [[nodiscard]] bool ScanStreamHeaderInfo(BinaryLogStreamHeader& out);

 private:
  [[nodiscard]] bool StartReading(ResultCode header_read);
  // Takes the next record when it is whole and lies in one piece in memory: the usual case, in one
  // pass. false: it does not; nothing was read or changed.
  enum class Taken : std::uint8_t { kNo, kMessage, kNotSelected };
  Taken TakeRecord(LogMessage& message, const ClientIdSet* selection);
  [[nodiscard]] bool TakePayload(LogMessage& message, const BinaryLogRecordHeader& header,
                                 const std::uint8_t* bytes, std::uint8_t key);
  [[nodiscard]] ResultCode CheckRecordData(const BinaryLogRecordHeader& header);
  void PassForeignBytes();

  Crypter header_crypter_;
  Crypter data_crypter_;
  BinaryLogStreamHeader stream_header_;
  ClientIdSet selection_;
  std::uint32_t expected_index_ = 0;  // unscrambles the next header
  Memory::MemBlock payload_;          // kept from record to record, so that few of them allocate
};

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_DECODER_H_
