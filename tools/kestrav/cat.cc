#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands.h"
#include "log_file.h"
#include "log_index.h"
#include "output.h"
#include "payload_text.h"
#include "progress.h"
#include "record_filter.h"
#include "record_source.h"
#include "text.h"

namespace kestrav::tool {
namespace {

struct CatOptions {
  std::string log;
  RecordFilter::Options filter;
  std::string format = "text";
};

class Printer {
 public:
  virtual ~Printer() = default;
  virtual void Print(std::string& out, std::uint64_t index, const LogMessage& message) = 0;
};

class RawPrinter final : public Printer {
 public:
  void Print(std::string& out, std::uint64_t /*index*/, const LogMessage& message) override {
    out.append(Payload(message)).push_back('\n');
  }
};

class JsonLinesPrinter final : public Printer {
 public:
  explicit JsonLinesPrinter(const ClientNames& names) : names_(names) {}

  void Print(std::string& out, std::uint64_t index, const LogMessage& message) override {
    out += "{\"index\":" + std::to_string(index);
    out += ",\"client_id\":" + std::to_string(message.GetClientID());
    out += ",\"client\":" + JsonName(message.GetClientID());
    out += ",\"data_id\":" + std::to_string(message.GetDataID());
    out += ",\"time_ms\":" + std::to_string(message.time_stamp);
    out += ",\"size\":" + std::to_string(message.GetDataSize());
    out += ",\"payload\":\"";
    AppendHex(out, message.GetDataPointer(), message.GetDataSize());
    out += "\"}\n";
  }

 private:
  // Made once a client: the other values need no care.
  const std::string& JsonName(std::uint16_t id) {
    std::string& text = json_names_[id];
    if (text.empty()) {
      const std::string* const name = names_.Find(id);
      nlohmann::json value;
      if (name != nullptr) value = *name;
      text = value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
    }
    return text;
  }

  const ClientNames& names_;
  std::map<std::uint16_t, std::string> json_names_;
};

class TextPrinter final : public Printer {
 public:
  TextPrinter(const LogFile& log, const ClientNames& names) : log_(log), names_(names) {
    for (const auto& [name, id] : names.Ids()) width_ = std::max(width_, names.Label(id).size());
  }

  void Print(std::string& out, std::uint64_t /*index*/, const LogMessage& message) override {
    const std::string time = Seconds(log_.SinceStart(message.time_stamp));
    const std::string client = names_.Label(message.GetClientID());
    std::array<char, 24> data_id;
    std::snprintf(data_id.data(), data_id.size(), "  %5u  ", unsigned{message.GetDataID()});
    Pad(out, time.size(), 10);
    out += time + "  " + client;
    Pad(out, client.size(), width_);
    out += data_id.data();
    AppendPayloadText(out, message);
    out += '\n';
  }

 private:
  static void Pad(std::string& out, std::size_t used, std::size_t width) {
    if (used < width) out.append(width - used, ' ');
  }

  const LogFile& log_;
  const ClientNames& names_;
  std::size_t width_ = 0;
};

std::unique_ptr<Printer> MakePrinter(const std::string& format, const LogFile& log,
                                     const ClientNames& names) {
  if (format == "raw") return std::make_unique<RawPrinter>();
  if (format == "jsonl") return std::make_unique<JsonLinesPrinter>(names);
  return std::make_unique<TextPrinter>(log, names);
}

void ShowProgress(Progress& progress, LogFile& log, std::uint64_t records) {
  if (records % 1024 != 0 || !progress.IsDue()) return;
  progress.Show(Counted(records, "record", "records") + ", " +
                std::to_string(100 * std::uint64_t{log.Decoder().Getoffset()} / log.Size()) + " %");
}

ExitCode Cat(const CatOptions& options) {
  LogFile log(options.log);
  std::optional<LogIndex> index = OpenIndex(log);
  const ClientNames names = index ? index->scan.names : FindNames(options.log);
  const RecordFilter filter(options.filter, log, names);
  RecordSource records(log, filter, std::move(index));
  const std::unique_ptr<Printer> printer = MakePrinter(options.format, log, names);
  Output output;
  Progress progress;
  const bool show_progress = IsOutputFile();
  LogMessage message;
  ResultCode result = kSuccess;
  for (;;) {
    result = records.Next(message);
    if (result != kSuccess) break;
    if (filter.Matches(message.GetClientID(), message.time_stamp)) {
      printer->Print(output.Text(), records.Ordinal(), message);
    }
    if (!output.Continue()) return kDone;
    if (show_progress) ShowProgress(progress, log, records.Ordinal());
  }
  output.Flush();
  log.CheckReads();
  return result == kNotEnoughData ? kDone : kLost;
}

}  // namespace

void AddCat(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<CatOptions>();
  CLI::App* const command = app.add_subcommand("cat", "Print the records of a log");
  command->add_option("LOG", options->log, "The log to read")->required();
  AddFilterOptions(*command, options->filter, "--to");
  command->add_option("--format", options->format, "text (the default), jsonl or raw")
      ->check(CLI::IsMember({"text", "jsonl", "raw"}))
      ->type_name("FORMAT");
  command->footer(
      "text   time in seconds, client, data id and payload, for people\n"
      "jsonl  one object a line: index, client_id, client, data_id, time_ms, size, payload (hex)\n"
      "raw    the payloads, each followed by a line feed\n"
      "Damaged records are left out. Exit code 3: the log ends in damage.");
  command->callback([options, &exit_code] { exit_code = Cat(*options); });
}

}  // namespace kestrav::tool
