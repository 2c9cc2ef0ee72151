#include "kestrav/playback/pass_through_playback.h"

#include <limits>

#include "kestrav/clients/dictionary_record.h"

namespace kestrav {

std::uint32_t BinaryPlaybackPassThroughImpl::GetPlaybackLogLengthMs() const {
  Lock lock(lock_);
  return decoder_.StreamHeader().recording_duration;
}

std::uint32_t BinaryPlaybackPassThroughImpl::GetPlaybackLogSize() const {
  Lock lock(lock_);
  return decoder_.StreamHeader().stream_length;
}

PlaybackStatusType BinaryPlaybackPassThroughImpl::GetPlaybackStatus() const {
  Lock lock(lock_);
  return status_;
}

void BinaryPlaybackPassThroughImpl::SetPlaybackStatus(const PlaybackStatusType& status) {
  Lock lock(lock_);
  status_ = status;
}

bool BinaryPlaybackPassThroughImpl::StartPlayback(ClientManager* clients, INotificationSink* engine,
                                                  Thread::ThreadModule& /*owner*/,
                                                  const String& /*threadName*/) {
  Lock lock(lock_);
  if (status_ == PlaybackPlaying || clients == nullptr || engine == nullptr) return false;
  engine_ = engine;
  clients_ = clients;
  if (status_ != PlaybackOff) {
    StopPlayback(false);
    return false;
  }
  status_ = PlaybackStarting;
  ForgetClientInfo();
  playback_clients_.Clear();
  all_clients_ = ClientIdSet(std::numeric_limits<std::uint64_t>::max());
  header_read_ = false;
  pieces_ = 0;
  engine_->SendNotification({NotifyPlaybackStarted, all_clients_});
  started_ = status_ != PlaybackOff;  // unless an observer has stopped it at once
  return started_;
}

void BinaryPlaybackPassThroughImpl::StopPlayback(bool /*waitForThread*/) {
  Lock lock(lock_);
  INotificationSink* const engine = engine_;
  const NotificationInfo info(NotifyPlaybackStopped, all_clients_);
  const bool tell = status_ != PlaybackOff && engine != nullptr;
  lock.Unlock();
  if (tell) engine->SendNotification(info);
  lock.Lock();
  decoder_.Stop();
  header_read_ = false;
  Reset();
}

bool BinaryPlaybackPassThroughImpl::PlaybackData(const Memory::MemBlock& data) {
  Lock lock(lock_);
  if (!started_) return false;
  // Counted first: a client that stops and starts the playback has a new count begun.
  const std::uint32_t number = pieces_++;
  if (TakePiece(data, number)) return true;
  lock.Unlock();
  StopPlayback(false);
  return false;
}

bool BinaryPlaybackPassThroughImpl::TakePiece(const Memory::MemBlock& data, std::uint32_t number) {
  if (!header_read_) {
    header_read_ = decoder_.Initialize(data);
    return header_read_;
  }
  current_message_.Clear();
  if (decoder_.GetLogMessage(current_message_, data) != kSuccess) return false;
  if (number > 1) return SendData(current_message_);

  const bool is_dictionary = current_message_.GetClientID() == kInfoClientId &&
                             current_message_.GetDataID() == kDictionaryDataId;
  if (!SelectClients(is_dictionary)) return false;
  return is_dictionary || SendData(current_message_);
}

// Selects every client of the log that is registered, by its dictionary or, when another record
// stands in its place, by the selection in the stream header.
bool BinaryPlaybackPassThroughImpl::SelectClients(bool by_dictionary) {
  const std::uint16_t recorded_mask = decoder_.StreamHeader().client_selection;
  Dictionary dictionary;
  if (by_dictionary) {
    Memory::MemBlock payload;
    const bool read =
        payload.Assign(current_message_.GetDataPointer(), current_message_.GetDataSize()) &&
        InfoClientUtility::ReadDictionaryData(dictionary, payload);
    if (!read) return false;
  } else if (recorded_mask == 0) {
    return false;
  }
  std::vector<String> names;
  if (!clients_->UpdatePlaybackClientList(names, dictionary, recorded_mask) || names.empty()) {
    return false;
  }
  for (const String& name : names) {
    if (!clients_->SelectForPlayback(name)) return false;
  }
  client_info_ready_ = false;
  return InitPlaybackClientInfo();
}

void BinaryPlaybackPassThroughImpl::ForgetClientInfo() {
  receivers_.clear();
  offset_data_ids_.Clear();
  client_info_ready_ = false;
}

void BinaryPlaybackPassThroughImpl::Reset() {
  status_ = PlaybackOff;
  ForgetClientInfo();
  engine_ = nullptr;
  clients_ = nullptr;
  started_ = false;
  pieces_ = 0;
  current_message_.Clear();
  all_clients_.Clear();
}

}  // namespace kestrav
