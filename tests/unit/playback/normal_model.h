#ifndef KESTRAV_TESTS_UNIT_PLAYBACK_NORMAL_MODEL_H_
#define KESTRAV_TESTS_UNIT_PLAYBACK_NORMAL_MODEL_H_

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "normal_rig.h"

namespace kestrav::test {

// A log as the model sees it: records by the time since its start.
struct ModelLog {
  std::vector<At> records;
  std::uint32_t duration_ms = 0;
};

// What normal playback is meant to do, on one thread and without a stream: a step of the playback
// thread is a call. Every operation returns when the playback would rest.
class NormalModel {
 public:
  // Which recorded ids are played, which of these get their history.
  NormalModel(std::uint32_t clock_ms, std::vector<std::uint16_t> played,
              std::vector<std::uint16_t> history)
      : clock_start_(clock_ms), played_ids_(std::move(played)), history_ids_(std::move(history)) {}

  bool Start();
  bool Pause();
  bool Resume();
  bool FastForward();
  bool Rewind();
  bool SetSpeed(std::int32_t speed);
  bool SetOffset(std::uint32_t scnds);
  bool SetRewindStep(std::uint32_t scnds);
  bool Stop(bool wait);
  bool NewStream(const ModelLog& log);
  bool Advance(std::uint32_t ms);

  int Status() const { return status_; }
  std::int32_t Speed() const { return speed_; }
  std::uint32_t Position() const;
  std::uint32_t Offset() const { return offset_; }
  std::uint32_t RewindStep() const { return rewind_step_; }
  Entries Take() { return std::exchange(entries_, {}); }

  std::function<bool()> react;  // the clients' answer; none: true

 private:
  enum Status { kOff, kStarting, kPlaying, kPaused, kRewinding, kFinished };
  static constexpr std::uint32_t kForever = 0xFFFFFFFF;
  static constexpr std::uint16_t kNobody = 0xFFFF;
  struct Record {
    std::uint32_t time = 0;
    std::string payload;
    std::uint16_t id = kNobody;
  };
  struct Read {
    bool ok;
    std::int32_t delta;
  };

  void Tell(const std::string& what);
  std::uint32_t Clock() const { return clock_start_ + static_cast<std::uint32_t>(now_); }
  std::uint32_t WaitOf(std::uint32_t span) const;
  void ChangeSpeed(std::int32_t speed);
  bool Deliver(const Record& record);
  Read ReadNext();
  void BeginAt(std::uint32_t target);
  bool Init();
  bool Play();
  bool ServeStart();
  bool ServePause();
  bool ServeRewind();
  bool Jump(std::uint32_t& target);
  bool ServeEvent(bool& served);
  void Serve(bool woken);
  void End(bool reset);
  void Reset();

  std::uint32_t clock_start_;
  std::vector<std::uint16_t> played_ids_;
  std::vector<std::uint16_t> history_ids_;
  Entries entries_;

  std::uint64_t now_ = 0;
  std::optional<std::uint64_t> due_;
  bool busy_ = false;  // the playback thread is at work: calls come from its callbacks
  bool thread_ = false;
  bool quit_ = false;
  bool start_ = false;
  bool pause_ = false;
  bool rewind_ = false;
  bool end_ = false;

  ModelLog log_;
  std::uint32_t log_start_ = 0;
  std::uint32_t length_ = 0;
  bool open_ = false;
  std::size_t next_ = 0;
  Record current_;

  int status_ = kOff;
  std::int32_t speed_ = 0;
  std::int32_t previous_speed_ = 0;
  std::int32_t start_speed_ = 1;
  std::uint32_t wait_ = 0;
  std::uint32_t base_ = 0;
  std::uint32_t played_ = 0;
  std::uint32_t last_ = 0;
  std::uint32_t target_ = 0;
  std::uint32_t offset_ = 0;
  std::uint32_t rewind_step_ = 5;
  std::uint32_t rewind_target_ = 0;
  bool skipping_ = false;
  bool offset_changed_ = false;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_PLAYBACK_NORMAL_MODEL_H_
