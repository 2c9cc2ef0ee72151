#include <thread>

#include "pass_through_rig.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint16_t kGpsThen = 30;
constexpr std::uint16_t kCanThen = 31;

// Five pieces: header, dictionary and three records.
LogBuilder Drive(std::uint8_t header_key = 0, std::uint8_t data_key = 0) {
  return LogBuilder(header_key, data_key)
      .StartClock(5000)
      .Duration(7000)
      .Selection(0x9004)
      .Dictionary({{"CAN", kCanThen}, {"GPS", kGpsThen}, {"Info Client", 12}}, 5000)
      .Record(kGpsThen, 1, 5100, "a")
      .Record(kCanThen, 2, 5200, "b")
      .Record(kGpsThen, 3, 5300, "c");
}

TEST(PassThrough, GivesTheRecordsToTheClientsThatTheDictionaryNames) {
  PassThroughRig rig;
  rig.Play(Drive(), 4);
  EXPECT_THAT(rig.gps.Deliveries(),
              ElementsAre(Delivery{kGpsThen, 1, "a"}, Delivery{kGpsThen, 3, "c"}));
  EXPECT_THAT(rig.can.Deliveries(), ElementsAre(Delivery{kCanThen, 2, "b"}));
  EXPECT_THAT(rig.fixed.Deliveries(), IsEmpty());
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackStarting);
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
}

TEST(PassThrough, GivesTheSameFromAScrambledLog) {
  PassThroughRig rig;
  rig.Play(Drive(0xFE, 0x5A), 4);
  EXPECT_THAT(PayloadsOf(rig.gps), ElementsAre("a", "c"));
  EXPECT_THAT(PayloadsOf(rig.can), ElementsAre("b"));
}

TEST(PassThrough, DeliversEachPieceBeforeItReturnsAndNotTheDictionary) {
  PassThroughRig rig;
  ASSERT_TRUE(rig.Start());
  const std::vector<Bytes> pieces = Pieces(Drive(), 4);
  EXPECT_EQ(rig.playback.GetPlaybackLogLengthMs(), 0U);
  EXPECT_TRUE(rig.Feed(pieces[0]));
  EXPECT_EQ(rig.playback.GetPlaybackLogLengthMs(), 7000U);
  EXPECT_EQ(rig.playback.GetPlaybackLogSize(), Drive().Build().size());
  EXPECT_TRUE(rig.Feed(pieces[1]));
  EXPECT_THAT(rig.gps.Deliveries(), IsEmpty());
  EXPECT_TRUE(rig.Feed(pieces[2]));
  EXPECT_THAT(PayloadsOf(rig.gps), ElementsAre("a"));
}

TEST(PassThrough, TellsAllSixtyFourClientsOfItsStartAndItsStop) {
  PassThroughRig rig;
  ASSERT_TRUE(rig.Start());
  rig.playback.StopPlayback(true);
  const std::vector<NotificationInfo> all = rig.notifications.All();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].id, NotifyPlaybackStarted);
  EXPECT_EQ(all[1].id, NotifyPlaybackStopped);
  for (const NotificationInfo& info : all) {
    EXPECT_EQ(info.clients.Mask(), 0xFFFFFFFFFFFFFFFF);
    EXPECT_EQ(info.value, 0U);
    EXPECT_EQ(info.speed, PlaybackSpeedNone);
  }
}

// A second piece that is no dictionary leaves the selection to the mask of the stream header.
TEST(PassThrough, SelectsByTheHeadersMaskWhenNoDictionaryComesAndDeliversThatRecord) {
  PassThroughRig rig;
  rig.Play(LogBuilder().Selection(0x0004).Record(2, 1, 0, "a").Record(2, 1, 1, "b"), 2);
  EXPECT_THAT(PayloadsOf(rig.fixed), ElementsAre("a", "b"));
}

TEST(PassThrough, PassesOverASecondRecordThatIsNotSelected) {
  PassThroughRig rig;
  rig.Play(LogBuilder().Selection(0x0004).Record(3, 1, 0, "a").Record(2, 1, 1, "b"), 2);
  EXPECT_THAT(PayloadsOf(rig.fixed), ElementsAre("b"));
}

TEST(PassThrough, TakesOnlyTheInfoClientsOwnRecordForADictionary) {
  for (const auto& [client, data_id] : {std::pair{12, 1201}, {13, 1200}, {12, 1199}}) {
    PassThroughRig rig;
    const auto id = static_cast<std::uint16_t>(client);
    rig.Play(LogBuilder()
                 .Selection(0x0004)
                 .Record(id, static_cast<std::uint16_t>(data_id), 0, "x")
                 .Record(2, 1, 1, "b"),
             2);
    EXPECT_THAT(PayloadsOf(rig.fixed), ElementsAre("b"));
  }
}

TEST(PassThrough, DoesNotDeliverALaterDictionary) {
  PassThroughRig rig;
  LogBuilder log = Drive();
  log.Dictionary({{"Fixed", 2}}, 5400).Record(2, 1, 5500, "x").Record(kGpsThen, 4, 5600, "d");
  rig.Play(log, 7);
  EXPECT_THAT(rig.fixed.Deliveries(), IsEmpty());
  EXPECT_THAT(PayloadsOf(rig.gps), ElementsAre("a", "c", "d"));
}

TEST(PassThrough, LetsRecordsComeInAnyOrderOfTime) {
  PassThroughRig rig;
  LogBuilder log = Drive();
  log.Record(kGpsThen, 4, 10, "earlier");
  rig.Play(log, 5);
  EXPECT_THAT(PayloadsOf(rig.gps), ElementsAre("a", "c", "earlier"));
}

// Feeds pieces of which the last one must fail, and looks at what is left.
void ExpectFailure(PassThroughRig& rig, const std::vector<Bytes>& pieces) {
  ASSERT_TRUE(rig.Start());
  rig.notifications.TakeIds();
  for (std::size_t i = 0; i + 1 < pieces.size(); ++i) ASSERT_TRUE(rig.Feed(pieces[i]));
  EXPECT_FALSE(rig.Feed(pieces.back()));
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStopped));
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  // Nothing is taken until the next start, which begins with the header.
  EXPECT_FALSE(rig.Feed(Pieces(Drive(), 4)[0]));
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
  rig.gps.takes_data = true;
  const std::size_t before = rig.gps.Deliveries().size();
  rig.Play(Drive(), 4);
  EXPECT_EQ(rig.gps.Deliveries().size(), before + 2);
}

struct BadPieces {
  const char* name;
  std::vector<Bytes> pieces;
};

void PrintTo(const BadPieces& bad, std::ostream* out) { *out << bad.name; }

class PassThroughFailure : public testing::TestWithParam<BadPieces> {};

TEST_P(PassThroughFailure, StopsThePlayback) {
  PassThroughRig rig;
  ExpectFailure(rig, GetParam().pieces);
}

// The first `count` pieces of the log, the last of them changed.
std::vector<Bytes> Changed(std::size_t count, const std::function<void(Bytes&)>& change,
                           const LogBuilder& log = Drive()) {
  std::vector<Bytes> pieces = Pieces(log, 4);
  pieces.resize(count);
  change(pieces.back());
  return pieces;
}

std::vector<Bytes> First(std::size_t count, const LogBuilder& log, std::size_t records) {
  std::vector<Bytes> pieces = Pieces(log, records);
  pieces.resize(count);
  return pieces;
}

const BadPieces kBadPieces[] = {
    {"EmptyHeader", Changed(1, [](Bytes& piece) { piece.clear(); })},
    {"HeaderOf127Bytes", Changed(1, [](Bytes& piece) { piece.pop_back(); })},
    {"HeaderOf129Bytes", Changed(1, [](Bytes& piece) { piece.push_back(0); })},
    {"HeaderWithoutItsMark", Changed(1, [](Bytes& piece) { piece[0] ^= 1; })},
    {"RecordForAHeader", {Pieces(Drive(), 4)[1]}},
    {"EmptyDictionaryPiece", Changed(2, [](Bytes& piece) { piece.clear(); })},
    {"DamagedDictionary", Changed(2, [](Bytes& piece) { piece.back() ^= 1; })},
    {"HeaderTwice", {Pieces(Drive(), 4)[0], Pieces(Drive(), 4)[0]}},
    {"DictionaryOfNobody", First(2, LogBuilder().Selection(4).Dictionary({{"Other", 30}}, 0), 1)},
    {"DictionaryOfTheInfoClientAlone",
     First(2, LogBuilder().Selection(4).Dictionary({{"Info Client", 12}}, 0), 1)},
    {"UnreadableDictionary", First(2, LogBuilder().Selection(4).Record(12, 1200, 0, "abcd"), 1)},
    {"DictionaryWithAnIdOf64", First(2, LogBuilder().Selection(4).Dictionary({{"GPS", 64}}, 0), 1)},
    {"NoDictionaryAndNoMask", First(2, LogBuilder().Record(2, 1, 0, "a"), 1)},
    {"NoDictionaryAndAMaskOfNobody", First(2, LogBuilder().Selection(8).Record(3, 1, 0, "a"), 1)},
    {"EmptyRecord", Changed(3, [](Bytes& piece) { piece.clear(); })},
    {"RecordHeaderAlone", Changed(3, [](Bytes& piece) { piece.resize(20); })},
    {"RecordTooShort", Changed(4, [](Bytes& piece) { piece.pop_back(); })},
    {"RecordTooLong", Changed(4, [](Bytes& piece) { piece.push_back(0); })},
    {"DamagedRecordHeader", Changed(4, [](Bytes& piece) { piece[5] ^= 1; })},
    {"DamagedPayload", Changed(5, [](Bytes& piece) { piece[20] ^= 1; })},
    {"ScrambledRecordLeftOut",
     {Pieces(Drive(1, 1), 4)[0], Pieces(Drive(1, 1), 4)[1], Pieces(Drive(1, 1), 4)[3]}},
};

INSTANTIATE_TEST_SUITE_P(Pieces, PassThroughFailure, testing::ValuesIn(kBadPieces),
                         [](const auto& row) { return std::string(row.param.name); });

class PassThroughClientFailure : public testing::TestWithParam<std::function<bool()>> {};

TEST_P(PassThroughClientFailure, StopsThePlayback) {
  PassThroughRig rig;
  bool fail = true;
  rig.can.on_delivery = [&](const ILogMessage&) {
    return !std::exchange(fail, false) || GetParam()();
  };
  ExpectFailure(rig, First(4, Drive(), 4));
}

INSTANTIATE_TEST_SUITE_P(Ways, PassThroughClientFailure,
                         testing::Values([] { return false; }, []() -> bool { throw 1; }));

TEST(PassThroughStart, IsRefusedWithoutClientsOrEngine) {
  PassThroughRig rig;
  EXPECT_FALSE(rig.playback.StartPlayback(nullptr, &rig.notifications, rig.owner, L"Playback"));
  EXPECT_FALSE(rig.playback.StartPlayback(&rig.manager, nullptr, rig.owner, L"Playback"));
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
}

TEST(PassThroughStart, IsRefusedInStatusPlaying) {
  PassThroughRig rig;
  rig.playback.SetPlaybackStatus(PlaybackPlaying);
  EXPECT_FALSE(rig.Start());
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackPlaying);
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
}

TEST(PassThroughStart, StopsAPlaybackThatRunsAndIsThenRefused) {
  PassThroughRig rig;
  rig.Play(Drive(), 4);
  EXPECT_FALSE(rig.Start());
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStopped));
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_TRUE(rig.Start());
}

// Stops the playback as soon as it is told of its start.
class StoppingObserver final : public INotificationSink {
 public:
  explicit StoppingObserver(IBinaryPlayback& playback) : playback_(playback) {}

  void SendNotification(const NotificationInfo& info) override {
    ids.push_back(info.id);
    if (info.id == NotifyPlaybackStarted) playback_.StopPlayback(false);
  }

  std::vector<NotificationIdType> ids;

 private:
  IBinaryPlayback& playback_;
};

TEST(PassThroughStart, ThatAnObserverStopsAtOnceIsNoStart) {
  PassThroughRig rig;
  StoppingObserver observer(rig.playback);
  EXPECT_FALSE(rig.playback.StartPlayback(&rig.manager, &observer, rig.owner, L"Playback"));
  EXPECT_THAT(observer.ids, ElementsAre(NotifyPlaybackStarted, NotifyPlaybackStopped));
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  for (const Bytes& piece : Pieces(Drive(), 4)) EXPECT_FALSE(rig.Feed(piece));
  rig.Play(Drive(), 4);
  EXPECT_THAT(PayloadsOf(rig.gps), ElementsAre("a", "c"));
}

TEST(PassThroughStop, IsSilentWhileOff) {
  PassThroughRig rig;
  rig.playback.StopPlayback(true);
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
  EXPECT_FALSE(rig.Feed(Pieces(Drive(), 4)[0]));
}

TEST(PassThroughStop, IsFollowedByNothingUntilTheNextStart) {
  PassThroughRig rig;
  rig.Play(Drive(), 4);
  rig.playback.StopPlayback(false);
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStopped));
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  for (const Bytes& piece : Pieces(Drive(), 4)) EXPECT_FALSE(rig.Feed(piece));
  EXPECT_THAT(PayloadsOf(rig.gps), ElementsAre("a", "c"));
  rig.Play(Drive(), 4);
  EXPECT_THAT(PayloadsOf(rig.gps), ElementsAre("a", "c", "a", "c"));
}

TEST(PassThroughRestart, FillsTheClientInformationAnew) {
  PassThroughRig rig;
  rig.Play(Drive(), 4);
  rig.playback.StopPlayback(false);
  rig.notifications.TakeIds();
  // The next log has the ids the other way round, and the registry a further instance.
  RecordingClient second(L"GPS");
  ASSERT_TRUE(rig.manager.RegisterClient(&second));
  rig.manager.ResetPlaybackSelection();
  rig.Play(LogBuilder()
               .Dictionary({{"CAN", kGpsThen}, {"GPS", kCanThen}}, 0)
               .Record(kGpsThen, 1, 0, "frame")
               .Record(kCanThen, 1, 0, "position"),
           3);
  EXPECT_EQ(PayloadsOf(rig.can).back(), "frame");
  EXPECT_EQ(PayloadsOf(rig.gps).back(), "position");
  EXPECT_THAT(PayloadsOf(second), ElementsAre("position"));
}

TEST(PassThroughCallback, MayStopThePlayback) {
  PassThroughRig rig;
  rig.gps.on_delivery = [&rig](const ILogMessage&) {
    rig.playback.StopPlayback(true);
    return true;
  };
  ASSERT_TRUE(rig.Start());
  rig.notifications.TakeIds();
  const std::vector<Bytes> pieces = Pieces(Drive(), 4);
  EXPECT_TRUE(rig.Feed(pieces[0]));
  EXPECT_TRUE(rig.Feed(pieces[1]));
  rig.Feed(pieces[2]);
  EXPECT_THAT(rig.notifications.TakeIds(), ElementsAre(NotifyPlaybackStopped));
  EXPECT_EQ(rig.playback.GetPlaybackStatus(), PlaybackOff);
  EXPECT_FALSE(rig.Feed(pieces[3]));
  rig.gps.on_delivery = nullptr;
  rig.Play(Drive(), 4);
  EXPECT_THAT(PayloadsOf(rig.gps), ElementsAre("a", "a", "c"));
}

TEST(PassThroughCallback, MayStopAndStartThePlayback) {
  PassThroughRig rig;
  bool once = true;
  rig.gps.on_delivery = [&](const ILogMessage&) {
    if (!std::exchange(once, false)) return true;
    rig.playback.StopPlayback(false);
    return rig.Start();
  };
  ASSERT_TRUE(rig.Start());
  const std::vector<Bytes> pieces = Pieces(Drive(), 4);
  for (std::size_t i = 0; i < 3; ++i) rig.Feed(pieces[i]);
  ASSERT_THAT(rig.notifications.TakeIds(),
              ElementsAre(NotifyPlaybackStarted, NotifyPlaybackStopped, NotifyPlaybackStarted));
  for (const Bytes& piece : pieces) EXPECT_TRUE(rig.Feed(piece));
  EXPECT_THAT(PayloadsOf(rig.gps), ElementsAre("a", "a", "c"));
  EXPECT_THAT(PayloadsOf(rig.can), ElementsAre("b"));
}

TEST(PassThroughCallback, MayAskForTheStatus) {
  PassThroughRig rig;
  PlaybackStatusType status = PlaybackOff;
  rig.gps.on_delivery = [&](const ILogMessage&) {
    status = rig.playback.GetPlaybackStatus();
    return rig.playback.GetPlaybackLogLengthMs() == 7000;
  };
  rig.Play(Drive(), 4);
  EXPECT_EQ(status, PlaybackStarting);
}

TEST(PassThrough, AnswersWhatItDoesNotHave) {
  PassThroughRig rig;
  rig.Play(Drive(), 4);
  auto& playback = rig.playback;
  EXPECT_FALSE(playback.RewindPlayback());
  EXPECT_FALSE(playback.PausePlayback());
  EXPECT_FALSE(playback.ResumePlayback());
  EXPECT_FALSE(playback.FastForward());
  EXPECT_FALSE(playback.SetStartPlaybackSpeed(PlaybackSpeed1x));
  EXPECT_FALSE(playback.PlaybackNextMessage());
  EXPECT_FALSE(playback.SetInputStream(nullptr));
  EXPECT_FALSE(playback.SetStartPlaybackOffsetScnds(0));
  EXPECT_FALSE(playback.IsValidPlaybackOffset(0));
  EXPECT_FALSE(playback.SetPeriodicEventDuration(1));
  EXPECT_EQ(playback.GetPlaybackSpeed(), 0);
  EXPECT_EQ(playback.GetPlaybackTimeScnds(), 0U);
  EXPECT_EQ(playback.GetPlaybackStatus(), PlaybackStarting);
  EXPECT_THAT(rig.notifications.TakeIds(), IsEmpty());
  std::uint32_t length_ms = 1;
  std::uint32_t size = 1;
  std::uint16_t mask = 1;
  Memory::MemBlock dictionary;
  EXPECT_FALSE(playback.GetPlaybackAttributes(length_ms, size, mask, dictionary, 12));
  EXPECT_EQ(length_ms + size + mask, 0U);
}

// One thread feeds, others stop, start and ask: every piece is taken whole or not at all.
TEST(PassThroughThreads, MayFeedStopAndAskAtOnce) {
  const Watchdog watchdog(std::chrono::seconds(60), "pass-through playback on several threads");
  PassThroughRig rig;
  const std::vector<Bytes> pieces = Pieces(Drive(), 4);
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 300; ++i) {
        if (t == 0) rig.Start();
        if (t == 1 && i % 10 == 0) rig.playback.StopPlayback(false);
        for (const Bytes& piece : pieces) {
          if (t != 1) rig.Feed(piece);
          EXPECT_LE(rig.playback.GetPlaybackStatus(), PlaybackStarting);
        }
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  rig.playback.StopPlayback(false);
  rig.notifications.TakeIds();
  const std::size_t before = rig.can.Deliveries().size();
  rig.Play(Drive(), 4);
  EXPECT_EQ(rig.can.Deliveries().size(), before + 1);
}

}  // namespace
}  // namespace kestrav::test
