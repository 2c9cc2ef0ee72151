#include "kestrav/engine/kestrav_impl.h"

// Once a second, while a recording or a normal playback runs, observers hear how far it is.

namespace kestrav {
namespace {

using Lock = Thread::ScopedLock<Thread::CritSec>;

constexpr std::uint64_t kUpdatePeriodUs = 1'000'000;

}  // namespace

bool KestravImpl::StartUpdateTimer() {
  Lock lock(lock_);
  if (!timer_running_ && update_timer_.SetName(L"KestravTimer")) {
    timer_running_ = update_timer_.SetPeriodic(kUpdatePeriodUs, [this] { NotifyTime(); });
  }
  if (timer_running_) ++timer_users_;
  return timer_running_;
}

void KestravImpl::StopUpdateTimer() {
  Lock lock(lock_);
  if (!timer_running_ || timer_users_ == 0) return;
  --timer_users_;
  if (timer_users_ > 0) return;
  timer_running_ = false;
  // Not waited for: a tick in progress may want a lock that this thread holds in a client's
  // callback.
  update_timer_.Cancel();
}

void KestravImpl::NotifyTime() {
  NotificationInfo info;
  if (GetLoggingStatus() != LoggingOff) {
    info.id = NotifyRecordingTime;
    info.value = GetRecordingTimeScnds();
    SendNotification(info);
  }
  if (GetPlaybackStatus() != PlaybackOff) {
    info.id = NotifyPlaybackTime;
    info.value = GetPlaybackTimeScnds();
    SendNotification(info);
  }
}

}  // namespace kestrav
