#include "kestrav/format/decoder.h"

#include <algorithm>
#include <memory>

#include "fuzz/support.h"
#include "kestrav/host/io/memory_stream.h"
#include "kestrav/playback/client_data_search.h"
#include "support/short_memory.h"

namespace kestrav::fuzz {
namespace {

// How often a byte of the log may be read: the search after damage may read a block of 50 bytes and
// a header of 20 for each byte that it passes, and the rest is read once or twice.
constexpr std::uint64_t kReadsOfAByte = 75;

// Two decoders of one log: the one looks into memory, the other one reads. They must agree.
class Pair {
 public:
  explicit Pair(Input log)
      : log_(log),
        read_stream_(std::make_shared<CountingStream>(log)),
        looks_(std::make_shared<Io::MemoryInputStream>(log.data(),
                                                       static_cast<std::uint32_t>(log.size()))),
        reads_(read_stream_) {
    opened_ = looks_.Initialize();
    Require(reads_.Initialize() == opened_, "both decoders open the log or none");
  }
  ~Pair() {
    Require(read_stream_->bytes_read <= kReadsOfAByte * log_.size(),
            "at most 75 bytes are read for each byte of the log");
  }
  Pair(const Pair&) = delete;
  Pair& operator=(const Pair&) = delete;

  bool Opened() const { return opened_; }
  BinaryDecoder& Looking() { return looks_; }
  BinaryDecoder& Reading() { return reads_; }

  // One step of each; whether it was a success.
  template <class Step, class Result>
  bool Both(Step step, Result& looked, Result& read) {
    const ResultCode result = Sparingly(looks_, [&] { return step(looks_, looked); });
    const ResultCode other = Sparingly(reads_, [&] { return step(reads_, read); });
    Require(result == other, "both decoders give the same result");
    Require(looks_.Getoffset() == reads_.Getoffset(), "both decoders stand at the same position");
    return result == kSuccess;
  }

 private:
  template <class Step>
  static ResultCode Sparingly(const BinaryDecoder& decoder, Step step) {
    const std::uint32_t remaining = decoder.GetRemainingBytes();
    const test::LargestAllocation largest;
    const ResultCode result = step();
    Require(largest.Bytes() <= remaining, "no buffer is larger than what is left of the log");
    if (result == kSuccess) {
      Require(decoder.GetRemainingBytes() + kRecordHeaderSize <= remaining,
              "a record brings the decoder forward");
    }
    return result;
  }

  const Input log_;
  SmartPtr::Ptr<CountingStream> read_stream_;
  BinaryDecoder looks_;
  BinaryDecoder reads_;
  bool opened_ = false;
};

void RequireSame(const LogMessage& a, const LogMessage& b) {
  Require(
      a.GetClientID() == b.GetClientID() && a.GetDataID() == b.GetDataID() &&
          a.time_stamp == b.time_stamp && a.GetDataSize() == b.GetDataSize() &&
          std::equal(a.GetDataPointer(), a.GetDataPointer() + a.GetDataSize(), b.GetDataPointer()),
      "both decoders give the same record");
  Require(a.GetDataSize() > 0 && a.GetClientID() != kNoId && a.GetDataID() != kNoId,
          "a record has a payload and both ids");
}

void WalkRecords(Input log) {
  Pair pair(log);
  LogMessage looked;
  LogMessage read;
  const auto step = [](BinaryDecoder& decoder, LogMessage& message) {
    return decoder.GetNextLogRecord(message);
  };
  while (pair.Both(step, looked, read)) RequireSame(looked, read);
}

void WalkSelectedRecords(Input log) {
  const ClientIdSet selection(0x8000'0000'0020'1028);  // 3, 5, 12, 21, 63
  Pair pair(log);
  pair.Looking().SetPlaybackSelection(selection);
  pair.Reading().SetPlaybackSelection(selection);
  LogMessage looked;
  LogMessage read;
  const auto step = [](BinaryDecoder& decoder, LogMessage& message) {
    return decoder.GetNextPlaybackMessage(message);
  };
  while (pair.Both(step, looked, read)) {
    RequireSame(looked, read);
    Require(selection.Contains(looked.GetClientID()), "only what is selected is delivered");
  }
}

void WalkHeaders(Input log) {
  Pair pair(log);
  BinaryLogRecordHeader looked;
  BinaryLogRecordHeader read;
  const auto step = [](BinaryDecoder& decoder, BinaryLogRecordHeader& header) {
    return decoder.GetNextLogRecordHeader(header);
  };
  while (pair.Both(step, looked, read)) {
    Require(looked.record_index == read.record_index && looked.payload_size == read.payload_size,
            "both decoders give the same header");
  }
}

void RebuildHeader(Input log) {
  Pair pair(log);
  BinaryLogStreamHeader looked;
  BinaryLogStreamHeader read;
  const bool rebuilt = pair.Looking().ScanStreamHeaderInfo(looked);
  Require(pair.Reading().ScanStreamHeaderInfo(read) == rebuilt, "both decoders rebuild the header");
  if (!rebuilt) return;
  Require(looked.client_selection == read.client_selection &&
              looked.recording_duration == read.recording_duration &&
              looked.stream_length == read.stream_length,
          "both decoders rebuild the same header");
  Require(looked.stream_length >= kStreamHeaderSize && looked.stream_length <= log.size(),
          "the rebuilt length lies within the log");
}

void AskForData(Input log) {
  constexpr std::uint16_t kClient = 3;
  Pair pair(log);
  Memory::MemBlock looked;
  Memory::MemBlock read;
  const bool found = SearchClientData(pair.Looking(), looked, kClient, 1, 1);
  Require(SearchClientData(pair.Reading(), read, kClient, 1, 1) == found,
          "both decoders find the client's data or none");
  Require(looked.Size() == read.Size() &&
              std::equal(looked.Data(), looked.Data() + looked.Size(), read.Data()),
          "both decoders find the same data");
}

}  // namespace

void FuzzDecoder(Input log) {
  WalkRecords(log);
  WalkSelectedRecords(log);
  WalkHeaders(log);
  RebuildHeader(log);
  AskForData(log);
}

}  // namespace kestrav::fuzz
