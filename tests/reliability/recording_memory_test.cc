#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <bit>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/memory/try.h"
#include "reliability/fault_loop.h"
#include "reliability/recorder_rig.h"
#include "support/parsed_log.h"
#include "support/watchdog.h"
#include "unit/host/temp_dir.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

enum class To { kFile, kUnbuffered };

struct Case {
  To to;
  bool scrambled;
};

class RecordingShortOfMemory : public testing::TestWithParam<Case> {
 protected:
  static constexpr std::uint32_t kFileBufferBytes = 1024;

  // Records with allocation `at` failing; whether one failed.
  bool Run(std::uint32_t at, Extent extent) {
    std::uint32_t failed = 0;
    ManualClock clock;
    RecorderRig rig(*clock.operator->());
    Recorded recorded;
    const Bytes log = GetParam().to == To::kFile
                          ? RecordToFile(rig, at, extent, recorded, failed)
                          : RecordToMemory(rig, at, extent, recorded, failed);
    if (extent == Extent::kOnce) {
      EXPECT_TRUE(recorded.ran);
    }
    ExpectDocumented(rig, recorded, log, failed);
    ExpectCompleteRecording(rig, GetParam().scrambled);
    return failed > 0;
  }

  Bytes RecordToFile(RecorderRig& rig, std::uint32_t at, Extent extent, Recorded& recorded,
                     std::uint32_t& failed) {
    const String path = Wide(dir_ / "log");
    std::filesystem::remove(dir_ / "log");
    {
      const FailingMemory memory(at, extent);
      SmartPtr::Ptr<Io::BufferedFileOutputStream> file;
      const bool open = InTwoTries([&] {
        file = Memory::MakeShared<Io::BufferedFileOutputStream>(kFileBufferBytes);
        return file && file->Open(path, Io::OpenMode::kCreate);
      });
      if (open) recorded = rig.Record(file, GetParam().scrambled);
      if (file) closed_ = file->Close();
      failed = memory.Failed();
    }
    EXPECT_TRUE(closed_);
    const std::string content = FileContent(dir_ / "log");
    return {content.begin(), content.end()};
  }

  Bytes RecordToMemory(RecorderRig& rig, std::uint32_t at, Extent extent, Recorded& recorded,
                       std::uint32_t& failed) {
    const auto stream = std::make_shared<FixedOutputStream>(1 << 14);
    const FailingMemory memory(at, extent);
    recorded = rig.Record(stream, GetParam().scrambled);
    failed = memory.Failed();
    const OwnMemory own;
    return stream->Content();
  }

  void ExpectDocumented(RecorderRig& rig, const Recorded& recorded, const Bytes& log,
                        std::uint32_t failed) const {
    EXPECT_EQ(rig.engine.GetLoggingStatus(), LoggingOff);
    ExpectCountersToTell(rig, recorded, log);
    if (!recorded.ran) {
      // Nothing was taken; a start that failed late has left the provisional header at most.
      EXPECT_FALSE(recorded.stopped);
      EXPECT_EQ(recorded.accepted, 0u);
      EXPECT_LE(log.size(), 128u);
      EXPECT_THAT(rig.TakeNotifications(), IsEmpty());
      return;
    }
    EXPECT_TRUE(recorded.stopped);
    EXPECT_THAT(rig.TakeNotifications(), ElementsAre(0, 1, 9));
    const std::uint32_t found = MessagesIn(log);
    EXPECT_EQ(ParseLog(log).stream_length, log.size());
    EXPECT_EQ(found & ~recorded.accepted, 0u);
    // A stream with a buffer takes what was accepted without further memory.
    const auto missing = static_cast<std::uint32_t>(std::popcount(recorded.accepted & ~found));
    EXPECT_LE(missing, GetParam().to == To::kFile ? 0 : failed);
    if (failed == 0) {
      EXPECT_EQ(found, kAllMessages);
    }
  }

  TempDir dir_;
  bool closed_ = true;
};

TEST_P(RecordingShortOfMemory, LosesOnlyWhatNeededIt) {
  const Watchdog watchdog(std::chrono::seconds(120), "recording short of memory");
  const std::uint32_t points =
      FailEachAllocation([this](std::uint32_t at, Extent extent) { return Run(at, extent); });
  std::printf("[figure] allocation failure, recording, %s, %s: %u fault points, 0 leaks\n",
              GetParam().to == To::kFile ? "file" : "unbuffered",
              GetParam().scrambled ? "scrambled" : "plain", points);
}

// What was accepted while there was memory is in the log, though there is none for its end.
TEST(EngineShortOfMemory, EndsWithAFinishedLog) {
  const Watchdog watchdog(std::chrono::seconds(120), "the end of an engine");
  ManualClock clock;
  const auto stream = std::make_shared<Io::BufferedFileOutputStream>(4096);
  const TempDir dir;
  ASSERT_TRUE(stream->Open(Wide(dir / "log"), Io::OpenMode::kCreate));
  auto rig = std::make_unique<RecorderRig>(*clock.operator->());
  Recorded recorded = rig->Begin(stream, true);
  rig->WriteAll(recorded);
  {
    const FailingMemory memory(0, Extent::kFromThenOn);
    rig.reset();
    EXPECT_TRUE(stream->Close());
  }
  EXPECT_EQ(recorded.accepted, kAllMessages);
  const std::string content = FileContent(dir / "log");
  const Bytes log(content.begin(), content.end());
  EXPECT_EQ(MessagesIn(log), kAllMessages);
  EXPECT_EQ(ParseLog(log).stream_length, log.size());
}

INSTANTIATE_TEST_SUITE_P(Streams, RecordingShortOfMemory,
                         testing::Values(Case{To::kFile, true}, Case{To::kUnbuffered, false}),
                         [](const auto& stream) {
                           return stream.param.to == To::kFile ? "File" : "Unbuffered";
                         });

}  // namespace
}  // namespace kestrav::test
