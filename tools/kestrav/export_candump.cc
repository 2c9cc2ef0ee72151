#include "can_frame.h"
#include "can_interfaces.h"
#include "candump.h"
#include "exporter.h"
#include "log_clock.h"
#include "text.h"
#include "trace_parser.h"

// The log format of candump, with the milliseconds that a log has of its microseconds. Frames that
// were imported as lines are such lines again.

namespace kestrav::tool {
namespace {

// Decimal digits with zeros in front.
void AppendPadded(std::string& out, std::uint64_t value, std::size_t width) {
  const std::size_t start = out.size();
  AppendNumber(out, value);
  const std::size_t digits = out.size() - start;
  if (digits < width) out.insert(start, width - digits, '0');
}

class CandumpExporter final : public Exporter {
 public:
  explicit CandumpExporter(const ExportContext& context)
      : clock_(context.header), interface_(context.interface), interfaces_(context.interface) {}

  void Add(const RecordView& record, std::string& out) override {
    constexpr std::size_t kScndsWidth = 10;
    constexpr std::size_t kMsWidth = 3;
    if (!IsCanFrame(record.payload)) return AddOtherFrame(record, out);
    const auto unix_ms = static_cast<std::uint64_t>(clock_.UnixMs(record.time_stamp));
    bool is_new = false;
    out += '(';
    AppendPadded(out, unix_ms / 1000, kScndsWidth);
    out += '.';
    AppendPadded(out, unix_ms % 1000, kMsWidth);
    out += "000) ";
    out += interfaces_.Of(record.client_id, is_new).name;
    out += ' ';
    AppendCanFrame(out, record.payload);
    out += '\n';
  }

 private:
  // The log has the whole line.
  void AddOtherFrame(const RecordView& record, std::string& out) {
    CandumpLine line;
    if (record.data_id != kUnreadableDataId || !IsPrintable(record.payload) ||
        !ReadOtherFrame(record.payload, line)) {
      return LeaveOut(record);
    }
    out.append("(").append(line.time).append(") ");
    out.append(interface_.empty() ? line.interface : interface_);
    out.append(" ").append(line.frame).append("\n");
  }

  LogClock clock_;
  const std::string interface_;
  CanInterfaces interfaces_;
};

}  // namespace

ExporterPtr MakeCandumpExporter(const ExportContext& context) {
  return std::make_unique<CandumpExporter>(context);
}

}  // namespace kestrav::tool
