// What a client's hand-over of 64 bytes costs it while the log is written to memory: create a
// message, fill it, hand it over, let go of it.
//
// The median comes from batches of calls under one pair of clock readings, the tail from single
// calls; both are taken in the same way for all contestants, and nothing is subtracted. What an
// empty call measures is a contestant of its own.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <thread>

#include "baseline/recorder.h"
#include "support/contestants.h"
#include "support/payloads.h"
#include "support/product.h"
#include "support/recording.h"
#include "support/settings.h"

namespace kestrav::bench {
namespace {

constexpr std::uint32_t kSize = 64;
constexpr std::uint64_t kBatch = 16;
constexpr std::uint64_t kBatches = 10'000;
constexpr std::uint64_t kSingles = 100'000;
constexpr std::uint64_t kWarmUp = 20'000;

using Clock = std::chrono::steady_clock;
using Samples = std::vector<float>;  // nanoseconds a call

float Percentile(Samples& samples, double share) {
  const auto at = samples.begin() +
                  static_cast<std::ptrdiff_t>(share * static_cast<double>(samples.size() - 1));
  std::nth_element(samples.begin(), at, samples.end());
  return *at;
}

template <class Call>
void Sample(std::uint64_t samples, std::uint64_t batch, Call& call, Samples& out) {
  out.reserve(samples);
  for (std::uint64_t i = 0; i < samples; ++i) {
    const auto start = Clock::now();
    for (std::uint64_t k = 0; k < batch; ++k) call();
    const std::chrono::duration<float, std::nano> taken = Clock::now() - start;
    out.push_back(taken.count() / static_cast<float>(batch));
  }
}

// Each thread calls what its own `make_call()` returns.
template <class MakeCall>
void Measure(benchmark::State& state, MakeCall&& make_call) {
  const auto threads = static_cast<std::size_t>(state.range(0));
  std::vector<Samples> batches(threads);
  std::vector<Samples> singles(threads);
  for (auto _ : state) {
    std::vector<std::thread> running;
    for (std::size_t n = 0; n < threads; ++n) {
      running.emplace_back([&, n] {
        auto call = make_call();
        for (std::uint64_t i = Scaled(kWarmUp); i > 0; --i) call();
        Sample(Scaled(kBatches), kBatch, call, batches[n]);
        Sample(Scaled(kSingles), 1, call, singles[n]);
      });
    }
    for (std::thread& thread : running) thread.join();
  }
  for (std::size_t n = 1; n < threads; ++n) {
    batches[0].insert(batches[0].end(), batches[n].begin(), batches[n].end());
    singles[0].insert(singles[0].end(), singles[n].begin(), singles[n].end());
  }
  state.counters["p50_ns"] = Percentile(batches[0], 0.5);
  state.counters["single_p50_ns"] = Percentile(singles[0], 0.5);
  state.counters["single_p99_ns"] = Percentile(singles[0], 0.99);
}

void Product(benchmark::State& state) {
  const ScratchFile file("handover");
  Recording recording(OpenOutput(file.Path(), Io::OpenMode::kCreate));
  if (!recording.IsGood()) return state.SkipWithError("cannot record");
  const auto payload = Payload(kSize, 0);
  std::atomic<bool> good = true;
  Measure(state, [&] {
    return [&] {
      if (!recording.Write(payload.data(), kSize)) good = false;
    };
  });
  recording.Finish();
  if (!good) state.SkipWithError("refused");
}

void Straightforward(benchmark::State& state) {
  const ScratchFile file("handover");
  baseline::StreamHeader header;
  header.header_key = 0x5A;
  header.data_key = 0xA7;
  baseline::Recorder recorder;
  if (!recorder.Start(file.Path(), header)) return state.SkipWithError("cannot record");
  const auto payload = Payload(kSize, 0);
  Measure(state, [&] {
    return [&] {
      recorder.Write(std::make_shared<baseline::Message>(baseline::Message{1, 1, 0, payload}));
    };
  });
  if (!recorder.Finish()) state.SkipWithError("cannot write");
}

// Floor: a mutex that nobody else wants, memory for the payload and a copy of it.
void Floor(benchmark::State& state) {
  const auto payload = Payload(kSize, 0);
  Measure(state, [&] {
    return [&, mutex = std::make_unique<std::mutex>()] {
      void* const copy = std::malloc(kSize);
      std::memcpy(copy, payload.data(), kSize);
      benchmark::DoNotOptimize(copy);
      benchmark::ClobberMemory();
      mutex->lock();
      mutex->unlock();
      std::free(copy);
    };
  });
}

// What the clock itself adds to a sample.
void Nothing(benchmark::State& state) {
  Measure(state, [] { return [] { benchmark::ClobberMemory(); }; });
}

}  // namespace

int Main(int argc, char** argv) {
  for (const auto& [name, run] : Contestants{{"product", Product},
                                             {"straightforward", Straightforward},
                                             {"floor", Floor},
                                             {"clock", Nothing}}) {
    auto* const job = benchmark::RegisterBenchmark(name, run);
    for (const int threads : {1, 2, 4}) job->Arg(threads);
    job->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
  }
  return RunChosen(argc, argv);
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
