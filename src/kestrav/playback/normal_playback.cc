#include "kestrav/playback/normal_playback.h"

#include <algorithm>

#include "kestrav/host/time/source.h"
#include "kestrav/playback/client_data_search.h"

// What callers ask for, and the arithmetic of speed and position. The thread is in
// normal_playback_thread.cc.

namespace kestrav {

BinaryPlaybackNormalImpl::~BinaryPlaybackNormalImpl() {
  Quit();
  WaitForCompletion();
}

bool BinaryPlaybackNormalImpl::SearchAndGetClientData(Memory::MemBlock& data,
                                                      const std::uint16_t& clientId,
                                                      const std::uint16_t& dataId,
                                                      const std::uint32_t& offsetScnds) const {
  Lock lock(lock_);
  return SearchClientData(decoder_, data, clientId, dataId, offsetScnds);
}

bool BinaryPlaybackNormalImpl::GetPlaybackAttributes(std::uint32_t& lengthMs, std::uint32_t& size,
                                                     std::uint16_t& recordedClientsMask,
                                                     Memory::MemBlock& data,
                                                     const std::uint16_t& clientId) const {
  Lock lock(lock_);
  return ReadPlaybackAttributes(decoder_, lengthMs, size, recordedClientsMask, data, clientId);
}

std::uint32_t BinaryPlaybackNormalImpl::GetPlaybackLogLengthMs() const {
  Lock lock(lock_);
  return decoder_.StreamHeader().recording_duration;
}

std::uint32_t BinaryPlaybackNormalImpl::GetPlaybackLogSize() const {
  Lock lock(lock_);
  return decoder_.StreamHeader().stream_length;
}

PlaybackStatusType BinaryPlaybackNormalImpl::GetPlaybackStatus() const {
  Lock lock(lock_);
  return status_;
}

PlaybackSpeedType BinaryPlaybackNormalImpl::GetPlaybackSpeed() const {
  Lock lock(lock_);
  return speed_;
}

std::uint32_t BinaryPlaybackNormalImpl::GetRewindTimeScnds() const {
  Lock lock(lock_);
  return rewind_step_scnds_;
}

std::uint32_t BinaryPlaybackNormalImpl::GetStartPlaybackOffsetScnds() const {
  Lock lock(lock_);
  return start_offset_scnds_;
}

bool BinaryPlaybackNormalImpl::IsValidPlaybackOffset(std::uint32_t offsetScnds) const {
  Lock lock(lock_);
  return IsOffsetInLog(decoder_, offsetScnds);
}

std::uint32_t BinaryPlaybackNormalImpl::GetPlaybackTimeScnds() const {
  Lock lock(lock_);
  std::uint32_t now_ms = 0;
  const bool timed = status_ != PlaybackOff && status_ != PlaybackStarting && clock_base_ms_ != 0;
  if (!timed || !Time::Source().ReadMs(now_ms)) return 0;
  const std::uint32_t played =
      played_ms_ + static_cast<std::uint32_t>(speed_) * (now_ms - clock_base_ms_);
  const bool stays = status_ == PlaybackRewinding || status_ == PlaybackFinished;
  const std::uint32_t limit = (stays ? last_played_ : current_message_.time_stamp) - LogStart();
  return (std::min(played, limit) + 500) / 1000;
}

std::uint32_t BinaryPlaybackNormalImpl::LogStart() const {
  return decoder_.StreamHeader().start_clock;
}

bool BinaryPlaybackNormalImpl::SetInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) {
  Lock lock(lock_);
  if (status_ != PlaybackOff) return false;
  decoder_.SetInputStream(stream);
  Reset();
  return true;
}

bool BinaryPlaybackNormalImpl::SetStartPlaybackOffsetScnds(std::uint32_t offsetScnds) {
  Lock lock(lock_);
  if (status_ == PlaybackPlaying || !IsValidPlaybackOffset(offsetScnds)) return false;
  start_offset_scnds_ = offsetScnds;
  offset_changed_ = true;
  return true;
}

bool BinaryPlaybackNormalImpl::SetStartPlaybackSpeed(PlaybackSpeedType speed) {
  Lock lock(lock_);
  if (speed > PlaybackSpeed10x || status_ == PlaybackPlaying) return false;
  start_speed_ = speed;
  if (status_ == PlaybackPaused) {
    // The resume applies the previous speed, which the pause made 0: playback then stands still.
    previous_speed_ = speed_;
    speed_ = speed;
  }
  return true;
}

void BinaryPlaybackNormalImpl::SetRewindTimeScnds(std::uint32_t seconds) {
  Lock lock(lock_);
  rewind_step_scnds_ = seconds;
}

void BinaryPlaybackNormalImpl::SetPlaybackStatus(const PlaybackStatusType& status) {
  Lock lock(lock_);
  status_ = status;
}

bool BinaryPlaybackNormalImpl::StartPlayback(ClientManager* clients, INotificationSink* engine,
                                             Thread::ThreadModule& owner,
                                             const String& threadName) {
  Lock lock(lock_);
  if (status_ == PlaybackPlaying || clients == nullptr || engine == nullptr) return false;
  engine_ = engine;
  clients_ = clients;
  wait_ms_ = Time::kNoLimit;
  if (!thread_running_) {
    thread_running_ = StartPlaybackThread(owner, threadName);
    if (!thread_running_) return false;
  }
  if (status_ == PlaybackOff || status_ == PlaybackFinished) {
    // Played again from the end, the log keeps the speed at which it ended. Without a clock the
    // thread's own first look at it ends the playback.
    static_cast<void>(
        SetPlaybackSpeed(status_ == PlaybackFinished ? previous_speed_ : start_speed_));
    status_ = PlaybackStarting;
  }
  start_event_.Set();
  return true;
}

bool BinaryPlaybackNormalImpl::StartPlaybackThread(Thread::ThreadModule& owner,
                                                   const String& threadName) {
  // What was asked of an earlier thread does not concern this one.
  for (auto* event : {&QuitEvent(), &start_event_, &pause_event_, &rewind_event_, &end_event_}) {
    event->Reset();
  }
  return SetName(threadName) && Start(owner);
}

void BinaryPlaybackNormalImpl::StopPlayback(bool waitForThread) {
  Lock lock(lock_);
  if (!thread_running_) {
    lock.Unlock();
    StopBinaryPlayback(End::kKeepSettings, false);
    return;
  }
  // Under the lock: a start that follows must not take back the quit, nor be the one waited for.
  Quit();
  const SmartPtr::Ptr<Thread::IThread> run = CurrentRun();
  lock.Unlock();
  if (waitForThread && !run->IsCurrent()) run->Join();
}

bool BinaryPlaybackNormalImpl::PausePlayback() {
  Lock lock(lock_);
  if (status_ == PlaybackPaused) return true;
  if (status_ != PlaybackStarting && status_ != PlaybackPlaying) return false;
  pause_event_.Set();
  return true;
}

bool BinaryPlaybackNormalImpl::ResumePlayback() {
  Lock lock(lock_);
  if (status_ == PlaybackPlaying) return false;
  start_event_.Set();
  return true;
}

bool BinaryPlaybackNormalImpl::FastForward() {
  Lock lock(lock_);
  if (status_ == PlaybackPlaying) return IncreaseSpeed();
  return (status_ == PlaybackPaused || status_ == PlaybackFinished) && ResumePlayback();
}

bool BinaryPlaybackNormalImpl::RewindPlayback() {
  Lock lock(lock_);
  if (status_ == PlaybackOff) return false;
  wait_ms_ = Time::kNoLimit;
  const std::uint32_t now_scnds = GetPlaybackTimeScnds();
  if (!SetPlaybackSpeed(PlaybackSpeedStopped)) {
    StopPlayback(false);
    return false;
  }
  status_ = PlaybackRewinding;
  const auto target = static_cast<std::int32_t>(now_scnds - rewind_step_scnds_);
  rewind_target_scnds_ = target > 0 ? static_cast<std::uint32_t>(target) : 0;
  if (target > 0 && !IsValidPlaybackOffset(rewind_target_scnds_)) {
    StopPlayback(false);
    return false;
  }
  NotifyUnlocked(lock, NotifyRewindStarted);
  rewind_event_.Set();
  return true;
}

bool BinaryPlaybackNormalImpl::SetPlaybackSpeed(PlaybackSpeedType speed) {
  Lock lock(lock_);
  std::uint32_t now_ms = 0;
  const bool timed = Time::Source().ReadMs(now_ms);
  if (timed) {
    played_ms_ += static_cast<std::uint32_t>(speed_) * (now_ms - clock_base_ms_);
    clock_base_ms_ = now_ms;
    previous_speed_ = speed_;
    speed_ = speed;
  } else {
    speed_ = PlaybackSpeedStopped;
  }
  INotificationSink* const engine = engine_;
  const NotificationInfo info(NotifyPlaybackSpeed, speed_);
  lock.Unlock();
  if (engine != nullptr) engine->SendNotification(info);
  return timed;
}

// The wait for the next record goes on as it was set; the new speed counts from then on.
bool BinaryPlaybackNormalImpl::IncreaseSpeed() {
  Lock lock(lock_);
  switch (speed_) {
    case PlaybackSpeed1x:
      return SetPlaybackSpeed(PlaybackSpeed2x);
    case PlaybackSpeed2x:
      return SetPlaybackSpeed(PlaybackSpeed4x);
    case PlaybackSpeed4x:
      return SetPlaybackSpeed(PlaybackSpeed10x);
    case PlaybackSpeed10x:
      return SetPlaybackSpeed(PlaybackSpeed1x);
    default:
      return false;
  }
}

// The start speed, the previous speed and the playback clients stay.
void BinaryPlaybackNormalImpl::Reset() {
  speed_ = PlaybackSpeedStopped;
  wait_ms_ = Time::kNoLimit;
  status_ = PlaybackOff;
  receivers_.clear();
  offset_data_ids_.Clear();
  engine_ = nullptr;
  clients_ = nullptr;
  clock_base_ms_ = 0;
  last_played_ = 0;
  played_ms_ = 0;
  start_offset_scnds_ = 0;
  start_target_ = 0;
  rewind_target_scnds_ = 0;
  skipping_to_offset_ = false;
  offset_changed_ = false;
  client_info_ready_ = false;
  rewind_step_scnds_ = kDefaultRewindScnds;
  current_message_.Clear();
}

}  // namespace kestrav
