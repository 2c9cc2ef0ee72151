#include "reliability/nested_log.h"

#include <algorithm>

#include "support/parsed_log.h"

namespace kestrav::test {
namespace {

constexpr std::uint16_t kClients[] = {3, 21, 40};
constexpr std::uint32_t kOtherStart = 900'000;
constexpr std::size_t kLongestBeginning = 20'000;

Said Dictionary(std::uint32_t time_ms) {
  return {kRecorderId, kDictionaryId, time_ms,
          DictionaryPayload({{"GPS", 21}, {"Info Client", 12}, {"Radio", 3}, {"Vehicle Bus", 40}})};
}

}  // namespace

NestedLog::NestedLog(LogKeys keys, Nest nest, std::uint32_t seed) : random_(seed), keys_(keys) {
  SampleLogWriter writer(keys, time_ms_);
  writer.Add(Dictionary(time_ms_));
  const std::uint32_t records = 30 + Pick(41);
  for (std::uint32_t i = 1; i < records; ++i) {
    std::string payload = Random(1 + Pick(60));
    if (Pick(5) == 0 || (i + 1 == records && holders_.empty())) {
      holders_.push_back(i);
      payload = Inner(nest, i, writer.Content());
    }
    time_ms_ += 1 + Pick(200);
    writer.Add(Message(time_ms_, payload));
  }
  log_ = writer.Finish();
}

Bytes NestedLog::Damaged() {
  Bytes bytes = log_.bytes;
  untouched_.assign(log_.records.size(), true);
  std::vector<std::size_t> hit = holders_;
  std::shuffle(hit.begin(), hit.end(), random_);
  hit.resize(1 + Pick(std::min<std::uint32_t>(static_cast<std::uint32_t>(hit.size()), 3)));
  for (const std::size_t index : hit) DamageHeader(bytes, index);
  if (Pick(8) == 0) std::fill_n(bytes.begin(), kStreamHeaderBytes, std::uint8_t{0});
  return bytes;
}

std::string NestedLog::Random(std::uint32_t size) {
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(Pick(256));
  return bytes;
}

Said NestedLog::Message(std::uint32_t time_ms, const std::string& payload) {
  const auto data_id = static_cast<std::uint16_t>(1 + Pick(4));
  return {kClients[Pick(std::size(kClients))], data_id, time_ms, payload};
}

LogKeys NestedLog::InnerKeys() {
  switch (Pick(3)) {
    case 0:
      return {};
    case 1:
      return keys_;
    default:
      return {static_cast<std::uint8_t>(Pick(256)), static_cast<std::uint8_t>(Pick(256))};
  }
}

// A log for record `index`, now and then with other bytes on both sides.
std::string NestedLog::Inner(Nest nest, std::uint32_t index, const Bytes& so_far) {
  const std::uint32_t filler = Pick(3) == 0 ? 60 : 1;
  Bytes log = so_far;
  if (nest != Nest::kOwnBeginning || so_far.size() > kLongestBeginning) {
    std::uint32_t time_ms = nest == Nest::kOtherRecording ? kOtherStart : time_ms_;
    SampleLogWriter writer(InnerKeys(), time_ms);
    if (nest == Nest::kContinuing) writer.NextIndex(index + Pick(2));
    if (Pick(2) == 0) writer.Add(Dictionary(time_ms));
    for (std::uint32_t records = 1 + Pick(Pick(4) == 0 ? 120 : 12); records > 0; --records) {
      time_ms += Pick(3);
      writer.Add(Message(time_ms, Random(1 + Pick(60))));
    }
    log = writer.Finish().bytes;
  }
  return Random(Pick(filler)) + std::string(log.begin(), log.end()) + Random(Pick(filler));
}

void NestedLog::DamageHeader(Bytes& bytes, std::size_t index) {
  untouched_[index] = false;
  const std::size_t at = log_.records[index].offset;
  switch (Pick(3)) {
    case 0:
      bytes[at + Pick(kRecordHeaderBytes)] ^= static_cast<std::uint8_t>(1U << Pick(8));
      return;
    case 1:
      std::fill_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), kRecordHeaderBytes,
                  std::uint8_t{0});
      return;
    default:
      for (std::size_t i = 0; i < kRecordHeaderBytes; ++i) {
        bytes[at + i] = static_cast<std::uint8_t>(Pick(256));
      }
  }
}

}  // namespace kestrav::test
