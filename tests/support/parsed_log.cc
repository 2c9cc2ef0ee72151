#include "support/parsed_log.h"

#include <cstddef>

namespace kestrav::test {
namespace {

constexpr std::size_t kStreamHeader = 128;
constexpr std::size_t kRecordHeader = 20;

std::uint32_t Get(const Bytes& bytes, std::size_t at, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size; ++i) value |= std::uint32_t{bytes[at + i]} << (8 * i);
  return value;
}

std::uint16_t Get16(const Bytes& bytes, std::size_t at) {
  return static_cast<std::uint16_t>(Get(bytes, at, 2));
}

// `size` bytes from `at` on, as they were before record `index` was scrambled.
Bytes Plain(const Bytes& bytes, std::size_t at, std::size_t size, std::uint8_t stream_key,
            std::size_t index) {
  auto key = static_cast<std::uint8_t>(stream_key == 0 ? 0 : (stream_key + index) % 256);
  if (stream_key != 0 && key == 0) key = 1;
  Bytes plain;
  for (std::size_t i = at; i < at + size; ++i) plain.push_back(bytes[i] ^ key);
  return plain;
}

std::uint8_t XorFrom(const Bytes& bytes, std::size_t from) {
  std::uint8_t result = 0;
  for (std::size_t i = from; i < bytes.size(); ++i) result ^= bytes[i];
  return result;
}

void ReadHeader(const Bytes& bytes, ParsedLog& log) {
  if (bytes.size() < kStreamHeader || Get(bytes, 0, 4) != 0x3A474F4C) {
    log.error = "no stream header";
    return;
  }
  log.start_time = Get(bytes, 4, 4);
  log.selection = Get16(bytes, 8);
  log.header_key = bytes[10];
  log.data_key = bytes[11];
  log.duration_ms = Get(bytes, 12, 4);
  log.stream_length = Get(bytes, 16, 4);
  log.clock_rate = Get(bytes, 20, 4);
  log.start_clock = Get(bytes, 24, 4);
  for (std::size_t i = 28; i < kStreamHeader; ++i) {
    if (bytes[i] != 0) log.error = "a reserved byte of the stream header is not 0";
  }
}

// What is wrong with the record at `at`, which is then moved behind it.
std::string ReadRecord(const Bytes& bytes, std::size_t& at, ParsedLog& log) {
  const std::size_t index = log.records.size();
  if (bytes.size() - at < kRecordHeader) return "cut record header";
  const Bytes header = Plain(bytes, at, kRecordHeader, log.header_key, index);
  if (header[0] != 0x4C || header[1] != XorFrom(header, 2)) return "damaged record header";
  if (Get(header, 4, 4) != index) return "numbered " + std::to_string(Get(header, 4, 4));
  const std::uint32_t size = Get(header, 16, 4);
  at += kRecordHeader;
  if (bytes.size() - at < size) return "cut payload";
  const Bytes payload = Plain(bytes, at, size, log.data_key, index);
  if (header[2] != XorFrom(payload, 0)) return "damaged payload";
  at += size;
  log.records.push_back({Get16(header, 8), Get16(header, 10), Get(header, 12, 4),
                         std::string(payload.begin(), payload.end())});
  return {};
}

}  // namespace

std::vector<std::string> ParsedLog::PayloadsOf(std::uint16_t client_id) const {
  std::vector<std::string> payloads;
  for (const ParsedRecord& record : records) {
    if (record.client_id == client_id) payloads.push_back(record.payload);
  }
  return payloads;
}

ParsedLog ParseLog(const Bytes& bytes) {
  ParsedLog log;
  ReadHeader(bytes, log);
  for (std::size_t at = kStreamHeader; log.error.empty() && at < bytes.size();) {
    const std::size_t start = at;
    const std::string error = ReadRecord(bytes, at, log);
    if (error.empty()) continue;
    log.error = "record " + std::to_string(log.records.size()) + " at " + std::to_string(start) +
                ": " + error;
  }
  return log;
}

std::string DictionaryPayload(const std::map<std::string, int>& entries) {
  std::string payload(4, '\0');
  payload[0] = static_cast<char>(entries.size());
  for (const auto& [name, id] : entries) {
    payload += name + '\0' + std::to_string(id) + '\0';
  }
  return payload;
}

}  // namespace kestrav::test
