#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <memory>

#include "kestrav/format/decoder.h"
#include "kestrav/format/header_repair.h"
#include "kestrav/host/io/memory_stream.h"
#include "reliability/effort.h"
#include "reliability/log_path.h"
#include "reliability/sample_log.h"
#include "unit/host/temp_dir.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kSeed = 1;

void Put(Bytes& bytes, std::size_t at, std::uint32_t value, std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) {
    bytes[at + i] = static_cast<std::uint8_t>(std::uint64_t{value} >> (8 * i));
  }
}

// A log file that is cut off byte by byte.
class ShrinkingFile {
 public:
  explicit ShrinkingFile(const Bytes& content)
      : fd_(open(path_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)) {
    EXPECT_TRUE(WriteAtStart(content, content.size()));
  }
  ~ShrinkingFile() {
    close(fd_);
    unlink(path_.c_str());
  }
  ShrinkingFile(const ShrinkingFile&) = delete;
  ShrinkingFile& operator=(const ShrinkingFile&) = delete;

  String Path() const { return Wide(path_); }
  bool Cut(std::size_t size) { return ftruncate(fd_, static_cast<off_t>(size)) == 0; }
  bool WriteAtStart(const Bytes& bytes, std::size_t size) {
    return pwrite(fd_, bytes.data(), size, 0) == static_cast<ssize_t>(size);
  }
  void Read(Bytes& content) const {
    content.resize(static_cast<std::size_t>(lseek(fd_, 0, SEEK_END)));
    const ssize_t count = pread(fd_, content.data(), content.size(), 0);
    ASSERT_EQ(count, static_cast<ssize_t>(content.size()));
  }

 private:
  const std::string path_ = LogPath("cut");
  const int fd_;
};

class Truncation : public testing::TestWithParam<LogKeys> {
 protected:
  std::size_t RecordsWithin(std::size_t size) const {
    return static_cast<std::size_t>(
        std::count_if(log_.records.begin(), log_.records.end(),
                      [&](const SampleLog::Record& record) { return record.end <= size; }));
  }

  // Walks the first `size` bytes of the log, which lie in memory of just that size.
  void ExpectTheFirst(std::size_t records, std::size_t size) {
    const auto copy = std::make_unique<std::uint8_t[]>(size);
    std::copy_n(log_.bytes.data(), size, copy.get());
    BinaryDecoder decoder(
        std::make_shared<Io::MemoryInputStream>(copy.get(), static_cast<std::uint32_t>(size)));
    ASSERT_EQ(decoder.Initialize(), size >= kStreamHeaderBytes);
    if (size < kStreamHeaderBytes) return;
    LogMessage message;
    for (std::size_t i = 0; i < records; ++i) {
      ASSERT_EQ(decoder.GetNextLogRecord(message), kSuccess) << "record " << i;
      ASSERT_TRUE(Says(message, log_.records[i].said)) << "record " << i;
      ++read_;
    }
    ASSERT_EQ(decoder.GetNextLogRecord(message), kNotEnoughData);
  }

  // The log as it was before the recording was stopped.
  Bytes Unfinished() const {
    Bytes bytes = log_.bytes;
    Put(bytes, 12, 0, 8);
    return bytes;
  }

  // What its first 128 bytes become when it ends behind `records` whole ones.
  Bytes RepairedHeader(std::size_t records) const {
    Bytes header(log_.bytes.begin(), log_.bytes.begin() + kStreamHeaderBytes);
    std::uint32_t selection = 0;
    std::uint32_t start_clock = 0;
    for (std::size_t i = 4; i > 0; --i) start_clock = start_clock * 256 + header[24 + i - 1];
    for (std::size_t i = 0; i < records; ++i) {
      selection |= 1U << std::min<std::uint32_t>(log_.records[i].said.client, 15);
    }
    const SampleLog::Record* const last = records == 0 ? nullptr : &log_.records[records - 1];
    Put(header, 8, selection, 2);
    Put(header, 12, last == nullptr ? 0 : last->said.time_ms - start_clock, 4);
    Put(header, 16, last == nullptr ? kStreamHeaderBytes : last->end, 4);
    return header;
  }

  const SampleLog log_ = MakeSampleLog(GetParam(), kSeed);
  std::uint64_t read_ = 0;
};

TEST_P(Truncation, AtEveryOffsetEveryCompleteRecordIsRead) {
  std::uint64_t complete = 0;
  std::size_t lengths = 0;
  const std::uint32_t step = Effort("KESTRAV_CUT_STEP", 1, 11);
  for (std::size_t size = 0; size <= log_.bytes.size(); size += step, ++lengths) {
    const std::size_t records = RecordsWithin(size);
    ExpectTheFirst(records, size);
    ASSERT_FALSE(HasFatalFailure()) << "cut to " << size << " bytes";
    complete += records;
  }
  std::cout << "[figure] truncation, " << GetParam() << ": " << log_.records.size() << " records, "
            << lengths << " lengths, " << read_ << " of " << complete << " complete records read\n";
}

TEST_P(Truncation, AtEveryOffsetTheRepairSetsTheExactLengthOrLeavesTheFileAlone) {
  const Bytes unfinished = Unfinished();
  ShrinkingFile file(unfinished);
  std::size_t repaired = 0;
  std::size_t refused = 0;
  Bytes content;
  const std::uint32_t step = Effort("KESTRAV_CUT_STEP", 1, 11);
  for (std::size_t cut = 0; cut <= unfinished.size(); cut += step) {
    const std::size_t size = unfinished.size() - cut;
    Bytes expected(unfinished.begin(), unfinished.begin() + static_cast<std::ptrdiff_t>(size));
    ASSERT_TRUE(file.Cut(size) &&
                file.WriteAtStart(expected, std::min<std::size_t>(size, kStreamHeaderBytes)));
    const bool whole_header = size >= kStreamHeaderBytes;
    ASSERT_EQ(RepairBinaryLogStreamHeader(file.Path().c_str()), whole_header) << size << " bytes";
    ++(whole_header ? repaired : refused);
    if (whole_header) std::ranges::copy(RepairedHeader(RecordsWithin(size)), expected.begin());
    ASSERT_NO_FATAL_FAILURE(file.Read(content));
    ASSERT_TRUE(content == expected) << "cut to " << size << " bytes";
  }
  std::cout << "[figure] repair after truncation, " << GetParam() << ": " << repaired
            << " lengths exact, " << refused << " files under 128 bytes refused and untouched\n";
}

INSTANTIATE_TEST_SUITE_P(PlainAndScrambled, Truncation,
                         testing::Values(LogKeys{}, LogKeys{0x35, 0xA7}), [](const auto& keys) {
                           return keys.param.header == 0 ? "Plain" : "Scrambled";
                         });

}  // namespace
}  // namespace kestrav::test
