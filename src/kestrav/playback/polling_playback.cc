#include "kestrav/playback/polling_playback.h"

#include <limits>

#include "kestrav/playback/client_data_search.h"

namespace kestrav {

bool BinaryPlaybackPollingImpl::SearchAndGetClientData(Memory::MemBlock& data,
                                                       const std::uint16_t& clientId,
                                                       const std::uint16_t& dataId,
                                                       const std::uint32_t& offsetScnds) const {
  return SearchClientData(decoder_, data, clientId, dataId, offsetScnds);
}

bool BinaryPlaybackPollingImpl::GetPlaybackAttributes(std::uint32_t& lengthMs, std::uint32_t& size,
                                                      std::uint16_t& recordedClientsMask,
                                                      Memory::MemBlock& data,
                                                      const std::uint16_t& clientId) const {
  return ReadPlaybackAttributes(decoder_, lengthMs, size, recordedClientsMask, data, clientId);
}

std::uint32_t BinaryPlaybackPollingImpl::GetPlaybackLogLengthMs() const {
  return decoder_.StreamHeader().recording_duration;
}

std::uint32_t BinaryPlaybackPollingImpl::GetPlaybackLogSize() const {
  return decoder_.StreamHeader().stream_length;
}

bool BinaryPlaybackPollingImpl::IsValidPlaybackOffset(std::uint32_t offsetScnds) const {
  return IsOffsetInLog(decoder_, offsetScnds);
}

bool BinaryPlaybackPollingImpl::SetStartPlaybackOffsetScnds(std::uint32_t offsetScnds) {
  return status_ != PlaybackPlaying && IsValidPlaybackOffset(offsetScnds);
}

bool BinaryPlaybackPollingImpl::SetInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) {
  if (status_ != PlaybackOff) return false;
  decoder_.SetInputStream(stream);
  Reset();
  return true;
}

void BinaryPlaybackPollingImpl::Reset() {
  status_ = PlaybackOff;
  receivers_.clear();
  offset_data_ids_.Clear();
  engine_ = nullptr;
  clients_ = nullptr;
  client_info_ready_ = false;
  current_message_.Clear();
}

bool BinaryPlaybackPollingImpl::StartPlayback(ClientManager* clients, INotificationSink* engine,
                                              Thread::ThreadModule& /*owner*/,
                                              const String& /*threadName*/) {
  if (status_ == PlaybackPlaying || clients == nullptr || engine == nullptr) return false;
  engine_ = engine;
  clients_ = clients;
  if (status_ != PlaybackOff) {
    StopPlayback(false);
    return false;
  }
  status_ = PlaybackStarting;
  const bool ready = InitPlaybackClientInfo() && decoder_.Initialize();
  current_message_.Clear();
  if (!ready) {
    status_ = PlaybackOff;
    return false;
  }
  status_ = PlaybackPlaying;
  Notify(NotifyPlaybackStarted);
  return true;
}

void BinaryPlaybackPollingImpl::StopPlayback(bool /*waitForThread*/) {
  if (status_ != PlaybackOff) Notify(NotifyPlaybackStopped);
  status_ = PlaybackOff;
  decoder_.Stop();
}

bool BinaryPlaybackPollingImpl::ReadNextPlaybackData(LogMessage& message) {
  message.Clear();
  switch (decoder_.GetNextPlaybackMessage(message)) {
    case kNotEnoughData:
      if (status_ != PlaybackPlaying) return false;
      status_ = PlaybackFinished;
      return true;
    case kDamaged:
      return false;
    default:
      return true;
  }
}

bool BinaryPlaybackPollingImpl::PlaybackNextMessage() {
  if (!ReadNextPlaybackData(current_message_)) {
    StopPlayback(false);
    return false;
  }
  SendPeriodicEvents();
  if (status_ == PlaybackFinished) {
    Notify(NotifyEndOfLog);
    return true;
  }
  if (SendData(current_message_)) return true;
  StopPlayback(false);
  return false;
}

bool BinaryPlaybackPollingImpl::SetPeriodicEventDuration(std::uint32_t durationMs) {
  period_ms_ = durationMs;
  next_period_ms_ = current_message_.time_stamp;
  return true;
}

void BinaryPlaybackPollingImpl::SendPeriodicEvents() {
  constexpr std::uint32_t kNever = std::numeric_limits<std::uint32_t>::max();
  if (period_ms_ == 0 || engine_ == nullptr) return;
  while (next_period_ms_ < current_message_.time_stamp) {
    engine_->SendNotification({NotifyPeriodicEvent, next_period_ms_});
    // No time stamp is above the last one of 32 bits, so there the events end.
    const bool wraps = next_period_ms_ > kNever - period_ms_;
    next_period_ms_ = wraps ? kNever : next_period_ms_ + period_ms_;
  }
}

}  // namespace kestrav
