#ifndef KESTRAV_ENGINE_KESTRAV_MODULE_H_
#define KESTRAV_ENGINE_KESTRAV_MODULE_H_

#include <cstdint>
#include <map>
#include <vector>

#include "kestrav/engine/kestrav.h"
#include "kestrav/engine/kestrav_factory.h"
#include "kestrav/host/api.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/module/module.h"
#include "kestrav/types/logging_counters.h"

namespace kestrav {

class KestravModule;

// The tag of the module that is the recorder of the system.
struct KESTRAV_API KestravDef {
  using Interface = KestravModule;
  static constexpr const wchar_t* kName = L"KestravDef";
  static constexpr std::uint32_t kVersion = 0;
  using Dependencies = Module::DependsOn<KestravFactoryDef>;
  static SmartPtr::Ptr<Module::IModule> Factory();
};

// The recorder that the components of a system share.
class KESTRAV_API KestravModule : public IKestrav,
                                  public ILoggingCounters,
                                  public Module::Interface<KestravDef> {};

// Hands every call to an engine of its own, which its start asks the factory for, and tells its
// observers what the engine tells. Nothing but `Start` may be called before a good `Start`.
class KESTRAV_API KestravModuleImpl : public KestravModule, public Module::ModuleBase {
 public:
  // The engine's name and the prefix of its threads'.
  static constexpr const wchar_t* kInstanceName = L"KestravModule";

  KestravModuleImpl() = default;
  // Lets go of the engine, which goes when nobody else holds it.
  ~KestravModuleImpl() override;

  // false: it has an engine already, there is none to be had, or its notifications cannot be heard.
  [[nodiscard]] bool Start() override;

  // Tells the module's observers. Called for every notification of the engine.
  void OnNotification(const NotificationInfo& info) { notifier.Fire(info); }

  bool EnableEncryption(bool enable) override;
  bool FastForwardPlayback() override;
  bool GetClientsList(std::vector<String>& clients) const override;
  std::uint32_t GetPlaybackLogLengthMs() const override;
  std::uint32_t GetPlaybackLogSize() const override;
  bool GetLoggingClientsList(std::map<String, bool>& clients) const override;
  std::int32_t GetLoggingStatus() const override;
  bool GetPlaybackAttributes(unsigned int& lengthMs, unsigned int& size,
                             std::vector<String>& clients) const override;
  std::uint32_t GetPlaybackRewindTimeScnds() const override;
  PlaybackSpeedType GetPlaybackSpeed() const override;
  PlaybackStatusType GetPlaybackStatus() const override;
  std::uint32_t GetPlaybackTimeScnds() const override;
  std::uint32_t GetRecordingTimeScnds() const override;
  std::uint32_t GetStartPlaybackOffsetScnds() const override;
  bool SetPlaybackMode(PlaybackModeType mode) override;
  bool SetPeriodicEventDuration(unsigned int duration) override;
  bool IsLogging() const override;
  bool IsSelectedForLogging(const unsigned short& clientId) const override;
  bool IsSelectedForPlayback(const unsigned short& clientId) const override;
  bool IsValidPlaybackOffset(unsigned int offsetScnds) const override;
  bool PausePlayback() override;
  bool PlaybackNextMessage() override;
  bool RegisterClient(IClient* client) override;
  bool ResetLoggingSelection() override;
  bool ResetLoggingSelection(const String& clientId) override;
  bool ResetPlaybackSelection() override;
  bool ResumePlayback() override;
  bool RewindPlayback() override;
  bool SendControlStringToClient(const String& clientId, const String& control) override;
  bool SelectForLogging(const String& clientId) override;
  bool SelectForPlayback(const String& clientId) override;
  bool PlaybackData(const Memory::MemBlock& data) override;
  bool SearchAndGetClientData(Memory::MemBlock& data, const String& clientId,
                              const unsigned short& dataId,
                              const unsigned int& offsetScnds) const override;
  bool SetLoggingOutputStream(const SmartPtr::Ptr<Io::IOutputStream>& stream) override;
  bool SetPlaybackInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) override;
  void SetPlaybackRewindTimeScnds(unsigned int seconds) override;
  bool SetStartPlaybackOffsetScnds(unsigned int offsetScnds) override;
  bool SetStartPlaybackSpeed(PlaybackSpeedType speed) override;
  bool StartLogging() override;
  bool StartPlayback() override;
  bool StopLogging() override;
  void StopPlayback(bool wait) override;
  bool UnRegisterClient(IClient* client) override;
  bool UnRegisterClient(const String& clientId) override;
  bool WriteData(const SmartPtr::Ptr<ILogMessage>& message) override;

  LoggingCounters GetLoggingCounters() const override;

 private:
  Module::Accessor<KestravFactoryDef> factory_{*this};
  SmartPtr::Ptr<KestravImpl> engine_;
  std::uint32_t relay_ = 0;  // the connection to the engine's notifier
};

}  // namespace kestrav

#endif  // KESTRAV_ENGINE_KESTRAV_MODULE_H_
