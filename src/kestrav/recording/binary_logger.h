#ifndef KESTRAV_RECORDING_BINARY_LOGGER_H_
#define KESTRAV_RECORDING_BINARY_LOGGER_H_

#include <atomic>
#include <chrono>
#include <cstdint>

#include "kestrav/clients/client_manager.h"
#include "kestrav/clients/dictionary_record.h"
#include "kestrav/clients/info_client.h"
#include "kestrav/format/encoder.h"
#include "kestrav/format/log_message.h"
#include "kestrav/host/api.h"
#include "kestrav/host/io/stream.h"
#include "kestrav/host/memory/ptr.h"
#include "kestrav/host/text/string.h"
#include "kestrav/host/thread/event.h"
#include "kestrav/host/thread/lock.h"
#include "kestrav/host/thread/thread_module.h"
#include "kestrav/host/thread/worker_thread.h"
#include "kestrav/host/time/timer.h"
#include "kestrav/recording/message_queue.h"
#include "kestrav/types/logging_counters.h"
#include "kestrav/types/sinks.h"

namespace kestrav {

enum LoggingStatusType : std::int32_t {
  LoggingOff = 0,
  LoggingStarting = 1,  // the thread was started, the log not yet; messages are queued
  LoggingRunning = 2,
};

// The recording thread. Any thread hands messages to `Write`, which stamps and queues them; the
// thread writes them, after the stream header, the dictionary and the selection, to the stream. The
// dictionary is repeated every ten seconds. Any thread may call any operation.
class KESTRAV_API BinaryLogger final : public Thread::WorkerThread, public IMessageSink {
 public:
  explicit BinaryLogger(SmartPtr::Ptr<Io::IOutputStream> stream = nullptr);
  // Stops a recording that runs and waits for the thread.
  ~BinaryLogger() override;

  // Starts the thread, which starts the log; the pointers must outlive the recording. false:
  // logging already, a null pointer, or no thread. That the log itself cannot be started shows in
  // the status.
  [[nodiscard]] bool StartLogging(Thread::ThreadModule& owner, INotificationSink* engine,
                                  ClientManager* clients, InfoClientImpl* infoClient,
                                  const String& threadName);
  // Asks the thread to finish the log and returns at once.
  bool StopLogging();
  // The same, and waits for the thread.
  bool StopLoggingThread();

  // Takes a message to be recorded, stamped with the time of this call. Only a `LogMessage` can be.
  // What was accepted is written before the stop that ends this recording is complete.
  // false: not logging, no clock, or short memory.
  bool Write(const SmartPtr::Ptr<ILogMessage>& message) override;
  // The same, and takes over the caller's reference. false: `message` is as before.
  bool Write(SmartPtr::Ptr<ILogMessage>&& message);

  void EnableEncryption(bool enable);
  // Off is told only when the log is finished: a stop in progress is waited for.
  std::int32_t GetLoggingStatus() const;
  bool IsLogging() const { return GetLoggingStatus() != LoggingOff; }
  // Whole seconds, rounded; 0 when not logging.
  std::uint32_t GetRecordingTimeScnds() const;
  // Of the recording that runs, else of the last one.
  LoggingCounters GetLoggingCounters() const;
  // false: logging; the stream of the recording stays.
  bool SetBinaryLogStream(const SmartPtr::Ptr<Io::IOutputStream>& stream);

 protected:
  void Main() override;

 private:
  bool StartLoggingThread(Thread::ThreadModule& owner, const String& threadName)
      REQUIRES(state_lock_);
  void FlushData();
  void FlushAllData() REQUIRES(state_lock_);
  [[nodiscard]] bool Queue(SmartPtr::Ptr<LogMessage>& message) REQUIRES(queue_lock_);
  void WriteAll(MessageQueue& queue);
  void LetMessagesGather();
  void TakeQueue() REQUIRES(queue_lock_);
  void CountBatch() REQUIRES(queue_lock_);

  bool OnStart();
  bool StartBinaryLogging();
  bool WriteFirstRecords(std::uint64_t selection) REQUIRES(state_lock_);
  void StopBinaryLogging();
  void LogDictionaryData();

  Thread::ManualResetEvent start_event_;
  Thread::ManualResetEvent data_event_;

  // Taken before the queue lock where both are held. Guards every use of the encoder but the record
  // writes of the thread, which happen only between a start and a stop that it makes itself.
  mutable Thread::Mutex state_lock_;
  BinaryEncoder encoder_;
  std::atomic<std::int32_t> status_{LoggingOff};  // changed under the state lock
  INotificationSink* engine_ GUARDED_BY(state_lock_) = nullptr;
  ClientManager* clients_ GUARDED_BY(state_lock_) = nullptr;
  InfoClientImpl* info_client_ GUARDED_BY(state_lock_) = nullptr;
  Dictionary dictionary_ GUARDED_BY(state_lock_);  // as it was when the log started

  mutable Thread::BriefMutex queue_lock_;
  MessageQueue queue_ GUARDED_BY(queue_lock_);
  LoggingCounters counters_ GUARDED_BY(queue_lock_);
  std::uint64_t taken_ GUARDED_BY(queue_lock_) = 0;  // of the accepted: what left the queue

  MessageQueue writing_;       // the thread's own: what it took from the queue
  std::uint64_t refused_ = 0;  // the thread's own: records of this log that were not written

  std::chrono::steady_clock::time_point last_batch_;  // the thread's own

  Time::Timer dictionary_timer_;
};

}  // namespace kestrav

#endif  // KESTRAV_RECORDING_BINARY_LOGGER_H_
