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
  int written = 0;
  {
    KestravImpl recorder;  // its end finishes the log
    const auto on_notification = [&](const NotificationInfo& info) {
      for (std::uint8_t gear = 1; info.id == NotifyLoggingStarted && gear <= 2; ++gear) {
        const auto message = std::make_shared<LogMessage>();
        written +=
            message->Assign(gearbox.client_id, 1, &gear, 1, 0) && recorder.WriteData(message);
      }
    };
    const auto file = std::make_shared<Io::BufferedFileOutputStream>();
    if (!file->Open(L"embed.klog", Io::OpenMode::kCreate) || !recorder.Init(&threads, L"Demo") ||
        !recorder.RegisterClient(&gearbox) || !recorder.SelectForLogging(L"Gearbox") ||
        recorder.notifier.Connect(on_notification) == 0 || !recorder.SetLoggingOutputStream(file) ||
        !recorder.StartLogging()) {
      return 1;
    }
  }
  return written == 2 ? 0 : 1;
}
