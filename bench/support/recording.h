#ifndef KESTRAV_BENCH_SUPPORT_RECORDING_H_
#define KESTRAV_BENCH_SUPPORT_RECORDING_H_

#include <atomic>
#include <cstdint>

#include "kestrav/engine/kestrav_impl.h"
#include "support/product.h"

namespace kestrav::bench {

// The client of every recording and playback here; counts what it is given.
class BenchClient final : public IClient {
 public:
  static constexpr const wchar_t* kName = L"Bench";

  String GetClientStringID() const override { return kName; }
  bool AcceptsPlaybackOffsetData() override { return false; }
  bool IsUserSelectableForLogging() override { return true; }
  bool IsUserSelectableForPlayback() override { return true; }
  bool OnPlaybackData(const ILogMessage& message) override {
    ++deliveries;
    bytes += message.GetDataSize();
    return true;
  }

  std::uint64_t deliveries = 0;
  std::uint64_t bytes = 0;
};

// A flag that another thread waits for.
class Signal {
 public:
  void Set() {
    set_ = true;
    set_.notify_all();
  }
  void Wait() const { set_.wait(false); }

 private:
  std::atomic<bool> set_ = false;
};

// A recorder that records one client to a stream, ready for messages when constructed.
class Recording {
 public:
  explicit Recording(const SmartPtr::Ptr<Io::IOutputStream>& stream) {
    const auto observe = [this](const NotificationInfo& info) {
      if (info.id == NotifyLoggingStarted) started_.Set();
      if (info.id == NotifyLoggingFinished) finished_.Set();
    };
    good_ = stream != nullptr && recorder_.Init(&threads_, L"Bench") &&
            recorder_.RegisterClient(&client_) && recorder_.SelectForLogging(BenchClient::kName) &&
            recorder_.notifier.Connect(observe) != 0 && recorder_.SetLoggingOutputStream(stream) &&
            recorder_.StartLogging();
    if (good_) started_.Wait();
  }

  bool IsGood() const { return good_; }
  bool Write(const std::uint8_t* data, std::uint32_t size) {
    return HandOver(recorder_, client_.client_id, data, size);
  }
  // Returns when the log is finished.
  void Finish() {
    recorder_.StopLogging();
    finished_.Wait();
  }

 private:
  Thread::ThreadModule threads_;
  BenchClient client_;
  Signal started_;
  Signal finished_;
  KestravImpl recorder_;
  bool good_ = false;
};

}  // namespace kestrav::bench

#endif  // KESTRAV_BENCH_SUPPORT_RECORDING_H_
