// Records the messages of one client to memory, plays them back and compares.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/host/io/memory_stream.h"

using namespace kestrav;

namespace {

using Bytes = std::vector<std::uint8_t>;

const std::vector<std::string> kMessages = {"ignition on", "first gear", "ignition off"};

// A stream of the host's own: any place that takes bytes and has a position can hold a log.
class GrowingStream final : public Io::IOutputStream {
 public:
  explicit GrowingStream(Bytes& bytes) : bytes_(bytes) {}

  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    if (bytes_.size() < position_ + size) bytes_.resize(position_ + size);
    std::copy_n(data, size, bytes_.begin() + position_);
    position_ += size;
    return true;
  }
  bool Seek(std::uint32_t position) override {
    if (position > bytes_.size()) return false;
    position_ = position;
    return true;
  }
  std::uint32_t Position() const override { return position_; }

 private:
  Bytes& bytes_;
  std::uint32_t position_ = 0;
};

class Body final : public IClient {
 public:
  String GetClientStringID() const override { return L"Body"; }
  bool AcceptsPlaybackOffsetData() override { return false; }
  bool IsUserSelectableForLogging() override { return true; }
  bool IsUserSelectableForPlayback() override { return true; }
  bool OnPlaybackData(const ILogMessage& message) override {
    const std::uint8_t* const data = message.GetDataPointer();
    played.emplace_back(data, data + message.GetDataSize());
    return true;
  }

  std::vector<std::string> played;
};

bool Send(IKestrav& recorder, const Body& body, const std::string& text) {
  const auto message = std::make_shared<LogMessage>();
  const auto* const data = reinterpret_cast<const std::uint8_t*>(text.data());
  return message->Assign(body.client_id, 1, data, static_cast<std::uint32_t>(text.size()), 0) &&
         recorder.WriteData(message);
}

bool Record(Body& body, Bytes& log) {
  Thread::ThreadModule threads;
  std::size_t sent = 0;
  {
    KestravImpl recorder;  // its end finishes the log
    const auto on_notification = [&](const NotificationInfo& info) {
      if (info.id != NotifyLoggingStarted) return;
      for (const std::string& text : kMessages) sent += Send(recorder, body, text) ? 1 : 0;
    };
    if (!recorder.Init(&threads, L"Record") || !recorder.RegisterClient(&body) ||
        !recorder.SelectForLogging(L"Body") || recorder.notifier.Connect(on_notification) == 0 ||
        !recorder.SetLoggingOutputStream(std::make_shared<GrowingStream>(log)) ||
        !recorder.StartLogging()) {
      return false;
    }
  }
  return sent == kMessages.size();
}

bool Play(Body& body, const Bytes& log) {
  Thread::ThreadModule threads;
  KestravImpl player;
  const auto size = static_cast<std::uint32_t>(log.size());
  unsigned int length_ms = 0;
  unsigned int log_size = 0;
  std::vector<String> recorded;
  if (!player.Init(&threads, L"Play") || !player.SetPlaybackMode(PlaybackModePolling) ||
      !player.RegisterClient(&body) ||
      !player.SetPlaybackInputStream(std::make_shared<Io::MemoryInputStream>(log.data(), size)) ||
      !player.GetPlaybackAttributes(length_ms, log_size, recorded) ||
      !player.SelectForPlayback(L"Body") || !player.StartPlayback()) {
    return false;
  }
  while (player.GetPlaybackStatus() == PlaybackPlaying) {
    if (!player.PlaybackNextMessage()) return false;
  }
  return log_size == log.size();
}

}  // namespace

int main() {
  Bytes log;
  Body recorded;
  Body played;
  if (!Record(recorded, log)) {
    std::puts("the recording failed");
    return 1;
  }
  if (!Play(played, log) || played.played != kMessages) {
    std::puts("the playback is not what was recorded");
    return 1;
  }
  std::printf("%zu messages recorded and played back\n", played.played.size());
  return 0;
}
