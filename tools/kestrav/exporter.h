#ifndef KESTRAV_TOOLS_EXPORTER_H_
#define KESTRAV_TOOLS_EXPORTER_H_

#include <cstdint>
#include <memory>
#include <string>

#include "kestrav/clients/dictionary_record.h"
#include "kestrav/format/stream_header.h"
#include "log_file.h"
#include "record_view.h"

namespace kestrav::tool {

// Turns records into another format. What is to be written is appended to `out`, which the caller
// empties as it likes.
class Exporter {
 public:
  virtual ~Exporter() = default;

  virtual void Begin(std::string& /*out*/) {}
  virtual void Add(const RecordView& record, std::string& out) = 0;
  // Of a client that is asked for, but before the time that is.
  virtual void Pass(const RecordView& /*record*/) {}
  virtual void Finish(std::string& /*out*/) {}

  // Records that the format has no form for, the recorder's own aside.
  std::uint64_t LeftOut() const { return left_out_; }

 protected:
  void LeaveOut(const RecordView& record) {
    if (record.client_id != kInfoClientId) ++left_out_;
  }

 private:
  std::uint64_t left_out_ = 0;
};

// What exporters go by; it outlives them.
struct ExportContext {
  const BinaryLogStreamHeader& header;
  const ClientNames& names;
  std::string log;        // its file
  std::string folder;     // of the tables
  std::string interface;  // of the CAN frames; empty: can0, can1, ... in the order of the clients
};

using ExporterPtr = std::unique_ptr<Exporter>;

ExporterPtr MakeJsonlExporter(const ExportContext& context);
ExporterPtr MakeCsvExporter(const ExportContext& context);
// Writes files of its own into a folder, one a client. They appear with `Finish`.
ExporterPtr MakeTableExporter(const ExportContext& context);
ExporterPtr MakeCandumpExporter(const ExportContext& context);
ExporterPtr MakeNmeaExporter(const ExportContext& context);
ExporterPtr MakePcapngExporter(const ExportContext& context);
ExporterPtr MakeMcapExporter(const ExportContext& context);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_EXPORTER_H_
