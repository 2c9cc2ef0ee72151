#include "kestrav/format/decoder.h"

#include <algorithm>
#include <array>
#include <utility>

#include "kestrav/format/checksum.h"

namespace kestrav {
namespace {

constexpr std::uint32_t kScanBlockSize = 50;

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
  header_crypter_.DecryptData(bytes.data(), index, kRecordHeaderSize);
  return header.ReadData(bytes.data()) ? kSuccess : kDamaged;
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
  if (!payload_.Assign(rawRecord.Data(), rawRecord.Size())) return kDamaged;
  BinaryLogRecordHeader header;
  header_crypter_.DecryptData(payload_.Data(), expected_index_, kRecordHeaderSize);
  if (!header.ReadData(payload_)) return kDamaged;
  std::uint8_t* const data = payload_.Data() + kRecordHeaderSize;
  const std::uint32_t size = payload_.Size() - kRecordHeaderSize;
  if (size != header.payload_size) return kDamaged;
  data_crypter_.DecryptData(data, expected_index_, size);
  expected_index_ = header.record_index + 1;
  if (ComputeChecksum(data, size) != header.payload_checksum) return kDamaged;
  return Fill(message, header, data, size);
}

ResultCode BinaryDecoder::ScanForNextValidHeader() {
  std::array<std::uint8_t, kScanBlockSize> block;
  for (;;) {
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
    const ResultCode payload =
        GetRecordData(payload_, header.payload_size, header.record_index, header.payload_checksum);
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
