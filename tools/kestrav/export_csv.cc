#include <map>

#include "csv_text.h"
#include "exporter.h"
#include "log_clock.h"
#include "text.h"

namespace kestrav::tool {
namespace {

class CsvExporter final : public Exporter {
 public:
  explicit CsvExporter(const ExportContext& context)
      : clock_(context.header), names_(context.names) {}

  void Begin(std::string& out) override {
    out += "index,time_ms,time,client,client_id,data_id,size,text,payload_hex";
    out += kCsvLineEnd;
  }

  void Add(const RecordView& record, std::string& out) override {
    AppendNumber(out, record.index);
    out += ',';
    AppendNumber(out, clock_.SinceStart(record.time_stamp));
    out += ',';
    clock_.AppendUtc(out, record.time_stamp);
    out += ',';
    out += NameOf(record.client_id);
    out += ',';
    AppendNumber(out, record.client_id);
    out += ',';
    AppendNumber(out, record.data_id);
    out += ',';
    AppendNumber(out, record.payload.size());
    out += ',';
    AppendCsvPayload(out, record.payload);
    out += kCsvLineEnd;
  }

 private:
  // Made once a client.
  const std::string& NameOf(std::uint16_t client_id) {
    const auto [found, inserted] = fields_.try_emplace(client_id);
    const std::string* const name = inserted ? names_.Find(client_id) : nullptr;
    if (name != nullptr) found->second = CsvName(*name);
    return found->second;
  }

  LogClock clock_;
  const ClientNames& names_;
  std::map<std::uint16_t, std::string> fields_;
};

}  // namespace

ExporterPtr MakeCsvExporter(const ExportContext& context) {
  return std::make_unique<CsvExporter>(context);
}

}  // namespace kestrav::tool
