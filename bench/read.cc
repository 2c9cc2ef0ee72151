// Reading every record of a log that is in memory: header and payload checked, unscrambled and
// delivered into a message.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "baseline/reader.h"
#include "kestrav/format/decoder.h"
#include "support/contestants.h"
#include "support/logs.h"
#include "support/payloads.h"
#include "support/product.h"
#include "support/settings.h"

namespace kestrav::bench {
namespace {

constexpr std::uint64_t kBytes = 128 << 20;

// Writes a log and calls `read` with its path, once to warm up, then as often as wanted. `read`
// answers how many records of the set's payload size it saw.
template <class Read>
void Measure(benchmark::State& state, Read&& read) {
  const RecordSet set(static_cast<std::uint32_t>(state.range(0)), Scaled(kBytes));
  const ScratchFile file("read");
  if (!WriteLog(file.Path(), set, true)) return state.SkipWithError("cannot write");
  if (read(file.Path(), set) != set.records) return state.SkipWithError("records are missing");
  for (auto _ : state) {
    if (read(file.Path(), set) != set.records) state.SkipWithError("records are missing");
  }
  const auto passes = static_cast<std::int64_t>(state.iterations());
  state.SetBytesProcessed(passes * static_cast<std::int64_t>(set.Bytes()));
  state.SetItemsProcessed(passes * static_cast<std::int64_t>(set.records));
}

void Product(benchmark::State& state) {
  Measure(state, [](const std::string& path, const RecordSet& set) {
    std::uint64_t records = 0;
    BinaryDecoder decoder(OpenInput(path));
    if (!decoder.Initialize()) return records;
    LogMessage message;
    while (decoder.GetNextLogRecord(message) == kSuccess) {
      records += message.GetDataSize() == set.payload_size;
    }
    return records;
  });
}

void Straightforward(benchmark::State& state) {
  Measure(state, [](const std::string& path, const RecordSet& set) {
    std::uint64_t records = 0;
    baseline::Reader reader;
    if (!reader.Open(path)) return records;
    baseline::Message message;
    while (reader.Next(message)) records += message.payload.size() == set.payload_size;
    return records;
  });
}

// The XOR of all bytes, 64 at a time.
std::uint64_t XorAll(const std::uint8_t* data, std::size_t size) {
  using Vector = std::uint64_t __attribute__((vector_size(16)));
  Vector sums[4] = {};
  std::size_t done = 0;
  for (; size - done >= sizeof(sums); done += sizeof(sums)) {
    Vector words[4];
    std::memcpy(words, data + done, sizeof(words));
    for (int i = 0; i < 4; ++i) sums[i] ^= words[i];
  }
  const Vector sum = sums[0] ^ sums[1] ^ sums[2] ^ sums[3];
  std::uint64_t result = sum[0] ^ sum[1];
  for (; done < size; ++done) result ^= data[done];
  return result;
}

// Floor: the file mapped and every byte looked at once.
void MmapXor(benchmark::State& state) {
  Measure(state, [](const std::string& path, const RecordSet& set) -> std::uint64_t {
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    const off_t end = lseek(descriptor, 0, SEEK_END);
    const auto size = static_cast<std::size_t>(end);
    void* const map = mmap(nullptr, size, PROT_READ, MAP_SHARED, descriptor, 0);
    if (descriptor < 0 || map == MAP_FAILED) return 0;
    benchmark::DoNotOptimize(XorAll(static_cast<const std::uint8_t*>(map), size));
    munmap(map, size);
    close(descriptor);
    return size >= set.Bytes() ? set.records : 0;
  });
}

}  // namespace

int Main(int argc, char** argv) {
  for (const auto& [name, run] : Contestants{
           {"product", Product}, {"straightforward", Straightforward}, {"mmap_xor", MmapXor}}) {
    auto* const job = benchmark::RegisterBenchmark(name, run);
    for (const std::uint32_t size : kPayloadSizes) job->Arg(size);
    job->Iterations(4)->UseRealTime()->Unit(benchmark::kMillisecond);
  }
  return RunChosen(argc, argv);
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
