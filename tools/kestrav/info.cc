#include <algorithm>
#include <cstdint>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

#include "commands.h"
#include "header_text.h"
#include "log_file.h"
#include "log_index.h"
#include "output.h"
#include "scan.h"
#include "text.h"

namespace kestrav::tool {
namespace {

using Json = nlohmann::ordered_json;

struct InfoOptions {
  std::string log;
  bool json = false;
  bool scan = false;
};

enum class FirstRecord { kNone, kDictionary, kOther, kDamaged };

// Reads nothing behind the first record, so a log of any size is answered at once.
FirstRecord ReadFirstRecord(LogFile& log, ClientNames& names) {
  constexpr std::uint32_t kLargestDictionary = 1024 * 1024;
  BinaryDecoder& decoder = log.Decoder();
  if (decoder.GetRemainingBytes() == 0) return FirstRecord::kNone;
  BinaryLogRecordHeader header;
  if (decoder.ReadLogRecordHeader(header, 0) != kSuccess) return FirstRecord::kDamaged;
  if (header.payload_size > decoder.GetRemainingBytes()) return FirstRecord::kDamaged;
  const bool is_dictionary =
      header.client_id == kInfoClientId && header.data_id == kDictionaryDataId;
  if (!is_dictionary || header.payload_size > kLargestDictionary) return FirstRecord::kOther;
  Memory::MemBlock payload;
  const bool whole = decoder.GetRecordData(payload, header.payload_size, header.record_index,
                                           header.payload_checksum) == kSuccess;
  return whole && ReadNames(header.client_id, header.data_id, payload, names)
             ? FirstRecord::kDictionary
             : FirstRecord::kDamaged;
}

bool IsCut(const LogFile& log) { return log.Header().stream_length > log.Size(); }

Json HeaderJson(const LogFile& log, const ClientNames& names) {
  const BinaryLogStreamHeader& header = log.Header();
  std::string reserved;
  AppendHex(reserved, header.reserved.data(), header.reserved.size());
  Json json;
  json["magic"] = "LOG:";
  json["start_time"] = header.start_time;
  json["client_selection"] = header.client_selection;
  json["header_key"] = header.header_key;
  json["data_key"] = header.data_key;
  json["duration_ms"] = header.recording_duration;
  json["stream_length"] = header.stream_length;
  json["clock_rate"] = header.clock_rate;
  json["start_clock"] = header.start_clock;
  json["reserved"] = reserved;
  json["dictionary"] = Json::object();
  for (const auto& [name, id] : names.Ids()) json["dictionary"][name] = id;
  json["file_size"] = log.Size();
  return json;
}

Json ScanJson(const ScanResult& scan) {
  Json clients = Json::array();
  for (const auto& [id, client] : scan.clients) {
    const std::string* const name = scan.names.Find(id);
    Json json;
    json["client_id"] = id;
    json["client"] = name != nullptr ? Json(*name) : Json();
    json["records"] = client.records;
    json["bytes"] = client.bytes;
    json["first_time_ms"] = client.first_time_stamp;
    json["last_time_ms"] = client.last_time_stamp;
    json["longest_gap_ms"] = client.longest_gap_ms;
    json["records_per_second"] = client.RecordsPerSecond();
    clients.push_back(std::move(json));
  }
  const Damage& damage = scan.damage;
  return {{"records", scan.records},
          {"clients", std::move(clients)},
          {"damage",
           {{"places", damage.places},
            {"skipped_bytes", damage.skipped_bytes},
            {"missing_records", damage.missing_records},
            {"misplaced_records", damage.misplaced_records},
            {"trailing_bytes", damage.trailing_bytes},
            {"cut_bytes", damage.cut_bytes}}}};
}

void Row(std::string& out, const std::string& label, const std::string& value) {
  constexpr std::size_t kLabelWidth = 16;
  out += "  " + label;
  out.append(label.size() < kLabelWidth ? kLabelWidth - label.size() : 1, ' ');
  out += value + "\n";
}

void Cell(std::string& out, const std::string& text, std::size_t width) {
  if (text.size() < width) out.append(width - text.size(), ' ');
  out += text;
}

std::string LengthText(const LogFile& log) {
  const std::uint32_t length = log.Header().stream_length;
  const std::string text = StreamLengthText(log.Header());
  if (length == 0) return text + ": the recording was not finished; kestrav repair works it out";
  return IsCut(log) ? text + ", of which the file lacks " + HumanCount(length - log.Size()) : text;
}

std::string ScramblingText(const BinaryLogStreamHeader& header) {
  if (header.header_key == 0 && header.data_key == 0) return "no";
  return "yes, header key " + Hex(header.header_key) + ", data key " + Hex(header.data_key);
}

void PrintClients(std::string& out, const ClientNames& names, FirstRecord first) {
  if (names.IsEmpty()) {
    Row(out, "clients",
        first == FirstRecord::kNone      ? "unknown: there is no record"
        : first == FirstRecord::kDamaged ? "unknown: the first record is damaged"
                                         : "unknown: the first record is no dictionary");
  }
  std::string label = "clients";
  for (const auto& [name, id] : names.Ids()) {
    Row(out, label, Printable(name) + " (" + std::to_string(id) + ")");
    label.clear();
  }
}

void PrintHeader(std::string& out, const LogFile& log, const ClientNames& names,
                 FirstRecord first) {
  const BinaryLogStreamHeader& header = log.Header();
  const std::uint32_t selection = header.client_selection;
  std::string reserved;
  AppendHex(reserved, header.reserved.data(), header.reserved.size());
  const bool zero = reserved.find_first_not_of('0') == std::string::npos;
  out += log.Path() + "\n";
  Row(out, "started", Utc(header.start_time) + " (" + std::to_string(header.start_time) + ")");
  Row(out, "duration", DurationText(header));
  Row(out, "file size", HumanSize(log.Size()) + " (" + HumanCount(log.Size()) + " bytes)");
  Row(out, "stream length", LengthText(log));
  Row(out, "scrambled", ScramblingText(header));
  Row(out, "clock",
      std::to_string(header.clock_rate) + " ticks a second, " + std::to_string(header.start_clock) +
          " ms at the start");
  Row(out, "selection", Hex(selection));
  Row(out, "reserved", zero ? "all zero" : reserved);
  PrintClients(out, names, first);
}

void PrintStatistics(std::string& out, const LogFile& log, const ScanResult& scan) {
  constexpr std::size_t kIdWidth = 4;
  constexpr std::size_t kWidth = 13;
  std::size_t name_width = 6;
  for (const auto& [id, client] : scan.clients) {
    name_width = std::max(name_width, scan.names.Label(id).size());
  }
  const auto row = [&](std::string name, const std::string& id,
                       std::initializer_list<std::string> cells) {
    name.resize(std::max(name.size(), name_width), ' ');
    out += "  " + name;
    Cell(out, id, kIdWidth);
    for (const std::string& cell : cells) Cell(out, cell, kWidth);
    out += '\n';
  };
  out += '\n';
  row("client", "id", {"records", "bytes", "first s", "last s", "longest gap", "records/s"});
  for (const auto& [id, client] : scan.clients) {
    row(scan.names.Label(id), std::to_string(id),
        {HumanCount(client.records), HumanCount(client.bytes),
         Seconds(log.SinceStart(client.first_time_stamp)),
         Seconds(log.SinceStart(client.last_time_stamp)), Seconds(client.longest_gap_ms),
         Fixed(client.RecordsPerSecond(), 2)});
  }
  out += '\n';
  Row(out, "records", HumanCount(scan.records));
}

void PrintDamage(std::string& out, const Damage& damage) {
  std::string label = "damage";
  const auto say = [&](std::uint64_t count, const std::string& text) {
    if (count == 0) return;
    Row(out, label, text);
    label.clear();
  };
  say(damage.skipped_bytes, Counted(damage.skipped_bytes, "byte", "bytes") + " skipped in " +
                                Counted(damage.places, "place", "places"));
  say(damage.missing_records, Counted(damage.missing_records, "record", "records") + " missing");
  say(damage.misplaced_records,
      Counted(damage.misplaced_records, "record", "records") + " out of order");
  say(damage.trailing_bytes,
      Counted(damage.trailing_bytes, "byte", "bytes") + " behind the last record");
  say(damage.cut_bytes, Counted(damage.cut_bytes, "byte", "bytes") + " cut off at the end");
  if (damage.IsNone()) Row(out, label, "none");
}

ExitCode Info(const InfoOptions& options) {
  LogFile log(options.log);
  ClientNames names;
  const FirstRecord first = ReadFirstRecord(log, names);
  log.CheckReads();
  bool lost = first == FirstRecord::kDamaged || IsCut(log);
  ScanResult scan;
  if (options.scan) {
    LogFile whole(options.log);
    scan = ScanWithIndex(whole);
    lost = lost || !scan.damage.IsNone();
  }
  Output output;
  if (options.json) {
    Json json = HeaderJson(log, names);
    if (options.scan) json["scan"] = ScanJson(scan);
    output.Text() = json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
  } else {
    PrintHeader(output.Text(), log, names, first);
    if (options.scan) {
      PrintStatistics(output.Text(), log, scan);
      PrintDamage(output.Text(), scan.damage);
    }
  }
  output.Flush();
  return lost ? kLost : kDone;
}

}  // namespace

void AddInfo(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<InfoOptions>();
  CLI::App* const command = app.add_subcommand("info", "Tell what a log says of itself");
  command->add_option("LOG", options->log, "The log to read")->required();
  command->add_flag("--json", options->json, "As a JSON object");
  command->add_flag("--scan", options->scan,
                    "Walk through the whole log: what each client recorded, and what is damaged");
  command->footer(
      "Without --scan the header and the first record alone are read. What --scan finds in a log\n"
      "of 64 MiB or more it keeps beside it as LOG.kidx, as kestrav index does.\n"
      "Exit code 3: something is lost, as far as was read.");
  command->callback([options, &exit_code] { exit_code = Info(*options); });
}

}  // namespace kestrav::tool
