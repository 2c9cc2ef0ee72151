#ifndef KESTRAV_ENGINE_KESTRAV_H_
#define KESTRAV_ENGINE_KESTRAV_H_

#include <cstdint>
#include <map>
#include <vector>

#include "kestrav/clients/client.h"
#include "kestrav/format/log_message.h"
#include "kestrav/host/api.h"
#include "kestrav/host/event/notifier_mt.h"
#include "kestrav/host/io/stream.h"
#include "kestrav/host/memory/mem_block.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/text/string.h"
#include "kestrav/types/notification.h"
#include "kestrav/types/playback_types.h"

namespace kestrav {

// The recorder: records the messages of selected clients and plays logs back to them. Any thread
// may call any operation; no operation throws. A refused or failed operation answers false, 0 or
// kNoId and changes nothing. An operation that does not belong to the playback mode answers false
// or 0.
//
// Observers connect to `notifier`. They are called on the thread that sends, so they must not block
// and must not wait for that thread (stop a playback and wait for it, say).
class KESTRAV_API IKestrav {
 public:
  virtual ~IKestrav() = default;

  // Whether records are scrambled; at first they are. Not while recording.
  virtual bool EnableEncryption(bool enable) = 0;
  // Normal playback. Playing: the next speed of the cycle 1, 2, 4, 10. Paused or finished: resumes.
  virtual bool FastForwardPlayback() = 0;
  virtual bool GetClientsList(std::vector<String>& clients) const = 0;
  virtual std::uint32_t GetPlaybackLogLengthMs() const = 0;
  virtual std::uint32_t GetPlaybackLogSize() const = 0;
  // The clients that the user may choose for recording, each with its present choice.
  virtual bool GetLoggingClientsList(std::map<String, bool>& clients) const = 0;
  // 0: not logging, 1: the recording thread is starting, 2: the log runs.
  virtual std::int32_t GetLoggingStatus() const = 0;
  // Opens the log before a playback: its length in milliseconds, its size in bytes, and the clients
  // it can be played to. Clears the playback selection. Not while playing.
  virtual bool GetPlaybackAttributes(unsigned int& lengthMs, unsigned int& size,
                                     std::vector<String>& clients) const = 0;
  virtual std::uint32_t GetPlaybackRewindTimeScnds() const = 0;
  virtual PlaybackSpeedType GetPlaybackSpeed() const = 0;
  virtual PlaybackStatusType GetPlaybackStatus() const = 0;
  virtual std::uint32_t GetPlaybackTimeScnds() const = 0;
  virtual std::uint32_t GetRecordingTimeScnds() const = 0;
  virtual std::uint32_t GetStartPlaybackOffsetScnds() const = 0;
  // Replaces the playback object unless it has this mode: the input stream and all start settings
  // are then lost. Not while another thread uses the playback; refused on the playback thread.
  virtual bool SetPlaybackMode(PlaybackModeType mode) = 0;
  // Polling playback: a notification each `duration` milliseconds of log time; 0: none.
  virtual bool SetPeriodicEventDuration(unsigned int duration) = 0;
  virtual bool IsLogging() const = 0;
  virtual bool IsSelectedForLogging(const unsigned short& clientId) const = 0;
  virtual bool IsSelectedForPlayback(const unsigned short& clientId) const = 0;
  virtual bool IsValidPlaybackOffset(unsigned int offsetScnds) const = 0;
  // Normal playback, starting or playing. Notification 4 tells that it is paused.
  virtual bool PausePlayback() = 0;
  // Polling playback: delivers the next record on this thread.
  virtual bool PlaybackNextMessage() = 0;
  // The client must stay until it is unregistered. Not while recording or playing.
  virtual bool RegisterClient(IClient* client) = 0;
  virtual bool ResetLoggingSelection() = 0;                        // not while recording
  virtual bool ResetLoggingSelection(const String& clientId) = 0;  // not while recording
  virtual bool ResetPlaybackSelection() = 0;                       // only while playback is off
  // Normal playback, paused; notification 5 tells that it plays. Finished: plays the log again,
  // without pacing. While starting or rewinding, a resume ends in a fresh start or a stop.
  virtual bool ResumePlayback() = 0;
  // Normal playback: goes back by the rewind time and plays on at speed 1.
  virtual bool RewindPlayback() = 0;
  virtual bool SendControlStringToClient(const String& clientId, const String& control) = 0;
  virtual bool SelectForLogging(const String& clientId) = 0;   // not while recording
  virtual bool SelectForPlayback(const String& clientId) = 0;  // only while playback is off
  // Pass-through playback: the stream header, then the dictionary, then one record a call.
  virtual bool PlaybackData(const Memory::MemBlock& data) = 0;
  // Copies the payload of the log's first record of this client and data id, if it stands before
  // the first other record at or after the offset. Not while playing.
  virtual bool SearchAndGetClientData(Memory::MemBlock& data, const String& clientId,
                                      const unsigned short& dataId,
                                      const unsigned int& offsetScnds) const = 0;
  // The stream is shared: the recorder lets go of it when the log is finished. Not while recording.
  virtual bool SetLoggingOutputStream(const SmartPtr::Ptr<Io::IOutputStream>& stream) = 0;
  // The stream is shared: the recorder lets go of it when the playback stops.
  virtual bool SetPlaybackInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) = 0;
  // 5 seconds unless set; a new input stream sets it back.
  virtual void SetPlaybackRewindTimeScnds(unsigned int seconds) = 0;
  // Where in the log normal playback begins. false: beyond its end, or playing.
  virtual bool SetStartPlaybackOffsetScnds(unsigned int offsetScnds) = 0;
  // Any factor below 11, 0: without pacing; 1 unless set, and again after a stop. Not while
  // playing.
  virtual bool SetStartPlaybackSpeed(PlaybackSpeedType speed) = 0;
  // Starts to record the selected clients to the stream. false: recording already, nothing
  // selected, or no thread. Notification 0 tells that the log runs: messages written earlier stand
  // in front of the dictionary, where a playback does not look for it.
  virtual bool StartLogging() = 0;
  // Plays to the selected clients; notification 2 tells that it plays. Paused: resumes. Finished:
  // plays the log again. Not while playing or rewinding.
  virtual bool StartPlayback() = 0;
  // Returns at once; notification 9 tells that the log is finished.
  virtual bool StopLogging() = 0;
  // `wait`: returns when the playback thread has ended; never from a client's callback.
  virtual void StopPlayback(bool wait) = 0;
  // Stops a recording, a playback, that has no selected client left. A client that is played to may
  // still be called until the playback has stopped.
  virtual bool UnRegisterClient(IClient* client) = 0;
  virtual bool UnRegisterClient(const String& clientId) = 0;
  // Hands a message over to be recorded; `message` must not be empty. The payload then belongs to
  // the recorder, which scrambles it in place. false: its client is not selected, or not recording.
  virtual bool WriteData(const SmartPtr::Ptr<ILogMessage>& message) = 0;

  Event::NotifierMT<const NotificationInfo&> notifier;
};

}  // namespace kestrav

#endif  // KESTRAV_ENGINE_KESTRAV_H_
