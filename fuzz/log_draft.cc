#include "fuzz/log_draft.h"

#include <algorithm>

namespace kestrav::fuzz {
namespace {

constexpr std::size_t kHeaderSize = 20;
constexpr std::uint8_t kMarker = 0x4C;

void Append(Bytes& bytes, Input more, std::uint8_t key) {
  for (const std::uint8_t byte : more) bytes.push_back(byte ^ key);
}

std::uint8_t Sum(Input bytes) {
  std::uint8_t sum = 0;
  for (const std::uint8_t byte : bytes) sum ^= byte;
  return sum;
}

// Takes a record off the front of `rest`. false: none stands there.
bool TakeRecord(Input& rest, LogDraft& draft, std::uint32_t expected) {
  if (rest.size() < kHeaderSize) return false;
  DraftRecord record;
  const std::uint8_t key = RecordKey(draft.HeaderKey(), expected);
  for (std::size_t i = 0; i < kHeaderSize; ++i) record.header[i] = rest[i] ^ key;
  const std::size_t size = LittleEndian32(record.header.data() + 16);
  if (record.header[0] != kMarker || size > rest.size() - kHeaderSize) return false;
  Append(record.payload, rest.subspan(kHeaderSize, size),
         RecordKey(draft.DataKey(), record.Index()));
  rest = rest.subspan(kHeaderSize + size);
  draft.records.push_back(std::move(record));
  return true;
}

}  // namespace

void DraftRecord::Put(std::size_t at, std::uint32_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    header[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

void DraftRecord::SealHeader() {
  header[0] = kMarker;
  header[1] = Sum(Input(header).subspan(2));
}

void DraftRecord::Seal() {
  Put(16, static_cast<std::uint32_t>(payload.size()), 4);
  header[2] = Sum(payload);
  SealHeader();
}

LogDraft::LogDraft(Input log) {
  constexpr std::array<std::uint8_t, 8> kStart = {'L', 'O', 'G', ':', 0, 0, 0, 1};
  std::copy(kStart.begin(), kStart.end(), header.begin());
  std::copy_n(log.begin(), std::min(log.size(), header.size()), header.begin());
  std::copy_n(kStart.begin(), 4, header.begin());
  Input rest = log.subspan(std::min(log.size(), header.size()));
  std::uint32_t expected = 0;
  while (TakeRecord(rest, *this, expected)) expected = records.back().Index() + 1;
  tail.assign(rest.begin(), rest.end());
}

Bytes LogDraft::Joined() const {
  Bytes log(header.begin(), header.end());
  std::uint32_t expected = 0;
  for (const DraftRecord& record : records) {
    const std::uint32_t index = record.Index();
    Append(log, record.header, RecordKey(header[10], expected));
    Append(log, record.payload, RecordKey(header[11], index));
    expected = index + 1;
  }
  log.insert(log.end(), tail.begin(), tail.end());
  return log;
}

void LogDraft::NumberAnew() {
  std::uint32_t index = 0;
  for (DraftRecord& record : records) {
    record.Put(4, index++, 4);
    record.SealHeader();
  }
}

}  // namespace kestrav::fuzz
