#include "log_writer.h"

#include <algorithm>
#include <limits>

#include "exit_codes.h"
#include "kestrav/format/checksum.h"
#include "kestrav/format/crypter.h"
#include "kestrav/host/time/source.h"
#include "log_file.h"
#include "text.h"

namespace kestrav::tool {
namespace {

// Synced once, at the end: until then the file may as well not be there.
constexpr Io::FileOutputSettings kSettings = {
    .buffer_bytes = 1 << 20, .sync_interval_ms = std::numeric_limits<std::uint32_t>::max()};

std::vector<SourceSpec> Sources(const std::vector<std::string>& paths) {
  std::vector<SourceSpec> sources;
  for (const std::string& path : paths) sources.push_back({"", "", path});
  return sources;
}

}  // namespace

LogWriter::LogWriter(const std::string& path, const std::vector<std::string>& sources, bool plain)
    : path_(path),
      file_(path, Sources(sources)),
      remove_part_(file_.PartPath()),
      stream_(std::make_shared<Io::BufferedFileOutputStream>(kSettings)),
      plain_(plain),
      encoder_(stream_) {
  if (!stream_->Open(WidePath(file_.PartPath()), Io::OpenMode::kCreate)) Fail();
}

void LogWriter::Begin(Start start, const LogFront& front) {
  const std::uint32_t first = front.dictionary.time_stamp;
  while (front.dictionary.Exists() && static_cast<std::int32_t>(first - start.clock_ms) < 0) {
    start.Move(-1);
    moved_ms_ += 1000;
  }
  BinaryLogStreamHeader header;
  header.magic = kStreamMagic;
  header.start_time = std::max<std::int64_t>(start.time_scnds, 1);  // 0 is no time
  header.start_clock = start.clock_ms;
  header.client_selection = start.selection;
  header.clock_rate = Time::kClocksPerSecond;
  Crypter keys;
  if (!plain_ && keys.Initialize()) {
    header.header_key = keys.GetKey();
    if (keys.Initialize()) header.data_key = keys.GetKey();
  }
  if (!encoder_.StartLike(header)) Fail();
  WriteFront(kDictionaryDataId, front.dictionary);
  WriteFront(kExtendedSelectionDataId, front.extended_selection);
}

void LogWriter::WriteFront(std::uint16_t data_id, const FrontRecord& record) {
  if (!record.Exists()) return;
  BinaryLogRecordHeader header;
  header.client_id = kInfoClientId;
  header.data_id = data_id;
  header.time_stamp = record.time_stamp;
  Replace(header, record.payload);
}

void LogWriter::Replace(const BinaryLogRecordHeader& header, std::string_view payload) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(payload.data());
  BinaryLogRecordHeader changed = header;
  changed.payload_size = static_cast<std::uint32_t>(payload.size());
  changed.payload_checksum = ComputeChecksum(bytes, changed.payload_size);
  Write(changed, {bytes, payload.size()});
}

void LogWriter::Write(const BinaryLogRecordHeader& header, std::span<const std::uint8_t> payload) {
  constexpr std::uint32_t kRecordsBetweenLooks = 1024;
  const std::uint64_t size = std::uint64_t{Bytes()} + kRecordHeaderSize + payload.size();
  if (size > std::numeric_limits<std::uint32_t>::max()) {
    throw Failure(path_ + ": the log would be longer than 4 GiB");
  }
  if (!encoder_.CopyRecord(header, payload.data(), 0)) Fail();
  if (Records() % kRecordsBetweenLooks == 0 && progress_.IsDue()) {
    progress_.Show("writing, " + Counted(Records(), "record", "records"));
  }
}

void LogWriter::Finish(std::int64_t duration_ms) {
  constexpr std::int64_t kLongest = std::numeric_limits<std::uint32_t>::max();
  duration_ms_ =
      static_cast<std::uint32_t>(std::clamp<std::int64_t>(duration_ms + moved_ms_, 0, kLongest));
  bytes_ = encoder_.BytesWritten();
  if (!encoder_.Finish(duration_ms_) || !stream_->Close()) Fail();
  progress_.Clear();
  file_.Commit();
}

std::string LogWriter::Summary() const {
  return OneLine(path_) + ": " + Counted(Records(), "record", "records") + ", " +
         HumanSize(bytes_) + ", " + HumanDuration(duration_ms_) + "\n";
}

void LogWriter::Fail() const {
  const bool is_full = stream_->Error() == 0;  // of what a position can address
  throw Failure(path_ + ": " + (is_full ? "not all fits" : ErrorText(stream_->Error())));
}

}  // namespace kestrav::tool
