#include "kestrav/engine/kestrav_impl.h"

#include <utility>

#include "kestrav/host/memory/try.h"

namespace kestrav {

using Lock = Thread::ScopedLock<Thread::CritSec>;

KestravImpl::KestravImpl() = default;

// Observers are told of the ends below while every member is still there.
KestravImpl::~KestravImpl() {
  update_timer_.KillAll();
  Lock lock(lock_);
  SmartPtr::Ptr<IBinaryPlayback> playback;
  playback.swap(playback_);
  lock.Unlock();
  Retire(playback);
  playback.reset();
  logger_.StopLoggingThread();
}

bool KestravImpl::Init(Thread::ThreadModule* threadModule, const String& name) {
  SetThreadModule(threadModule);
  if (GetThreadModule() == nullptr || !SetPlaybackMode(PlaybackModeNormal)) return false;
  if (!RegisterClient(&info_client_)) return false;
  Lock lock(lock_);
  return Memory::Copy(name_, name);
}

void KestravImpl::SetThreadModule(Thread::ThreadModule* threadModule) {
  Lock lock(lock_);
  thread_module_ = threadModule;
}

Thread::ThreadModule* KestravImpl::GetThreadModule() const {
  Lock lock(lock_);
  return thread_module_;
}

bool KestravImpl::ThreadName(const wchar_t* suffix, String& out) const {
  Lock lock(lock_);
  return Memory::Copy(out, name_) && Memory::Try([&] { out += suffix; });
}

bool KestravImpl::EnableEncryption(bool enable) {
  if (IsLogging()) return false;
  logger_.EnableEncryption(enable);
  return true;
}

bool KestravImpl::GetClientsList(std::vector<String>& clients) const {
  return clients_.GetClientsList(clients);
}

bool KestravImpl::GetLoggingClientsList(std::map<String, bool>& clients) const {
  return clients_.GetLoggingClientList(clients);
}

std::int32_t KestravImpl::GetLoggingStatus() const { return logger_.GetLoggingStatus(); }

std::uint32_t KestravImpl::GetRecordingTimeScnds() const { return logger_.GetRecordingTimeScnds(); }

bool KestravImpl::IsLogging() const { return logger_.IsLogging(); }

bool KestravImpl::IsSelectedForLogging(const unsigned short& clientId) const {
  return clients_.IsSelectedForLogging(clientId);
}

bool KestravImpl::RegisterClient(IClient* client) {
  return !IsLogging() && IsPlaybackOff() && clients_.RegisterClient(client);
}

bool KestravImpl::UnRegisterClient(IClient* client) {
  const bool removed = clients_.UnRegisterClient(client);
  StopWhatHasNoClients();
  return removed;
}

bool KestravImpl::UnRegisterClient(const String& clientId) {
  const bool removed = clients_.UnRegisterClient(clientId);
  StopWhatHasNoClients();
  return removed;
}

void KestravImpl::StopWhatHasNoClients() {
  if (clients_.IsLoggingSelectionEmpty()) StopLogging();
  if (clients_.IsPlaybackSelectionEmpty()) StopPlayback(false);
}

bool KestravImpl::SelectForLogging(const String& clientId) {
  return !IsLogging() && clients_.SelectForLogging(clientId);
}

bool KestravImpl::ResetLoggingSelection() {
  if (IsLogging()) return false;
  clients_.ResetLoggingSelection();
  return true;
}

bool KestravImpl::ResetLoggingSelection(const String& clientId) {
  return !IsLogging() && clients_.ResetLoggingSelection(clientId);
}

bool KestravImpl::SendControlStringToClient(const String& clientId, const String& control) {
  return clients_.SendControlStringToClient(clientId, control);
}

bool KestravImpl::SetLoggingOutputStream(const SmartPtr::Ptr<Io::IOutputStream>& stream) {
  return logger_.SetBinaryLogStream(stream);
}

bool KestravImpl::StartLogging() {
  Thread::ThreadModule* const owner = GetThreadModule();
  if (owner == nullptr || IsLogging() || clients_.IsLoggingSelectionEmpty()) return false;
  // Every log carries the dictionary, which the info client writes.
  String info_client;
  if (!Memory::Copy(info_client, InfoClientImpl::s_InfoClientString)) return false;
  String thread_name;
  return clients_.SelectForLogging(info_client) && ThreadName(L"-Logging", thread_name) &&
         logger_.StartLogging(*owner, this, &clients_, &info_client_, thread_name) &&
         StartUpdateTimer();
}

bool KestravImpl::StopLogging() {
  if (!IsLogging()) return false;
  StopUpdateTimer();
  return logger_.StopLogging();
}

bool KestravImpl::WriteData(const SmartPtr::Ptr<ILogMessage>& message) {
  return message && clients_.IsSelectedForLogging(message->GetClientID()) && logger_.Write(message);
}

bool KestravImpl::WriteData(SmartPtr::Ptr<ILogMessage>&& message) {
  return message && clients_.IsSelectedForLogging(message->GetClientID()) &&
         logger_.Write(std::move(message));
}

}  // namespace kestrav
