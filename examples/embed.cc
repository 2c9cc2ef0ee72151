// Records two messages of one client to embed.klog.
#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/host/io/file_stream.h"

using namespace kestrav;

struct Gearbox final : IClient {
  String GetClientStringID() const override { return L"Gearbox"; }
  bool AcceptsPlaybackOffsetData() override { return false; }
  bool IsUserSelectableForLogging() override { return true; }
  bool IsUserSelectableForPlayback() override { return true; }
};

int main() {
  Thread::ThreadModule threads;
  Gearbox gearbox;
  bool started = false;
  bool written = true;
  {
    KestravImpl recorder;  // its end finishes the log
    const auto on_notification = [&](const NotificationInfo& info) {
      if (info.id != NotifyLoggingStarted) return;
      for (std::uint8_t gear = 1; gear <= 2; ++gear) {
        const auto message = std::make_shared<LogMessage>();
        const bool filled = message->Assign(gearbox.client_id, 1, &gear, 1, 0);
        written = filled && recorder.WriteData(message) && written;
      }
    };
    const auto file = std::make_shared<Io::BufferedFileOutputStream>();
    started = file->Open(L"embed.klog", Io::OpenMode::kCreate) &&
              recorder.Init(&threads, L"Demo") && recorder.RegisterClient(&gearbox) &&
              recorder.SelectForLogging(L"Gearbox") &&
              recorder.notifier.Connect(on_notification) != 0 &&
              recorder.SetLoggingOutputStream(file) && recorder.StartLogging();
  }
  return started && written ? 0 : 1;
}
