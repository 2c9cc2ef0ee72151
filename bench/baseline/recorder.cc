#include "baseline/recorder.h"

#include <chrono>
#include <utility>

namespace kestrav::baseline {
namespace {

std::uint32_t NowMs() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return static_cast<std::uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(now).count());
}

}  // namespace

bool Recorder::Start(const std::string& path, const StreamHeader& header) {
  start_ms_ = NowMs();
  if (!writer_.Open(path, header)) return false;
  thread_ = std::thread([this] { Run(); });
  return true;
}

void Recorder::Write(std::shared_ptr<Message> message) {
  {
    const std::lock_guard lock(mutex_);
    message->time_stamp = NowMs();
    queue_.push_back(std::move(message));
  }
  changed_.notify_one();
}

bool Recorder::Finish() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  changed_.notify_one();
  thread_.join();
  return writer_.Close(NowMs() - start_ms_) && good_;
}

void Recorder::Run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
    while (!queue_.empty()) {
      const std::shared_ptr<Message> message = std::move(queue_.front());
      queue_.pop_front();
      lock.unlock();
      good_ = writer_.Write(*message) && good_;
      lock.lock();
    }
    if (stopping_) return;
    lock.unlock();
    good_ = writer_.Flush() && good_;
    lock.lock();
  }
}

}  // namespace kestrav::baseline
