#include "log_index.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "exit_codes.h"
#include "kestrav/host/io/file_stream.h"
#include "log_walk.h"
#include "os.h"
#include "output_file.h"

namespace kestrav::tool {
namespace {

constexpr std::uint32_t kBlockBytes = 1024 * 1024;
constexpr std::uint64_t kLargeLog = 64 * 1024 * 1024;

// Cuts a walk into blocks.
class BlockCutter {
 public:
  BlockCutter(const LogFile& log, std::vector<IndexBlock>& blocks) : log_(log), blocks_(blocks) {}

  void Add(const LogWalk& walk) {
    const BinaryLogRecordHeader& header = walk.Header();
    if (IsCheckpoint()) Begin(header.record_index);
    IndexBlock& block = blocks_.back();
    const std::uint32_t at_ms = log_.SinceStart(header.time_stamp);
    block.earliest_ms = std::min(block.earliest_ms, at_ms);
    block.latest_ms = std::max(block.latest_ms, at_ms);
    block.orderly = block.orderly && walk.SkippedBytes() == 0 &&
                    header.record_index == expected_index_ && at_ms >= last_ms_;
    ++block.records;
    ++block.clients[header.client_id];
    ++records_;
    last_ms_ = at_ms;
    end_ = walk.End();
    expected_index_ = header.record_index + 1;
  }

 private:
  // The period of the record keys: with an index that is a multiple of it the decoder is as new.
  static constexpr std::uint32_t kKeyPeriod = 256;

  bool IsCheckpoint() const {
    if (blocks_.empty()) return true;
    const bool as_new = log_.Header().header_key == 0 || expected_index_ % kKeyPeriod == 0;
    return as_new && end_ - blocks_.back().offset >= kBlockBytes;
  }

  void Begin(std::uint32_t index) {
    IndexBlock& block = blocks_.emplace_back();
    block.offset = end_;
    block.first_record = records_;
    block.first_index = index;
    block.earliest_ms = ~std::uint32_t{0};
  }

  const LogFile& log_;
  std::vector<IndexBlock>& blocks_;
  std::uint64_t records_ = 0;
  std::uint32_t end_ = kStreamHeaderSize;
  std::uint32_t expected_index_ = 0;
  std::uint32_t last_ms_ = 0;
};

std::string FileContent(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), {});
}

void WriteFile(const std::string& path, const std::string& name, const std::string& bytes) {
  Io::FileOutputSettings settings;
  settings.sync_interval_ms = 0;  // what power loss leaves of it is noticed as damage
  Io::BufferedFileOutputStream file(settings);
  const auto* const data = reinterpret_cast<const std::uint8_t*>(bytes.data());
  const bool written = file.Open(WidePath(path), Io::OpenMode::kCreate) &&
                       file.Write(data, static_cast<std::uint32_t>(bytes.size()));
  if (file.Close() && written) return;
  throw Failure(name + ": " + ErrorText(file.Error() != 0 ? file.Error() : EIO));
}

bool IsFinished(const LogFile& log) { return log.Header().stream_length != 0; }

// Whether a log that does not grow any more has an index, of whatever log. It may be damaged.
bool HasAnIndex(const LogFile& log) {
  std::error_code error;
  const std::string path = IndexPath(log.Path());
  if (!IsFinished(log) || !std::filesystem::is_regular_file(path, error)) return false;
  std::string start(kIndexMagic.size(), '\0');
  std::ifstream file(path, std::ios::binary);
  return file.read(start.data(), static_cast<std::streamsize>(start.size())) &&
         start == kIndexMagic;
}

// Nobody asked for it to be kept, so where it cannot be that is no failure.
LogIndex RenewIndex(LogFile& log) {
  const LogIdentity identity = IdentityOf(log);
  LogIndex index = BuildIndex(log);
  try {
    static_cast<void>(KeepIndex(log, identity, index));
  } catch (const Failure&) {
  }
  return index;
}

}  // namespace

std::size_t LogIndex::FirstBlockFrom(double from_ms, std::size_t begin) const {
  while (begin < blocks.size() && blocks[begin].latest_ms < from_ms) ++begin;
  return std::min(begin, blocks.size());
}

std::string IndexPath(const std::string& log_path) { return log_path + ".kidx"; }

LogIndex BuildIndex(LogFile& log) {
  LogIndex index;
  BlockCutter cutter(log, index.blocks);
  index.scan = Scan(log, [&cutter](const LogWalk& walk) { cutter.Add(walk); });
  return index;
}

std::optional<LogIndex> ReadIndex(LogFile& log) {
  constexpr std::uintmax_t kLargestIndex = 64 * 1024 * 1024;  // what is larger is something else
  std::error_code error;
  const std::string path = IndexPath(log.Path());
  if (!std::filesystem::is_regular_file(path, error)) return std::nullopt;
  if (std::filesystem::file_size(path, error) > kLargestIndex || error) return std::nullopt;
  return ParseIndex(FileContent(path), IdentityOf(log));
}

std::optional<LogIndex> OpenIndex(LogFile& log) {
  std::optional<LogIndex> kept = ReadIndex(log);
  if (kept || !HasAnIndex(log)) return kept;
  LogFile whole(log.Path());
  static_cast<void>(RenewIndex(whole));
  return ReadIndex(log);
}

std::uint64_t KeepIndex(LogFile& log, const LogIdentity& identity, const LogIndex& index) {
  if (!(IdentityOf(log) == identity)) {
    throw Failure(log.Path() + ": changed while it was read, so it gets no index");
  }
  const std::string path = IndexPath(log.Path());
  const std::string bytes = IndexBytes(identity, index);
  OutputFile out(path, {SourceSpec{"", "", log.Path()}});
  const RemoveOnInterrupt remove_part(out.PartPath());
  WriteFile(out.PartPath(), path, bytes);
  out.Commit();
  return bytes.size();
}

ScanResult ScanWithIndex(LogFile& log) {
  if (const std::optional<LogIndex> kept = ReadIndex(log)) return kept->scan;
  const bool is_large = IsFinished(log) && log.Size() >= kLargeLog;
  return is_large || HasAnIndex(log) ? RenewIndex(log).scan : Scan(log);
}

}  // namespace kestrav::tool
