// Finding the way through damage: positions of all records that a scan finds in bytes without
// order. Both contestants must find the same ones; the hash of the positions is compared.
//
// Files: `random` bytes, where a chance header now and then makes the scan read up to the end for
// its payload; `noise`, the same without chance headers; `markers`, nothing but the byte that a
// header starts with. In the first two a sound record stands about every 4 MiB.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>

#include "baseline/reader.h"
#include "kestrav/format/decoder.h"
#include "support/contestants.h"
#include "support/noise.h"
#include "support/payloads.h"
#include "support/product.h"
#include "support/settings.h"

namespace kestrav::bench {
namespace {

enum class Content { kRandom, kNoise, kMarkers };

constexpr std::uint64_t kRandomBytes = 256 << 20;
constexpr std::uint64_t kMarkerBytes = 32 << 20;
constexpr std::uint64_t kRecordEvery = 4 << 20;
constexpr std::uint8_t kHeaderKey = 0x5A;
constexpr std::uint8_t kDataKey = 0xA7;

void PlantRecords(Bytes& bytes, std::uint8_t header_key, std::uint8_t data_key) {
  for (std::size_t at = kRecordEvery; at + 4096 < bytes.size(); at += kRecordEvery + 17) {
    auto payload = Payload(64, static_cast<std::uint32_t>(at));
    baseline::RecordHeader header;
    header.payload_size = static_cast<std::uint32_t>(payload.size());
    header.payload_checksum = baseline::Checksum(payload.data(), payload.size());
    Bytes record;
    baseline::Serialize(header, record);
    baseline::Scramble(record.data(), record.size(), header_key, 0);
    baseline::Scramble(payload.data(), payload.size(), data_key, 0);
    record.insert(record.end(), payload.begin(), payload.end());
    std::memcpy(&bytes[at], record.data(), record.size());
  }
}

bool WriteDamage(const std::string& path, Content content, bool scrambled) {
  baseline::StreamHeader stream;
  if (scrambled) {
    stream.header_key = kHeaderKey;
    stream.data_key = kDataKey;
  }
  Bytes bytes;
  if (content == Content::kMarkers) {
    bytes.assign(Scaled(kMarkerBytes), baseline::kMarker);
  } else {
    bytes = RandomBytes(Scaled(kRandomBytes));
    if (content == Content::kNoise) SpoilHeaders(bytes, stream.header_key);
    PlantRecords(bytes, stream.header_key, stream.data_key);
  }
  const Bytes start = baseline::Serialize(stream);
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return false;
  const bool written = std::fwrite(start.data(), 1, start.size(), file) == start.size() &&
                       std::fwrite(bytes.data(), 1, bytes.size(), file) == bytes.size();
  return std::fclose(file) == 0 && written;
}

// Positions in the order in which they are found.
class Positions {
 public:
  void Add(std::uint64_t position) {
    ++count_;
    hash_ = (hash_ ^ position) * 0x100000001B3;
  }
  void Report(benchmark::State& state) const {
    state.counters["found"] = static_cast<double>(count_);
    // A double holds 52 of its bits.
    state.counters["positions_hash"] = static_cast<double>(hash_ >> 12);
  }

 private:
  std::uint64_t count_ = 0;
  std::uint64_t hash_ = 0xCBF29CE484222325;
};

template <class Scan>
void Measure(benchmark::State& state, Content content, bool scrambled, Scan&& scan) {
  const ScratchFile file("resync");
  if (!WriteDamage(file.Path(), content, scrambled)) return state.SkipWithError("cannot write");
  const std::uint64_t size = Scaled(content == Content::kMarkers ? kMarkerBytes : kRandomBytes);
  for (auto _ : state) {
    Positions positions;
    if (!scan(file.Path(), positions)) state.SkipWithError("cannot read");
    positions.Report(state);
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * size));
}

void Product(benchmark::State& state, Content content, bool scrambled) {
  Measure(state, content, scrambled, [](const std::string& path, Positions& positions) {
    BinaryDecoder decoder(OpenInput(path));
    if (!decoder.Initialize()) return false;
    while (decoder.ScanForNextValidHeader() == kSuccess) {
      positions.Add(decoder.Getoffset());
      if (!decoder.SetOffset(decoder.Getoffset() + 1)) return false;
    }
    return true;
  });
}

void Literal(benchmark::State& state, Content content, bool scrambled) {
  Measure(state, content, scrambled, [](const std::string& path, Positions& positions) {
    baseline::Reader reader;
    if (!reader.Open(path)) return false;
    while (reader.ScanForNextHeader()) {
      positions.Add(reader.Position());
      reader.Seek(reader.Position() + 1);
    }
    return true;
  });
}

void Register(const std::string& name, void (*run)(benchmark::State&, Content, bool)) {
  const std::pair<const char*, Content> files[] = {
      {"/random", Content::kRandom}, {"/noise", Content::kNoise}, {"/markers", Content::kMarkers}};
  for (const auto& [file, content] : files) {
    for (const bool scrambled : {false, true}) {
      const auto full = name + file + (scrambled ? "/scrambled" : "/plain");
      benchmark::RegisterBenchmark(full.c_str(), run, content, scrambled)
          ->Iterations(1)
          ->UseRealTime()
          ->Unit(benchmark::kMillisecond);
    }
  }
}

}  // namespace

int Main(int argc, char** argv) {
  Register("product", Product);
  Register("literal", Literal);
  return RunChosen(argc, argv);
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
