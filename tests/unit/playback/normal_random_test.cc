#include <cstdlib>
#include <random>

#include "normal_model.h"
#include "support/watchdog.h"

namespace kestrav::test {
namespace {

constexpr int kSteps = 10'000;

enum Act {
  kStart,
  kPause,
  kResume,
  kFastForward,
  kRewind,
  kSetSpeed,
  kSetOffset,
  kSetRewindStep,
  kStop,
  kNewStream,
  kAdvance,
  kCallFromClient,  // the next delivery makes the call `arg`
  kRefuse,          // the next delivery is refused
  kActs,
};

constexpr const char* kNames[kActs] = {
    "start",       "pause", "resume", "fast forward", "rewind",           "speed",      "offset",
    "rewind step", "stop",  "stream", "advance",      "call from client", "refuse next"};

struct Step {
  Act act;
  std::uint32_t arg;
};

using Logs = std::vector<ModelLog>;

// The playback under test, with the operations of the model.
class Subject {
 public:
  Subject() {
    rig_.can.accepts_offset_data = true;
    rig_.Select();
    rig_.react = [this](const std::string&) { return !react || react(); };
  }
  ~Subject() { rig_.playback.StopPlayback(true); }

  bool Start() { return rig_.Start(); }
  bool Pause() { return rig_.playback.PausePlayback(); }
  bool Resume() { return rig_.playback.ResumePlayback(); }
  bool FastForward() { return rig_.playback.FastForward(); }
  bool Rewind() { return rig_.playback.RewindPlayback(); }
  bool SetSpeed(std::int32_t speed) { return rig_.SetStartSpeed(speed); }
  bool SetOffset(std::uint32_t scnds) { return rig_.playback.SetStartPlaybackOffsetScnds(scnds); }
  bool SetRewindStep(std::uint32_t scnds) {
    rig_.playback.SetRewindTimeScnds(scnds);
    return true;
  }
  bool Stop(bool wait) {
    rig_.playback.StopPlayback(wait);
    return true;
  }
  bool NewStream(const ModelLog& log) {
    if (rig_.Status() != PlaybackOff) {
      return rig_.playback.SetInputStream(std::make_shared<BytesInputStream>(Bytes()));
    }
    rig_.Insert(Log(log.records, log.duration_ms));
    return true;
  }
  bool Advance(std::uint32_t ms) {
    rig_.clock->Advance(ms);
    return true;
  }

  int Status() const { return rig_.Status(); }
  std::int32_t Speed() const { return rig_.Speed(); }
  std::uint32_t Position() const { return rig_.Position(); }
  std::uint32_t Offset() const { return rig_.playback.GetStartPlaybackOffsetScnds(); }
  std::uint32_t RewindStep() const { return rig_.playback.GetRewindTimeScnds(); }
  Entries Take() { return rig_.Settled(); }

  std::function<bool()> react;

 private:
  NormalRig rig_;
};

// Makes the calls of a script to `player`, the real one or the model.
template <class Player>
class Caller {
 public:
  Caller(Player& player, const Logs& logs) : player_(player), logs_(logs) {
    player_.react = [this] { return React(); };
  }

  bool Do(const Step& step) {
    switch (step.act) {
      case kStart:
        return player_.Start();
      case kPause:
        return player_.Pause();
      case kResume:
        return player_.Resume();
      case kFastForward:
        return player_.FastForward();
      case kRewind:
        return player_.Rewind();
      case kSetSpeed:
        return player_.SetSpeed(static_cast<std::int32_t>(step.arg));
      case kSetOffset:
        return player_.SetOffset(step.arg);
      case kSetRewindStep:
        return player_.SetRewindStep(step.arg);
      case kStop:
        return player_.Stop(step.arg != 0);
      case kNewStream:
        return player_.NewStream(logs_[step.arg % logs_.size()]);
      case kAdvance:
        return player_.Advance(step.arg);
      case kCallFromClient:
        calls_.push_back(static_cast<Act>(step.arg));
        return true;
      default:
        refuse_ = true;
        return true;
    }
  }

 private:
  bool React() {
    const std::vector<Act> calls = std::exchange(calls_, {});
    for (const Act act : calls) Do({act, 0});
    return !std::exchange(refuse_, false);
  }

  Player& player_;
  const Logs& logs_;
  std::vector<Act> calls_;
  bool refuse_ = false;
};

struct Observation {
  bool answer;
  int status;
  std::int32_t speed;
  std::uint32_t position;
  std::uint32_t offset;
  std::uint32_t rewind_step;
  Entries entries;

  friend bool operator==(const Observation&, const Observation&) = default;
  friend void PrintTo(const Observation& seen, std::ostream* out) {
    *out << seen.answer << " status " << seen.status << " speed " << seen.speed << " position "
         << seen.position << " offset " << seen.offset << " step " << seen.rewind_step << " "
         << testing::PrintToString(seen.entries);
  }
};

template <class Player>
Observation Observe(Player& player, bool answer) {
  Entries entries = player.Take();  // settles first
  return {answer,          player.Status(),     player.Speed(),    player.Position(),
          player.Offset(), player.RewindStep(), std::move(entries)};
}

class Script {
 public:
  explicit Script(std::uint32_t seed) : random_(seed) {}

  Logs MakeLogs() {
    Logs logs(12);
    for (ModelLog& log : logs) log = MakeLog();
    return logs;
  }

  Step Next(int status) {
    const std::uint32_t dice = Below(100);
    if (status == PlaybackOff) {
      if (dice < 25) return {kNewStream, Below(1000)};
      if (dice < 50) return {kStart, 0};
    }
    if (dice < 40) return {kAdvance, OneOf({0, 1, 7, 100, 250, 333, 500, 900, 1000, 2500, 9999})};
    return Make(static_cast<Act>(Below(kActs)));
  }

 private:
  std::uint32_t Below(std::uint32_t limit) { return static_cast<std::uint32_t>(random_() % limit); }
  std::uint32_t OneOf(const std::vector<std::uint32_t>& values) {
    return values[Below(static_cast<std::uint32_t>(values.size()))];
  }

  Step Make(Act act) {
    switch (act) {
      case kSetSpeed:
        return {act, OneOf({0, 1, 1, 2, 3, 4, 7, 10, 11, 0xFFFFFFFF})};
      case kSetOffset:
        return {act, OneOf({0, 0, 1, 2, 3, 5, 9, 15, 40, 4294968})};
      case kSetRewindStep:
        return {act, OneOf({0, 1, 2, 3, 5, 10, 1000})};
      case kStop:
        // Stops would otherwise leave little to see.
        return Below(3) == 0 ? Step{act, Below(2)} : Step{kAdvance, 1};
      case kNewStream:
        return {act, Below(1000)};
      case kCallFromClient: {
        constexpr std::uint32_t kCalls[] = {kStart, kPause, kResume, kFastForward, kRewind, kStop};
        return {act, kCalls[Below(std::size(kCalls))]};
      }
      case kRefuse:
        return Below(3) == 0 ? Step{act, 0} : Step{kAdvance, 10};
      default:
        return {act, 0};
    }
  }

  ModelLog MakeLog() {
    ModelLog log;
    std::uint32_t time = OneOf({0, 0, 10, 1500, 4000});
    const std::uint32_t count = Below(40);
    for (std::uint32_t i = 0; i < count; ++i) {
      time += OneOf({0, 0, 1, 3, 10, 100, 499, 500, 501, 700, 1000, 2500});
      // Now and then a record is older than the one before it.
      if (Below(60) == 0 && time > 20) time -= 20;
      const auto client = static_cast<std::uint16_t>(
          OneOf({kRecordedGps, kRecordedGps, kRecordedCan, kRecordedNobody}));
      log.records.push_back({time, "r" + std::to_string(i), client});
    }
    log.duration_ms = OneOf({time, time, time + 5000, time / 2, time / 1000 * 1000});
    return log;
  }

  std::mt19937 random_;
};

class NormalRandom : public testing::TestWithParam<std::uint32_t> {};

// KESTRAV_SEED in the environment takes the place of the seed.
TEST_P(NormalRandom, DoesWhatTheModelDoes) {
  const Watchdog watchdog(std::chrono::seconds(120), "random calls to normal playback");
  const char* const given = std::getenv("KESTRAV_SEED");
  const std::uint32_t seed =
      given == nullptr ? GetParam() : static_cast<std::uint32_t>(std::strtoul(given, nullptr, 10));
  Script script(seed);
  const Logs logs = script.MakeLogs();
  NormalModel model(1000, {kRecordedGps, kRecordedCan}, {kRecordedCan});
  Subject subject;
  Caller<NormalModel> model_caller(model, logs);
  Caller<Subject> caller(subject, logs);
  std::vector<int> seen_in(6);

  for (int i = 0; i < kSteps; ++i) {
    const Step step = script.Next(model.Status());
    const Observation expected = Observe(model, model_caller.Do(step));
    const Observation actual = Observe(subject, caller.Do(step));
    ASSERT_EQ(actual, expected) << "seed " << seed << ", step " << i << ": " << kNames[step.act]
                                << " " << step.arg;
    ++seen_in[static_cast<std::size_t>(expected.status)];
  }
  // The script has been where it matters.
  for (const int status : {PlaybackOff, PlaybackPlaying, PlaybackPaused, PlaybackFinished}) {
    EXPECT_GT(seen_in[static_cast<std::size_t>(status)], kSteps / 50) << "status " << status;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, NormalRandom, testing::Values(1, 2, 3, 20260, 987654321));

}  // namespace
}  // namespace kestrav::test
