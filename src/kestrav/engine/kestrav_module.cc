#include "kestrav/engine/kestrav_module.h"

#include "kestrav/host/memory/try.h"

namespace kestrav {

SmartPtr::Ptr<Module::IModule> KestravDef::Factory() {
  return Memory::MakeShared<KestravModuleImpl>();
}

KestravModuleImpl::~KestravModuleImpl() {
  if (engine_) engine_->notifier.Disconnect(relay_);
}

bool KestravModuleImpl::Start() {
  if (!ModuleBase::Start() || engine_ || factory_.Get() == nullptr) return false;
  if (!Memory::Try([&] { engine_ = factory_->CreateNewKestrav(kInstanceName); })) return false;
  if (!engine_) return false;
  relay_ =
      engine_->notifier.Connect([this](const NotificationInfo& info) { OnNotification(info); });
  return relay_ != 0;
}

bool KestravModuleImpl::EnableEncryption(bool enable) { return engine_->EnableEncryption(enable); }

bool KestravModuleImpl::FastForwardPlayback() { return engine_->FastForwardPlayback(); }

bool KestravModuleImpl::GetClientsList(std::vector<String>& clients) const {
  return engine_->GetClientsList(clients);
}

std::uint32_t KestravModuleImpl::GetPlaybackLogLengthMs() const {
  return engine_->GetPlaybackLogLengthMs();
}

std::uint32_t KestravModuleImpl::GetPlaybackLogSize() const {
  return engine_->GetPlaybackLogSize();
}

bool KestravModuleImpl::GetLoggingClientsList(std::map<String, bool>& clients) const {
  return engine_->GetLoggingClientsList(clients);
}

std::int32_t KestravModuleImpl::GetLoggingStatus() const { return engine_->GetLoggingStatus(); }

bool KestravModuleImpl::GetPlaybackAttributes(unsigned int& lengthMs, unsigned int& size,
                                              std::vector<String>& clients) const {
  return engine_->GetPlaybackAttributes(lengthMs, size, clients);
}

std::uint32_t KestravModuleImpl::GetPlaybackRewindTimeScnds() const {
  return engine_->GetPlaybackRewindTimeScnds();
}

PlaybackSpeedType KestravModuleImpl::GetPlaybackSpeed() const {
  return engine_->GetPlaybackSpeed();
}

PlaybackStatusType KestravModuleImpl::GetPlaybackStatus() const {
  return engine_->GetPlaybackStatus();
}

std::uint32_t KestravModuleImpl::GetPlaybackTimeScnds() const {
  return engine_->GetPlaybackTimeScnds();
}

std::uint32_t KestravModuleImpl::GetRecordingTimeScnds() const {
  return engine_->GetRecordingTimeScnds();
}

std::uint32_t KestravModuleImpl::GetStartPlaybackOffsetScnds() const {
  return engine_->GetStartPlaybackOffsetScnds();
}

bool KestravModuleImpl::SetPlaybackMode(PlaybackModeType mode) {
  return engine_->SetPlaybackMode(mode);
}

bool KestravModuleImpl::SetPeriodicEventDuration(unsigned int duration) {
  return engine_->SetPeriodicEventDuration(duration);
}

bool KestravModuleImpl::IsLogging() const { return engine_->IsLogging(); }

bool KestravModuleImpl::IsSelectedForLogging(const unsigned short& clientId) const {
  return engine_->IsSelectedForLogging(clientId);
}

bool KestravModuleImpl::IsSelectedForPlayback(const unsigned short& clientId) const {
  return engine_->IsSelectedForPlayback(clientId);
}

bool KestravModuleImpl::IsValidPlaybackOffset(unsigned int offsetScnds) const {
  return engine_->IsValidPlaybackOffset(offsetScnds);
}

bool KestravModuleImpl::PausePlayback() { return engine_->PausePlayback(); }

bool KestravModuleImpl::PlaybackNextMessage() { return engine_->PlaybackNextMessage(); }

bool KestravModuleImpl::RegisterClient(IClient* client) { return engine_->RegisterClient(client); }

bool KestravModuleImpl::ResetLoggingSelection() { return engine_->ResetLoggingSelection(); }

bool KestravModuleImpl::ResetLoggingSelection(const String& clientId) {
  return engine_->ResetLoggingSelection(clientId);
}

bool KestravModuleImpl::ResetPlaybackSelection() { return engine_->ResetPlaybackSelection(); }

bool KestravModuleImpl::ResumePlayback() { return engine_->ResumePlayback(); }

bool KestravModuleImpl::RewindPlayback() { return engine_->RewindPlayback(); }

bool KestravModuleImpl::SendControlStringToClient(const String& clientId, const String& control) {
  return engine_->SendControlStringToClient(clientId, control);
}

bool KestravModuleImpl::SelectForLogging(const String& clientId) {
  return engine_->SelectForLogging(clientId);
}

bool KestravModuleImpl::SelectForPlayback(const String& clientId) {
  return engine_->SelectForPlayback(clientId);
}

bool KestravModuleImpl::PlaybackData(const Memory::MemBlock& data) {
  return engine_->PlaybackData(data);
}

bool KestravModuleImpl::SearchAndGetClientData(Memory::MemBlock& data, const String& clientId,
                                               const unsigned short& dataId,
                                               const unsigned int& offsetScnds) const {
  return engine_->SearchAndGetClientData(data, clientId, dataId, offsetScnds);
}

bool KestravModuleImpl::SetLoggingOutputStream(const SmartPtr::Ptr<Io::IOutputStream>& stream) {
  return engine_->SetLoggingOutputStream(stream);
}

bool KestravModuleImpl::SetPlaybackInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) {
  return engine_->SetPlaybackInputStream(stream);
}

void KestravModuleImpl::SetPlaybackRewindTimeScnds(unsigned int seconds) {
  engine_->SetPlaybackRewindTimeScnds(seconds);
}

bool KestravModuleImpl::SetStartPlaybackOffsetScnds(unsigned int offsetScnds) {
  return engine_->SetStartPlaybackOffsetScnds(offsetScnds);
}

bool KestravModuleImpl::SetStartPlaybackSpeed(PlaybackSpeedType speed) {
  return engine_->SetStartPlaybackSpeed(speed);
}

bool KestravModuleImpl::StartLogging() { return engine_->StartLogging(); }

bool KestravModuleImpl::StartPlayback() { return engine_->StartPlayback(); }

bool KestravModuleImpl::StopLogging() { return engine_->StopLogging(); }

void KestravModuleImpl::StopPlayback(bool wait) { engine_->StopPlayback(wait); }

bool KestravModuleImpl::UnRegisterClient(IClient* client) {
  return engine_->UnRegisterClient(client);
}

bool KestravModuleImpl::UnRegisterClient(const String& clientId) {
  return engine_->UnRegisterClient(clientId);
}

bool KestravModuleImpl::WriteData(const SmartPtr::Ptr<ILogMessage>& message) {
  return engine_->WriteData(message);
}

LoggingCounters KestravModuleImpl::GetLoggingCounters() const {
  return engine_->GetLoggingCounters();
}

}  // namespace kestrav
