#include "reliability/recovered_log.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace kestrav::test {
namespace {

constexpr std::size_t kChecksumAt = 1;
constexpr std::size_t kIndexAt = 4;
constexpr std::size_t kIdsAt = 8;
constexpr std::size_t kTimeAt = 12;
constexpr std::size_t kSizeAt = 16;

void Put(Bytes& bytes, std::size_t at, std::uint32_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

std::uint32_t Get(std::span<const std::uint8_t> bytes, std::size_t at, std::uint8_t key = 0) {
  std::uint32_t value = 0;
  for (std::size_t i = 4; i-- > 0;)
    value = value << 8 | static_cast<std::uint8_t>(bytes[at + i] ^ key);
  return value;
}

// Whether each byte is the plain one XOR `key`; eight at a time, since this takes most of the time.
bool IsScrambled(const std::uint8_t* bytes, const std::uint8_t* plain, std::size_t size,
                 std::uint8_t key) {
  std::uint64_t difference = 0;
  for (; size >= 8; bytes += 8, plain += 8, size -= 8) {
    std::uint64_t eight;
    std::uint64_t plain_eight;
    std::memcpy(&eight, bytes, 8);
    std::memcpy(&plain_eight, plain, 8);
    difference |= eight ^ plain_eight ^ key * 0x0101'0101'0101'0101;
  }
  for (; size > 0; ++bytes, ++plain, --size) {
    difference |= static_cast<std::uint64_t>(*bytes ^ *plain ^ key);
  }
  return difference == 0;
}

// A record as record 0 of a plain log.
Bytes Encode(const Said& said) {
  Bytes bytes(kRecordHeaderBytes);
  bytes[0] = 0x4C;
  bytes[2] = Xor(said.payload);
  Put(bytes, 8, said.client, 2);
  Put(bytes, 10, said.data_id, 2);
  Put(bytes, kTimeAt, said.time_ms, 4);
  Put(bytes, kSizeAt, static_cast<std::uint32_t>(said.payload.size()), 4);
  for (std::size_t i = 2; i < kRecordHeaderBytes; ++i) bytes[kChecksumAt] ^= bytes[i];
  bytes.insert(bytes.end(), said.payload.begin(), said.payload.end());
  return bytes;
}

}  // namespace

bool ReusedOutputStream::Write(const std::uint8_t* data, std::uint32_t size) {
  bytes_.resize(std::max<std::size_t>(bytes_.size(), position_ + size));
  std::copy_n(data, size, bytes_.begin() + position_);
  position_ += size;
  return true;
}

bool ReusedOutputStream::Seek(std::uint32_t position) {
  if (position > bytes_.size()) return false;
  position_ = position;
  return true;
}

void ReusedOutputStream::Clear() {
  bytes_.clear();
  position_ = 0;
}

RecoveryJudge::RecoveryJudge(const SampleLog& healthy) : healthy_(healthy) {
  for (const SampleLog::Record& record : healthy.records) encoded_.push_back(Encode(record.said));
}

const RecoveryJudge::Verdict& RecoveryJudge::Recover(const Bytes& damaged) {
  Clear();
  stream_.Clear();
  verdict_.result = RecoverLog(damaged, &stream_, report_);
  out_ = stream_.Content();
  if (verdict_.result == RecoveryResult::kNothingFound) {
    if (!out_.empty()) verdict_.error = "a log of no records";
  } else if (verdict_.result > RecoveryResult::kDamaged) {
    verdict_.error = "no recovery";
  } else {
    JudgeHeader();
    JudgeRecords();
  }
  return verdict_;
}

const RecoveryJudge::Verdict& RecoveryJudge::Judge(const Bytes& out, const RecoveryReport& report) {
  Clear();
  verdict_.result = RecoveryResult::kDamaged;
  report_ = report;
  out_ = out;
  JudgeHeader();
  JudgeRecords();
  return verdict_;
}

void RecoveryJudge::Clear() {
  report_ = {};
  verdict_.back.assign(healthy_.records.size(), false);
  verdict_.records = 0;
  verdict_.strangers.clear();
  verdict_.error.clear();
}

void RecoveryJudge::JudgeHeader() {
  if (out_.size() < kStreamHeaderBytes || Get(out_, 0) != 0x3A474F4C) {
    verdict_.error = "no stream header";
  } else if (Get(out_, 16) != out_.size()) {
    verdict_.error = "a wrong length in the stream header";
  }
}

void RecoveryJudge::JudgeRecords() {
  std::size_t at = kStreamHeaderBytes;
  std::uint32_t index = 0;
  if (report_.dictionary_moved) at = BehindDictionaryCopy();
  if (at > kStreamHeaderBytes) ++index;
  const std::uint32_t copies = index;
  for (std::size_t next = 0; verdict_.error.empty() && at < out_.size(); ++index) {
    std::size_t found = next;
    while (found < encoded_.size() && !IsAt(at, index, encoded_[found])) ++found;
    if (found == encoded_.size()) {
      const std::size_t end = EndOf(at, index);
      if (verdict_.error.empty()) verdict_.strangers.push_back(SaidAt(at, end, index));
      at = end;
      continue;
    }
    verdict_.back[found] = true;
    ++verdict_.records;
    at += encoded_[found].size();
    next = found + 1;
  }
  if (verdict_.error.empty() && report_.records != index - copies) {
    verdict_.error = "a report of other records than those that were written";
  }
}

std::size_t RecoveryJudge::BehindDictionaryCopy() {
  const std::size_t second = EndOf(kStreamHeaderBytes, 0);
  EndOf(second, 1);
  if (!verdict_.error.empty()) return kStreamHeaderBytes;
  Said copy = healthy_.records[0].said;
  copy.time_ms = Get(out_, second + kTimeAt, RecordKey(out_[10], 1));
  if (!IsAt(kStreamHeaderBytes, 0, Encode(copy))) verdict_.error = "no dictionary in front";
  return second;
}

// `record` is as record 0 of a plain log; the bytes at `at` are record `index` of this one.
bool RecoveryJudge::IsAt(std::size_t at, std::uint32_t index, const Bytes& record) const {
  if (out_.size() - at < record.size()) return false;
  const std::uint8_t header_key = RecordKey(out_[10], index);
  const std::uint8_t data_key = RecordKey(out_[11], index);
  if (Get(out_, at + kIndexAt, header_key) != index) return false;
  std::uint8_t index_sum = 0;
  for (std::size_t i = 0; i < 4; ++i) index_sum ^= static_cast<std::uint8_t>(index >> (8 * i));
  const std::uint8_t* const bytes = &out_[at];
  if ((bytes[kChecksumAt] ^ header_key) != (record[kChecksumAt] ^ index_sum)) return false;
  return bytes[0] == (record[0] ^ header_key) &&
         IsScrambled(bytes + 2, &record[2], kIndexAt - 2, header_key) &&
         IsScrambled(bytes + kIdsAt, &record[kIdsAt], kRecordHeaderBytes - kIdsAt, header_key) &&
         IsScrambled(bytes + kRecordHeaderBytes, &record[kRecordHeaderBytes],
                     record.size() - kRecordHeaderBytes, data_key);
}

Said RecoveryJudge::SaidAt(std::size_t at, std::size_t end, std::uint32_t index) const {
  const std::uint8_t key = RecordKey(out_[10], index);
  const std::uint32_t ids = Get(out_, at + kIdsAt, key);
  Said said{static_cast<std::uint16_t>(ids), static_cast<std::uint16_t>(ids >> 16),
            Get(out_, at + kTimeAt, key), ""};
  for (std::size_t i = at + kRecordHeaderBytes; i < end; ++i) {
    said.payload.push_back(static_cast<char>(out_[i] ^ RecordKey(out_[11], index)));
  }
  return said;
}

std::size_t RecoveryJudge::EndOf(std::size_t at, std::uint32_t index) {
  const std::uint8_t key = RecordKey(out_[10], index);
  if (out_.size() - at >= kRecordHeaderBytes && (out_[at] ^ key) == 0x4C) {
    const std::uint64_t end = at + kRecordHeaderBytes + std::uint64_t{Get(out_, at + kSizeAt, key)};
    if (end <= out_.size()) return static_cast<std::size_t>(end);
  }
  verdict_.error = "no record at " + std::to_string(at);
  return out_.size();
}

}  // namespace kestrav::test
