// From the first hand-over until everything is in the file: as fast as it goes, at 20 messages a
// millisecond, and at one message each 3 ms. A message has 64 bytes.
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string_view>
#include <thread>
#include <vector>

#include "baseline/recorder.h"
#include "support/contestants.h"
#include "support/payloads.h"
#include "support/product.h"
#include "support/recording.h"
#include "support/settings.h"
#include "support/usage.h"

namespace kestrav::bench {
namespace {

constexpr std::uint32_t kSize = 64;
constexpr std::uint64_t kSaturated = 2'000'000;  // messages, all producers together

// A contestant takes messages from several threads and is done when all of them are in its file.

class Product {
 public:
  explicit Product(const std::string& path) : recording_(OpenOutput(path, Io::OpenMode::kCreate)) {}
  bool IsGood() const { return recording_.IsGood(); }
  bool Write(const std::vector<std::uint8_t>& payload) {
    return recording_.Write(payload.data(), static_cast<std::uint32_t>(payload.size()));
  }
  bool Finish() {
    recording_.Finish();
    return true;
  }

 private:
  Recording recording_;
};

class Straightforward {
 public:
  explicit Straightforward(const std::string& path) {
    baseline::StreamHeader header;
    header.header_key = 0x5A;
    header.data_key = 0xA7;
    good_ = recorder_.Start(path, header);
  }
  bool IsGood() const { return good_; }
  bool Write(const std::vector<std::uint8_t>& payload) {
    recorder_.Write(std::make_shared<baseline::Message>(baseline::Message{1, 1, 0, payload}));
    return true;
  }
  bool Finish() { return recorder_.Finish(); }

 private:
  baseline::Recorder recorder_;
  bool good_ = false;
};

// Its asynchronous logger as it comes: one thread, a queue of 8192 messages that producers wait
// for, and a line with time, name and level for each.
class Spdlog {
 public:
  explicit Spdlog(const std::string& path)
      : pool_(std::make_shared<spdlog::details::thread_pool>(8192, 1)),
        logger_(std::make_shared<spdlog::async_logger>(
            "bench", std::make_shared<spdlog::sinks::basic_file_sink_mt>(path), pool_,
            spdlog::async_overflow_policy::block)) {}
  bool IsGood() const { return true; }
  bool Write(const std::vector<std::uint8_t>& payload) {
    logger_->info(std::string_view(reinterpret_cast<const char*>(payload.data()), payload.size()));
    return true;
  }
  // The queue is worked off before its thread ends; the file is closed with the logger.
  bool Finish() {
    pool_.reset();
    logger_.reset();
    return true;
  }

 private:
  std::shared_ptr<spdlog::details::thread_pool> pool_;
  std::shared_ptr<spdlog::async_logger> logger_;
};

// The pace alone: what is left of a paced figure without a recorder.
class Idle {
 public:
  explicit Idle(const std::string& /*path*/) {}
  bool IsGood() const { return true; }
  bool Write(const std::vector<std::uint8_t>& payload) {
    benchmark::DoNotOptimize(payload.data());
    return true;
  }
  bool Finish() { return true; }
};

void Report(benchmark::State& state, const Usage& usage, std::uint64_t messages) {
  const double seconds = usage.Seconds();
  const double cpu = usage.CpuSeconds();
  const auto count = static_cast<double>(messages);
  state.SetIterationTime(seconds);
  state.counters["messages"] = count;
  state.counters["messages_per_second"] = count / seconds;
  state.counters["cpu_ns_per_message"] = cpu * 1e9 / count;
  state.counters["core_percent"] = 100 * cpu / seconds;
  state.counters["waits_per_message"] = usage.Waits() / count;
}

template <class Contestant>
void Saturated(benchmark::State& state) {
  const auto producers = static_cast<std::uint64_t>(state.range(0));
  const std::uint64_t each = std::max<std::uint64_t>(1, Scaled(kSaturated) / producers);
  const auto payload = Payload(kSize, 0);
  for (auto _ : state) {
    const ScratchFile file("end-to-end");
    Contestant contestant(file.Path());
    std::atomic<bool> good = contestant.IsGood();
    const Usage usage;
    std::vector<std::thread> threads;
    for (std::uint64_t n = 0; n < producers && good; ++n) {
      threads.emplace_back([&] {
        for (std::uint64_t i = 0; i < each; ++i) {
          if (!contestant.Write(payload)) good = false;
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    if (!contestant.Finish()) good = false;
    Report(state, usage, each * producers);
    if (!good) state.SkipWithError("cannot record");
  }
}

// `burst` messages each `period_ms` for a while.
template <class Contestant>
void Paced(benchmark::State& state, std::uint64_t burst, std::uint64_t period_ms) {
  const std::uint64_t periods = std::max<std::uint64_t>(1, Scaled(3000) / period_ms);
  const auto payload = Payload(kSize, 0);
  for (auto _ : state) {
    const ScratchFile file("end-to-end");
    Contestant contestant(file.Path());
    bool good = contestant.IsGood();
    const Usage usage;
    auto next = std::chrono::steady_clock::now();
    for (std::uint64_t i = 0; i < periods; ++i) {
      for (std::uint64_t k = 0; k < burst; ++k) good = contestant.Write(payload) && good;
      next += std::chrono::milliseconds(period_ms);
      std::this_thread::sleep_until(next);
    }
    good = contestant.Finish() && good;
    Report(state, usage, periods * burst);
    if (!good) state.SkipWithError("cannot record");
  }
}

void Configure(benchmark::internal::Benchmark* job) {
  job->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

template <class Contestant>
void Register(const std::string& name) {
  auto* const saturated =
      benchmark::RegisterBenchmark((name + "/saturated").c_str(), Saturated<Contestant>);
  for (const int producers : {1, 2, 4}) saturated->Arg(producers);
  Configure(saturated);
  Configure(benchmark::RegisterBenchmark((name + "/paced").c_str(), Paced<Contestant>, 20, 1));
  Configure(benchmark::RegisterBenchmark((name + "/sparse").c_str(), Paced<Contestant>, 1, 3));
}

}  // namespace

int Main(int argc, char** argv) {
  Register<Product>("product");
  Register<Straightforward>("straightforward");
  Register<Spdlog>("spdlog");
  Configure(benchmark::RegisterBenchmark("idle/paced", Paced<Idle>, 20, 1));
  Configure(benchmark::RegisterBenchmark("idle/sparse", Paced<Idle>, 1, 3));
  return RunChosen(argc, argv);
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
