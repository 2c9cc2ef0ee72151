#include "exporter.h"
#include "log_clock.h"
#include "record_json.h"

// The lines of `kestrav cat --format jsonl`, and the time of day.

namespace kestrav::tool {
namespace {

class JsonlExporter final : public Exporter {
 public:
  explicit JsonlExporter(const ExportContext& context)
      : clock_(context.header), json_(context.names) {}

  void Add(const RecordView& record, std::string& out) override {
    json_.AppendOpen(out, record);
    out += ",\"time\":\"";
    clock_.AppendUtc(out, record.time_stamp);
    out += "\"}\n";
  }

 private:
  LogClock clock_;
  RecordJson json_;
};

}  // namespace

ExporterPtr MakeJsonlExporter(const ExportContext& context) {
  return std::make_unique<JsonlExporter>(context);
}

}  // namespace kestrav::tool
