#include "kestrav/format/decoder.h"

#include <algorithm>
#include <array>
#include <limits>
#include <span>
#include <utility>

#include "kestrav/format/checksum.h"
#include "kestrav/format/scan_pattern.h"
#include "kestrav/format/xor_copy.h"

namespace kestrav {
namespace {

// The bit that a client id gets in a rebuilt 16-bit selection: ids above 15 share the last one.
std::uint16_t RebuiltSelectionBit(std::uint16_t client_id) {
  constexpr std::uint16_t kHigherId = 0x8000;
  return client_id < 16 ? static_cast<std::uint16_t>(1U << client_id) : kHigherId;
}

ResultCode Fill(LogMessage& message, const BinaryLogRecordHeader& header, const std::uint8_t* data,
                std::uint32_t size) {
  const bool filled =
      message.Assign(header.client_id, header.data_id, data, size, header.time_stamp);
  return filled ? kSuccess : kDamaged;
}

// The sum of plain bytes from that of scrambled ones: each has the key in it, and an even number of
// keys is none.
std::uint8_t PlainSum(std::uint8_t sum, std::uint32_t size, std::uint8_t key) {
  return size % 2 == 0 ? sum : sum ^ key;
}

}  // namespace

Reader::Reader(SmartPtr::Ptr<Io::IInputStream> stream) : stream_(std::move(stream)) {}

bool Reader::SetOffset(std::uint32_t offset) {
  return stream_ ? stream_->Seek(offset) : offset == 0;
}

bool Reader::ReadData(std::uint8_t* data, std::uint32_t size) {
  if (data == nullptr) return false;
  return stream_ ? stream_->Read(data, size) : size == 0;
}

BinaryDecoder::BinaryDecoder(SmartPtr::Ptr<Io::IInputStream> stream) : Reader(std::move(stream)) {}

bool BinaryDecoder::StartReading(ResultCode header_read) {
  expected_index_ = 0;
  if (header_read != kSuccess) return false;
  header_crypter_.Initialize(stream_header_.header_key);
  data_crypter_.Initialize(stream_header_.data_key);
  return true;
}

bool BinaryDecoder::Initialize() {
  return StartReading(IsStreamValid() && SetOffset(0) ? ReadBinaryLogStreamHeader(stream_header_)
                                                      : kDamaged);
}

bool BinaryDecoder::Initialize(const Memory::MemBlock& header) {
  const bool read = header.Size() == kStreamHeaderSize && stream_header_.ReadData(header);
  return StartReading(read ? kSuccess : kDamaged);
}

ResultCode BinaryDecoder::ReadBinaryLogStreamHeader(BinaryLogStreamHeader& header) {
  if (GetRemainingBytes() < kStreamHeaderSize) return kNotEnoughData;
  return header.ReadData(Stream()) ? kSuccess : kDamaged;
}

void BinaryDecoder::Stop() {
  SetInputStream(nullptr);
  selection_.Clear();
  expected_index_ = 0;
}

ResultCode BinaryDecoder::ReadLogRecordHeader(BinaryLogRecordHeader& header, std::uint32_t index) {
  if (GetRemainingBytes() < kRecordHeaderSize) return kNotEnoughData;
  std::array<std::uint8_t, kRecordHeaderSize> bytes;
  if (!ReadData(bytes.data(), kRecordHeaderSize)) return kDamaged;
  return header.ReadData(bytes.data(), header_crypter_.RecordKey(index)) ? kSuccess : kDamaged;
}

// The message is filled only when the checksum, of plain bytes, is right.
[[gnu::always_inline]] inline bool BinaryDecoder::TakePayload(LogMessage& message,
                                                              const BinaryLogRecordHeader& header,
                                                              const std::uint8_t* bytes,
                                                              std::uint8_t key) {
  const std::uint32_t size = header.payload_size;
  if (size > LogMessage::kInlineBytes) {
    return payload_.Resize(size) &&
           PlainSum(XorCopy(payload_.Data(), bytes, size, key), size, key) ==
               header.payload_checksum &&
           message.Adopt(header.client_id, header.data_id, payload_, header.time_stamp);
  }
  if (PlainSum(XorSum(bytes, size), size, key) != header.payload_checksum) return false;
  std::uint8_t* const out =
      message.Prepare(header.client_id, header.data_id, size, header.time_stamp);
  if (out != nullptr) static_cast<void>(XorCopy(out, bytes, size, key));
  return out != nullptr;
}

BinaryDecoder::Taken BinaryDecoder::TakeRecord(LogMessage& message, const ClientIdSet* selection) {
  constexpr std::uint32_t kReadAhead = 4096;  // the processor does not foresee it by itself
  if (!IsStreamValid()) return Taken::kNo;
  const std::span<const std::uint8_t> bytes = Stream()->View(kRecordHeaderSize);
  if (bytes.empty()) return Taken::kNo;
  __builtin_prefetch(bytes.data() + kReadAhead);
  BinaryLogRecordHeader header;
  if (!header.ReadData(bytes.data(), header_crypter_.RecordKey(expected_index_))) return Taken::kNo;
  const std::uint32_t size = header.payload_size;
  if (size > std::numeric_limits<std::uint32_t>::max() - kRecordHeaderSize) return Taken::kNo;
  const std::uint32_t record_size = kRecordHeaderSize + size;
  // What a payload needs further bytes for is left to reads: the next view may fail.
  if (bytes.size() < record_size) return Taken::kNo;
  const bool wanted = selection == nullptr || selection->Contains(header.client_id);
  const std::uint8_t key = data_crypter_.RecordKey(header.record_index);
  if (wanted && !TakePayload(message, header, bytes.data() + kRecordHeaderSize, key)) {
    return Taken::kNo;
  }
  Stream()->Advance(record_size);
  expected_index_ = header.record_index + 1;
  return wanted ? Taken::kMessage : Taken::kNotSelected;
}

ResultCode BinaryDecoder::ReadRecordData(Memory::MemBlock& block, std::uint32_t size,
                                         std::uint32_t index) {
  if (GetRemainingBytes() < size) return kNotEnoughData;
  if (size == 0 || !block.Resize(size) || !ReadData(block.Data(), size)) return kDamaged;
  data_crypter_.DecryptData(block.Data(), index, size);
  return kSuccess;
}

ResultCode BinaryDecoder::GetRecordData(Memory::MemBlock& block, std::uint32_t size,
                                        std::uint32_t index, std::uint8_t checksum) {
  const ResultCode read = ReadRecordData(block, size, index);
  if (read != kSuccess) return read;
  return ComputeChecksum(block.Data(), block.Size()) == checksum ? kSuccess : kDamaged;
}

ResultCode BinaryDecoder::SkipData(std::uint32_t size) {
  if (GetRemainingBytes() < size) return kNotEnoughData;
  return SetOffset(Getoffset() + size) ? kSuccess : kDamaged;
}

bool BinaryDecoder::SetToPreviousLogRecord(std::uint32_t payloadSize) {
  const std::uint64_t record_size = std::uint64_t{payloadSize} + kRecordHeaderSize;
  const std::uint32_t position = Getoffset();
  if (position <= record_size) return false;
  const bool moved = SetOffset(position - static_cast<std::uint32_t>(record_size));
  if (expected_index_ > 0) --expected_index_;
  return moved;
}

ResultCode BinaryDecoder::GetNextRecordHeader(BinaryLogRecordHeader& header) {
  ResultCode result = ReadLogRecordHeader(header, expected_index_);
  if (result == kDamaged) {
    if (ScanForNextValidHeader() != kSuccess) return kDamaged;
    result = ReadLogRecordHeader(header, expected_index_);
  }
  if (result == kSuccess) expected_index_ = header.record_index + 1;
  return result;
}

ResultCode BinaryDecoder::GetNextLogRecordHeader(BinaryLogRecordHeader& header) {
  if (GetRemainingBytes() == 0) return kNotEnoughData;
  const ResultCode result = GetNextRecordHeader(header);
  return result == kSuccess ? SkipData(header.payload_size) : result;
}

ResultCode BinaryDecoder::GetNextLogRecord(LogMessage& message) {
  if (TakeRecord(message, nullptr) == Taken::kMessage) return kSuccess;
  if (GetRemainingBytes() == 0) return kNotEnoughData;
  BinaryLogRecordHeader header;
  ResultCode result = GetNextRecordHeader(header);
  if (result != kSuccess) return result;
  const auto read_payload = [&] {
    return GetRecordData(payload_, header.payload_size, header.record_index,
                         header.payload_checksum);
  };
  result = read_payload();
  if (result == kDamaged) {
    if (ScanForNextValidHeader() != kSuccess) return kDamaged;
    // The scan has just read this very header; whether its payload is good too decides.
    static_cast<void>(GetNextRecordHeader(header));
    result = read_payload();
  }
  return result == kSuccess ? Fill(message, header, payload_.Data(), payload_.Size()) : result;
}

ResultCode BinaryDecoder::GetNextPlaybackMessage(LogMessage& message) {
  for (;;) {
    switch (TakeRecord(message, &selection_)) {
      case Taken::kMessage:
        return kSuccess;
      case Taken::kNotSelected:
        continue;
      case Taken::kNo:
        break;
    }
    BinaryLogRecordHeader header;
    ResultCode result = GetNextRecordHeader(header);
    if (result != kSuccess) return result;
    if (!selection_.Contains(header.client_id)) {
      result = SkipData(header.payload_size);
      if (result != kSuccess) return result;
      continue;
    }
    result =
        GetRecordData(payload_, header.payload_size, header.record_index, header.payload_checksum);
    if (result == kSuccess) return Fill(message, header, payload_.Data(), payload_.Size());
    if (result == kNotEnoughData || ScanForNextValidHeader() != kSuccess) return result;
  }
}

ResultCode BinaryDecoder::GetLogMessage(LogMessage& message, const Memory::MemBlock& rawRecord) {
  if (rawRecord.Size() <= kRecordHeaderSize) return kDamaged;
  BinaryLogRecordHeader header;
  if (!header.ReadData(rawRecord.Data(), header_crypter_.RecordKey(expected_index_)) ||
      rawRecord.Size() - kRecordHeaderSize != header.payload_size) {
    return kDamaged;
  }
  if (header.payload_size > LogMessage::kInlineBytes && !payload_.Resize(header.payload_size)) {
    return kDamaged;
  }
  const std::uint8_t key = data_crypter_.RecordKey(expected_index_);
  expected_index_ = header.record_index + 1;
  const std::uint8_t* const payload = rawRecord.Data() + kRecordHeaderSize;
  return TakePayload(message, header, payload, key) ? kSuccess : kDamaged;
}

// As `GetRecordData` says and leaves the position, without keeping the payload.
ResultCode BinaryDecoder::CheckRecordData(const BinaryLogRecordHeader& header) {
  constexpr std::uint32_t kPiece = 4096;
  const std::uint32_t size = header.payload_size;
  if (GetRemainingBytes() < size) return kNotEnoughData;
  const std::uint32_t start = Getoffset();
  std::uint8_t sum = 0;
  for (std::uint32_t done = 0; done < size;) {
    const std::span<const std::uint8_t> bytes = Stream()->View(std::min(kPiece, size - done));
    if (bytes.empty()) {
      if (done > 0 && !SetOffset(start)) return kDamaged;
      return GetRecordData(payload_, size, header.record_index, header.payload_checksum);
    }
    const auto piece = static_cast<std::uint32_t>(std::min<std::size_t>(bytes.size(), size - done));
    sum ^= XorSum(bytes.data(), piece);
    Stream()->Advance(piece);
    done += piece;
  }
  return size > 0 && PlainSum(sum, size, data_crypter_.RecordKey(header.record_index)) ==
                         header.payload_checksum
             ? kSuccess
             : kDamaged;
}

// The scan below in quick: walks over the bytes that lie in memory to the next record header that
// it would find, or to where the bytes are too few for a block.
void BinaryDecoder::PassForeignBytes() {
  const ScanPattern pattern(header_crypter_.RecordKey(expected_index_));
  while (IsStreamValid()) {
    const std::span<const std::uint8_t> bytes = Stream()->View(kScanBlockSize);
    std::uint32_t at = 0;
    const bool found = pattern.Find(bytes, at);
    if (at > 0) Stream()->Advance(at);
    if (found || at == 0) return;
  }
}

ResultCode BinaryDecoder::ScanForNextValidHeader() {
  std::array<std::uint8_t, kScanBlockSize> block;
  for (;;) {
    PassForeignBytes();
    const std::uint32_t remaining = GetRemainingBytes();
    if (remaining < kRecordHeaderSize) return kDamaged;
    const std::uint32_t size = remaining < kScanBlockSize ? kRecordHeaderSize : kScanBlockSize;
    const std::uint32_t start = Getoffset();
    if (!ReadData(block.data(), size)) return kDamaged;
    header_crypter_.DecryptData(block.data(), expected_index_, kRecordHeaderSize);
    const auto end = block.begin() + size;
    const auto found = std::find(block.begin(), end, kRecordMarker);
    if (found == end) continue;

    const std::uint32_t candidate = start + static_cast<std::uint32_t>(found - block.begin());
    BinaryLogRecordHeader header;
    if (!SetOffset(candidate)) return kDamaged;
    if (ReadLogRecordHeader(header, expected_index_) != kSuccess) {
      if (!SetOffset(candidate + 1)) return kDamaged;
      continue;
    }
    const ResultCode payload = CheckRecordData(header);
    // A payload that fails leaves the position behind what was read of it.
    if (payload == kSuccess) return SetOffset(candidate) ? kSuccess : kDamaged;
  }
}

bool BinaryDecoder::ScanStreamHeaderInfo(BinaryLogStreamHeader& out) {
  if (!Initialize()) {
    Stop();
    return false;
  }
  out = stream_header_;
  std::uint16_t selection = 0;
  std::uint32_t end = Getoffset();
  std::uint32_t last_time_stamp = out.start_clock;
  BinaryLogRecordHeader header;
  while (GetNextLogRecordHeader(header) == kSuccess) {
    selection |= RebuiltSelectionBit(header.client_id);
    end = Getoffset();
    last_time_stamp = header.time_stamp;
  }
  const bool good = last_time_stamp >= out.start_clock;
  if (good) {
    out.client_selection = selection;
    out.recording_duration = last_time_stamp - out.start_clock;
    out.stream_length = end;
  }
  const bool done = good && SetOffset(0);
  Stop();
  return done;
}

}  // namespace kestrav
