#ifndef KESTRAV_BENCH_SUPPORT_CONTESTANTS_H_
#define KESTRAV_BENCH_SUPPORT_CONTESTANTS_H_

#include <benchmark/benchmark.h>

#include <utility>
#include <vector>

namespace kestrav::bench {

// Names and what to measure.
using Contestants = std::vector<std::pair<const char*, void (*)(benchmark::State&)>>;

// Runs what the program's arguments choose of the registered benchmarks.
inline int RunChosen(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace kestrav::bench

#endif  // KESTRAV_BENCH_SUPPORT_CONTESTANTS_H_
