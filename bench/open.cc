// Opening a log of 2 GB: the command-line tool's `info` from its start to its end, and of it the
// opening alone.
//
// The log is kept in KESTRAV_BENCH_CACHE from one run to the next.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "kestrav/format/decoder.h"
#include "support/contestants.h"
#include "support/logs.h"
#include "support/product.h"
#include "support/settings.h"

extern char** environ;

namespace kestrav::bench {
namespace {

std::string CachedLog() {
  const RecordSet set(4096, Scaled(std::uint64_t{2} << 30));
  const char* const cache = std::getenv("KESTRAV_BENCH_CACHE");
  const std::string path = (cache != nullptr ? cache : ".") + std::string("/open-") +
                           std::to_string(set.Bytes()) + ".klog";
  std::error_code error;
  if (std::filesystem::file_size(path, error) >= set.Bytes() && !error) return path;
  const std::string unfinished = path + ".part";
  if (!WriteLog(unfinished, set, true)) return "";
  std::filesystem::rename(unfinished, path, error);
  return error ? "" : path;
}

bool RunInfo(const std::string& log) {
  std::string tool = KESTRAV_TOOL;
  std::string command = "info";
  std::string path = log;
  char* const arguments[] = {tool.data(), command.data(), path.data(), nullptr};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  int status = 0;
  const bool ran = posix_spawn(&child, tool.c_str(), &actions, nullptr, arguments, environ) == 0 &&
                   waitpid(child, &status, 0) == child && status == 0;
  posix_spawn_file_actions_destroy(&actions);
  return ran;
}

bool Open(const std::string& log) {
  BinaryDecoder decoder(OpenInput(log));
  LogMessage message;
  return decoder.Initialize() && decoder.GetNextLogRecord(message) == kSuccess;
}

void Measure(benchmark::State& state, bool (*run)(const std::string&)) {
  const std::string log = CachedLog();
  if (log.empty()) return state.SkipWithError("cannot write");
  for (auto _ : state) {
    if (!run(log)) state.SkipWithError("cannot read");
  }
}

void Register(const char* name, bool (*run)(const std::string&)) {
  benchmark::RegisterBenchmark(name, Measure, run)
      ->Iterations(20)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
}

}  // namespace

int Main(int argc, char** argv) {
  Register("info/2GB", RunInfo);
  Register("decoder/2GB", Open);
  return RunChosen(argc, argv);
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
