#ifndef KESTRAV_TESTS_RELIABILITY_QUIET_PARTS_H_
#define KESTRAV_TESTS_RELIABILITY_QUIET_PARTS_H_

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

#include "kestrav/clients/client.h"
#include "kestrav/types/notification.h"
#include "support/streams.h"

// What stands around the recorder while something fails: it allocates nothing itself, so that
// every allocation that fails is the recorder's.

namespace kestrav::test {

inline constexpr std::uint32_t kMessages = 12;
inline constexpr std::uint32_t kAllMessages = (1U << kMessages) - 1;

// Every third message is more than a message holds without memory of its own.
inline bool IsLarge(std::uint32_t n) { return n % 3 == 1; }

struct Payload {
  std::array<std::uint8_t, 1000> bytes;
  std::uint32_t size;
};

// No byte of it is a record marker.
inline Payload PayloadOf(std::uint32_t n) {
  Payload payload;
  payload.size = IsLarge(n) ? 150 + 60 * n : 5 + n;
  for (std::uint32_t i = 0; i < payload.size; ++i) {
    payload.bytes[i] = static_cast<std::uint8_t>(0x80 | (n * 31 + i * 7));
  }
  return payload;
}

// Which messages were delivered to any of the clients of a playback, and how many came that were
// wrong or out of order.
struct Tally {
  std::atomic<std::uint32_t> delivered{0};
  std::atomic<std::uint32_t> wrong{0};

  void Clear() {
    delivered = 0;
    wrong = 0;
  }
};

// Takes the messages whose numbers modulo 2 are its own.
class QuietClient final : public IClient {
 public:
  QuietClient(const wchar_t* name, std::uint32_t parity, Tally& tally)
      : name_(name), parity_(parity), tally_(tally) {}

  bool AcceptsPlaybackOffsetData() override { return false; }
  String GetClientStringID() const override { return name_; }
  bool IsUserSelectableForLogging() override { return true; }
  bool IsUserSelectableForPlayback() override { return true; }
  bool OnPlaybackData(const ILogMessage& message) override {
    const std::uint32_t n = message.GetDataID();
    if (n >= kMessages || n % 2 != parity_ || tally_.delivered >> n != 0 || !IsWhole(message, n)) {
      ++tally_.wrong;
      return true;
    }
    tally_.delivered |= 1U << n;
    return true;
  }

 private:
  static bool IsWhole(const ILogMessage& message, std::uint32_t n) {
    const Payload payload = PayloadOf(n);
    const std::uint8_t* const data = message.GetDataPointer();
    return message.GetDataSize() == payload.size &&
           std::equal(data, data + payload.size, payload.bytes.begin());
  }

  const String name_;
  const std::uint32_t parity_;
  Tally& tally_;
};

// The ids of the notifications, without those that tell times and speeds.
class QuietObserver {
 public:
  void operator()(const NotificationInfo& info) {
    const std::lock_guard lock(mutex_);
    if (info.id == NotifyRecordingTime) ++ticks_;
    if (info.id >= NotifyRecordingTime) return;
    if (count_ < ids_.size()) ids_[count_++] = static_cast<int>(info.id);
  }
  std::vector<int> Take() {
    const std::lock_guard lock(mutex_);
    ticks_ = 0;
    return {ids_.begin(), ids_.begin() + std::exchange(count_, 0)};
  }
  // How often a recording time was told since.
  std::uint32_t Ticks() {
    const std::lock_guard lock(mutex_);
    return ticks_;
  }

 private:
  std::mutex mutex_;
  std::uint32_t ticks_ = 0;
  std::array<int, 64> ids_{};
  std::uint32_t count_ = 0;
};

// An output stream without a buffer, in memory that it has from the start.
class FixedOutputStream final : public Io::IOutputStream {
 public:
  explicit FixedOutputStream(std::uint32_t room) : bytes_(room) {}

  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    if (fails && fails()) return false;
    if (size > bytes_.size() - position_) return false;
    std::copy_n(data, size, bytes_.begin() + position_);
    position_ += size;
    end_ = std::max(end_, position_);
    return true;
  }
  bool Seek(std::uint32_t position) override {
    if (position > end_) return false;
    position_ = position;
    return true;
  }
  std::uint32_t Position() const override { return position_; }

  Bytes Content() const { return {bytes_.begin(), bytes_.begin() + end_}; }

  std::function<bool()> fails;  // whether the next write is to fail

 private:
  Bytes bytes_;
  std::uint32_t position_ = 0;
  std::uint32_t end_ = 0;
};

// A step that is refused changes nothing, so it may be tried again.
template <class Step>
bool InTwoTries(Step&& step) {
  return step() || step();
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_RELIABILITY_QUIET_PARTS_H_
