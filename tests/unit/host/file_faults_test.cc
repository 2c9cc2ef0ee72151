#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>

#include "support/streams.h"
#include "support/watchdog.h"
#include "unit/host/written_file.h"

// What becomes of a file whose writes fail, what a stream counts, and what it costs to try.

namespace kestrav::test {
namespace {

constexpr Io::FileOutputSettings kSmall = {.buffer_bytes = 8, .sync_interval_ms = 0};

class FileFaults : public WrittenFile {
 protected:
  // As a record is written: where there is room, else by a write.
  bool Record(const std::string& bytes) {
    const auto size = static_cast<std::uint32_t>(bytes.size());
    std::uint8_t* const room = stream_->Reserve(size);
    if (room == nullptr) return Write(bytes);
    std::memcpy(room, bytes.data(), size);
    stream_->Commit(size);
    return true;
  }
};

TEST_F(FileFaults, AreCountedBesideWhatWorked) {
  ASSERT_TRUE(Open(kSmall));
  EXPECT_TRUE(WriteThrough("abc"));
  files_.Fail(FileCall::kPwrite, EIO, 1);
  files_.Fail(FileCall::kPwrite, ENOSPC, 2);
  EXPECT_FALSE(Write("0123456789"));
  EXPECT_FALSE(Write("0123456789"));
  EXPECT_TRUE(Write("0123456789"));
  EXPECT_TRUE(Write("de"));
  const Io::FileOutputCounts counts = stream_->Counts();
  EXPECT_EQ(counts.bytes, 13U) << "what is buffered does not count";
  EXPECT_EQ(counts.writes, 2U);
  EXPECT_EQ(counts.failed_writes, 2U);
  EXPECT_EQ(counts.error, EIO);
  EXPECT_EQ(counts.syncs + counts.failed_syncs, 0U);
  EXPECT_TRUE(stream_->Close());
  EXPECT_EQ(stream_->Counts().bytes, 15U) << "the counts outlive the file";
  ASSERT_TRUE(stream_->Open(Wide(path_), Io::OpenMode::kInPlace));
  EXPECT_EQ(stream_->Counts().bytes + stream_->Counts().writes + stream_->Counts().failed_writes,
            0U);
  EXPECT_EQ(stream_->Counts().error, 0);
}

TEST_F(FileFaults, OrNotTheLongestWriteIsKept) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::milliseconds kSlow(5);
  bool slow = true;
  ASSERT_TRUE(Open(kSmall));
  files_.Watch([&](const FileAccess&) {
    const Clock::time_point begin = Clock::now();
    while (slow && Clock::now() - begin < kSlow) {
    }
  });
  files_.Fail(FileCall::kPwrite, EIO);
  EXPECT_FALSE(WriteThrough("abc"));
  const std::uint64_t longest_us = stream_->Counts().longest_write_us;
  EXPECT_GE(longest_us, 5000U);
  slow = false;
  EXPECT_TRUE(stream_->Flush());
  EXPECT_GE(stream_->Counts().longest_write_us, longest_us);
  EXPECT_TRUE(stream_->Close());
}

TEST_F(FileFaults, AreToldToAnyThreadWhileTheStreamWrites) {
  const Watchdog watchdog(std::chrono::seconds(60), "a reader of counts");
  ASSERT_TRUE(Open({.buffer_bytes = 8, .sync_interval_ms = 1}));
  std::jthread reader([this](const std::stop_token& stop) {
    std::uint64_t before = 0;
    while (!stop.stop_requested()) {
      const Io::FileOutputCounts counts = stream_->Counts();
      EXPECT_GE(counts.bytes, before);
      EXPECT_EQ(stream_->Error(), 0);
      before = counts.bytes;
    }
  });
  for (int i = 0; i < 2000; ++i) ASSERT_TRUE(Write("0123456789"));
  EXPECT_TRUE(stream_->Close());
  reader.request_stop();
  reader.join();
  EXPECT_EQ(stream_->Counts().bytes, 20'000U);
}

class FaultAtEveryWrite : public FileFaults, public testing::WithParamInterface<int> {};

TEST_P(FaultAtEveryWrite, LosesThatWriteAloneOrWhatIsStillWrittenLater) {
  for (const std::uint32_t missing : {0U, 4U}) {
    for (std::uint32_t failing = 1; failing <= 10; ++failing) {
      ASSERT_TRUE(Open(kSmall));
      // A full disk takes a part of what it is given first.
      if (missing > 0) files_.WriteShort(missing, failing);
      files_.Fail(FileCall::kPwrite, GetParam(), failing + (missing > 0 ? 1 : 0));
      std::string expected;
      for (char c = 'a'; c < 'k'; ++c) {
        const std::string bytes(10, c);
        if (Write(bytes)) expected += bytes;
        EXPECT_EQ(Content(), expected) << "no part of a write stays";
      }
      EXPECT_TRUE(stream_->Close());
      EXPECT_EQ(expected.size(), 90U);
      EXPECT_EQ(Content(), expected);
      EXPECT_EQ(stream_->Counts().failed_writes, 1U);
      EXPECT_EQ(stream_->Error(), GetParam());
      files_.Heal();
    }
  }
}

TEST_P(FaultAtEveryWrite, FromThenOnLeavesWhatWasThereBefore) {
  for (std::uint32_t failing = 1; failing <= 10; ++failing) {
    ASSERT_TRUE(Open(kSmall));
    files_.WriteShort(4, failing);
    files_.Fail(FileCall::kPwrite, GetParam(), failing + 1, Lasts::kFromThenOn);
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(Write("0123456789"), i + 1 < static_cast<int>(failing));
    }
    EXPECT_EQ(stream_->Counts().failed_writes, 11 - failing);
    EXPECT_EQ(stream_->Position(), 10 * (failing - 1));
    EXPECT_TRUE(stream_->Close());
    EXPECT_EQ(Content().size(), 10 * (failing - 1));
    files_.Heal();
  }
}

INSTANTIATE_TEST_SUITE_P(Errors, FaultAtEveryWrite, testing::Values(ENOSPC, EIO, EDQUOT));

TEST_F(FileFaults, ThatOnlyInterruptAreGoneOnWith) {
  ASSERT_TRUE(Open(kSmall));
  files_.WriteShort(7, 1);
  files_.Fail(FileCall::kPwrite, EINTR, 2);
  files_.WriteShort(1, 3);
  EXPECT_TRUE(Write("0123456789"));
  EXPECT_EQ(Pwrites(), 4U);
  EXPECT_EQ(stream_->Counts().writes, 1U);
  EXPECT_EQ(stream_->Error(), 0);
  EXPECT_EQ(Content(), "0123456789");
}

TEST_F(FileFaults, WhoseTraceCannotBeCutOffIsCutOffLater) {
  ASSERT_TRUE(Open(kSmall));
  files_.WriteShort(3, 1);
  files_.Fail(FileCall::kPwrite, ENOSPC, 2);
  files_.Fail(FileCall::kFtruncate, EIO);
  EXPECT_FALSE(Write("0123456789"));
  EXPECT_EQ(Content(), "0123456");
  EXPECT_EQ(stream_->Error(), ENOSPC);
  EXPECT_TRUE(WriteThrough("abc"));
  EXPECT_EQ(Content(), "abc");
  EXPECT_TRUE(stream_->Close());
  EXPECT_EQ(Content(), "abc");
}

TEST_F(FileFaults, WhoseTraceStaysMakeTheCloseFail) {
  ASSERT_TRUE(Open(kSmall));
  files_.WriteShort(3, 1);
  files_.Fail(FileCall::kPwrite, ENOSPC, 2);
  files_.Fail(FileCall::kFtruncate, EIO, 1, Lasts::kFromThenOn);
  EXPECT_FALSE(Write("0123456789"));
  EXPECT_FALSE(stream_->Close());
  files_.Heal();
  ASSERT_TRUE(Open(kSmall));
  EXPECT_TRUE(stream_->Close()) << "the next file has nothing to do with it";
}

TEST_F(FileFaults, OfAFullDiskCostARecordOneAttempt) {
  ASSERT_TRUE(Open({.buffer_bytes = 64, .sync_interval_ms = 0}));
  ASSERT_TRUE(Record(std::string(60, 'a')));
  files_.Fail(FileCall::kPwrite, ENOSPC, 1, Lasts::kFromThenOn);
  EXPECT_FALSE(stream_->Flush());
  for (std::uint32_t records = 1; records <= 100; ++records) {
    EXPECT_FALSE(Record("bcdefghij"));
    EXPECT_EQ(Pwrites(), 1 + records);
  }
  EXPECT_TRUE(Record("1234")) << "there is room for a small one, without any";
  EXPECT_FALSE(Record("bcdefghij"));
  EXPECT_EQ(Pwrites(), 102U);
  files_.Heal();
  EXPECT_TRUE(Record("bcdefghij")) << "the first one when there is space again";
  EXPECT_TRUE(stream_->Close());
  EXPECT_EQ(Content(), std::string(60, 'a') + "1234bcdefghij");
}

TEST_F(FileFaults, OfAFullDiskCostARecordThatIsTooLongForTheBufferOneAttempt) {
  ASSERT_TRUE(Open(kSmall));
  files_.Fail(FileCall::kPwrite, ENOSPC, 1, Lasts::kFromThenOn);
  for (std::uint32_t records = 1; records <= 10; ++records) {
    EXPECT_FALSE(Record("0123456789"));
    EXPECT_EQ(Pwrites(), records);
  }
}

TEST_F(FileFaults, AfterWhichTheDiskHasSpaceAgainGiveRoomAgain) {
  ASSERT_TRUE(Open(kSmall));
  ASSERT_TRUE(Record("abcdefg"));
  files_.Fail(FileCall::kPwrite, ENOSPC);
  EXPECT_EQ(stream_->Reserve(2), nullptr);
  EXPECT_EQ(stream_->Reserve(2), nullptr);
  EXPECT_EQ(Pwrites(), 1U);
  EXPECT_TRUE(stream_->Flush());
  EXPECT_NE(stream_->Reserve(8), nullptr);
}

class Unflushed : public FileFaults {};

TEST_F(Unflushed, IsWhatTheSystemDoesNotHaveYet) {
  ASSERT_TRUE(Open(kSmall));
  EXPECT_EQ(stream_->Unflushed(), 0U);
  ASSERT_TRUE(Record("abc"));
  ASSERT_TRUE(Write("de"));
  EXPECT_EQ(stream_->Unflushed(), 5U);
  files_.Fail(FileCall::kPwrite, ENOSPC);
  EXPECT_FALSE(stream_->Flush());
  EXPECT_EQ(stream_->Unflushed(), 5U);
  EXPECT_TRUE(stream_->Flush());
  EXPECT_EQ(stream_->Unflushed(), 0U);
  ASSERT_TRUE(Write("0123456789"));
  EXPECT_EQ(stream_->Unflushed(), 0U);
  EXPECT_TRUE(stream_->Close());
  EXPECT_EQ(stream_->Unflushed(), 0U);
}

TEST_F(Unflushed, CanBeGivenUp) {
  ASSERT_TRUE(Open(kSmall));
  ASSERT_TRUE(WriteThrough("abc"));
  files_.Fail(FileCall::kPwrite, ENOSPC, 1, Lasts::kFromThenOn);
  ASSERT_TRUE(Record("defgh"));
  EXPECT_FALSE(Record("ijklm"));
  stream_->DropUnflushed();
  EXPECT_EQ(stream_->Unflushed(), 0U);
  EXPECT_EQ(stream_->Position(), 3U) << "where they began";
  const std::uint32_t attempts = Pwrites();
  EXPECT_TRUE(stream_->Flush());
  EXPECT_EQ(Pwrites(), attempts) << "they are not offered again";
  files_.Heal();
  EXPECT_TRUE(stream_->Seek(0));
  ASSERT_TRUE(Write("X"));
  stream_->DropUnflushed();
  EXPECT_EQ(stream_->Position(), 0U);
  ASSERT_TRUE(stream_->Seek(3));
  ASSERT_TRUE(Record("nop"));
  EXPECT_TRUE(stream_->Close());
  EXPECT_EQ(Content(), "abcnop");
}

TEST_F(Unflushed, IsNothingWhereNothingIsKept) {
  BytesOutputStream stream;
  ASSERT_TRUE(Put(stream, "abc"));
  const Io::IOutputStream& any = stream;
  EXPECT_EQ(any.Unflushed(), 0U);
  static_cast<Io::IOutputStream&>(stream).DropUnflushed();
  EXPECT_EQ(stream.Position(), 3U);
}

TEST_F(Unflushed, GivesAClosedFileNoRoom) {
  ASSERT_TRUE(Open(kSmall));
  EXPECT_TRUE(stream_->Close());
  stream_->DropUnflushed();
  EXPECT_EQ(stream_->Reserve(1), nullptr);
  EXPECT_FALSE(Write("x"));
}

}  // namespace
}  // namespace kestrav::test
