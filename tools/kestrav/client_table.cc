#include "client_table.h"

#include "can_frame.h"
#include "csv_text.h"
#include "text.h"
#include "trace_parser.h"

namespace kestrav::tool {
namespace {

bool IsLine(std::string_view payload) { return payload.find('\n') == std::string_view::npos; }

// The commas that are not between quotes.
std::size_t Commas(std::string_view line) {
  std::size_t commas = 0;
  bool quoted = false;
  for (const char c : line) {
    if (c == '"') quoted = !quoted;
    commas += c == ',' && !quoted ? 1 : 0;
  }
  return commas;
}

bool CanBeHeaderLine(const RecordView& record) {
  return record.data_id == kCsvHeaderDataId && IsLine(record.payload) &&
         Commas(record.payload) > 0 && !IsNmeaSentence(record.payload) &&
         !IsCanFrame(record.payload);
}

bool CanBeCsvLine(const RecordView& record) {
  const bool known = record.data_id == kCsvHeaderDataId || record.data_id == kCsvSampleDataId ||
                     record.data_id == kUnreadableDataId;
  return known && IsLine(record.payload);
}

bool FollowsHeaderLine(const RecordView& record, std::string_view header) {
  const bool fits =
      record.data_id == kUnreadableDataId ||
      (record.data_id == kCsvSampleDataId && Commas(record.payload) >= Commas(header));
  return fits && IsLine(record.payload);
}

}  // namespace

ClientTable::ClientTable(const std::string& path, const std::string& log, const LogClock& clock)
    : clock_(clock),
      file_(path, {SourceSpec{"", "", log}}),
      remove_part_(file_.PartPath()),
      output_(file_.PartPath(), path) {}

bool ClientTable::Add(const RecordView& record) {
  if (kind_ == Kind::kUnknown && !Decide(record)) return true;
  bool fits = true;
  switch (kind_) {
    case Kind::kLines:
      fits = CanBeCsvLine(record);
      if (fits) output_.Text().append(record.payload).push_back('\n');
      break;
    case Kind::kFrames:
      fits = IsCanFrame(record.payload);
      if (fits) AppendFrame(record);
      break;
    default:
      AppendRecord(record);
  }
  output_.Continue();
  return fits;
}

void ClientTable::Pass(const RecordView& record) {
  if (!begun_ && CanBeHeaderLine(record)) {
    header_ = record.payload;
    has_header_ = true;
    header_is_passed_ = true;
  }
  begun_ = true;
}

// false: only the next record will tell.
bool ClientTable::Decide(const RecordView& record) {
  const bool is_first = !begun_;
  begun_ = true;
  if (is_first && CanBeHeaderLine(record)) {
    first_ = record;
    header_ = record.payload;
    has_header_ = true;
    return false;
  }
  if (has_header_ && FollowsHeaderLine(record, header_)) {
    kind_ = Kind::kLines;
    output_.Text().append(header_).push_back('\n');
  } else if (!has_header_ && IsCanFrame(record.payload)) {
    kind_ = Kind::kFrames;
    output_.Text() += "index,time_ms,time,data_id,can_id,extended,remote,error,length,data";
    output_.Text() += kCsvLineEnd;
  } else {
    BeginRecords();
  }
  return true;
}

void ClientTable::BeginRecords() {
  kind_ = Kind::kRecords;
  output_.Text() += "index,time_ms,time,data_id,size,text,payload_hex";
  output_.Text() += kCsvLineEnd;
  if (!has_header_ || header_is_passed_) return;
  first_.payload = header_;
  AppendRecord(first_);
}

void ClientTable::AppendPlace(const RecordView& record) {
  std::string& out = output_.Text();
  AppendNumber(out, record.index);
  out += ',';
  AppendNumber(out, clock_.SinceStart(record.time_stamp));
  out += ',';
  clock_.AppendUtc(out, record.time_stamp);
  out += ',';
  AppendNumber(out, record.data_id);
  out += ',';
}

void ClientTable::AppendRecord(const RecordView& record) {
  std::string& out = output_.Text();
  AppendPlace(record);
  AppendNumber(out, record.payload.size());
  out += ',';
  AppendCsvPayload(out, record.payload);
  out += kCsvLineEnd;
}

void ClientTable::AppendFrame(const RecordView& record) {
  std::string& out = output_.Text();
  const std::uint32_t id = CanId(record.payload);
  AppendPlace(record);
  out += "0x";
  AppendCanId(out, record.payload);
  for (const std::uint32_t flag : {kCanExtendedFlag, kCanRemoteFlag, kCanErrorFlag}) {
    out += (id & flag) != 0 ? ",1" : ",0";
  }
  out += ',';
  AppendNumber(out, CanLength(record.payload));
  out += ',';
  AppendCsvHex(out, CanData(record.payload));
  out += kCsvLineEnd;
}

void ClientTable::Finish() {
  if (kind_ == Kind::kUnknown) BeginRecords();
  output_.Close();
}

}  // namespace kestrav::tool
