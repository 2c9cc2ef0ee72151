#include "normal_model.h"

#include <algorithm>

namespace kestrav::test {
namespace {

bool Has(const std::vector<std::uint16_t>& ids, std::uint16_t id) {
  return std::find(ids.begin(), ids.end(), id) != ids.end();
}

}  // namespace

void NormalModel::Tell(const std::string& what) {
  entries_.push_back(std::to_string(now_) + " " + what);
}

std::uint32_t NormalModel::WaitOf(std::uint32_t span) const {
  return speed_ == 0 ? 0 : span / static_cast<std::uint32_t>(speed_);
}

void NormalModel::ChangeSpeed(std::int32_t speed) {
  played_ += static_cast<std::uint32_t>(speed_) * (Clock() - base_);
  base_ = Clock();
  previous_speed_ = speed_;
  speed_ = speed;
  Tell("speed " + std::to_string(speed));
}

std::uint32_t NormalModel::Position() const {
  if (status_ == kOff || status_ == kStarting || base_ == 0) return 0;
  const std::uint32_t played = played_ + static_cast<std::uint32_t>(speed_) * (Clock() - base_);
  const bool stands = status_ == kRewinding || status_ == kFinished;
  const std::uint32_t limit = (stands ? last_ : current_.time) - log_start_;
  return (std::min(played, limit) + 500) / 1000;
}

// Calls.

bool NormalModel::Start() {
  if (status_ == kPlaying) return false;
  wait_ = kForever;
  if (!thread_) {
    thread_ = true;
    quit_ = start_ = pause_ = rewind_ = end_ = false;
  }
  if (status_ == kOff || status_ == kFinished) {
    ChangeSpeed(status_ == kFinished ? previous_speed_ : start_speed_);
    status_ = kStarting;
  }
  start_ = true;
  Serve(false);
  return true;
}

bool NormalModel::Pause() {
  if (status_ == kPaused) return true;
  if (status_ != kStarting && status_ != kPlaying) return false;
  pause_ = true;
  Serve(false);
  return true;
}

bool NormalModel::Resume() {
  if (status_ == kPlaying) return false;
  start_ = true;
  Serve(false);
  return true;
}

bool NormalModel::FastForward() {
  if (status_ == kPaused || status_ == kFinished) return Resume();
  if (status_ != kPlaying) return false;
  const std::vector<std::int32_t> cycle = {1, 2, 4, 10, 1};
  const auto at = std::find(cycle.begin(), cycle.end(), speed_);
  if (at == cycle.end()) return false;
  ChangeSpeed(*std::next(at));
  return true;
}

bool NormalModel::Rewind() {
  if (status_ == kOff) return false;
  wait_ = kForever;
  const auto position = static_cast<std::int64_t>(Position());
  ChangeSpeed(0);
  status_ = kRewinding;
  rewind_target_ =
      static_cast<std::uint32_t>(std::max<std::int64_t>(0, position - std::int64_t{rewind_step_}));
  if (rewind_target_ > 0 && 1000 * rewind_target_ > length_) {
    Stop(false);
    return false;
  }
  Tell("rewinds");
  rewind_ = true;
  Serve(false);
  return true;
}

bool NormalModel::SetSpeed(std::int32_t speed) {
  if (speed > 10 || status_ == kPlaying) return false;
  start_speed_ = speed;
  if (status_ == kPaused) {
    previous_speed_ = speed_;
    speed_ = speed;
  }
  return true;
}

bool NormalModel::SetOffset(std::uint32_t scnds) {
  if (status_ == kPlaying || 1000 * scnds > length_) return false;
  offset_ = scnds;
  offset_changed_ = true;
  return true;
}

bool NormalModel::SetRewindStep(std::uint32_t scnds) {
  rewind_step_ = scnds;
  return true;
}

bool NormalModel::Stop(bool /*wait*/) {
  if (!thread_) {
    End(false);
    return true;
  }
  quit_ = true;
  Serve(false);
  return true;
}

bool NormalModel::NewStream(const ModelLog& log) {
  if (status_ != kOff) return false;
  Reset();
  log_ = log;
  log_start_ = kLogStart;
  length_ = log.duration_ms;
  open_ = true;
  return true;
}

bool NormalModel::Advance(std::uint32_t ms) {
  const std::uint64_t until = now_ + ms;
  while (thread_ && due_ && *due_ <= until) {
    now_ = *due_;
    Serve(true);
  }
  now_ = until;
  return true;
}

// The playback thread.

void NormalModel::Serve(bool woken) {
  if (busy_ || !thread_) return;
  busy_ = true;
  bool worked = false;
  for (bool more = true; more && thread_;) {
    bool served = false;
    bool ok = ServeEvent(served);
    more = served || woken || (worked && wait_ == 0);
    if (thread_ && !served && more) ok = Play();
    woken = false;
    worked = worked || more;
    if (!ok) End(false);
  }
  busy_ = false;
  if (!worked) return;
  due_.reset();
  if (thread_ && wait_ != kForever) due_ = now_ + wait_;
}

bool NormalModel::ServeEvent(bool& served) {
  served = true;
  if (quit_) {
    End(true);
    return true;
  }
  if (start_) {
    const bool ok = ServeStart();
    start_ = false;
    return ok;
  }
  if (pause_) {
    const bool ok = ServePause();
    pause_ = false;
    return ok;
  }
  if (rewind_) {
    rewind_ = false;
    return ServeRewind();
  }
  served = end_;
  if (end_) Tell("end");
  end_ = false;
  return true;
}

bool NormalModel::ServeStart() {
  if (status_ == kPlaying || status_ == kRewinding) return false;
  if (status_ == kPaused && !offset_changed_) {
    status_ = kPlaying;
    Tell("resumed");
    ChangeSpeed(previous_speed_);
    return Play();
  }
  Tell("started");
  return Init();
}

bool NormalModel::ServePause() {
  wait_ = kForever;
  ChangeSpeed(0);
  status_ = kPaused;
  Tell("paused");
  return true;
}

bool NormalModel::ServeRewind() {
  std::uint32_t target = log_start_ + 1000 * rewind_target_;
  const bool found = Jump(target);
  current_ = {};
  if (!found || !ReadNext().ok) return false;
  skipping_ = offset_changed_ = false;
  BeginAt(target);
  status_ = kPlaying;
  ChangeSpeed(1);
  Tell("rewound");
  if (current_.time <= target_) return Play();
  wait_ = WaitOf(current_.time - target_);
  return true;
}

bool NormalModel::Jump(std::uint32_t& target) {
  last_ = log_start_;
  const std::vector<At>& all = log_.records;
  const auto near = std::find_if(all.begin(), all.end(), [&](const At& record) {
    return log_start_ + record.ms + 500 > target;
  });
  next_ = static_cast<std::size_t>(near - all.begin());
  if (near == all.end()) return false;
  target = last_ = log_start_ + near->ms;
  return true;
}

bool NormalModel::Init() {
  if (!open_) return false;
  next_ = 0;
  last_ = log_start_;
  offset_changed_ = false;
  current_ = {};
  if (!ReadNext().ok) return false;
  BeginAt(log_start_ + 1000 * offset_);
  status_ = kPlaying;
  ChangeSpeed(speed_);
  skipping_ = target_ > last_;
  if (skipping_ && current_.time <= target_) return Play();
  wait_ = WaitOf(current_.time - (skipping_ ? target_ : log_start_));
  return true;
}

void NormalModel::BeginAt(std::uint32_t target) {
  target_ = target;
  played_ = target - log_start_;
  base_ = Clock();
}

NormalModel::Read NormalModel::ReadNext() {
  current_ = {};
  const std::vector<At>& all = log_.records;
  while (next_ < all.size() && !Has(played_ids_, all[next_].client)) ++next_;
  if (next_ < all.size()) {
    const At& record = all[next_++];
    current_ = {log_start_ + record.ms, record.payload, record.client};
    const auto delta = static_cast<std::int32_t>(current_.time - last_);
    return {delta >= 0, delta};
  }
  if (status_ != kPlaying) return {false, -1};
  status_ = kFinished;
  ChangeSpeed(0);
  wait_ = kForever;
  end_ = true;
  return {true, -1};
}

bool NormalModel::Play() {
  if (status_ != kPlaying) {
    wait_ = kForever;
    return status_ != kOff;
  }
  while (current_.time < target_) {
    if (skipping_ && Has(history_ids_, current_.id) && !Deliver(current_)) break;
    last_ = current_.time;
    if (!ReadNext().ok) break;
  }
  skipping_ = false;
  for (;;) {
    const Record due = current_;
    last_ = due.time;
    const Read read = ReadNext();
    if (!read.ok) return false;
    if (speed_ != 0 && read.delta != 0) wait_ = WaitOf(static_cast<std::uint32_t>(read.delta));
    if (!Deliver(due)) return false;
    if (read.delta != 0) return true;
  }
}

bool NormalModel::Deliver(const Record& record) {
  if (!Has(played_ids_, record.id)) return true;
  Tell(record.payload);
  return !react || react();
}

void NormalModel::End(bool reset) {
  if (status_ != kOff) Tell("stopped");
  wait_ = kForever;
  speed_ = previous_speed_ = 0;
  start_speed_ = 1;
  status_ = kOff;
  open_ = false;
  thread_ = false;
  if (reset) Reset();
}

void NormalModel::Reset() {
  speed_ = 0;
  wait_ = kForever;
  status_ = kOff;
  base_ = last_ = played_ = offset_ = target_ = rewind_target_ = 0;
  skipping_ = offset_changed_ = false;
  rewind_step_ = 5;
  current_ = {};
}

}  // namespace kestrav::test
