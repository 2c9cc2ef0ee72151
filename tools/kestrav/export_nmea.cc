#include "exporter.h"
#include "text.h"
#include "trace_parser.h"

namespace kestrav::tool {
namespace {

// A sentence a line, ended with a line feed alone, as receivers are logged.
class NmeaExporter final : public Exporter {
 public:
  void Add(const RecordView& record, std::string& out) override {
    if (!IsNmeaSentence(record.payload) || !IsPrintable(record.payload)) return LeaveOut(record);
    out.append(record.payload).push_back('\n');
  }
};

}  // namespace

ExporterPtr MakeNmeaExporter(const ExportContext& /*context*/) {
  return std::make_unique<NmeaExporter>();
}

}  // namespace kestrav::tool
