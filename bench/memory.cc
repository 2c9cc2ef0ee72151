// Whether the recorder's memory stays as it is: through a minute of a million messages a second,
// and from one burst that piles up in front of a stalled disk to the next.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <utility>

#include "support/contestants.h"
#include "support/payloads.h"
#include "support/product.h"
#include "support/recording.h"
#include "support/settings.h"
#include "support/usage.h"

namespace kestrav::bench {
namespace {

using Clock = std::chrono::steady_clock;

// The process's own memory; the pages of the log are not in it.
double AnonymousMiB() {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    double kib = 0;
    if (word == "RssAnon:" && status >> kib) return kib / 1024;
  }
  std::abort();
}

// 32 bytes a message, so that a minute fits into one log.
void Steady(benchmark::State& state) {
  constexpr std::uint64_t kMessagesPerMs = 1000;
  constexpr std::uint64_t kDurationMs = 60'000;
  constexpr std::uint64_t kLookEachMs = 250;
  const std::uint64_t duration_ms = Scaled(kDurationMs);
  const auto payload = Payload(32, 0);
  for (auto _ : state) {
    const ScratchFile file("memory");
    Recording recording(OpenOutput(file.Path(), Io::OpenMode::kCreate));
    bool good = recording.IsGood();
    std::vector<double> memory;
    const Usage usage;
    for (std::uint64_t ms = 0; ms < duration_ms && good; ++ms) {
      for (std::uint64_t i = 0; i < kMessagesPerMs; ++i) {
        good = recording.Write(payload.data(), 32) && good;
      }
      if (ms % kLookEachMs == 0) memory.push_back(AnonymousMiB());
      std::this_thread::sleep_until(usage.Begin() + std::chrono::milliseconds(ms + 1));
    }
    memory.push_back(AnonymousMiB());
    const double seconds = usage.Seconds();
    recording.Finish();
    // The first tenth is allowed to fill what is then used again and again.
    const auto settled = memory.begin() + static_cast<std::ptrdiff_t>(memory.size() / 10);
    const double before = *std::max_element(memory.begin(), settled + 1);
    const double peak = *std::max_element(settled, memory.end());
    state.counters["settled_MiB"] = before;
    state.counters["peak_MiB"] = peak;
    state.counters["growth_MiB"] = peak - before;
    state.counters["messages_per_second"] =
        static_cast<double>(duration_ms * kMessagesPerMs) / seconds;
    if (!good) state.SkipWithError("cannot record");
  }
}

// Hands everything to a file, except while it is stalled. Writes wait meanwhile.
class StallingStream final : public Io::IOutputStream {
 public:
  explicit StallingStream(SmartPtr::Ptr<Io::IOutputStream> file) : file_(std::move(file)) {}

  bool Write(const std::uint8_t* data, std::uint32_t size) override {
    stalled_.wait(true);
    if (!file_->Write(data, size)) return false;
    taken_ += size;
    taken_.notify_all();
    return true;
  }
  bool Seek(std::uint32_t position) override { return file_->Seek(position); }
  std::uint32_t Position() const override { return file_->Position(); }
  bool Flush() override { return file_->Flush(); }

  void Stall() { stalled_ = true; }
  void GoOn() {
    stalled_ = false;
    stalled_.notify_all();
  }
  std::uint64_t Taken() const { return taken_; }
  void WaitFor(std::uint64_t bytes) const {
    for (std::uint64_t now = taken_; now < bytes; now = taken_) taken_.wait(now);
  }

 private:
  SmartPtr::Ptr<Io::IOutputStream> file_;
  std::atomic<bool> stalled_ = false;
  std::atomic<std::uint64_t> taken_ = 0;
};

void Bursts(benchmark::State& state) {
  constexpr int kBursts = 5;
  const std::uint64_t messages = Scaled(1'000'000);
  const auto payload = Payload(64, 0);
  for (auto _ : state) {
    const ScratchFile file("memory");
    const auto stream =
        std::make_shared<StallingStream>(OpenOutput(file.Path(), Io::OpenMode::kCreate));
    Recording recording(stream);
    bool good = recording.IsGood();
    std::vector<double> peaks;
    std::vector<double> afterwards;
    for (int burst = 0; burst < kBursts; ++burst) {
      const std::uint64_t all = stream->Taken() + messages * (64 + kRecordHeaderSize);
      stream->Stall();
      for (std::uint64_t i = 0; i < messages; ++i) {
        good = recording.Write(payload.data(), 64) && good;
      }
      peaks.push_back(AnonymousMiB());
      stream->GoOn();
      stream->WaitFor(all);
      afterwards.push_back(AnonymousMiB());
    }
    recording.Finish();
    state.counters["first_peak_MiB"] = peaks.front();
    state.counters["last_peak_MiB"] = peaks.back();
    state.counters["growth_percent"] = 100 * (peaks.back() - peaks.front()) / peaks.front();
    state.counters["afterwards_MiB"] = afterwards.back();
    if (!good) state.SkipWithError("cannot record");
  }
}

}  // namespace

int Main(int argc, char** argv) {
  for (const auto& [name, run] :
       Contestants{{"product/steady", Steady}, {"product/bursts", Bursts}}) {
    benchmark::RegisterBenchmark(name, run)->Iterations(1)->UseRealTime()->Unit(
        benchmark::kMillisecond);
  }
  return RunChosen(argc, argv);
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
