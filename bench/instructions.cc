// A fixed amount of each hot path for callgrind, which counts the instructions between the marks:
// instructions <path> <count>. One thread and a clock that stands still, so that the count is the
// same every time.
#include <valgrind/callgrind.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string_view>

#include "kestrav/format/decoder.h"
#include "kestrav/format/encoder.h"
#include "kestrav/host/io/memory_stream.h"
#include "kestrav/host/time/manual_source.h"
#include "support/logs.h"
#include "support/noise.h"
#include "support/product.h"
#include "support/recording.h"
#include "support/settings.h"

namespace kestrav::bench {
namespace {

constexpr std::uint32_t kSize = 64;

[[noreturn]] void Fail(const char* what) {
  std::fprintf(stderr, "instructions: %s\n", what);
  std::exit(1);
}

void Check(bool good, const char* what) {
  if (!good) Fail(what);
}

template <class Work>
void Counted(Work&& work) {
  CALLGRIND_TOGGLE_COLLECT;
  work();
  CALLGRIND_TOGGLE_COLLECT;
}

// Keeps the bodies of the threads that it is asked for and runs them when told, one after the
// other, on the caller's thread.
class ThreadsInTurn final : public Thread::ThreadModule {
 public:
  SmartPtr::Ptr<Thread::IThread> Start(const String&, std::function<void()> body,
                                       const Thread::StartOptions&) override {
    bodies_.push_back(std::move(body));
    return std::make_shared<NoThread>();
  }
  void Run() {
    for (const auto& body : std::exchange(bodies_, {})) body();
  }

 private:
  struct NoThread final : Thread::IThread {
    void Join() override {}
    bool IsCurrent() const override { return false; }
  };

  std::vector<std::function<void()>> bodies_;
};

RecordSet SetOf(std::uint64_t count) {
  return RecordSet(kSize, count * (kSize + kRecordHeaderSize));
}

// Hand-over by the clients, then the recording thread's work on all of it.
void Recorder(std::uint64_t count) {
  const ScratchFile file("instructions");
  ThreadsInTurn threads;
  BenchClient client;
  KestravImpl recorder;
  Check(recorder.Init(&threads, L"Bench") && recorder.RegisterClient(&client) &&
            recorder.SelectForLogging(BenchClient::kName) &&
            recorder.SetLoggingOutputStream(OpenOutput(file.Path(), Io::OpenMode::kCreate)) &&
            recorder.StartLogging(),
        "cannot record");
  const auto payload = Payload(kSize, 0);
  bool good = true;
  Counted([&] {
    for (std::uint64_t i = 0; i < count; ++i) {
      good = HandOver(recorder, client.client_id, payload.data(), kSize) && good;
    }
    recorder.StopLogging();
    threads.Run();
  });
  // The recorder's own dictionary and selection are records too.
  Check(good && CountRecords(file.Path()) == count + 2, "messages are missing");
}

void Encoder(std::uint64_t count) {
  const RecordSet set = SetOf(count);
  const Messages messages = MakeMessages(set);
  const ScratchFile file("instructions");
  BinaryEncoder encoder(OpenOutput(file.Path(), Io::OpenMode::kCreate));
  Check(encoder.Start(1), "cannot start");
  bool good = true;
  Counted([&] {
    for (std::uint64_t i = 0; i < count; ++i) {
      good = encoder.WriteBinaryLogRecord(messages[i % messages.size()]) && good;
    }
  });
  Check(good, "a record was refused");
}

void Decoder(std::uint64_t count) {
  const ScratchFile file("instructions");
  Check(WriteLog(file.Path(), SetOf(count), true), "cannot write");
  std::uint64_t records = 0;
  Counted([&] { records = CountRecords(file.Path()); });
  Check(records == count + 1, "records are missing");
}

// Bytes in which a marker turns up as often as by chance, but never a header.
void Scan(std::uint64_t count) {
  Bytes bytes = RandomBytes(count);
  SpoilHeaders(bytes, 0);
  BinaryDecoder decoder(std::make_shared<Io::MemoryInputStream>(
      bytes.data(), static_cast<std::uint32_t>(bytes.size())));
  ResultCode result = kSuccess;
  Counted([&] { result = decoder.ScanForNextValidHeader(); });
  Check(result == kDamaged, "a record was found");
}

void Dispatch(std::uint64_t count) {
  const ScratchFile file("instructions");
  Check(WriteLog(file.Path(), SetOf(count), true), "cannot write");
  Thread::ThreadModule threads;
  BenchClient client;
  KestravImpl engine;
  unsigned length_ms = 0;
  unsigned size = 0;
  std::vector<String> clients;
  Check(engine.Init(&threads, L"Bench") && engine.RegisterClient(&client) &&
            engine.SetPlaybackMode(PlaybackModePolling) &&
            engine.SetPlaybackInputStream(OpenInput(file.Path())) &&
            engine.GetPlaybackAttributes(length_ms, size, clients) &&
            engine.SelectForPlayback(BenchClient::kName) && engine.StartPlayback(),
        "cannot play");
  Counted([&] {
    for (std::uint64_t i = 0; i < count; ++i) Check(engine.PlaybackNextMessage(), "it stopped");
  });
  Check(client.deliveries == count, "records are missing");
  engine.StopPlayback(true);
}

}  // namespace

int Main(int argc, char** argv) {
  const std::pair<std::string_view, void (*)(std::uint64_t)> paths[] = {
      {"recorder", Recorder}, {"encoder", Encoder},   {"decoder", Decoder},
      {"scan", Scan},         {"dispatch", Dispatch},
  };
  Time::ManualSource clock;
  Time::ISource* const before = Time::SetSource(&clock);
  bool ran = false;
  for (const auto& [name, run] : paths) {
    if (argc != 3 || name != argv[1]) continue;
    run(std::strtoull(argv[2], nullptr, 10));
    ran = true;
  }
  Time::SetSource(before);
  if (!ran) Fail("usage: instructions recorder|encoder|decoder|scan|dispatch <count>");
  return 0;
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
