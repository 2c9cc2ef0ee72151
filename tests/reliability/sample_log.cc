#include "reliability/sample_log.h"

#include <algorithm>
#include <random>
#include <string>

#include "support/parsed_log.h"

namespace kestrav::test {
namespace {

constexpr std::uint16_t kClients[] = {3, 17, 21, 22, 40};
constexpr std::uint32_t kStartClock = 4'000'000;
constexpr std::size_t kRecords = 600;
constexpr char kMarker = 0x4C;
constexpr std::size_t kRecordsPerDictionary = 97;

class Recorder {
 public:
  Recorder(LogKeys keys, std::uint32_t seed, Markers markers)
      : random_(seed), writer_(keys, kStartClock), markers_(markers) {}

  SampleLog Record() {
    for (std::size_t i = 0; i < kRecords; ++i) {
      writer_.Add(i % kRecordsPerDictionary == 0 ? Dictionary() : Message());
    }
    return writer_.Finish();
  }

 private:
  std::uint32_t Pick(std::uint32_t below) { return static_cast<std::uint32_t>(random_()) % below; }

  Said Dictionary() {
    return {kRecorderId, kDictionaryId, ++time_ms_,
            DictionaryPayload({{"Cabin", 22},
                               {"GPS", 21},
                               {"Info Client", 12},
                               {"Radio", 3},
                               {"Tuner Two", 17},
                               {"Vehicle Bus", 40}})};
  }

  // Messages of one millisecond are told apart by their client.
  Said Message() {
    const bool same_time = Pick(4) == 0 && last_client_ + 1 < std::size(kClients);
    last_client_ = same_time ? last_client_ + 1 : Pick(std::size(kClients));
    time_ms_ += same_time ? 0 : 1 + Pick(40);
    const auto data_id = static_cast<std::uint16_t>(1 + Pick(6));
    return {kClients[last_client_], data_id, time_ms_, SomePayload()};
  }

  std::uint32_t PayloadSize() {
    const std::uint32_t kind = Pick(100);
    if (kind < 60) return 1 + Pick(24);
    return 1 + Pick(kind < 98 ? 100 : 600);
  }

  std::string SomePayload() {
    std::string payload(PayloadSize(), '\0');
    const std::uint32_t kind = Pick(20);
    for (char& byte : payload) {
      byte = static_cast<char>(kind < 10 ? Pick(256) : kind < 19 ? 'a' + Pick(26) : kMarker);
      if (byte == kMarker && markers_ == Markers::kNone) ++byte;
    }
    return payload;
  }

  std::mt19937 random_;
  SampleLogWriter writer_;
  const Markers markers_;
  std::size_t last_client_ = 0;
  std::uint32_t time_ms_ = kStartClock;
};

}  // namespace

std::size_t SampleLog::RecordAt(std::uint32_t offset) const {
  const auto behind =
      std::upper_bound(records.begin(), records.end(), offset,
                       [](std::uint32_t at, const Record& record) { return at < record.offset; });
  return static_cast<std::size_t>(behind - records.begin()) - 1;
}

SampleLogWriter::SampleLogWriter(LogKeys keys, std::uint32_t start_clock)
    : builder_(keys.header, keys.data), start_clock_(start_clock) {
  builder_.StartClock(start_clock).Selection(0x9008);
}

void SampleLogWriter::Add(const Said& said) {
  const auto offset = static_cast<std::uint32_t>(builder_.Size());
  builder_.Record(said.client, said.data_id, said.time_ms, said.payload);
  log_.records.push_back({said, offset, static_cast<std::uint32_t>(builder_.Size())});
}

SampleLog SampleLogWriter::Finish() {
  if (!log_.records.empty()) {
    const std::uint32_t ms = log_.records.back().said.time_ms - start_clock_;
    builder_.Duration((ms + 500) / 1000 * 1000);
  }
  log_.bytes = builder_.Build();
  return std::move(log_);
}

SampleLog MakeSampleLog(LogKeys keys, std::uint32_t seed, Markers markers) {
  return Recorder(keys, seed, markers).Record();
}

}  // namespace kestrav::test
