#include "kestrav/clients/dictionary_record.h"
#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/playback/normal_playback.h"
#include "kestrav/playback/pass_through_playback.h"
#include "kestrav/playback/polling_playback.h"

// The engine's playback control: which playback object there is, and the gates in front of it.

namespace kestrav {

using Lock = Thread::ScopedLock<Thread::CritSec>;

namespace {

// A client or an observer that the playback thread calls cannot take the playback object away from
// it.
bool IsOnThreadOf(IBinaryPlayback* playback) {
  auto* const worker = dynamic_cast<Thread::WorkerThread*>(playback);
  const auto run = worker != nullptr ? worker->CurrentRun() : nullptr;
  return run && run->IsCurrent();
}

}  // namespace

// Hands a call on to the playback object. Without one, which only short memory can bring about, the
// answer is that of an operation that the mode does not have.
template <class Result, class... Parameters, class... Arguments>
Result KestravImpl::Forward(Result (IBinaryPlayback::*operation)(Parameters...),
                            Arguments&&... arguments) const {
  const SmartPtr::Ptr<IBinaryPlayback> playback = GetPlaybackImplPtr();
  return playback ? (playback.get()->*operation)(arguments...) : Result();
}

template <class Result, class... Parameters, class... Arguments>
Result KestravImpl::Forward(Result (IBinaryPlayback::*operation)(Parameters...) const,
                            Arguments&&... arguments) const {
  const SmartPtr::Ptr<IBinaryPlayback> playback = GetPlaybackImplPtr();
  return playback ? (playback.get()->*operation)(arguments...) : Result();
}

bool KestravImpl::IsPlaybackOff() const { return GetPlaybackStatus() == PlaybackOff; }

SmartPtr::Ptr<IBinaryPlayback> KestravImpl::CreateBinaryPlayback(PlaybackModeType mode) {
  switch (mode) {
    case PlaybackModeNormal:
      return Memory::MakeShared<BinaryPlaybackNormalImpl>();
    case PlaybackModePolling:
      return Memory::MakeShared<BinaryPlaybackPollingImpl>();
    case PlaybackModePassThrough:
      return Memory::MakeShared<BinaryPlaybackPassThroughImpl>();
    default:
      return nullptr;
  }
}

// A copy, so that a change of the mode does not take the object away from under a call.
SmartPtr::Ptr<IBinaryPlayback> KestravImpl::GetPlaybackImplPtr() const {
  Lock lock(lock_);
  return playback_;
}

PlaybackModeType KestravImpl::GetBinaryPlaybackMode() const {
  Lock lock(lock_);
  return playback_mode_;
}

// Without the engine's lock, which the thread may want on its way out. Its clients may hold copies
// of the pointer while they call the engine; once the thread has ended there is none of these.
void KestravImpl::Retire(const SmartPtr::Ptr<IBinaryPlayback>& playback) {
  auto* const thread = dynamic_cast<Thread::WorkerThread*>(playback.get());
  if (thread == nullptr) return;
  thread->Quit();
  thread->WaitForCompletion();
}

bool KestravImpl::SetPlaybackMode(PlaybackModeType mode) {
  Lock lock(lock_);
  if (mode > PlaybackModePassThrough) return false;
  if (mode == playback_mode_ && playback_) return true;
  if (IsOnThreadOf(playback_.get())) return false;
  SmartPtr::Ptr<IBinaryPlayback> playback = CreateBinaryPlayback(mode);
  playback.swap(playback_);
  playback_mode_ = mode;
  const bool created = playback_ != nullptr;
  lock.Unlock();
  Retire(playback);
  return created;
}

bool KestravImpl::StartPlayback() {
  const PlaybackStatusType status = GetPlaybackStatus();
  if (status == PlaybackPlaying || status == PlaybackRewinding) return false;
  Thread::ThreadModule* const owner = GetThreadModule();
  String thread_name;
  if (owner == nullptr || !ThreadName(L"-Playback", thread_name)) return false;
  if (!Forward(&IBinaryPlayback::StartPlayback, &clients_, this, *owner, thread_name)) return false;
  // The other modes are paced by their caller, who needs no time notifications.
  return GetBinaryPlaybackMode() != PlaybackModeNormal || StartUpdateTimer();
}

// Drops a hold on the timer in every mode, though only normal playback takes one: the tally is of
// starts and stops, and observers rely on it as it is.
void KestravImpl::StopPlayback(bool wait) {
  if (IsPlaybackOff()) return;
  StopUpdateTimer();
  Forward(&IBinaryPlayback::StopPlayback, wait);
}

bool KestravImpl::SelectForPlayback(const String& clientId) {
  return IsPlaybackOff() && clients_.SelectForPlayback(clientId);
}

bool KestravImpl::ResetPlaybackSelection() {
  if (!IsPlaybackOff()) return false;
  clients_.ResetPlaybackSelection();
  return true;
}

bool KestravImpl::IsSelectedForPlayback(const unsigned short& clientId) const {
  return clients_.IsSelectedForPlayback(clientId);
}

bool KestravImpl::SearchAndGetClientData(Memory::MemBlock& data, const String& clientId,
                                         const unsigned short& dataId,
                                         const unsigned int& offsetScnds) const {
  if (GetPlaybackStatus() == PlaybackPlaying || !clients_.IsInPlaybackList(clientId)) return false;
  return Forward(&IBinaryPlayback::SearchAndGetClientData, data, clients_.GetClientId(clientId),
                 dataId, offsetScnds);
}

bool KestravImpl::GetPlaybackAttributes(unsigned int& lengthMs, unsigned int& size,
                                        std::vector<String>& clients) const {
  if (GetPlaybackStatus() == PlaybackPlaying) return false;
  clients_.ResetPlaybackSelection();
  std::uint16_t recorded_mask = 0;
  Memory::MemBlock block;
  const bool read = Forward(&IBinaryPlayback::GetPlaybackAttributes, lengthMs, size, recorded_mask,
                            block, info_client_.client_id);
  Dictionary dictionary;
  const bool named = block.IsEmpty() ? recorded_mask != 0
                                     : InfoClientUtility::ReadDictionaryData(dictionary, block);
  return read && named && size != 0 &&
         clients_.UpdatePlaybackClientList(clients, dictionary, recorded_mask) && !clients.empty();
}

bool KestravImpl::SetPeriodicEventDuration(unsigned int duration) {
  Lock lock(lock_);
  return playback_ && playback_->SetPeriodicEventDuration(duration);
}

bool KestravImpl::SetPlaybackInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) {
  return Forward(&IBinaryPlayback::SetInputStream, stream);
}

bool KestravImpl::PlaybackData(const Memory::MemBlock& data) {
  return Forward(&IBinaryPlayback::PlaybackData, data);
}

bool KestravImpl::PlaybackNextMessage() { return Forward(&IBinaryPlayback::PlaybackNextMessage); }

bool KestravImpl::PausePlayback() { return Forward(&IBinaryPlayback::PausePlayback); }

bool KestravImpl::ResumePlayback() { return Forward(&IBinaryPlayback::ResumePlayback); }

bool KestravImpl::FastForwardPlayback() { return Forward(&IBinaryPlayback::FastForward); }

bool KestravImpl::RewindPlayback() {
  return !IsPlaybackOff() && Forward(&IBinaryPlayback::RewindPlayback);
}

bool KestravImpl::SetStartPlaybackOffsetScnds(unsigned int offsetScnds) {
  return Forward(&IBinaryPlayback::SetStartPlaybackOffsetScnds, offsetScnds);
}

bool KestravImpl::SetStartPlaybackSpeed(PlaybackSpeedType speed) {
  return Forward(&IBinaryPlayback::SetStartPlaybackSpeed, speed);
}

void KestravImpl::SetPlaybackRewindTimeScnds(unsigned int seconds) {
  Forward(&IBinaryPlayback::SetRewindTimeScnds, seconds);
}

std::uint32_t KestravImpl::GetPlaybackRewindTimeScnds() const {
  return Forward(&IBinaryPlayback::GetRewindTimeScnds);
}

std::uint32_t KestravImpl::GetPlaybackLogLengthMs() const {
  return Forward(&IBinaryPlayback::GetPlaybackLogLengthMs);
}

std::uint32_t KestravImpl::GetPlaybackLogSize() const {
  return Forward(&IBinaryPlayback::GetPlaybackLogSize);
}

PlaybackStatusType KestravImpl::GetPlaybackStatus() const {
  return Forward(&IBinaryPlayback::GetPlaybackStatus);
}

PlaybackSpeedType KestravImpl::GetPlaybackSpeed() const {
  return Forward(&IBinaryPlayback::GetPlaybackSpeed);
}

std::uint32_t KestravImpl::GetPlaybackTimeScnds() const {
  return Forward(&IBinaryPlayback::GetPlaybackTimeScnds);
}

std::uint32_t KestravImpl::GetStartPlaybackOffsetScnds() const {
  return Forward(&IBinaryPlayback::GetStartPlaybackOffsetScnds);
}

bool KestravImpl::IsValidPlaybackOffset(unsigned int offsetScnds) const {
  return Forward(&IBinaryPlayback::IsValidPlaybackOffset, offsetScnds);
}

}  // namespace kestrav
