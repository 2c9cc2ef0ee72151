#include "mcap_writer.h"

#include <utility>

#include "byte_text.h"
#include "crc32.h"

namespace kestrav::tool {
namespace {

enum class Op : std::uint8_t {
  kHeader = 0x01,
  kFooter = 0x02,
  kSchema = 0x03,
  kChannel = 0x04,
  kMessage = 0x05,
  kChunk = 0x06,
  kMessageIndex = 0x07,
  kChunkIndex = 0x08,
  kStatistics = 0x0B,
  kSummaryOffset = 0x0E,
  kDataEnd = 0x0F,
};

constexpr std::string_view kMagic("\x89MCAP0\r\n", 8);
constexpr std::size_t kRecordStart = 9;  // op code and length
constexpr std::size_t kChunkSize = 1 << 20;

void AppendStart(std::string& out, Op op, std::uint64_t length) {
  out += static_cast<char>(op);
  AppendInteger(out, length);
}

void AppendRecord(std::string& out, Op op, std::string_view content) {
  AppendStart(out, op, content.size());
  out += content;
}

// A string, or an array or map as its bytes.
void AppendSized(std::string& out, std::string_view bytes) {
  AppendInteger(out, static_cast<std::uint32_t>(bytes.size()));
  out += bytes;
}

}  // namespace

void McapWriter::Emit(std::string_view bytes, std::string& out) {
  out += bytes;
  written_ += bytes.size();
}

void McapWriter::Begin(std::string_view library, std::string& out) {
  std::string header;
  AppendSized(header, {});  // no profile
  AppendSized(header, library);
  std::string start(kMagic);
  AppendRecord(start, Op::kHeader, header);
  Emit(start, out);
}

std::uint16_t McapWriter::AddSchema(std::string_view name, std::string_view encoding,
                                    std::string_view data) {
  std::string content;
  AppendInteger(content, ++schemas_);
  AppendSized(content, name);
  AppendSized(content, encoding);
  AppendSized(content, data);
  AppendRecord(chunk_, Op::kSchema, content);
  AppendRecord(schema_records_, Op::kSchema, content);
  return schemas_;
}

std::uint16_t McapWriter::AddChannel(std::uint16_t schema, std::string_view topic,
                                     std::string_view encoding, const Metadata& metadata) {
  const auto id = static_cast<std::uint16_t>(channels_.size());
  std::string pairs;
  for (const auto& [key, value] : metadata) {
    AppendSized(pairs, key);
    AppendSized(pairs, value);
  }
  std::string content;
  AppendInteger(content, id);
  AppendInteger(content, schema);
  AppendSized(content, topic);
  AppendSized(content, encoding);
  AppendSized(content, pairs);
  AppendRecord(chunk_, Op::kChannel, content);
  AppendRecord(channel_records_, Op::kChannel, content);
  channels_.emplace_back();
  return id;
}

std::string& McapWriter::BeginMessage(std::uint16_t id, std::uint64_t time_ns) {
  Channel& channel = channels_[id];
  if (channel.index.empty()) chunk_channels_.push_back(id);
  message_at_ = chunk_.size();
  channel.index.push_back({time_ns, message_at_});
  chunk_span_.Add(time_ns);
  span_.Add(time_ns);
  AppendStart(chunk_, Op::kMessage, 0);  // the length follows at the end
  AppendInteger(chunk_, id);
  AppendInteger(chunk_, static_cast<std::uint32_t>(channel.messages++));
  AppendInteger(chunk_, time_ns);  // logged
  AppendInteger(chunk_, time_ns);  // published
  return chunk_;
}

void McapWriter::EndMessage(std::string& out) {
  const std::uint64_t length = chunk_.size() - message_at_ - kRecordStart;
  PutInteger(chunk_, message_at_ + 1, length);
  if (chunk_.size() >= kChunkSize) EndChunk(out);
}

void McapWriter::EndChunk(std::string& out) {
  const std::uint64_t start = written_;
  const std::uint64_t size = chunk_.size();
  std::string front;
  AppendInteger(front, chunk_span_.first_ns);
  AppendInteger(front, chunk_span_.last_ns);
  AppendInteger(front, size);
  AppendInteger(front, Crc32(chunk_));
  AppendSized(front, {});  // not compressed
  AppendInteger(front, size);
  std::string head;
  AppendStart(head, Op::kChunk, front.size() + size);
  Emit(head + front, out);
  Emit(chunk_, out);
  const std::uint64_t length = written_ - start;
  const std::string offsets = EmitMessageIndexes(out);

  std::string index;
  AppendInteger(index, chunk_span_.first_ns);
  AppendInteger(index, chunk_span_.last_ns);
  AppendInteger(index, start);
  AppendInteger(index, length);
  AppendSized(index, offsets);
  AppendInteger(index, written_ - start - length);
  AppendSized(index, {});
  AppendInteger(index, size);  // compressed
  AppendInteger(index, size);
  AppendRecord(chunk_indexes_, Op::kChunkIndex, index);
  ++chunks_;
  chunk_.clear();
  chunk_span_ = Span();
}

std::string McapWriter::EmitMessageIndexes(std::string& out) {
  const auto is_earlier = [](const Entry& a, const Entry& b) { return a.time_ns < b.time_ns; };
  std::string offsets;
  std::string record;
  std::string entries;
  for (const std::uint16_t id : chunk_channels_) {
    std::vector<Entry>& index = channels_[id].index;
    std::stable_sort(index.begin(), index.end(), is_earlier);
    AppendInteger(offsets, id);
    AppendInteger(offsets, written_);
    entries.clear();
    for (const Entry& entry : index) {
      AppendInteger(entries, entry.time_ns);
      AppendInteger(entries, entry.offset);
    }
    record.clear();
    AppendStart(record, Op::kMessageIndex, sizeof(id) + sizeof(std::uint32_t) + entries.size());
    AppendInteger(record, id);
    AppendSized(record, entries);
    Emit(record, out);
    index.clear();
  }
  chunk_channels_.clear();
  return offsets;
}

std::string McapWriter::Statistics() const {
  std::string counts;
  for (std::size_t id = 0; id < channels_.size(); ++id) {
    AppendInteger(counts, static_cast<std::uint16_t>(id));
    AppendInteger(counts, channels_[id].messages);
  }
  std::string content;
  AppendInteger(content, span_.count);
  AppendInteger(content, schemas_);
  AppendInteger(content, static_cast<std::uint32_t>(channels_.size()));
  AppendInteger(content, std::uint32_t{0});  // attachments
  AppendInteger(content, std::uint32_t{0});  // metadata
  AppendInteger(content, chunks_);
  AppendInteger(content, span_.first_ns);
  AppendInteger(content, span_.last_ns);
  AppendSized(content, counts);
  std::string record;
  AppendRecord(record, Op::kStatistics, content);
  return record;
}

void McapWriter::EmitSummary(std::string& out) {
  const std::uint64_t start = written_;
  const std::string statistics = Statistics();
  const std::pair<Op, const std::string&> groups[] = {{Op::kSchema, schema_records_},
                                                      {Op::kChannel, channel_records_},
                                                      {Op::kChunkIndex, chunk_indexes_},
                                                      {Op::kStatistics, statistics}};
  std::string summary;
  std::string offsets;
  for (const auto& [op, records] : groups) {
    if (records.empty()) continue;
    std::string offset;
    offset += static_cast<char>(op);
    AppendInteger(offset, start + summary.size());
    AppendInteger(offset, std::uint64_t{records.size()});
    AppendRecord(offsets, Op::kSummaryOffset, offset);
    summary += records;
  }
  const std::uint64_t offsets_start = start + summary.size();
  summary += offsets;
  constexpr std::uint64_t kFooterSize = 20;
  AppendStart(summary, Op::kFooter, kFooterSize);
  AppendInteger(summary, start);
  AppendInteger(summary, offsets_start);
  AppendInteger(summary, Crc32(summary));  // of all up to here
  Emit(summary, out);
}

void McapWriter::Finish(std::string& out) {
  if (!chunk_.empty()) EndChunk(out);
  std::string data_end;
  AppendInteger(data_end, std::uint32_t{0});  // no checksum: the chunks have theirs
  std::string record;
  AppendRecord(record, Op::kDataEnd, data_end);
  Emit(record, out);
  EmitSummary(out);
  Emit(kMagic, out);
}

}  // namespace kestrav::tool
