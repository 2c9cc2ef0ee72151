#include "support/reference_reader.h"

namespace kestrav::test {

std::uint8_t ReferenceReader::Unscrambled(std::size_t at, std::uint8_t stream_key,
                                          std::uint32_t index) const {
  const std::uint8_t byte = log_.at(at);
  if (stream_key == 0) return byte;
  std::uint32_t key = (stream_key + index % 256) % 256;
  if (key == 0) key = 1;
  return static_cast<std::uint8_t>(byte ^ key);
}

std::uint32_t ReferenceReader::Number(std::size_t at, int size) const {
  std::uint32_t number = 0;
  while (size-- > 0) {
    number = number * 256 +
             Unscrambled(at + static_cast<std::size_t>(size), log_.at(10), expected_index_);
  }
  return number;
}

ReferenceReader::Code ReferenceReader::ReadHeader(Header& header) {
  if (Remaining() < 20) return kShort;
  const std::uint32_t at = position_;
  position_ += 20;
  header.payload_checksum = static_cast<std::uint8_t>(Number(at + 2, 1));
  header.index = Number(at + 4, 4);
  header.said.client = static_cast<std::uint16_t>(Number(at + 8, 2));
  header.said.data_id = static_cast<std::uint16_t>(Number(at + 10, 2));
  header.said.time_ms = Number(at + 12, 4);
  header.payload_size = Number(at + 16, 4);
  std::uint32_t checksum = 0;
  for (std::uint32_t i = 2; i < 20; ++i) checksum ^= Number(at + i, 1);
  return Number(at, 1) == 0x4C && Number(at + 1, 1) == checksum ? kGood : kBad;
}

ReferenceReader::Code ReferenceReader::ReadPayload(const Header& header, std::string& payload) {
  if (Remaining() < header.payload_size) return kShort;
  if (header.payload_size == 0) return kBad;
  payload.clear();
  std::uint8_t checksum = 0;
  for (std::uint32_t i = 0; i < header.payload_size; ++i) {
    const std::uint8_t byte = Unscrambled(position_++, log_.at(11), header.index);
    payload.push_back(static_cast<char>(byte));
    checksum ^= byte;
  }
  return checksum == header.payload_checksum ? kGood : kBad;
}

ReferenceReader::Code ReferenceReader::Skip(const Header& header) {
  if (Remaining() < header.payload_size) return kShort;
  position_ += header.payload_size;
  return kGood;
}

ReferenceReader::Code ReferenceReader::Scan() {
  while (Remaining() >= 20) {
    const std::uint32_t start = position_;
    const std::uint32_t block_size = Remaining() >= 50 ? 50 : 20;
    std::uint32_t offset = 0;
    while (offset < block_size) {
      const bool among_the_first = offset < 20;
      const std::uint8_t byte = among_the_first
                                    ? Unscrambled(start + offset, log_.at(10), expected_index_)
                                    : log_.at(start + offset);
      if (byte == 0x4C) break;
      ++offset;
    }
    if (offset == block_size) {
      position_ = start + block_size;
      continue;
    }
    position_ = start + offset;
    Header header;
    if (ReadHeader(header) != kGood) {
      position_ = start + offset + 1;
      continue;
    }
    std::string payload;
    if (ReadPayload(header, payload) == kGood) {
      position_ = start + offset;
      return kGood;
    }
  }
  return kBad;
}

ReferenceReader::Code ReferenceReader::NextHeader(Header& header) {
  Code code = ReadHeader(header);
  if (code == kBad) {
    if (Scan() != kGood) return kBad;
    code = ReadHeader(header);
  }
  if (code == kGood) expected_index_ = header.index + 1;
  return code;
}

ReferenceReader::Code ReferenceReader::NextHeaderAndSkip(Said& said) {
  if (Remaining() == 0) return kShort;
  Header header;
  const Code code = NextHeader(header);
  said = header.said;
  return code == kGood ? Skip(header) : code;
}

ReferenceReader::Code ReferenceReader::Next(Said& said) {
  if (Remaining() == 0) return kShort;
  Header header;
  Code code = NextHeader(header);
  if (code != kGood) return code;
  std::string payload;
  code = ReadPayload(header, payload);
  if (code == kBad) {
    if (Scan() != kGood) return kBad;
    NextHeader(header);
    code = ReadPayload(header, payload);
  }
  if (code != kGood) return code;
  if (header.said.client == 0xFFFF || header.said.data_id == 0xFFFF) return kBad;
  said = header.said;
  said.payload = payload;
  return kGood;
}

ReferenceReader::Code ReferenceReader::NextSelected(Said& said, std::uint64_t selection) {
  for (;;) {
    Header header;
    Code code = NextHeader(header);
    if (code != kGood) return code;
    const std::uint16_t client = header.said.client;
    if (client > 63 || (selection >> client) % 2 == 0) {
      code = Skip(header);
      if (code != kGood) return code;
      continue;
    }
    std::string payload;
    code = ReadPayload(header, payload);
    if (code == kShort) return kShort;
    if (code == kBad) {
      if (Scan() != kGood) return kBad;
      continue;
    }
    if (header.said.data_id == 0xFFFF) return kBad;
    said = header.said;
    said.payload = payload;
    return kGood;
  }
}

}  // namespace kestrav::test
