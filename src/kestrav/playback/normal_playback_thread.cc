#include <utility>

#include "kestrav/host/time/source.h"
#include "kestrav/playback/normal_playback.h"

// The playback thread: sleeps in one wait for the next event or the next record.

namespace kestrav {
namespace {

enum Event { kQuit, kStart, kPause, kRewind, kEnd };

// A rewind stops at the first record no more than this long before its target.
constexpr std::uint32_t kRewindToleranceMs = 500;

constexpr std::int32_t kNoDelta = -1;

}  // namespace

void BinaryPlaybackNormalImpl::Main() {
  Thread::ManualResetEvent* const events[] = {&QuitEvent(), &start_event_, &pause_event_,
                                              &rewind_event_, &end_event_};
  for (;;) {
    const int event = Thread::WaitForFirst(events, GetWaitTime());
    if (event == kQuit || event == Thread::kWaitFailed) {
      StopBinaryPlayback(End::kReset, true);
      return;
    }
    if (!Serve(event)) {
      StopBinaryPlayback(End::kKeepSettings, true);
      return;
    }
  }
}

bool BinaryPlaybackNormalImpl::Serve(int event) {
  bool done = true;
  switch (event) {
    case kStart:
      done = StartBinaryPlayback();
      ResetStartEvent(done);
      break;
    case kPause:
      done = PauseBinaryPlayback();
      pause_event_.Reset();
      break;
    case kRewind:
      // Reset first: a rewind asked for meanwhile has a target of its own.
      rewind_event_.Reset();
      done = RewindAndPlay();
      break;
    case kEnd: {
      Lock lock(lock_);
      NotifyUnlocked(lock, NotifyEndOfLog);
      end_event_.Reset();
      break;
    }
    default: {
      Lock lock(lock_);
      CountWaitFromDue();
      done = PlayData();
      break;
    }
  }
  return done;
}

// A start asked for while this one was served needs nothing more, unless this one has come to the
// end of the log already and a client has started it anew.
void BinaryPlaybackNormalImpl::ResetStartEvent(bool served) {
  Lock lock(lock_);
  if (!served || status_ != PlaybackStarting) start_event_.Reset();
}

std::uint32_t BinaryPlaybackNormalImpl::GetWaitTime() const {
  Lock lock(lock_);
  std::uint32_t now_ms = 0;
  if (wait_ms_ == 0 || wait_ms_ == Time::kNoLimit || !Time::Source().ReadMs(now_ms))
    return wait_ms_;
  const auto waited_ms = static_cast<std::int32_t>(now_ms - wait_from_ms_);
  if (waited_ms <= 0) return wait_ms_;
  const auto waited = static_cast<std::uint32_t>(waited_ms);
  return waited < wait_ms_ ? wait_ms_ - waited : 0;
}

// The next wait counts from when this one was due, not from when the thread woke and the clients
// were done: small delays would add up to seconds. After a long one the log goes on from here.
void BinaryPlaybackNormalImpl::CountWaitFromDue() {
  constexpr std::uint32_t kLongestCatchUpMs = 500;
  if (wait_ms_ == Time::kNoLimit) return;
  wait_from_ms_ += wait_ms_;
  std::uint32_t now_ms = 0;
  if (Time::Source().ReadMs(now_ms) && now_ms - wait_from_ms_ > kLongestCatchUpMs) {
    wait_from_ms_ = now_ms;
  }
}

// How long it takes at the present speed until `span_ms` of the log have passed.
void BinaryPlaybackNormalImpl::SetWaitTimeMs(std::uint32_t span_ms) {
  wait_ms_ = speed_ == PlaybackSpeedStopped ? 0 : span_ms / static_cast<std::uint32_t>(speed_);
}

bool BinaryPlaybackNormalImpl::StartBinaryPlayback() {
  Lock lock(lock_);
  if (!InitPlaybackClientInfo()) return false;
  const PlaybackStatusType status = status_;
  // A start while playing or rewinding is an error, and ends the playback.
  if (status == PlaybackPlaying || status == PlaybackRewinding) return false;
  const bool resume = status == PlaybackPaused && !offset_changed_;
  if (resume) status_ = PlaybackPlaying;
  NotifyUnlocked(lock, resume ? NotifyPlaybackResumed : NotifyPlaybackStarted);
  if (!resume) return InitPlayback();
  if (!SetPlaybackSpeed(previous_speed_)) return false;
  wait_from_ms_ = clock_base_ms_;
  return PlayData();
}

bool BinaryPlaybackNormalImpl::PauseBinaryPlayback() {
  Lock lock(lock_);
  wait_ms_ = Time::kNoLimit;
  if (!SetPlaybackSpeed(PlaybackSpeedStopped)) return false;
  status_ = PlaybackPaused;
  NotifyUnlocked(lock, NotifyPlaybackPaused);
  return true;
}

bool BinaryPlaybackNormalImpl::InitPlayback() {
  if (!decoder_.Initialize()) return false;
  last_played_ = LogStart();
  offset_changed_ = false;
  current_message_.Clear();
  std::int32_t delta_ms = kNoDelta;
  if (!ReadNextPlaybackData(current_message_, delta_ms)) return false;
  if (!InitPlaybackTimeParams(LogStart() + 1000 * start_offset_scnds_)) return false;
  status_ = PlaybackPlaying;
  if (!SetPlaybackSpeed(speed_)) return false;
  wait_from_ms_ = clock_base_ms_;
  skipping_to_offset_ = start_target_ > last_played_;
  if (!skipping_to_offset_) {
    SetWaitTimeMs(current_message_.time_stamp - LogStart());
    return true;
  }
  if (current_message_.time_stamp <= start_target_) return PlayData();
  SetWaitTimeMs(current_message_.time_stamp - start_target_);
  return true;
}

bool BinaryPlaybackNormalImpl::InitPlaybackTimeParams(std::uint32_t target) {
  start_target_ = target;
  played_ms_ = target - LogStart();
  return Time::Source().ReadMs(clock_base_ms_);
}

bool BinaryPlaybackNormalImpl::PlayData() {
  if (status_ == PlaybackOff) return false;
  if (status_ != PlaybackPlaying) {
    wait_ms_ = Time::kNoLimit;
    return true;
  }
  SkipToStartTarget();
  for (;;) {
    const LogMessage due = std::move(current_message_);
    last_played_ = due.time_stamp;
    std::int32_t delta_ms = kNoDelta;
    if (!ReadNextPlaybackData(current_message_, delta_ms)) return false;
    // At speed 0 the wait stays as it is: none after an unpaced start, no limit after a pause.
    if (speed_ != PlaybackSpeedStopped && delta_ms != 0) {
      SetWaitTimeMs(static_cast<std::uint32_t>(delta_ms));
    }
    if (!SendData(due)) return false;
    if (delta_ms != 0) return true;
  }
}

// Passes over the records before the start target. Clients that want offset data get theirs at
// once. A failure ends the skip here and shows in the delivery that follows.
void BinaryPlaybackNormalImpl::SkipToStartTarget() {
  while (current_message_.time_stamp < start_target_) {
    const bool history =
        skipping_to_offset_ && offset_data_ids_.Contains(current_message_.GetClientID());
    if (history && !SendData(current_message_)) break;
    last_played_ = current_message_.time_stamp;
    std::int32_t delta_ms = kNoDelta;
    if (!ReadNextPlaybackData(current_message_, delta_ms)) break;
  }
  skipping_to_offset_ = false;
}

bool BinaryPlaybackNormalImpl::ReadNextPlaybackData(LogMessage& message, std::int32_t& delta_ms) {
  delta_ms = kNoDelta;
  message.Clear();
  switch (decoder_.GetNextPlaybackMessage(message)) {
    case kNotEnoughData: {
      if (status_ != PlaybackPlaying) return false;
      status_ = PlaybackFinished;
      const bool stopped = SetPlaybackSpeed(PlaybackSpeedStopped);
      wait_ms_ = Time::kNoLimit;
      end_event_.Set();
      return stopped;
    }
    case kDamaged:
      return false;
    default: {
      // A record older than the one before ends the playback.
      const auto delta = static_cast<std::int32_t>(message.time_stamp - last_played_);
      if (delta < 0) return false;
      delta_ms = delta;
      return true;
    }
  }
}

bool BinaryPlaybackNormalImpl::RewindAndPlay() {
  Lock lock(lock_);
  std::uint32_t target = LogStart() + 1000 * rewind_target_scnds_;
  const bool jumped = JumpToOffset(target);
  current_message_.Clear();
  std::int32_t delta_ms = kNoDelta;
  if (!jumped || !ReadNextPlaybackData(current_message_, delta_ms)) return false;
  skipping_to_offset_ = false;
  offset_changed_ = false;
  if (!InitPlaybackTimeParams(target)) return false;
  status_ = PlaybackPlaying;
  if (!SetPlaybackSpeed(PlaybackSpeed1x)) return false;
  wait_from_ms_ = clock_base_ms_;
  NotifyUnlocked(lock, NotifyRewindFinished);
  if (current_message_.time_stamp <= start_target_) return PlayData();
  SetWaitTimeMs(current_message_.time_stamp - start_target_);
  return true;
}

bool BinaryPlaybackNormalImpl::JumpToOffset(std::uint32_t& target) {
  if (!decoder_.Initialize()) return false;
  last_played_ = LogStart();
  BinaryLogRecordHeader header;
  do {
    if (decoder_.GetNextLogRecordHeader(header) != kSuccess) return false;
  } while (header.time_stamp + kRewindToleranceMs <= target);
  target = header.time_stamp;
  last_played_ = header.time_stamp;
  return decoder_.SetToPreviousLogRecord(header.payload_size);
}

void BinaryPlaybackNormalImpl::NotifyUnlocked(Lock& lock,
                                              NotificationIdType id) NO_THREAD_SAFETY_ANALYSIS {
  INotificationSink* const engine = engine_;
  const NotificationInfo info(id, playback_clients_);
  lock.Unlock();
  if (engine != nullptr) engine->SendNotification(info);
  lock.Lock();
}

void BinaryPlaybackNormalImpl::StopBinaryPlayback(End end, bool thread_ends) {
  Lock lock(lock_);
  if (status_ != PlaybackOff) NotifyUnlocked(lock, NotifyPlaybackStopped);
  // From here in one piece: a start that sees the playback off sees all of its end.
  wait_ms_ = Time::kNoLimit;
  speed_ = PlaybackSpeedStopped;
  status_ = PlaybackOff;
  previous_speed_ = PlaybackSpeedStopped;
  start_speed_ = PlaybackSpeed1x;
  decoder_.Stop();
  if (end == End::kReset) Reset();
  if (thread_ends) thread_running_ = false;
}

}  // namespace kestrav
