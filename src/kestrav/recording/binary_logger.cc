#include "kestrav/recording/binary_logger.h"

#include <algorithm>
#include <thread>
#include <typeinfo>
#include <utility>

#include "kestrav/host/memory/try.h"
#include "kestrav/host/time/source.h"
#include "kestrav/types/notification.h"

namespace kestrav {
namespace {

using Lock = Thread::ScopedLock<Thread::Mutex>;

constexpr std::uint64_t kDictionaryPeriodUs = 10'000'000;

// Batches that follow each other this closely are worth a nap in between.
constexpr std::chrono::microseconds kBusyPeriod{500};
constexpr std::chrono::microseconds kNap{100};

// Null: it is no `LogMessage`, or there is none. To ask for the very type is quicker than a cast.
LogMessage* AsLogMessage(ILogMessage* message) {
  if (message != nullptr && typeid(*message) == typeid(LogMessage)) {
    return static_cast<LogMessage*>(message);
  }
  return dynamic_cast<LogMessage*>(message);
}

}  // namespace

BinaryLogger::BinaryLogger(SmartPtr::Ptr<Io::IOutputStream> stream) : encoder_(std::move(stream)) {}

BinaryLogger::~BinaryLogger() { StopLoggingThread(); }

bool BinaryLogger::StartLogging(Thread::ThreadModule& owner, INotificationSink* engine,
                                ClientManager* clients, InfoClientImpl* infoClient,
                                const String& threadName) {
  Lock lock(state_lock_);
  if (status_ != LoggingOff || engine == nullptr || clients == nullptr || infoClient == nullptr)
    return false;
  engine_ = engine;
  clients_ = clients;
  info_client_ = infoClient;
  if (!StartLoggingThread(owner, threadName)) return false;
  Thread::ScopedLock queue_lock(queue_lock_);
  counters_ = {};
  taken_ = 0;
  queue_lock.Unlock();
  status_ = LoggingStarting;
  start_event_.Set();
  return true;
}

bool BinaryLogger::StartLoggingThread(Thread::ThreadModule& owner, const String& threadName) {
  QuitEvent().Reset();
  return SetName(threadName) && Start(owner);
}

bool BinaryLogger::StopLogging() {
  Lock lock(state_lock_);
  Quit();
  return true;
}

bool BinaryLogger::StopLoggingThread() {
  StopLogging();  // under the state lock: not in the middle of a start
  WaitForCompletion();
  return true;
}

// The clock is read under the queue lock, so queue order is time order. The status is looked at
// again under it: the last flush of a recording takes the lock after the status became off, so a
// message is in that flush or refused. The stream is never touched here: a slow disk cannot hold up
// a client.
bool BinaryLogger::Write(SmartPtr::Ptr<ILogMessage>&& message) {
  if (status_ == LoggingOff) return false;
  LogMessage* const log_message = AsLogMessage(message.get());
  if (log_message == nullptr) return false;
  SmartPtr::Ptr<LogMessage> queued(std::move(message), log_message);
  {
    Thread::ScopedLock lock(queue_lock_);
    if (!Queue(queued)) {
      message = std::move(queued);
      return false;
    }
  }
  data_event_.Set();
  return true;
}

bool BinaryLogger::Write(const SmartPtr::Ptr<ILogMessage>& message) {
  return Write(SmartPtr::Ptr<ILogMessage>(message));
}

bool BinaryLogger::Queue(SmartPtr::Ptr<LogMessage>& message) {
  std::uint32_t now_ms = 0;
  if (status_ == LoggingOff || !Time::Source().ReadMs(now_ms)) return false;
  message->time_stamp = now_ms;
  if (!queue_.Push(std::move(message))) return false;
  ++counters_.accepted;
  return true;
}

void BinaryLogger::WriteAll(MessageQueue& queue) {
  // A record that cannot be written is dropped, and the next one tried.
  queue.Drain([this](const SmartPtr::Ptr<LogMessage>& message) {
    if (!encoder_.WriteBinaryLogRecord(message)) ++refused_;
  });
}

// Between two of these the queue only grows, so this is when it is longest.
void BinaryLogger::TakeQueue() {
  counters_.highest_queue = std::max(counters_.highest_queue, counters_.accepted - taken_);
  taken_ = counters_.accepted;
  writing_.Swap(queue_);
}

void BinaryLogger::CountBatch() {
  counters_.written = encoder_.RecordCount();
  counters_.dropped_by_stream = refused_;
  counters_.dropped_at_stop = encoder_.LostRecords();
  counters_.bytes = encoder_.BytesWritten();
  counters_.longest_write_us = static_cast<std::uint64_t>(encoder_.LongestWrite().count());
}

LoggingCounters BinaryLogger::GetLoggingCounters() const {
  Thread::ScopedLock lock(queue_lock_);
  LoggingCounters counters = counters_;
  counters.highest_queue = std::max(counters.highest_queue, counters.accepted - taken_);
  return counters;
}

// One batch a call: the thread looks at its quit event in between, however busy the clients are.
void BinaryLogger::FlushData() {
  Thread::ScopedLock lock(queue_lock_);
  TakeQueue();
  lock.Unlock();
  WriteAll(writing_);
  lock.Lock();
  const bool dry = queue_.IsEmpty();
  lock.Unlock();
  // What cannot be written now is tried again with what follows.
  if (dry) static_cast<void>(encoder_.Flush());
  lock.Lock();
  CountBatch();
  lock.Unlock();
  if (dry) LetMessagesGather();
}

// To wake a thread costs a client more than to hand over a hundred messages. While they come
// quickly, the thread does not go to sleep for them but naps: a client that sets the data event
// meanwhile finds nobody to wake. When they come slowly, there is nothing to gather.
void BinaryLogger::LetMessagesGather() {
  const auto now = std::chrono::steady_clock::now();
  const bool busy = now - last_batch_ < kBusyPeriod;
  last_batch_ = now;
  if (busy && !QuitEvent().IsSet()) std::this_thread::sleep_for(kNap);
}

// The status is off: who asks for the queue lock from now on finds that and is refused.
void BinaryLogger::FlushAllData() {
  Thread::ScopedLock lock(queue_lock_);
  TakeQueue();
  lock.Unlock();
  WriteAll(writing_);
}

void BinaryLogger::EnableEncryption(bool enable) {
  Lock lock(state_lock_);
  encoder_.EnableEncryption(enable);
}

std::int32_t BinaryLogger::GetLoggingStatus() const {
  Lock lock(state_lock_);
  return status_;
}

std::uint32_t BinaryLogger::GetRecordingTimeScnds() const {
  Lock lock(state_lock_);
  return status_ != LoggingOff ? encoder_.GetRecordingTimeScnds() : 0;
}

bool BinaryLogger::SetBinaryLogStream(const SmartPtr::Ptr<Io::IOutputStream>& stream) {
  Lock lock(state_lock_);
  if (status_ != LoggingOff) return false;
  encoder_.SetLogStream(stream);
  return true;
}

void BinaryLogger::Main() {
  Thread::ManualResetEvent* const events[] = {&QuitEvent(), &start_event_, &data_event_};
  for (;;) {
    switch (Thread::WaitForFirst(events, Time::kNoLimit)) {
      case 0:
      case Thread::kWaitFailed:
        // A stop may overtake the start; the messages accepted between them still get their log.
        if (start_event_.IsSet() && !OnStart()) return;
        dictionary_timer_.KillAll();
        StopBinaryLogging();
        return;
      case 1:
        if (!OnStart()) return;
        break;
      case 2:
        // Reset first: a message that is queued while the queue is flushed sets the event again.
        data_event_.Reset();
        // A writer may be faster than the start event. The stream header comes first, and the first
        // records of the log set the event again.
        if (status_ == LoggingRunning) FlushData();
        break;
      default:
        break;
    }
  }
}

bool BinaryLogger::OnStart() {
  // Reset first: once the start has failed, the next one may set the event at any time.
  start_event_.Reset();
  if (!StartBinaryLogging()) return false;
  // Without the timer the log lacks the repeated dictionaries only.
  static_cast<void>(
      dictionary_timer_.SetName(L"KestravDictionaryTimer") &&
      dictionary_timer_.SetPeriodic(kDictionaryPeriodUs, [this] { LogDictionaryData(); }));
  state_lock_.Lock();
  INotificationSink* const engine = engine_;
  const ClientIdSet selection = clients_->GetLoggingSelectionMap().Get();
  state_lock_.Unlock();
  engine->SendNotification({NotifyLoggingStarted, selection});
  return true;
}

bool BinaryLogger::StartBinaryLogging() {
  Lock lock(state_lock_);
  refused_ = 0;
  const std::uint64_t selection = clients_->GetLoggingSelectionMap().Get().Mask();
  const bool opened = encoder_.Start(selection);
  if (opened && WriteFirstRecords(selection)) {
    status_ = LoggingRunning;
    return true;
  }
  // The next start may be to the same stream: its header belongs over this one.
  if (opened) encoder_.Abandon();
  status_ = LoggingOff;
  dictionary_.clear();
  // There is no log for what was queued meanwhile, and the next one is not its place.
  Thread::ScopedLock queue_lock(queue_lock_);
  TakeQueue();
  counters_.dropped_without_log = counters_.accepted;
  queue_lock.Unlock();
  writing_.Clear();
  return false;
}

bool BinaryLogger::WriteFirstRecords(std::uint64_t selection) {
  // A dictionary left over would show that the log before was not finished.
  return dictionary_.empty() && clients_->GetDictionary(dictionary_) &&
         info_client_->WriteDictionaryRecord(dictionary_, this) &&
         info_client_->RecordExtendedBinarySelection(selection, this);
}

void BinaryLogger::StopBinaryLogging() {
  Lock lock(state_lock_);
  INotificationSink* const engine = engine_;
  const ClientIdSet selection = clients_->GetLoggingSelectionMap().Get();
  lock.Unlock();
  engine->SendNotification({NotifyLoggingStopped, selection});
  lock.Lock();
  if (status_ != LoggingOff) {
    status_ = LoggingOff;
    FlushAllData();
    encoder_.Stop();
    Thread::ScopedLock queue_lock(queue_lock_);
    CountBatch();
  }
  dictionary_.clear();
  lock.Unlock();
  engine->SendNotification({NotifyLoggingFinished, selection});
}

void BinaryLogger::LogDictionaryData() {
  Lock lock(state_lock_);
  if (dictionary_.empty()) return;
  static_cast<void>(info_client_->WriteDictionaryRecord(dictionary_, this));
}

}  // namespace kestrav
