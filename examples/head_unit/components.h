#ifndef KESTRAV_EXAMPLES_HEAD_UNIT_COMPONENTS_H_
#define KESTRAV_EXAMPLES_HEAD_UNIT_COMPONENTS_H_

#include <atomic>
#include <cstdint>

#include "kestrav/clients/client.h"
#include "kestrav/engine/kestrav.h"
#include "kestrav/host/thread/worker_thread.h"

namespace kestrav::example {

// A component of the head unit that is recorded: a client with a thread of its own, which hands a
// message to the recorder at each interval.
class Component : public IClient, public Thread::WorkerThread {
 public:
  Component(const wchar_t* name, std::uint16_t fixed_id, std::uint32_t interval_ms)
      : IClient(fixed_id), name_(name), interval_ms_(interval_ms) {}

  // The thread runs until `StopProducing`, which every owner calls before this object goes.
  [[nodiscard]] bool StartProducing(Thread::ThreadModule& threads, IKestrav& recorder);
  void StopProducing();

  std::uint32_t Accepted() const { return accepted_; }
  std::uint32_t Delivered() const { return delivered_; }

  String GetClientStringID() const override { return name_; }
  bool AcceptsPlaybackOffsetData() override { return false; }
  bool IsUserSelectableForLogging() override { return true; }
  bool IsUserSelectableForPlayback() override { return true; }
  // On the playback thread, with the playback's lock held: take the message and return.
  bool OnPlaybackData(const ILogMessage& message) override;

 protected:
  static constexpr std::uint16_t kSample = 1;  // the data id of everything written here

  // The next payload. On the component's own thread.
  virtual void Sample(std::uint32_t count, Memory::MemBlock& payload) = 0;

  void SetInterval(std::uint32_t interval_ms) { interval_ms_ = interval_ms; }
  std::uint32_t Interval() const { return interval_ms_; }

 private:
  void Main() override;

  const wchar_t* const name_;
  IKestrav* recorder_ = nullptr;
  // Control strings and deliveries come on other threads than the component's own.
  std::atomic<std::uint32_t> interval_ms_;
  std::atomic<std::uint32_t> accepted_{0};
  std::atomic<std::uint32_t> delivered_{0};
};

// Has a client id of its own choice, the same in every log.
class VehicleBus final : public Component {
 public:
  static constexpr std::uint16_t kClientId = 5;

  VehicleBus() : Component(L"Vehicle Bus", kClientId, 5) {}

 private:
  void Sample(std::uint32_t count, Memory::MemBlock& payload) override;
};

// Takes control strings: "interval=250" makes it write each 250 ms.
class Climate final : public Component {
 public:
  Climate() : Component(L"Climate", kNoId, 50) {}

  std::uint32_t IntervalMs() const { return Interval(); }

  // On the thread of whoever sends it, with the registry's lock held: it must not wait.
  bool HandleConfigControlString(const String& control) override;

 private:
  void Sample(std::uint32_t count, Memory::MemBlock& payload) override;
};

// Wants its whole history when a playback begins further on, since a map shows the way there.
class Position final : public Component {
 public:
  Position() : Component(L"GPS", kNoId, 100) {}

  bool AcceptsPlaybackOffsetData() override { return true; }

 private:
  void Sample(std::uint32_t count, Memory::MemBlock& payload) override;
};

}  // namespace kestrav::example

#endif  // KESTRAV_EXAMPLES_HEAD_UNIT_COMPONENTS_H_
