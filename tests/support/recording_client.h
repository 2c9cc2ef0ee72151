#ifndef KESTRAV_TESTS_SUPPORT_RECORDING_CLIENT_H_
#define KESTRAV_TESTS_SUPPORT_RECORDING_CLIENT_H_

#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "kestrav/clients/client.h"

namespace kestrav::test {

struct Delivery {
  std::uint16_t client_id = 0;
  std::uint16_t data_id = 0;
  std::string payload;

  friend bool operator==(const Delivery&, const Delivery&) = default;
};

// A client whose answers can be set and which remembers what it was given. Deliveries may come from
// any thread.
class RecordingClient final : public IClient {
 public:
  explicit RecordingClient(String name, std::uint16_t id = kNoId)
      : IClient(id), string_id(std::move(name)) {}

  bool AcceptsPlaybackOffsetData() override { return accepts_offset_data; }
  String GetClientStringID() const override { return string_id; }
  bool IsUserSelectableForLogging() override { return selectable_for_logging; }
  bool IsUserSelectableForPlayback() override { return selectable_for_playback; }
  bool OnPlaybackData(const ILogMessage& message) override {
    {
      const std::lock_guard lock(mutex_);
      deliveries_.push_back({message.GetClientID(), message.GetDataID(),
                             std::string(reinterpret_cast<const char*>(message.GetDataPointer()),
                                         message.GetDataSize())});
    }
    return on_delivery ? on_delivery(message) : takes_data;
  }
  bool HandleConfigControlString(const String& control) override {
    const std::lock_guard lock(mutex_);
    controls_.push_back(control);
    return takes_controls;
  }

  std::vector<Delivery> Deliveries() const {
    const std::lock_guard lock(mutex_);
    return deliveries_;
  }
  std::vector<String> Controls() const {
    const std::lock_guard lock(mutex_);
    return controls_;
  }

  String string_id;
  bool accepts_offset_data = false;
  bool selectable_for_logging = true;
  bool selectable_for_playback = true;
  bool takes_data = true;
  bool takes_controls = true;
  std::function<bool(const ILogMessage&)> on_delivery;

 private:
  mutable std::mutex mutex_;
  std::vector<Delivery> deliveries_;
  std::vector<String> controls_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_SUPPORT_RECORDING_CLIENT_H_
