#include <map>
#include <utility>

#include "exit_codes.h"
#include "exporter.h"
#include "log_clock.h"
#include "mcap_writer.h"
#include "record_json.h"
#include "text.h"

// A channel for each client and data id, a JSON object for each record.

namespace kestrav::tool {
namespace {

constexpr std::string_view kSchema = R"({
  "type": "object",
  "title": "A record of a vehicle log",
  "properties": {
    "index": {"type": "integer", "description": "how many whole records stand before it"},
    "time_ms": {"type": "integer", "description": "milliseconds since the start of the log"},
    "client": {"type": ["string", "null"], "description": "who wrote it"},
    "client_id": {"type": "integer"},
    "data_id": {"type": "integer", "description": "the client's own number for what it is"},
    "size": {"type": "integer", "description": "bytes of payload"},
    "text": {"type": "string", "description": "the payload when it is UTF-8 text"},
    "payload_hex": {"type": "string", "description": "the payload otherwise"}
  },
  "required": ["index", "time_ms", "client", "client_id", "data_id", "size"]
})";

class McapExporter final : public Exporter {
 public:
  explicit McapExporter(const ExportContext& context)
      : clock_(context.header), names_(context.names), log_(context.log) {}

  void Begin(std::string& out) override {
    writer_.Begin("kestrav " KESTRAV_VERSION, out);
    schema_ = writer_.AddSchema("kestrav.Record", "jsonschema", kSchema);
  }

  void Add(const RecordView& record, std::string& out) override {
    constexpr std::uint64_t kNsPerMs = 1'000'000;
    const Channel& channel = ChannelOf(record);
    const auto unix_ms = static_cast<std::uint64_t>(clock_.UnixMs(record.time_stamp));
    std::string& json = writer_.BeginMessage(channel.id, unix_ms * kNsPerMs);
    json += "{\"index\":";
    AppendNumber(json, record.index);
    json += ",\"time_ms\":";
    AppendNumber(json, clock_.SinceStart(record.time_stamp));
    json += channel.ids;
    json += ",\"size\":";
    AppendNumber(json, record.payload.size());
    if (IsText(record.payload)) {
      json += ",\"text\":";
      AppendJsonString(json, record.payload);
    } else {
      json += ",\"payload_hex\":\"";
      AppendHex(json, record.payload);
      json += '"';
    }
    json += '}';
    writer_.EndMessage(out);
  }

  void Finish(std::string& out) override { writer_.Finish(out); }

 private:
  struct Channel {
    std::uint16_t id = 0;
    std::string ids;  // what is the same in all its messages
  };

  const Channel& ChannelOf(const RecordView& record) {
    const auto [found, inserted] = channels_.try_emplace({record.client_id, record.data_id});
    if (inserted) found->second = MakeChannel(record.client_id, record.data_id);
    return found->second;
  }

  Channel MakeChannel(std::uint16_t client_id, std::uint16_t data_id) {
    if (writer_.IsFull()) throw Failure(log_ + ": more than 65,535 kinds of records");
    const std::string* const name = names_.Find(client_id);
    const std::string client = std::to_string(client_id);
    const std::string data = std::to_string(data_id);
    const std::string label = names_.Label(client_id);
    McapWriter::Metadata metadata = {{"client_id", client}, {"data_id", data}};
    if (name != nullptr) metadata["client"] = label;
    return {writer_.AddChannel(schema_, "/" + label + "/" + data, "json", metadata),
            ",\"client\":" + JsonName(name) + ",\"client_id\":" + client + ",\"data_id\":" + data};
  }

  LogClock clock_;
  const ClientNames& names_;
  const std::string log_;
  McapWriter writer_;
  std::uint16_t schema_ = 0;
  std::map<std::pair<std::uint16_t, std::uint16_t>, Channel> channels_;
};

}  // namespace

ExporterPtr MakeMcapExporter(const ExportContext& context) {
  return std::make_unique<McapExporter>(context);
}

}  // namespace kestrav::tool
