// What an engineer at a desk waits for on a log of 2 GB: three real drives, one after the other.
//
// The log and its index are kept in KESTRAV_BENCH_CACHE from one run to the next.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "kestrav/format/decoder.h"
#include "kestrav/format/encoder.h"
#include "kestrav/host/time/manual_source.h"
#include "support/contestants.h"
#include "support/logs.h"
#include "support/product.h"
#include "support/settings.h"

extern char** environ;

namespace kestrav::bench {
namespace {

using Arguments = std::vector<std::string>;

struct Ran {
  bool good = false;
  double ms = 0;
  double peak_mib = 0;  // mapped pages of files among them
};

Ran RunTool(Arguments arguments) {
  arguments.insert(arguments.begin(), KESTRAV_TOOL);
  std::vector<char*> pointers;
  for (std::string& argument : arguments) pointers.push_back(argument.data());
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  int status = 0;
  rusage usage{};
  Ran ran;
  ran.good = posix_spawn(&child, pointers[0], &actions, nullptr, pointers.data(), environ) == 0 &&
             wait4(child, &status, 0, &usage) == child && status == 0;
  const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
  posix_spawn_file_actions_destroy(&actions);
  ran.ms = took.count();
  ran.peak_mib = static_cast<double>(usage.ru_maxrss) / 1024;
  return ran;
}

Messages ReadLog(const std::string& path) {
  BinaryDecoder decoder(OpenInput(path));
  Messages messages;
  if (!decoder.Initialize()) return messages;
  for (auto message = MakeMessage(); decoder.GetNextLogRecord(*message) == kSuccess;
       message = MakeMessage()) {
    messages.push_back(message);
  }
  return messages;
}

// Writes the records again and again, each time later, until there are so many bytes.
bool Repeat(const Messages& drive, const std::string& path, std::uint64_t bytes) {
  const auto stream = OpenOutput(path, Io::OpenMode::kCreate);
  if (stream == nullptr || drive.empty()) return false;
  constexpr std::uint32_t kPauseMs = 1000;
  const std::uint32_t start_ms = drive.front()->time_stamp;
  const std::uint32_t length_ms = drive.back()->time_stamp - start_ms + kPauseMs;
  Time::ManualSource clock(start_ms);
  Time::ISource* const before = Time::SetSource(&clock);
  BinaryEncoder encoder(stream);
  encoder.EnableEncryption(true);
  bool good = encoder.Start(~std::uint64_t{0});
  while (good && stream->Position() < bytes) {
    for (const auto& message : drive) {
      good = good && encoder.WriteBinaryLogRecord(message);
      message->time_stamp += length_ms;
    }
    clock.MoveTo(clock.ElapsedMs() + length_ms);
  }
  encoder.Stop();
  Time::SetSource(before);
  return stream->Close() && good;
}

// Empty: it cannot be made.
std::string CachedLog() {
  const std::uint64_t bytes = Scaled(std::uint64_t{2} << 30);
  const char* const cache = std::getenv("KESTRAV_BENCH_CACHE");
  const std::string path =
      (cache != nullptr ? cache : ".") + std::string("/desk-") + std::to_string(bytes) + ".klog";
  std::error_code error;
  if (!std::filesystem::exists(path, error)) {
    const std::string unfinished = path + ".part";
    const ScratchFile drive("drive.klog");
    const std::string data = KESTRAV_DATA;
    if (!RunTool({"import", "-o", drive.Path(), "GPS=nmea:" + data + "/gnss-mountainview.nmea",
                  "CAN=candump:" + data + "/can-falcon.log",
                  "IMU=csv:" + data + "/imu-dresden.csv"})
             .good ||
        !Repeat(ReadLog(drive.Path()), unfinished, bytes)) {
      return "";
    }
    std::filesystem::rename(unfinished, path, error);
    if (error) return "";
  }
  return RunTool({"index", path}).good ? path : "";
}

double LengthOf(const std::string& log) {
  BinaryDecoder decoder(OpenInput(log));
  return decoder.Initialize() ? decoder.StreamHeader().recording_duration / 1000.0 : 0;
}

// One second of the log, at places all over it.
void Second(benchmark::State& state, const char* command) {
  const std::string log = CachedLog();
  if (log.empty()) return state.SkipWithError("cannot make the log");
  constexpr int kLastPlace = 20;
  const ScratchFile out("second.klog");
  double slowest = 0;
  for (auto _ : state) {
    for (int place = 0; place <= kLastPlace; ++place) {
      const double from = LengthOf(log) * place / kLastPlace;
      Arguments arguments = {
          command, log, "--from", std::to_string(from), "--to", std::to_string(from + 1)};
      if (command == std::string("trim")) arguments.insert(arguments.end(), {"-o", out.Path()});
      const Ran ran = RunTool(arguments);
      if (!ran.good) return state.SkipWithError("the tool failed");
      slowest = std::max(slowest, ran.ms);
    }
  }
  state.counters["slowest_ms"] = slowest;
}

void Scan(benchmark::State& state) {
  const std::string log = CachedLog();
  if (log.empty()) return state.SkipWithError("cannot make the log");
  constexpr int kTimes = 20;
  double slowest = 0;
  for (auto _ : state) {
    for (int time = 0; time < kTimes; ++time) {
      const Ran ran = RunTool({"info", "--scan", log});
      if (!ran.good) return state.SkipWithError("the tool failed");
      slowest = std::max(slowest, ran.ms);
    }
  }
  state.counters["slowest_ms"] = slowest;
}

// All of the log.
void Whole(benchmark::State& state, const Arguments& words) {
  const std::string log = CachedLog();
  if (log.empty()) return state.SkipWithError("cannot make the log");
  const ScratchFile out("whole");
  Arguments arguments = words;
  arguments.insert(arguments.end(), {log, "-o", out.Path()});
  const auto megabytes = static_cast<double>(std::filesystem::file_size(log)) / 1e6;
  for (auto _ : state) {
    const Ran ran = RunTool(arguments);
    if (!ran.good) return state.SkipWithError("the tool failed");
    state.counters["MB_per_s"] = megabytes / (ran.ms / 1000);
    state.counters["peak_MiB"] = ran.peak_mib;
  }
}

void RegisterSecond(const std::string& command) {
  benchmark::RegisterBenchmark(
      (command + "/second").c_str(),
      [command](benchmark::State& state) { Second(state, command.c_str()); })
      ->Iterations(1)
      ->UseRealTime();
}

void RegisterWhole(const std::string& name, const Arguments& words) {
  benchmark::RegisterBenchmark((name + "/all").c_str(), Whole, words)->Iterations(1)->UseRealTime();
}

}  // namespace

int Main(int argc, char** argv) {
  benchmark::RegisterBenchmark("scan/all", Scan)->Iterations(1)->UseRealTime();
  RegisterSecond("cat");
  RegisterSecond("trim");
  RegisterWhole("csv", {"export", "--to", "csv"});
  RegisterWhole("jsonl", {"export", "--to", "jsonl"});
  RegisterWhole("report", {"report"});
  return RunChosen(argc, argv);
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
