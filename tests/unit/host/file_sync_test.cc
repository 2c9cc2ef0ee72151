#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "support/manual_clock.h"
#include "support/short_memory.h"
#include "support/watchdog.h"
#include "unit/host/function_thread.h"
#include "unit/host/written_file.h"

// When a file is brought to its device, and that nobody waits for it.

namespace kestrav::test {
namespace {

using testing::ElementsAre;

// What outlives the stream, which still syncs at its end.
struct SeenByTheTest {
  ManualClock clock_;
  Told<std::uint32_t> sync_times_;
  Told<std::string> synced_;
  Told<int> synced_files_;
};

class FileSync : public SeenByTheTest, public WrittenFile {
 protected:
  FileSync() {
    files_.Watch([this](const FileAccess& access) {
      if (access.call != FileCall::kFdatasync) return;
      sync_times_.Tell(NowMs());
      synced_.Tell(Content());
      synced_files_.Tell(access.descriptor);
    });
  }
};

TEST_F(FileSync, ComesASecondAfterTheBytesUnlessToldOtherwise) {
  ASSERT_TRUE(Open({}));
  ASSERT_TRUE(WriteThrough("abc"));
  clock_->Advance(999);
  EXPECT_EQ(Syncs(), 0U);
  clock_->Advance(1);
  EXPECT_EQ(Syncs(), 1U);
}

TEST_F(FileSync, ComesOnceAnIntervalHoweverOftenBytesAreHandedOver) {
  ASSERT_TRUE(Open({.sync_interval_ms = 250}));
  for (int i = 0; i < 100; ++i) {
    ASSERT_TRUE(WriteThrough("abc"));
    clock_->Advance(10);
  }
  EXPECT_THAT(sync_times_.All(), ElementsAre(1250, 1500, 1750, 2000));
  EXPECT_EQ(stream_->Counts().syncs, 4U);
}

TEST_F(FileSync, IsLeftOutWhenTheSystemGotNothingSinceTheLast) {
  ASSERT_TRUE(Open({.sync_interval_ms = 100}));
  clock_->Advance(1000);
  ASSERT_TRUE(Write("still buffered"));
  clock_->Advance(1000);
  EXPECT_EQ(Syncs(), 0U);
  EXPECT_TRUE(stream_->Flush());
  clock_->Advance(1000);
  EXPECT_EQ(Syncs(), 1U);
  EXPECT_TRUE(stream_->Flush());
  clock_->Advance(1000);
  EXPECT_EQ(Syncs(), 1U);
  ASSERT_TRUE(WriteThrough("x"));
  clock_->Advance(100);
  EXPECT_EQ(Syncs(), 2U);
}

TEST_F(FileSync, HasNoThreadBeforeTheSystemGotBytesNorAfterTheClose) {
  ASSERT_TRUE(Open({.sync_interval_ms = 100}));
  ASSERT_TRUE(Write("abc"));
  EXPECT_FALSE(clock_->AdvanceToNextDue());
  EXPECT_TRUE(stream_->Flush());
  EXPECT_TRUE(clock_->AdvanceToNextDue());
  EXPECT_FALSE(clock_->AdvanceToNextDue()) << "a thread without anything to do does not wake up";
  ASSERT_TRUE(WriteThrough("abc"));
  EXPECT_TRUE(stream_->Close());
  EXPECT_FALSE(clock_->AdvanceToNextDue());
}

TEST_F(FileSync, ComesOnceMoreWithTheClose) {
  ASSERT_TRUE(Open({.sync_interval_ms = 100}));
  ASSERT_TRUE(Write("abc"));
  EXPECT_TRUE(stream_->Close());
  EXPECT_THAT(synced_.All(), ElementsAre("abc"));
  EXPECT_EQ(stream_->Counts().syncs, 1U);
  EXPECT_TRUE(stream_->Close());
  EXPECT_EQ(Syncs(), 1U);
}

TEST_F(FileSync, ComesWithTheEndOfTheStreamToo) {
  ASSERT_TRUE(Open({}));
  ASSERT_TRUE(WriteThrough("abc"));
  stream_.reset();
  EXPECT_EQ(Syncs(), 1U);
}

TEST_F(FileSync, CanBeSwitchedOff) {
  ASSERT_TRUE(Open({.sync_interval_ms = 0}));
  ASSERT_TRUE(WriteThrough("abc"));
  EXPECT_FALSE(clock_->AdvanceToNextDue());
  ASSERT_TRUE(Write("def"));
  EXPECT_TRUE(stream_->Close());
  EXPECT_EQ(Syncs(), 0U);
  EXPECT_EQ(Content(), "abcdef");
}

TEST_F(FileSync, BelongsToTheFileThatIsOpen) {
  Io::FileHandle in_between(dup(0));  // so that the second file has another number
  ASSERT_TRUE(Open({.sync_interval_ms = 100}));
  ASSERT_TRUE(WriteThrough("abc"));
  clock_->Advance(50);
  in_between.Close();
  ASSERT_TRUE(stream_->Open(Wide(dir_ / "other"), Io::OpenMode::kCreate));
  EXPECT_EQ(Syncs(), 1U) << "the first file's, when it is closed";
  EXPECT_EQ(stream_->Counts().syncs, 0U);
  clock_->Advance(1000);
  EXPECT_EQ(Syncs(), 1U);
  ASSERT_TRUE(WriteThrough("abc"));
  clock_->Advance(100);
  EXPECT_EQ(stream_->Counts().syncs, 1U);
  const std::vector<int> files = synced_files_.All();
  ASSERT_EQ(files.size(), 2U);
  EXPECT_NE(files[0], files[1]);
}

TEST_F(FileSync, ThatFailsIsToldCountedAndRepeatedAnIntervalLater) {
  ASSERT_TRUE(Open({.sync_interval_ms = 100}));
  files_.Fail(FileCall::kFdatasync, EIO, 1);
  files_.Fail(FileCall::kFdatasync, EDQUOT, 2);
  ASSERT_TRUE(WriteThrough("abc"));
  clock_->Advance(100);
  EXPECT_EQ(stream_->Error(), EIO);
  EXPECT_EQ(stream_->Counts().failed_syncs, 1U);
  EXPECT_TRUE(WriteThrough("def")) << "the stream works on";
  clock_->Advance(100);
  EXPECT_EQ(stream_->Counts().failed_syncs, 2U);
  clock_->Advance(100);
  EXPECT_EQ(stream_->Counts().syncs, 1U);
  clock_->Advance(1000);
  EXPECT_EQ(Syncs(), 3U);
  EXPECT_EQ(stream_->Error(), EIO) << "the first error is kept";
  EXPECT_FALSE(stream_->Close()) << "what the failed syncs were for may be lost";
}

TEST_F(FileSync, ThatFailsWithTheCloseMakesItFail) {
  ASSERT_TRUE(Open({}));
  ASSERT_TRUE(Write("abc"));
  files_.Fail(FileCall::kFdatasync, EIO);
  EXPECT_FALSE(stream_->Close());
  EXPECT_EQ(stream_->Error(), EIO);
  EXPECT_EQ(Content(), "abc");
}

TEST_F(FileSync, ThatIsInterruptedIsGoneOnWith) {
  ASSERT_TRUE(Open({}));
  ASSERT_TRUE(Write("abc"));
  files_.Fail(FileCall::kFdatasync, EINTR);
  EXPECT_TRUE(stream_->Close());
  EXPECT_EQ(Syncs(), 2U);
  EXPECT_EQ(stream_->Counts().failed_syncs, 0U);
}

TEST_F(FileSync, WithoutMemoryForItsThreadTheStreamWritesOnAndSaysSo) {
  for (std::uint32_t grants = 0;; ++grants) {
    ASSERT_TRUE(Open({.sync_interval_ms = 100}));
    ASSERT_TRUE(Write("abc"));
    bool flushed = false;
    const bool ran_short = RanShort(grants, [&] { flushed = stream_->Flush(); });
    EXPECT_TRUE(flushed);
    EXPECT_EQ(stream_->Error(), ran_short ? EAGAIN : 0) << grants;
    clock_->Advance(100);
    EXPECT_EQ(stream_->Counts().syncs, ran_short ? 0U : 1U) << grants;
    EXPECT_TRUE(WriteThrough("def"));
    EXPECT_TRUE(stream_->Close());
    EXPECT_EQ(stream_->Counts().syncs, ran_short ? 1U : 2U) << "the close syncs without a thread";
    EXPECT_EQ(Content(), "abcdef");
    if (!ran_short) break;
    ASSERT_LT(grants, 100U);
  }
}

TEST_F(FileSync, WithoutMemoryAtTheOpenTheFileIsRefusedOrWrittenWithoutIt) {
  const String path = Wide(path_);
  bool written_without = false;
  for (std::uint32_t grants = 0;; ++grants) {
    Io::BufferedFileOutputStream stream;
    bool opened = false;
    const bool ran_short =
        RanShort(grants, [&] { opened = stream.Open(path, Io::OpenMode::kCreate); });
    EXPECT_EQ(stream.Error(), ran_short ? ENOMEM : 0);
    EXPECT_EQ(Put(stream, "abc", true), opened);
    EXPECT_TRUE(stream.Close());
    written_without |= opened && ran_short;
    if (!ran_short) break;
    ASSERT_LT(grants, 100U);
  }
  EXPECT_TRUE(written_without);
}

// In real time: the thread that syncs does not come to rest. Until `Release` the syncs stay with
// the device.
struct StuckDevice {
  const Watchdog watchdog_{std::chrono::seconds(60), "a file whose sync does not end"};
  Thread::ManualResetEvent begun_;
  Thread::ManualResetEvent released_;
  Told<std::string> told_;
};

void WaitFor(Thread::ManualResetEvent& event) {
  Thread::ManualResetEvent* const events[] = {&event};
  EXPECT_EQ(Thread::WaitForFirst(events, Time::kNoLimit), 0);
}

class StuckFileSync : public StuckDevice, public WrittenFile {
 protected:
  StuckFileSync() {
    files_.Watch([this](const FileAccess& access) {
      if (access.call != FileCall::kFdatasync) return;
      told_.Tell(Content());
      begun_.Set();
      WaitFor(released_);
    });
  }
  ~StuckFileSync() override { released_.Set(); }
};

TEST_F(StuckFileSync, HoldsUpNoWrite) {
  ASSERT_TRUE(Open({.buffer_bytes = 8, .sync_interval_ms = 1, .reserve_bytes = 1}));
  ASSERT_TRUE(WriteThrough("0123"));
  WaitFor(begun_);
  std::string expected = "0123";
  for (int i = 0; i < 1000; ++i) {
    ASSERT_TRUE(WriteThrough("abc"));
    ASSERT_TRUE(Write("longer than the buffer"));
    expected += "abclonger than the buffer";
  }
  EXPECT_TRUE(stream_->Seek(0));
  EXPECT_TRUE(WriteThrough("X"));
  expected[0] = 'X';
  EXPECT_EQ(stream_->Counts().syncs, 0U);
  EXPECT_EQ(stream_->Counts().writes, 2002U);
  EXPECT_EQ(Content(), expected);
}

TEST_F(StuckFileSync, IsWaitedForByTheClose) {
  ASSERT_TRUE(Open({.sync_interval_ms = 1}));
  ASSERT_TRUE(WriteThrough("0123"));
  WaitFor(begun_);
  ASSERT_TRUE(Write("4567"));
  FunctionThread closing([&] {
    EXPECT_TRUE(stream_->Close());
    told_.Tell("closed");
  });
  ASSERT_TRUE(closing.Start());
  told_.Tell("released");
  released_.Set();
  closing.WaitForCompletion();
  EXPECT_THAT(told_.All(), ElementsAre("0123", "released", "01234567", "closed"));
}

TEST_F(StuckFileSync, IsFollowedByOneForWhatIsWrittenMeanwhile) {
  ASSERT_TRUE(Open({.sync_interval_ms = 1}));
  ASSERT_TRUE(WriteThrough("a"));
  WaitFor(begun_);
  begun_.Reset();
  ASSERT_TRUE(WriteThrough("b"));
  released_.Set();
  WaitFor(begun_);
  EXPECT_THAT(told_.All(), ElementsAre("a", "ab"));
}

}  // namespace
}  // namespace kestrav::test
