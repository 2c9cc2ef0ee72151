#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client_data_search_rig.h"
#include "kestrav/playback/normal_playback.h"
#include "kestrav/playback/polling_playback.h"
#include "polling_rig.h"
#include "support/short_memory.h"

namespace kestrav::test {
namespace {

constexpr std::uint16_t kInfoClient = 12;
constexpr std::uint32_t kUnset = 4711;

struct Attributes {
  bool read = false;
  std::uint32_t length_ms = kUnset;
  std::uint32_t size = kUnset;
  std::uint16_t mask = kUnset;
  std::string data;
};

LogBuilder Log() { return LogBuilder().Duration(7000).Selection(0x9005); }

LogBuilder NamedLog(std::uint8_t header_key = 0, std::uint8_t data_key = 0) {
  return LogBuilder(header_key, data_key)
      .Duration(7000)
      .Selection(0x9005)
      .Dictionary({{"GPS", kGps}}, 1000)
      .Record(kGps, 1, 1001, "position");
}

const std::string kDictionary(
    "\x01\0\0\0GPS\0"
    "21\0",
    11);

// Both kinds of playback that know the attributes.
template <class Playback>
class PlaybackAttributes : public testing::Test {
 protected:
  void Insert(const Bytes& log) {
    stream = std::make_shared<FaultyStream>(log);
    ASSERT_TRUE(playback.SetInputStream(stream));
  }
  Attributes Get(std::uint16_t client = kInfoClient) {
    Attributes all;
    Memory::MemBlock data = UntouchedBlock();
    all.read = playback.GetPlaybackAttributes(all.length_ms, all.size, all.mask, data, client);
    all.data = Text(data);
    return all;
  }
  // The same, of a stream that is back at its start then.
  Attributes GetAndRewind(std::uint16_t client = kInfoClient) {
    const Attributes all = Get(client);
    EXPECT_EQ(stream->Position(), 0U);
    return all;
  }

  SmartPtr::Ptr<FaultyStream> stream;
  Playback playback;
};

void ExpectHeader(const Attributes& all, std::size_t size) {
  EXPECT_EQ(all.length_ms, 7000U);
  EXPECT_EQ(all.size, size);
  EXPECT_EQ(all.mask, 0x9005U);
}

void ExpectUnset(const Attributes& all) {
  EXPECT_FALSE(all.read);
  EXPECT_EQ(all.length_ms, kUnset);
  EXPECT_EQ(all.size, kUnset);
  EXPECT_EQ(all.mask, kUnset);
  EXPECT_EQ(all.data, kUntouched);
}

using Playbacks = testing::Types<BinaryPlaybackNormalImpl, BinaryPlaybackPollingImpl>;
TYPED_TEST_SUITE(PlaybackAttributes, Playbacks);

TYPED_TEST(PlaybackAttributes, AreThoseOfTheHeaderAndTheDictionary) {
  for (const bool scrambled : {false, true}) {
    SCOPED_TRACE(scrambled);
    const LogBuilder log = scrambled ? NamedLog(0xFF, 0x80) : NamedLog();
    this->Insert(log.Build());
    for (int time = 0; time < 2; ++time) {
      const Attributes all = this->GetAndRewind();
      EXPECT_TRUE(all.read);
      ExpectHeader(all, log.Size());
      EXPECT_EQ(all.data, kDictionary);
    }
    EXPECT_EQ(this->playback.GetPlaybackLogLengthMs(), 7000U);
    EXPECT_EQ(this->playback.GetPlaybackLogSize(), log.Size());
  }
}

TYPED_TEST(PlaybackAttributes, LeaveTheDataToARecordOfAnotherClient) {
  this->Insert(NamedLog().Build());
  const Attributes all = this->GetAndRewind(13);
  EXPECT_TRUE(all.read);
  ExpectHeader(all, NamedLog().Size());
  EXPECT_EQ(all.data, kUntouched);
}

TYPED_TEST(PlaybackAttributes, LeaveTheDataToARecordOfAnotherKind) {
  const LogBuilder log = Log().Record(kInfoClient, 134, 0, "selection").Dictionary({{"A", 1}}, 0);
  this->Insert(log.Build());
  const Attributes all = this->GetAndRewind();
  EXPECT_TRUE(all.read);
  ExpectHeader(all, log.Size());
  EXPECT_EQ(all.data, kUntouched);
}

TYPED_TEST(PlaybackAttributes, TakeTheDictionaryRecordOfWhicheverClientIsAskedFor) {
  this->Insert(Log().Record(99, 1200, 0, "a dictionary of its own").Build());
  EXPECT_EQ(this->GetAndRewind(99).data, "a dictionary of its own");
}

TYPED_TEST(PlaybackAttributes, PassOverADamagedFirstRecord) {
  for (const std::size_t at : {0U, 8U, 20U}) {
    SCOPED_TRACE(at);
    LogBuilder log = Log().Record(kGps, 1, 0, "position").Dictionary({{"GPS", kGps}}, 0);
    this->Insert(log.Flip(log.RecordOffset(0) + at).Build());
    const Attributes all = this->GetAndRewind();
    EXPECT_TRUE(all.read);
    EXPECT_EQ(all.data, kDictionary);
  }
}

TYPED_TEST(PlaybackAttributes, DoWithoutADamagedDictionary) {
  LogBuilder log = NamedLog();
  this->Insert(log.Flip(log.RecordOffset(0) + 20).Build());
  const Attributes all = this->GetAndRewind();
  EXPECT_TRUE(all.read);
  EXPECT_EQ(all.length_ms, 7000U);
  EXPECT_EQ(all.data, kUntouched);
}

// The header was read by then, so its values are known.
TYPED_TEST(PlaybackAttributes, FailWithoutAWholeRecord) {
  LogBuilder damaged = Log().Dictionary({{"GPS", kGps}}, 0);
  damaged.Flip(damaged.RecordOffset(0) + 20);
  for (const Bytes& log :
       {Log().Build(), NamedLog().Cut(147).Build(), NamedLog().Cut(158).Build(), damaged.Build()}) {
    this->Insert(log);
    const Attributes all = this->GetAndRewind();
    EXPECT_FALSE(all.read);
    EXPECT_EQ(all.length_ms, 7000U);
    EXPECT_EQ(all.mask, 0x9005U);
    EXPECT_EQ(all.data, kUntouched);
  }
}

TYPED_TEST(PlaybackAttributes, LeaveAllOutputsAloneWhenThereIsNoLog) {
  for (const Bytes& bytes : {Bytes(), Bytes(500, 0), Bytes(500, 0x4C), NamedLog().Cut(127).Build(),
                             NamedLog().Flip(1).Build()}) {
    this->Insert(bytes);
    ExpectUnset(this->GetAndRewind());
  }
}

TYPED_TEST(PlaybackAttributes, LeaveAllOutputsAloneWithoutAStream) { ExpectUnset(this->Get()); }

TYPED_TEST(PlaybackAttributes, AreUnknownAfterAStop) {
  this->Insert(NamedLog().Build());
  ASSERT_TRUE(this->GetAndRewind().read);
  this->playback.StopPlayback(true);
  ExpectUnset(this->Get());
}

TYPED_TEST(PlaybackAttributes, LeaveAllOutputsAloneWhenTheFirstSeekFails) {
  this->Insert(NamedLog().Build());
  this->stream->fail_seek = 1;
  ExpectUnset(this->GetAndRewind());
}

TYPED_TEST(PlaybackAttributes, FailWhenTheStreamCannotBeRewound) {
  this->Insert(NamedLog().Build());
  this->stream->fail_seek = 2;
  const Attributes all = this->Get();
  EXPECT_FALSE(all.read);
  ExpectHeader(all, NamedLog().Size());
}

TYPED_TEST(PlaybackAttributes, FailWithAnyReadAndRewind) {
  this->Insert(NamedLog().Build());
  ASSERT_TRUE(this->GetAndRewind().read);
  const int reads = this->stream->reads;
  for (int read = 1; read <= reads; ++read) {
    SCOPED_TRACE(read);
    this->Insert(NamedLog().Build());
    this->stream->fail_reads_from = read;
    const Attributes all = this->GetAndRewind();
    EXPECT_FALSE(all.read);
    EXPECT_EQ(all.data, kUntouched);
  }
}

TYPED_TEST(PlaybackAttributes, FailWithoutMemoryAndRewind) {
  std::uint32_t grants = 0;
  for (bool was_short = true; was_short; ++grants) {
    SCOPED_TRACE(grants);
    this->Insert(NamedLog().Build());
    Attributes all;
    Memory::MemBlock data;
    was_short = RanShort(grants, [&] {
      all.read = this->playback.GetPlaybackAttributes(all.length_ms, all.size, all.mask, data, 12);
    });
    EXPECT_EQ(all.read, !was_short);
    EXPECT_EQ(Text(data), was_short ? "" : kDictionary);
    EXPECT_EQ(this->stream->Position(), 0U);
  }
  EXPECT_GT(grants, 1U);
}

TEST(PollingPlayback, BeginsAtTheFirstRecordAfterQuestionsAboutTheLog) {
  PollingRig rig;
  rig.Select();
  ASSERT_TRUE(rig.Insert(NamedLog(0x10, 0x20).Build()));
  std::uint32_t length_ms = 0;
  std::uint32_t size = 0;
  std::uint16_t mask = 0;
  Memory::MemBlock data;
  EXPECT_TRUE(rig.playback.GetPlaybackAttributes(length_ms, size, mask, data, kInfoClient));
  EXPECT_EQ(Search(rig.playback, kGps, 1, 5), "position");
  EXPECT_EQ(Search(rig.playback, kGps, 2, 5), std::nullopt);
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);

  ASSERT_TRUE(rig.Start());
  EXPECT_TRUE(rig.Next());
  EXPECT_THAT(Payloads(rig.gps), testing::ElementsAre("position"));
  EXPECT_THAT(rig.notifications.TakeIds(), testing::ElementsAre(NotifyPlaybackStarted));
}

}  // namespace
}  // namespace kestrav::test
