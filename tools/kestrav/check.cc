#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "kestrav/rescue/recovery.h"
#include "log_file.h"
#include "mapped_log.h"
#include "output.h"
#include "progress.h"
#include "rescue_text.h"
#include "scan.h"
#include "text.h"

namespace kestrav::tool {
namespace {

using Json = nlohmann::ordered_json;

struct CheckOptions {
  std::vector<std::string> logs;
  bool json = false;
};

// What both readings say of a log.
struct Checked {
  RecoveryResult result = RecoveryResult::kNothingFound;
  RecoveryReport report;
  bool is_log = false;  // its stream header is one; otherwise playback delivers nothing
  BinaryLogStreamHeader header;
  ScanResult scan;
  std::uint64_t size = 0;

  bool IsUnfinished() const { return is_log && header.stream_length == 0; }
  // The length that the header should state.
  std::uint64_t RecordsEnd() const { return kStreamHeaderSize + report.record_bytes; }
  bool HasWrongLength() const {
    return is_log && !IsUnfinished() && report.lost.empty() && header.stream_length != RecordsEnd();
  }
  bool IsHealthy() const {
    return result == RecoveryResult::kWhole && report.steps_back.empty() && !IsUnfinished() &&
           !HasWrongLength();
  }
};

void ReadDeeply(const std::string& path, Progress& progress, Checked& checked) {
  MappedLog log(path);
  const std::span<const std::uint8_t> bytes = log.Bytes();
  checked.size = bytes.size();
  const auto show = [&](std::uint64_t done) {
    if (progress.IsDue()) progress.Show("checking, " + Percent(done, checked.size));
    return true;
  };
  checked.result = RecoverLog(bytes, nullptr, checked.report, show);
  progress.Clear();
  if (checked.result == RecoveryResult::kNoMemory) throw Failure("out of memory");
  checked.is_log = bytes.size() >= kStreamHeaderSize &&
                   Memory::GetLittleEndian<std::uint32_t>(bytes.data()) == kStreamMagic;
}

Checked CheckOne(const std::string& path, Progress& progress) {
  Checked checked;
  ReadDeeply(path, progress, checked);
  if (!checked.is_log) return checked;
  LogFile log(path);
  checked.header = log.Header();
  checked.scan = Scan(log);
  return checked;
}

std::string HeaderText(const Checked& checked) {
  const RecoveryReport& report = checked.report;
  if (checked.size < kStreamHeaderSize) return "  stream header: cut off\n";
  std::string text;
  if (!checked.is_log) {
    text += "  stream header: damaged, its first bytes are not those of a log\n";
  } else if (!report.stream_header_good) {
    text += "  stream header: damaged\n";
  }
  if (report.keys_derived && report.records > 0) {
    text += "  stream header: its keys are not those of the records\n";
  }
  if (checked.IsUnfinished()) {
    text += "  stream header: not finished, the recording was cut off; see kestrav repair\n";
  } else if (checked.HasWrongLength()) {
    text += "  stream header: states a length of " + HumanCount(checked.header.stream_length) +
            " bytes, the records end at " + HumanCount(checked.RecordsEnd()) + "\n";
  }
  return text;
}

std::string PlaybackText(const ScanResult& scan) {
  std::string text = "  playback delivers " + Counted(scan.records, "record", "records");
  const char* between = ": ";
  for (const auto& [id, client] : scan.clients) {
    text += between + scan.names.Label(id) + " " + HumanCount(client.records);
    between = ", ";
  }
  return text + "\n";
}

std::string RecoverText(const Checked& checked) {
  const RecoveryReport& report = checked.report;
  std::string text =
      "  kestrav recover would bring back " + Counted(report.records, "record", "records");
  if (!report.dictionary_found && report.records > 0) text += ", but no dictionary";
  if (!report.data_key_known && report.records > 0) text += "; the key of the payloads is unknown";
  return text + "\n";
}

std::string CheckText(const std::string& path, const Checked& checked) {
  std::string text = OneLine(path);
  if (checked.IsHealthy()) {
    return text + ": healthy, " + Counted(checked.report.records, "record", "records") + "\n";
  }
  return text + ": damaged\n" + HeaderText(checked) + DamageLines(checked.report, "  ") +
         PlaybackText(checked.scan) + RecoverText(checked);
}

Json CheckJson(const std::string& path, const Checked& checked) {
  Json playback = {{"records", checked.scan.records}, {"clients", Json::array()}};
  for (const auto& [id, client] : checked.scan.clients) {
    const std::string* const name = checked.scan.names.Find(id);
    playback["clients"].push_back({{"client_id", id},
                                   {"client", name != nullptr ? Json(*name) : Json()},
                                   {"records", client.records}});
  }
  return {{"log", path},
          {"healthy", checked.IsHealthy()},
          {"size", checked.size},
          {"magic", checked.is_log},
          {"finished", checked.is_log && !checked.IsUnfinished()},
          {"wrong_length", checked.HasWrongLength()},
          {"playback", std::move(playback)},
          {"recover", ReportJson(checked.report)}};
}

// A log that fails holds up none of the others.
ExitCode Check(const CheckOptions& options) {
  Output output;
  Progress progress;
  Json all = Json::array();
  bool failed = false;
  bool damaged = false;
  for (const std::string& path : options.logs) {
    try {
      const Checked checked = CheckOne(path, progress);
      damaged |= !checked.IsHealthy();
      if (options.json) {
        all.push_back(CheckJson(path, checked));
      } else {
        output.Text() += CheckText(path, checked);
        output.Flush();
      }
    } catch (const Failure& failure) {
      progress.Clear();
      std::fprintf(stderr, "kestrav: check: %s\n", OneLine(failure.what()).c_str());
      failed = true;
    }
  }
  if (options.json) {
    output.Text() += all.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
    output.Flush();
  }
  return failed ? kFailed : damaged ? kLost : kDone;
}

}  // namespace

void AddCheck(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<CheckOptions>();
  CLI::App* const command = app.add_subcommand("check", "Tell what is damaged in logs, and where");
  command->add_option("LOG", options->logs, "The logs to check")->required();
  command->add_flag("--json", options->json, "As a JSON array, an object for each log");
  command->footer(
      "Reads each log twice: as playback does, and more deeply, to tell what playback delivers "
      "and\n"
      "what kestrav recover would bring back. Nothing is written.\n"
      "Exit code 1: some log could not be read; the others are checked. Exit code 3: some log is\n"
      "damaged, or its recording was not finished.");
  command->callback([options, &exit_code] { exit_code = Check(*options); });
}

}  // namespace kestrav::tool
