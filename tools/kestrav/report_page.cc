#include "report_page.h"

#include <algorithm>
#include <string_view>

#include "exit_codes.h"
#include "log_file.h"
#include "os.h"
#include "report_template.h"
#include "text.h"

namespace kestrav::tool {
namespace {

// What could end the script that the data stands in, or begin another: as JSON escapes, which only
// occur within strings.
void AppendWithoutMarkup(std::string& out, std::string_view json) {
  for (const char c : json) {
    if (c == '<' || c == '>' || c == '&') {
      const auto byte = static_cast<std::uint8_t>(c);
      out += "\\u00";
      AppendHex(out, &byte, 1);
    } else {
      out += c;
    }
  }
}

// Printable text behind a `t`, anything else in hex behind an `h`.
void AppendPayload(std::string& out, std::string_view payload) {
  if (!IsPrintable(payload)) {
    out += 'h';
    AppendHex(out, reinterpret_cast<const std::uint8_t*>(payload.data()), payload.size());
    return;
  }
  std::string quoted = "t";
  for (const char c : payload) {
    if (c == '"' || c == '\\') quoted += '\\';
    quoted += c;
  }
  AppendWithoutMarkup(out, quoted);
}

}  // namespace

ReportPage::ReportPage(const std::string& path, const std::string& name)
    : name_(name), file_(Io::FileOutputSettings{.sync_interval_ms = 0}) {
  if (ReportHead().empty()) {
    throw Failure(
        "this tool was built without the page of the report; -DKESTRAV_REPORT=ON, which needs npm, "
        "builds one that has it");
  }
  if (!file_.Open(WidePath(path), Io::OpenMode::kCreate)) Fail();
  Write(ReportHead());
  Write("{\"records\":[");
}

void ReportPage::AddRecord(const BinaryLogRecordHeader& header, std::int64_t at_ms,
                           const Memory::MemBlock& payload) {
  text_.assign(records_++ == 0 ? "\n[" : ",\n[");
  for (const std::int64_t value :
       {std::int64_t{header.record_index}, at_ms, std::int64_t{header.client_id},
        std::int64_t{header.data_id}, std::int64_t{header.payload_size}}) {
    text_.append(std::to_string(value)).push_back(',');
  }
  text_ += '"';
  AppendPayload(text_, {reinterpret_cast<const char*>(payload.Data()),
                        std::min(payload.Size(), kMostPayloadBytes)});
  text_ += "\"]";
  Write(text_);
}

std::uint64_t ReportPage::Finish(const nlohmann::ordered_json& summary) {
  text_ = "],\n\"summary\":";
  AppendWithoutMarkup(
      text_, summary.dump(-1, ' ', true, nlohmann::ordered_json::error_handler_t::replace));
  text_ += "}\n";
  Write(text_);
  Write(ReportTail());
  const std::uint64_t size = file_.Position();
  if (!file_.Close()) Fail();
  return size;
}

void ReportPage::Write(std::string_view text) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  if (!file_.Write(bytes, static_cast<std::uint32_t>(text.size()))) Fail();
}

void ReportPage::Fail() const {
  const int error = file_.Error();
  throw Failure(name_ + ": " + (error == 0 ? "not all fits" : ErrorText(error)));
}

}  // namespace kestrav::tool
