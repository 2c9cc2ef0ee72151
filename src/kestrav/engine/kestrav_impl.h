#ifndef KESTRAV_ENGINE_KESTRAV_IMPL_H_
#define KESTRAV_ENGINE_KESTRAV_IMPL_H_

#include <cstdint>
#include <map>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "kestrav/clients/info_client.h"
#include "kestrav/engine/kestrav.h"
#include "kestrav/host/thread/lock.h"
#include "kestrav/host/thread/thread_module.h"
#include "kestrav/host/time/timer.h"
#include "kestrav/playback/binary_playback.h"
#include "kestrav/recording/binary_logger.h"

namespace kestrav {

// The engine: owns the registry, the recording thread, the info client, the playback object of the
// present mode and the one-second timer, and gates the calls into them. Call `Init` once, first.
class KESTRAV_API KestravImpl : public IKestrav, public ILoggingCounters, public INotificationSink {
 public:
  KestravImpl();
  ~KestravImpl() override;
  KestravImpl(const KestravImpl&) = delete;
  KestravImpl& operator=(const KestravImpl&) = delete;

  // `threadModule` starts the engine's threads and must outlive it; `name` is the prefix of their
  // names. false: no thread module, no playback object, or the info client cannot be registered.
  [[nodiscard]] virtual bool Init(Thread::ThreadModule* threadModule, const String& name);

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
  // The same, and takes over the caller's reference, which saves a quarter of a hand-over.
  // false: `message` is as before.
  bool WriteData(SmartPtr::Ptr<ILogMessage>&& message);

  LoggingCounters GetLoggingCounters() const override { return logger_.GetLoggingCounters(); }

  // Calls every observer on this thread, before it returns.
  void SendNotification(const NotificationInfo& info) override { notifier.Fire(info); }

  // The update timer runs while its users, a plain tally of starts and stops, are above 0.
  bool StartUpdateTimer();
  void StopUpdateTimer();

 private:
  void SetThreadModule(Thread::ThreadModule* threadModule);
  Thread::ThreadModule* GetThreadModule() const;
  PlaybackModeType GetBinaryPlaybackMode() const;
  SmartPtr::Ptr<IBinaryPlayback> GetPlaybackImplPtr() const;
  template <class Result, class... Parameters, class... Arguments>
  Result Forward(Result (IBinaryPlayback::*operation)(Parameters...),
                 Arguments&&... arguments) const;
  template <class Result, class... Parameters, class... Arguments>
  Result Forward(Result (IBinaryPlayback::*operation)(Parameters...) const,
                 Arguments&&... arguments) const;
  bool IsPlaybackOff() const;
  static SmartPtr::Ptr<IBinaryPlayback> CreateBinaryPlayback(PlaybackModeType mode);
  // Ends the thread of a playback object that the engine no longer holds.
  static void Retire(const SmartPtr::Ptr<IBinaryPlayback>& playback);
  [[nodiscard]] bool ThreadName(const wchar_t* suffix, String& out) const;
  void StopWhatHasNoClients();
  void NotifyTime();

  mutable ClientManager clients_;  // asking about a log changes the playback selection
  BinaryLogger logger_;
  InfoClientImpl info_client_;
  SmartPtr::Ptr<IBinaryPlayback> playback_ GUARDED_BY(lock_);
  PlaybackModeType playback_mode_ GUARDED_BY(lock_) = PlaybackModeNone;
  Time::Timer update_timer_;
  std::uint8_t timer_users_ GUARDED_BY(lock_) = 0;
  bool timer_running_ GUARDED_BY(lock_) = false;
  Thread::ThreadModule* thread_module_ GUARDED_BY(lock_) = nullptr;
  String name_ GUARDED_BY(lock_);
  mutable Thread::CritSec lock_;
};

}  // namespace kestrav

#endif  // KESTRAV_ENGINE_KESTRAV_IMPL_H_
