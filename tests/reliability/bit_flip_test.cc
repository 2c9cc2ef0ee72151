#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <memory>

#include "kestrav/format/decoder.h"
#include "kestrav/host/io/memory_stream.h"
#include "reliability/effort.h"
#include "reliability/sample_log.h"
#include "support/reference_reader.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kSeed = 1;

// The library's reader and the reference side by side over one log, which may be damaged.
class TwoReaders {
 public:
  TwoReaders(const SampleLog& log, const Bytes& bytes)
      : log_(log),
        decoder_(std::make_shared<Io::MemoryInputStream>(bytes.data(),
                                                         static_cast<std::uint32_t>(bytes.size()))),
        reference_(bytes) {}

  // Both stand before record `index`, in a log that is healthy up to there. An own walk back is
  // much shorter than one from the start.
  void StandBefore(std::size_t index) {
    if (!in_step_) {
      ASSERT_TRUE(decoder_.Initialize());
      next_ = 0;
      in_step_ = true;
    }
    for (BinaryLogRecordHeader header; next_ < index; ++next_) {
      ASSERT_EQ(decoder_.GetNextLogRecordHeader(header), kSuccess);
    }
    for (; next_ > index; --next_) {
      const auto size = static_cast<std::uint32_t>(log_.records[next_ - 1].said.payload.size());
      ASSERT_TRUE(decoder_.SetToPreviousLogRecord(size));
    }
    ASSERT_EQ(decoder_.Getoffset(), log_.records[index].offset);
    reference_.StandAt(log_.records[index].offset, static_cast<std::uint32_t>(index));
  }

  // Both read on until nothing more comes, or until a record behind `damage` that the healthy log
  // has too: from there on all is as in the healthy log. What is lost on the way: exactly what the
  // reference says, or the test fails.
  void ReadBehind(std::uint32_t damage, std::size_t& lost) {
    for (;;) {
      const ResultCode code = decoder_.GetNextLogRecord(message_);
      ASSERT_EQ(std::uint32_t{code}, std::uint32_t{reference_.Next(said_)});
      ASSERT_EQ(decoder_.Getoffset(), reference_.Position());
      if (code != kSuccess) break;
      ASSERT_TRUE(Says(message_, said_)) << WhatSays(message_) << " is not " << said_;
      const std::size_t read = log_.RecordAt(decoder_.Getoffset() - 1);
      if (log_.records[read].said != said_) continue;
      lost += read - next_;
      next_ = read + 1;
      if (decoder_.Getoffset() > damage) return;
    }
    lost += log_.records.size() - next_;
    in_step_ = false;
  }

  // Reads all, from the stream header on.
  void ReadAll(std::size_t& lost) {
    in_step_ = false;
    if (!decoder_.Initialize()) {
      lost = log_.records.size();
      return;
    }
    next_ = 0;
    reference_.StandAt(kStreamHeaderBytes, 0);
    ReadBehind(static_cast<std::uint32_t>(log_.bytes.size()), lost);
  }

 private:
  const SampleLog& log_;
  BinaryDecoder decoder_;
  ReferenceReader reference_;
  std::size_t next_ = 0;  // the record of the healthy log that comes next
  bool in_step_ = false;  // the decoder stands before it
  LogMessage message_;
  Said said_;
};

// What the flips of one kind of byte cost.
struct Losses {
  std::uint64_t flips = 0;
  std::uint64_t records = 0;
  std::size_t most = 0;

  void Add(std::size_t lost) {
    ++flips;
    records += lost;
    most = std::max(most, lost);
  }
  friend std::ostream& operator<<(std::ostream& out, const Losses& losses) {
    return out << losses.flips << " flips lose " << losses.records << ", at most " << losses.most;
  }
};

struct Kind {
  const char* name;
  LogKeys keys;
  Markers markers;
  friend std::ostream& operator<<(std::ostream& out, const Kind& kind) { return out << kind.name; }
};

class BitFlip : public testing::TestWithParam<Kind> {
 protected:
  // A plain log without stray headers is the case in which a damaged header costs its record alone.
  bool IsQuiet() const {
    return GetParam().keys.header == 0 && GetParam().markers == Markers::kNone;
  }

  const SampleLog log_ = MakeSampleLog(GetParam().keys, kSeed, GetParam().markers);
  Bytes bytes_ = log_.bytes;
};

TEST_P(BitFlip, InARecordLosesWhatTheRulesSay) {
  TwoReaders readers(log_, bytes_);
  Losses headers;
  Losses payloads;
  const std::uint32_t step = Effort("KESTRAV_FLIP_STEP", 1, 101);
  for (std::size_t flip = kStreamHeaderBytes * 8; flip < bytes_.size() * 8; flip += step) {
    const auto offset = static_cast<std::uint32_t>(flip / 8);
    SCOPED_TRACE(testing::Message() << "bit " << flip % 8 << " of byte " << offset);
    const std::size_t hit = log_.RecordAt(offset);
    const bool in_header = offset - log_.records[hit].offset < kRecordHeaderBytes;
    ASSERT_NO_FATAL_FAILURE(readers.StandBefore(hit));
    bytes_[offset] ^= static_cast<std::uint8_t>(1U << flip % 8);
    std::size_t lost = 0;
    ASSERT_NO_FATAL_FAILURE(readers.ReadBehind(offset, lost));
    bytes_[offset] = log_.bytes[offset];
    (in_header ? headers : payloads).Add(lost);
    if (IsQuiet() || !in_header) {
      ASSERT_EQ(lost, 1U);
    }
  }
  std::cout << "[figure] bit flips, " << GetParam() << ", decoder: headers: " << headers
            << " (each as predicted); payloads: " << payloads << "\n";
}

TEST_P(BitFlip, InTheStreamHeaderLosesWhatTheRulesSay) {
  TwoReaders readers(log_, bytes_);
  Losses losses;
  const std::uint32_t step = Effort("KESTRAV_FLIP_STEP", 1, 11);
  for (std::uint32_t flip = 0; flip < kStreamHeaderBytes * 8; flip += step) {
    const std::uint32_t offset = flip / 8;
    SCOPED_TRACE(testing::Message() << "bit " << flip % 8 << " of byte " << offset);
    bytes_[offset] ^= static_cast<std::uint8_t>(1U << flip % 8);
    std::size_t lost = 0;
    ASSERT_NO_FATAL_FAILURE(readers.ReadAll(lost));
    bytes_[offset] = log_.bytes[offset];
    losses.Add(lost);
    const bool read_by_walks = offset < 4 || offset == 10 || offset == 11;
    ASSERT_EQ(lost > 0, read_by_walks);
    if (offset < 4) {
      ASSERT_EQ(lost, log_.records.size());
    }
  }
  std::cout << "[figure] bit flips, " << GetParam() << ", decoder: stream header: " << losses
            << " (each as predicted)\n";
}

INSTANTIATE_TEST_SUITE_P(Logs, BitFlip,
                         testing::Values(Kind{"Plain", {}, Markers::kNone},
                                         Kind{"PlainWithMarkers", {}, Markers::kMany},
                                         Kind{"Scrambled", {0x35, 0xA7}, Markers::kMany}),
                         [](const auto& kind) { return kind.param.name; });

}  // namespace
}  // namespace kestrav::test
