#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "kestrav/format/decoder.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/io/memory_stream.h"
#include "reliability/fault_loop.h"
#include "reliability/recorder_rig.h"
#include "support/failing_files.h"
#include "support/parsed_log.h"
#include "support/watchdog.h"
#include "unit/host/temp_dir.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// What happens to a write of the file.
enum class Kind { kNoSpace, kInputOutput, kShort, kShortThenNoSpace, kTorn, kSync };

struct Case {
  const char* name;
  Kind kind;
  int error;                   // that the stream keeps
  std::uint32_t buffer_bytes;  // 1: each record is a write of its own
};

// The records that the decoder delivers before the log has ended.
std::size_t DecodedRecords(const Bytes& log) {
  BinaryDecoder decoder(
      std::make_shared<Io::MemoryInputStream>(log.data(), static_cast<std::uint32_t>(log.size())));
  EXPECT_TRUE(decoder.Initialize());
  LogMessage message;
  std::size_t records = 0;
  ResultCode result = kSuccess;
  while ((result = decoder.GetNextLogRecord(message)) == kSuccess) ++records;
  EXPECT_EQ(result, kNotEnoughData);
  return records;
}

class FailingStorage : public testing::TestWithParam<Case> {
 protected:
  static void Script(FailingFiles& files, std::uint32_t at, Extent extent) {
    const Lasts lasts = extent == Extent::kOnce ? Lasts::kOnce : Lasts::kFromThenOn;
    switch (GetParam().kind) {
      case Kind::kNoSpace:
        return files.Fail(FileCall::kPwrite, ENOSPC, at, lasts);
      case Kind::kInputOutput:
        return files.Fail(FileCall::kPwrite, EIO, at, lasts);
      case Kind::kShort:
        return files.WriteShort(7, at, lasts);
      case Kind::kShortThenNoSpace:
        files.WriteShort(7, at, Lasts::kOnce);
        return files.Fail(FileCall::kPwrite, ENOSPC, at + 1, lasts);
      case Kind::kTorn:  // what the failed write left cannot be cut off
        files.WriteShort(7, at, Lasts::kOnce);
        files.Fail(FileCall::kFtruncate, EIO, 1, lasts);
        return files.Fail(FileCall::kPwrite, ENOSPC, at + 1, lasts);
      case Kind::kSync:
        return files.Fail(FileCall::kFdatasync, EIO, at, lasts);
    }
  }

  static bool IsSync() { return GetParam().kind == Kind::kSync; }
  // The file may end with part of a write, whole records of it and a cut one, that is counted as
  // dropped.
  static bool StaysTorn(Extent extent) {
    return GetParam().kind == Kind::kTorn && extent == Extent::kFromThenOn;
  }

  // Records with write `at` of the file failing; whether it came to that.
  bool Run(std::uint32_t at, Extent extent) {
    std::filesystem::remove(path_);
    ManualClock clock;
    RecorderRig rig(*clock.operator->());
    const auto stream = std::make_shared<Io::BufferedFileOutputStream>(GetParam().buffer_bytes);
    EXPECT_TRUE(stream->Open(Wide(path_), Io::OpenMode::kCreate));
    Recorded recorded;
    bool closed = false;
    bool reached = false;
    {
      FailingFiles files;
      Script(files, at + 1, extent);
      recorded = rig.Record(stream, at % 2 == 0);
      closed = stream->Close();
      reached = files.Calls(IsSync() ? FileCall::kFdatasync : FileCall::kPwrite) > at;
    }
    const std::string content = FileContent(path_);
    const Bytes log(content.begin(), content.end());
    if (StaysTorn(extent)) {
      const LoggingCounters counters = rig.engine.GetLoggingCounters();
      EXPECT_LE(counters.accepted - counters.Dropped(), ParseLog(log).records.size());
    } else {
      ExpectCountersToTell(rig, recorded, log);
    }
    EXPECT_EQ(stream->Error(), reached ? GetParam().error : 0);
    if (!reached || GetParam().error == 0 || IsSync()) {
      EXPECT_TRUE(closed || IsSync());
      ExpectComplete(rig, recorded, log);
    } else {
      ExpectDocumented(rig, recorded, log, extent);
    }
    ExpectCompleteRecording(rig, true);
    return reached;
  }

  static void ExpectComplete(RecorderRig& rig, const Recorded& recorded, const Bytes& log) {
    EXPECT_THAT(rig.TakeNotifications(), ElementsAre(0, 1, 9));
    EXPECT_EQ(recorded.accepted, kAllMessages);
    EXPECT_EQ(MessagesIn(log), kAllMessages);
    EXPECT_EQ(ParseLog(log).stream_length, log.size());
    EXPECT_EQ(ParseLog(log).records.size(), kRecords);
  }

  static void ExpectDocumented(RecorderRig& rig, const Recorded& recorded, const Bytes& log,
                               Extent extent) {
    EXPECT_EQ(rig.engine.GetLoggingStatus(), LoggingOff);
    EXPECT_EQ(recorded.stopped, recorded.ran);
    EXPECT_TRUE(recorded.ran || extent == Extent::kFromThenOn);
    if (!recorded.ran) {
      EXPECT_EQ(recorded.accepted, 0u);
      EXPECT_LT(log.size(), StaysTorn(extent) ? kStreamHeaderSize : 1u);
      EXPECT_THAT(rig.TakeNotifications(), IsEmpty());
      return;
    }
    EXPECT_THAT(rig.TakeNotifications(), ElementsAre(0, 1, 9));
    EXPECT_EQ(recorded.accepted, kAllMessages);
    if (log.empty()) return;  // nothing reached the device
    const ParsedLog parsed = ParseLog(log);
    EXPECT_EQ(DecodedRecords(log), parsed.records.size());
    if (StaysTorn(extent) && !parsed.error.empty()) {
      EXPECT_THAT(parsed.error, testing::ContainsRegex(": cut (payload|record header)$"));
      return;
    }
    const std::uint32_t found = MessagesIn(log);
    if (extent == Extent::kOnce) {
      // The one that failed, or none if it could be written by the next try.
      EXPECT_GE(parsed.records.size(), kRecords - 1);
    } else {
      EXPECT_EQ(found & (found + 1), 0u) << "a gap: " << found;
      // The final header may be there but for its last, unused bytes.
      EXPECT_THAT(parsed.stream_length, testing::AnyOf(0u, log.size()));
    }
  }

  // The messages, the dictionary now and three times later, and the selection.
  static constexpr std::size_t kRecords = kMessages + 1 + 3 + 1;

  TempDir dir_;
  const std::filesystem::path path_ = dir_ / "log";
};

TEST_P(FailingStorage, LosesOnlyTheRecordsThatFailed) {
  const Watchdog watchdog(std::chrono::seconds(120), "recording to a failing device");
  const std::uint32_t points =
      FailEach("write", [this](std::uint32_t at, Extent extent) { return Run(at, extent); });
  std::printf("[figure] %s, %s: %u fault points\n", GetParam().name,
              GetParam().buffer_bytes == 1 ? "unbuffered" : "buffered", points);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, FailingStorage,
    testing::Values(
        Case{"ENOSPC", Kind::kNoSpace, ENOSPC, 1}, Case{"ENOSPC", Kind::kNoSpace, ENOSPC, 1024},
        Case{"EIO", Kind::kInputOutput, EIO, 1}, Case{"EIO", Kind::kInputOutput, EIO, 1024},
        Case{"short write", Kind::kShort, 0, 1}, Case{"short write", Kind::kShort, 0, 1024},
        Case{"short write, then ENOSPC", Kind::kShortThenNoSpace, ENOSPC, 1},
        Case{"short write, then ENOSPC", Kind::kShortThenNoSpace, ENOSPC, 1024},
        Case{"short write, then ENOSPC and no truncation", Kind::kTorn, ENOSPC, 1},
        Case{"short write, then ENOSPC and no truncation", Kind::kTorn, ENOSPC, 1024},
        Case{"EIO at a sync", Kind::kSync, EIO, 1024}));

}  // namespace
}  // namespace kestrav::test
