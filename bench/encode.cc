// Encoding messages and writing them to a file, without the recording thread. Every contestant
// overwrites a file whose pages exist, so that no one waits for the system to find memory.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>

#include "baseline/writer.h"
#include "kestrav/format/encoder.h"
#include "support/contestants.h"
#include "support/dlt_log.h"
#include "support/logs.h"
#include "support/payloads.h"
#include "support/product.h"
#include "support/settings.h"

namespace kestrav::bench {
namespace {

constexpr std::uint64_t kBytes = 64 << 20;
constexpr std::uint64_t kPeerBytes = 4 << 20;  // the peers take that much longer
constexpr std::size_t kBlock = 64 << 10;

RecordSet SetOf(const benchmark::State& state, std::uint64_t bytes = kBytes) {
  return RecordSet(static_cast<std::uint32_t>(state.range(0)), Scaled(bytes));
}

// Runs `write_log` once to warm up and then as often as the measurement wants.
template <class WriteLog>
void Measure(benchmark::State& state, const RecordSet& set, WriteLog&& write_log) {
  if (!write_log()) state.SkipWithError("cannot write");
  for (auto _ : state) {
    if (!write_log()) state.SkipWithError("cannot write");
  }
  const auto passes = static_cast<std::int64_t>(state.iterations());
  state.SetBytesProcessed(passes * static_cast<std::int64_t>(set.Bytes()));
  state.SetItemsProcessed(passes * static_cast<std::int64_t>(set.records));
}

void Product(benchmark::State& state) {
  const RecordSet set = SetOf(state);
  const ScratchFile file("encode");
  const Messages messages = MakeMessages(set);
  auto mode = Io::OpenMode::kCreate;
  Measure(state, set, [&] {
    const auto stream = OpenOutput(file.Path(), mode);
    mode = Io::OpenMode::kInPlace;
    BinaryEncoder encoder(stream);
    if (stream == nullptr || !encoder.Start(std::uint64_t{1} << kBenchClientId)) return false;
    std::size_t next = 0;
    for (std::uint64_t i = 0; i < set.records; ++i) {
      if (!encoder.WriteBinaryLogRecord(messages[next])) return false;
      if (++next == messages.size()) next = 0;
    }
    encoder.Stop();
    return stream->Close();
  });
  if (CountRecords(file.Path()) != set.records) state.SkipWithError("records are missing");
}

void Straightforward(benchmark::State& state) {
  const RecordSet set = SetOf(state);
  const ScratchFile file("encode");
  std::vector<baseline::Message> messages;
  for (std::uint32_t i = 0; i < set.Different(); ++i) {
    messages.push_back({kBenchClientId, 1, 0, Payload(set.payload_size, i)});
  }
  baseline::StreamHeader header;
  header.header_key = 0x5A;
  header.data_key = 0xA7;
  Measure(state, set, [&] {
    baseline::Writer writer;
    if (!writer.Open(file.Path(), header)) return false;
    std::size_t next = 0;
    for (std::uint64_t i = 0; i < set.records; ++i) {
      if (!writer.Write(messages[next])) return false;
      if (++next == messages.size()) next = 0;
    }
    return writer.Close(0);
  });
  if (CountRecords(file.Path()) != set.records) state.SkipWithError("records are missing");
}

int OpenForWriting(const std::string& path) {
  return open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0640);
}

bool WriteBlock(int descriptor, const std::vector<std::uint8_t>& block, std::size_t size) {
  return write(descriptor, block.data(), size) == static_cast<ssize_t>(size);
}

// Floor: the system's own cost, the same number of bytes in blocks of 64 KiB.
void Write(benchmark::State& state) {
  const RecordSet set = SetOf(state);
  const ScratchFile file("encode");
  const auto block = Payload(kBlock, 0);
  Measure(state, set, [&] {
    const int descriptor = OpenForWriting(file.Path());
    if (descriptor < 0) return false;
    for (std::uint64_t left = set.Bytes(); left > 0;) {
      const std::size_t part = std::min<std::uint64_t>(left, kBlock);
      if (!WriteBlock(descriptor, block, part)) return false;
      left -= part;
    }
    return close(descriptor) == 0;
  });
}

// Copies the bytes of records one behind the other into a block and calls `flush` with each full
// one.
template <class Flush>
class BlockFiller {
 public:
  explicit BlockFiller(Flush flush) : flush_(flush), block_(kBlock) {}

  bool Add(const std::uint8_t* data, std::size_t size) {
    while (size > 0) {
      const std::size_t part = std::min(size, kBlock - used_);
      std::memcpy(block_.data() + used_, data, part);
      data += part;
      size -= part;
      used_ += part;
      if (used_ == kBlock && !Finish()) return false;
    }
    return true;
  }
  bool Finish() {
    const bool done = flush_(block_, used_);
    used_ = 0;
    return done;
  }

 private:
  Flush flush_;
  std::vector<std::uint8_t> block_;
  std::size_t used_ = 0;
};

template <class Flush>
bool CopyRecords(const RecordSet& set, const std::vector<std::vector<std::uint8_t>>& payloads,
                 Flush flush) {
  BlockFiller filler(flush);
  const std::array<std::uint8_t, kRecordHeaderSize> header{};
  std::size_t next = 0;
  for (std::uint64_t i = 0; i < set.records; ++i) {
    if (!filler.Add(header.data(), header.size())) return false;
    if (!filler.Add(payloads[next].data(), payloads[next].size())) return false;
    if (++next == payloads.size()) next = 0;
  }
  return filler.Finish();
}

std::vector<std::vector<std::uint8_t>> Payloads(const RecordSet& set) {
  std::vector<std::vector<std::uint8_t>> payloads;
  for (std::uint32_t i = 0; i < set.Different(); ++i) {
    payloads.push_back(Payload(set.payload_size, i));
  }
  return payloads;
}

// Floor: header and payload copied as they are through a block of 64 KiB, nothing computed.
void Raw(benchmark::State& state) {
  const RecordSet set = SetOf(state);
  const ScratchFile file("encode");
  const auto payloads = Payloads(set);
  Measure(state, set, [&] {
    const int descriptor = OpenForWriting(file.Path());
    const auto flush = [&](const std::vector<std::uint8_t>& block, std::size_t size) {
      return WriteBlock(descriptor, block, size);
    };
    return descriptor >= 0 && CopyRecords(set, payloads, flush) && close(descriptor) == 0;
  });
}

// Floor: the same copies and no file.
void Memcpy(benchmark::State& state) {
  const RecordSet set = SetOf(state);
  const auto payloads = Payloads(set);
  Measure(state, set, [&] {
    return CopyRecords(set, payloads, [](const std::vector<std::uint8_t>& block, std::size_t) {
      benchmark::DoNotOptimize(block.data());
      benchmark::ClobberMemory();
      return true;
    });
  });
}

bool Execute(sqlite3* database, const char* statement) {
  return sqlite3_exec(database, statement, nullptr, nullptr, nullptr) == SQLITE_OK;
}

bool InsertAll(sqlite3* database, const RecordSet& set,
               const std::vector<std::vector<std::uint8_t>>& payloads) {
  sqlite3_stmt* insert = nullptr;
  if (sqlite3_prepare_v2(database, "INSERT INTO log VALUES (?, ?, ?, ?)", -1, &insert, nullptr) !=
      SQLITE_OK) {
    return false;
  }
  bool good = true;
  for (std::uint64_t i = 0; i < set.records && good; ++i) {
    const auto& payload = payloads[i % payloads.size()];
    sqlite3_bind_int64(insert, 1, static_cast<sqlite3_int64>(i / 20));
    sqlite3_bind_int(insert, 2, kBenchClientId);
    sqlite3_bind_int(insert, 3, 1);
    sqlite3_bind_blob(insert, 4, payload.data(), static_cast<int>(payload.size()), SQLITE_STATIC);
    good = sqlite3_step(insert) == SQLITE_DONE && sqlite3_reset(insert) == SQLITE_OK;
  }
  return sqlite3_finalize(insert) == SQLITE_OK && good;
}

// Peer: a table of messages, filled in one transaction.
void Sqlite(benchmark::State& state) {
  const RecordSet set = SetOf(state, kPeerBytes);
  const auto payloads = Payloads(set);
  Measure(state, set, [&] {
    const ScratchFile file("encode.sqlite");
    sqlite3* database = nullptr;
    const bool good =
        sqlite3_open(file.Path().c_str(), &database) == SQLITE_OK &&
        Execute(database, "CREATE TABLE log (time INT, client INT, data INT, payload BLOB)") &&
        Execute(database, "BEGIN") && InsertAll(database, set, payloads) &&
        Execute(database, "COMMIT");
    return sqlite3_close(database) == SQLITE_OK && good;
  });
}

// Peer: the logging library of its field, writing to a file instead of to its daemon.
void Dlt(benchmark::State& state) {
  const RecordSet set = SetOf(state, kPeerBytes);
  const auto payloads = Payloads(set);
  const ScratchFile file("encode.dlt");
  DltLog log(file.Path());
  if (!log.IsGood()) return state.SkipWithError("cannot open");
  Measure(state, set, [&] {
    for (std::uint64_t i = 0; i < set.records; ++i) {
      const auto& payload = payloads[i % payloads.size()];
      if (!log.Write(payload.data(), set.payload_size)) return false;
    }
    return true;
  });
  if (std::filesystem::file_size(file.Path()) < set.Bytes()) state.SkipWithError("bytes missing");
}

void Register(const char* name, benchmark::internal::Function* run, std::uint32_t largest,
              int passes) {
  auto* const job = benchmark::RegisterBenchmark(name, run);
  for (const std::uint32_t size : kPayloadSizes) {
    if (size <= largest) job->Arg(size);
  }
  job->Iterations(passes)->UseRealTime()->Unit(benchmark::kMillisecond);
}

}  // namespace

int Main(int argc, char** argv) {
  constexpr std::uint32_t kAll = 1 << 20;
  Register("product", Product, kAll, 4);
  Register("straightforward", Straightforward, kAll, 4);
  Register("write", Write, kAll, 4);
  Register("raw", Raw, kAll, 4);
  Register("memcpy", Memcpy, kAll, 4);
  Register("sqlite", Sqlite, kAll, 2);
  Register("dlt", Dlt, DltLog::kLargestPayload, 2);
  return RunChosen(argc, argv);
}

}  // namespace kestrav::bench

int main(int argc, char** argv) { return kestrav::bench::Main(argc, argv); }
