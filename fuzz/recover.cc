#include <algorithm>
#include <memory>
#include <vector>

#include "fuzz/support.h"
#include "kestrav/format/decoder.h"
#include "kestrav/host/io/memory_stream.h"
#include "kestrav/rescue/recovery.h"
#include "support/short_memory.h"
#include "support/streams.h"

namespace kestrav::fuzz {
namespace {

// For each byte of the log, and for what does not depend on it.
constexpr std::size_t kMemoryOfAByte = 64;
constexpr std::size_t kMemoryOfAll = 1 << 20;

struct Recovered {
  RecoveryResult result = RecoveryResult::kNothingFound;
  RecoveryReport report;
  Bytes bytes;
};

Recovered Recover(Input log) {
  Recovered recovered;
  test::BytesOutputStream out;
  std::uint64_t done = 0;
  const test::LargestAllocation largest;
  recovered.result = RecoverLog(log, &out, recovered.report, [&](std::uint64_t bytes) {
    Require(bytes >= done && bytes <= log.size(), "progress goes forward, at most to the end");
    done = bytes;
    return true;
  });
  Require(largest.Bytes() <= kMemoryOfAByte * log.size() + kMemoryOfAll,
          "no allocation is out of proportion to the log");
  recovered.bytes = out.Content();
  return recovered;
}

bool IsWritten(const Recovered& recovered) {
  return recovered.result == RecoveryResult::kWhole || recovered.result == RecoveryResult::kDamaged;
}

// A record whose header is intact under some key; its payload is not looked at.
struct Candidate {
  std::size_t offset;
  std::uint8_t key;
};

std::vector<Candidate> CandidatesIn(Input log) {
  std::vector<Candidate> candidates;
  for (std::size_t at = 0; at + kRecordHeaderSize < log.size(); ++at) {
    const auto key = static_cast<std::uint8_t>(log[at] ^ kRecordMarker);
    std::uint8_t sum = 0;
    for (std::size_t i = 1; i < kRecordHeaderSize; ++i) sum ^= log[at + i];
    if ((sum ^ key) == 0) candidates.push_back({at, key});
  }
  return candidates;
}

// Whether the candidate is this record, its payload under whatever key.
bool IsRecord(Input log, const Candidate& candidate, const LogMessage& record) {
  std::uint8_t header[kRecordHeaderSize];
  for (std::size_t i = 0; i < kRecordHeaderSize; ++i) {
    header[i] = log[candidate.offset + i] ^ candidate.key;
  }
  const std::uint32_t ids = LittleEndian32(header + 8);
  const Input rest = log.subspan(candidate.offset + kRecordHeaderSize);
  if (ids != (record.GetClientID() | std::uint32_t{record.GetDataID()} << 16) ||
      LittleEndian32(header + 12) != record.time_stamp ||
      LittleEndian32(header + 16) != record.GetDataSize() || rest.size() < record.GetDataSize()) {
    return false;
  }
  const std::uint8_t* const payload = record.GetDataPointer();
  const std::uint8_t key = rest[0] ^ payload[0];
  return std::equal(payload, payload + record.GetDataSize(), rest.begin(),
                    [&](std::uint8_t plain, std::uint8_t byte) { return (byte ^ key) == plain; });
}

// Takes recovered records in their order and finds each of them in the damaged log, behind the one
// before.
class Origins {
 public:
  explicit Origins(Input log) : log_(log), candidates_(CandidatesIn(log)) {}

  bool Find(const LogMessage& record) {
    for (; next_ < candidates_.size(); ++next_) {
      const Candidate& candidate = candidates_[next_];
      if (candidate.offset < end_ || !IsRecord(log_, candidate, record)) continue;
      end_ = candidate.offset + kRecordHeaderSize + record.GetDataSize();
      return true;
    }
    return false;
  }

 private:
  const Input log_;
  const std::vector<Candidate> candidates_;
  std::size_t next_ = 0;
  std::size_t end_ = 0;
};

// The result is a log that is read to its end, and none of its records is invented.
void ReadToTheEnd(const Recovered& recovered, Input log) {
  const Bytes& bytes = recovered.bytes;
  BinaryDecoder decoder(std::make_shared<Io::MemoryInputStream>(
      bytes.data(), static_cast<std::uint32_t>(bytes.size())));
  Require(decoder.Initialize(), "a recovered log can be opened");
  Require(decoder.StreamHeader().stream_length == bytes.size(), "its length is right");
  const std::uint32_t copies = recovered.report.dictionary_moved ? 1 : 0;
  Origins origins(log);
  LogMessage message;
  std::uint32_t records = 0;
  ResultCode result = kSuccess;
  for (; (result = decoder.GetNextLogRecord(message)) == kSuccess; ++records) {
    const bool is_copy = records < copies;
    Require(is_copy || origins.Find(message), "every record stands in the damaged log, in order");
  }
  Require(result == kNotEnoughData && decoder.GetRemainingBytes() == 0, "it is read to its end");
  Require(records == recovered.report.records + copies, "it holds as many records as are reported");
}

// What a recovery writes is healthy: another one finds nothing to do. Where time goes back, or
// records were in doubt, what the first one leaves out makes new neighbours, which the second one
// may not believe.
void RecoverAgain(const Recovered& first) {
  const Recovered second = Recover(first.bytes);
  if (!first.report.steps_back.empty() || !first.report.doubtful.empty()) {
    Require(IsWritten(second), "a recovered log can be recovered");
    return ReadToTheEnd(second, first.bytes);
  }
  Require(second.result == RecoveryResult::kWhole, "a recovered log is whole");
  Require(second.bytes == first.bytes, "a recovered log comes out as it is");
}

void RequireRangesWithin(const RecoveryReport& report, std::size_t size) {
  std::uint64_t last = 0;
  for (const LostRange& lost : report.lost) {
    const bool within = lost.loss == Loss::kCut  // the bytes that the stream header promised
                            ? lost.offset == size
                            : std::uint64_t{lost.offset} + lost.bytes <= size;
    Require(lost.offset >= last && within, "lost ranges ascend within the log");
    last = lost.offset;
  }
  last = 0;
  for (const DoubtfulRecord& doubtful : report.doubtful) {
    Require(doubtful.offset >= last && std::uint64_t{doubtful.offset} + doubtful.bytes <= size,
            "doubtful records ascend within the log");
    last = doubtful.offset;
  }
}

void ReportOnly(Input log, const Recovered& recovered) {
  RecoveryReport report;
  Require(RecoverLog(log, nullptr, report) == recovered.result &&
              report.records == recovered.report.records &&
              report.lost.size() == recovered.report.lost.size() &&
              report.doubtful.size() == recovered.report.doubtful.size(),
          "what is only reported is what would be written");
}

}  // namespace

void FuzzRecover(Input log) {
  const Recovered recovered = Recover(log);
  Require(IsWritten(recovered) || recovered.result == RecoveryResult::kNothingFound,
          "a recovery writes a log or finds nothing");
  RequireRangesWithin(recovered.report, log.size());
  if (log.size() % 8 == 0) ReportOnly(log, recovered);  // seldom, since a recovery takes its time
  if (!IsWritten(recovered)) {
    Require(recovered.bytes.empty() && recovered.report.records == 0,
            "nothing found, none written");
    return;
  }
  ReadToTheEnd(recovered, log);
  if (!std::ranges::equal(recovered.bytes, log)) RecoverAgain(recovered);
}

}  // namespace kestrav::fuzz
