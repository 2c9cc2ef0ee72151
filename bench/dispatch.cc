// Normal playback without pacing to one client: how many records of 64 bytes it is given a second.
#include <benchmark/benchmark.h>

#include "kestrav/format/decoder.h"
#include "support/contestants.h"
#include "support/logs.h"
#include "support/payloads.h"
#include "support/product.h"
#include "support/recording.h"
#include "support/settings.h"

namespace kestrav::bench {
namespace {

constexpr std::uint64_t kBytes = 128 << 20;

// Plays a log from its start to its end.
class Player {
 public:
  Player() {
    good_ = engine_.Init(&threads_, L"Bench") && engine_.RegisterClient(&client_);
    const auto observe = [this](const NotificationInfo& info) {
      if (info.id == NotifyEndOfLog || info.id == NotifyPlaybackStopped) ended_->Set();
    };
    good_ = good_ && engine_.notifier.Connect(observe) != 0;
  }

  // Everything up to the start. false: the log cannot be played.
  bool Prepare(const std::string& path) {
    ended_ = std::make_unique<Signal>();
    unsigned length_ms = 0;
    unsigned size = 0;
    std::vector<String> clients;
    return good_ && engine_.SetPlaybackInputStream(OpenInput(path)) &&
           engine_.GetPlaybackAttributes(length_ms, size, clients) &&
           engine_.SelectForPlayback(BenchClient::kName) &&
           engine_.SetStartPlaybackSpeed(PlaybackSpeedStopped);
  }
  // The records that the client was given.
  std::uint64_t Play() {
    const std::uint64_t before = client_.deliveries;
    if (!engine_.StartPlayback()) return 0;
    ended_->Wait();
    return client_.deliveries - before;
  }
  void Stop() { engine_.StopPlayback(true); }

 private:
  std::unique_ptr<Signal> ended_;
  Thread::ThreadModule threads_;
  BenchClient client_;
  KestravImpl engine_;
  bool good_ = false;
};

void Product(benchmark::State& state) {
  const RecordSet set(64, Scaled(kBytes));
  const ScratchFile file("dispatch");
  if (!WriteLog(file.Path(), set, true)) return state.SkipWithError("cannot write");
  Player player;
  for (auto _ : state) {
    state.PauseTiming();
    const bool ready = player.Prepare(file.Path());
    state.ResumeTiming();
    if (!ready || player.Play() != set.records) state.SkipWithError("records are missing");
    state.PauseTiming();
    player.Stop();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * set.records));
}

// The decoder alone: what of a dispatch is reading.
void Decoder(benchmark::State& state) {
  const RecordSet set(64, Scaled(kBytes));
  const ScratchFile file("dispatch");
  if (!WriteLog(file.Path(), set, true)) return state.SkipWithError("cannot write");
  for (auto _ : state) {
    // The dictionary is a record too.
    if (CountRecords(file.Path()) != set.records + 1) state.SkipWithError("records are missing");
  }
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * set.records));
}

}  // namespace

int Main(int argc, char** argv) {
  for (const auto& [name, run] : Contestants{{"product", Product}, {"decoder", Decoder}}) {
    auto* const job = benchmark::RegisterBenchmark(name, run);
    job->Arg(64)->Iterations(4)->UseRealTime()->Unit(benchmark::kMillisecond);
  }
  return RunChosen(argc, argv);
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
