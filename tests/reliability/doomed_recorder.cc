#include "reliability/doomed_recorder.h"

#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "kestrav/engine/kestrav_impl.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/host/thread/thread_module.h"
#include "support/failing_files.h"
#include "support/messages.h"
#include "support/recording_client.h"

namespace kestrav::test {
namespace {

using std::chrono::microseconds;
using std::chrono::milliseconds;

constexpr std::uint32_t kQuietWriter = 0;
constexpr milliseconds kQuietPace{20};

// Notes what the recorder had made records of when a write began, once the system has taken it.
// The recording thread alone writes.
class WriteWatch {
 public:
  explicit WriteWatch(Progress& progress) : progress_(progress) {
    files_.Watch([this](const FileAccess& access) {
      if (access.call != FileCall::kPwrite) return;
      for (std::size_t i = 0; i < made_.size(); ++i) made_[i] = progress_.writers[i].let_go;
    });
    files_.WatchResults([this](const FileAccess& access, std::int64_t result) {
      if (access.call != FileCall::kPwrite || result < 0) return;
      if (static_cast<std::uint64_t>(result) != access.size) return;
      for (std::size_t i = 0; i < made_.size(); ++i) progress_.writers[i].written = made_[i];
    });
  }

 private:
  Progress& progress_;
  VouchedPayload::Counts made_ = {};
  FailingFiles files_;
};

class Writer {
 public:
  Writer(IKestrav& engine, Progress& progress, std::uint32_t number, std::uint32_t seed)
      : client(L"Writer " + std::to_wstring(number)),
        engine_(engine),
        progress_(progress),
        number_(number),
        random_(seed * VouchedPayload::kWriters + number) {}

  [[noreturn]] void Run() {
    for (;;) {
      if (number_ == kQuietWriter) {
        Write();
        std::this_thread::sleep_for(kQuietPace);
      } else {
        // Now and then so many that the queue does not run dry in between.
        const auto burst = random_() % 20 == 0 ? 600 : random_() % 60;
        for (auto left = burst; left > 0; --left) Write();
        std::this_thread::sleep_for(microseconds(random_() % 10'000));
      }
    }
  }

  RecordingClient client;

 private:
  void Write() {
    if (progress_.rest_wanted) Rest();
    Progress::Writer& mine = progress_.writers[number_];
    VouchedPayload payload{number_, mine.begun, {}};
    for (std::size_t i = 0; i < payload.seen.size(); ++i) {
      payload.seen[i] = progress_.writers[i].accepted;
    }
    SmartPtr::Ptr<LogMessage> message(
        new LogMessage(std::move(*MakeMessage(client.client_id, 1, payload.Encode()))),
        [&mine](LogMessage* taken) {
          ++mine.let_go;
          delete taken;
        });
    ++mine.begun;
    if (!engine_.WriteData(message)) {
      progress_.stage = Progress::kFailed;
      Rest();
    }
    ++mine.accepted;
  }

  [[noreturn]] void Rest() {
    ++progress_.resting;
    for (;;) ::pause();
  }

  IKestrav& engine_;
  Progress& progress_;
  const std::uint32_t number_;
  std::mt19937 random_;
};

}  // namespace

SharedProgress::SharedProgress() {
  void* const memory =
      ::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) std::abort();
  progress_ = new (memory) Progress();
}

SharedProgress::~SharedProgress() { ::munmap(progress_, sizeof(Progress)); }

void RecordUntilKilled(const String& path, std::uint32_t seed, bool scrambled, Progress& progress) {
  const WriteWatch watch(progress);
  Thread::ThreadModule threads;
  KestravImpl engine;
  bool good = engine.Init(&threads, L"Doomed") && engine.EnableEncryption(scrambled);
  std::vector<std::unique_ptr<Writer>> writers;
  for (std::uint32_t i = 0; i < VouchedPayload::kWriters; ++i) {
    writers.push_back(std::make_unique<Writer>(engine, progress, i, seed));
    good = good && engine.RegisterClient(&writers.back()->client) &&
           engine.SelectForLogging(writers.back()->client.string_id);
  }
  // A message that stands in front of the log's start has a time before it.
  std::atomic<bool> log_runs = false;
  good = good && engine.notifier.Connect([&](const NotificationInfo& info) {
    if (info.id == NotifyLoggingStarted) log_runs = true;
    log_runs.notify_all();
  }) != 0;
  const auto stream = std::make_shared<Io::BufferedFileOutputStream>();
  good = good && stream->Open(path, Io::OpenMode::kCreate) &&
         engine.SetLoggingOutputStream(stream) && engine.StartLogging();
  if (good) log_runs.wait(false);
  progress.stage = good ? Progress::kRecording : Progress::kFailed;
  std::vector<std::thread> running;
  for (const auto& writer : writers) running.emplace_back([&writer] { writer->Run(); });
  for (;;) ::pause();
}

}  // namespace kestrav::test
