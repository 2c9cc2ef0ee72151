#include <memory>
#include <string>

#include "commands.h"
#include "kestrav/host/io/file_stream.h"
#include "kestrav/rescue/recovery.h"
#include "log_file.h"
#include "mapped_log.h"
#include "os.h"
#include "output.h"
#include "output_file.h"
#include "progress.h"
#include "rescue_text.h"
#include "text.h"

namespace kestrav::tool {
namespace {

struct RecoverOptions {
  std::string log;
  std::string out;
  bool json = false;
};

// Throws `Failure` when nothing can be recovered.
RecoveryResult RecoverTo(const std::string& path, const RecoverOptions& options,
                         RecoveryReport& report) {
  constexpr std::uint32_t kBufferBytes = 1 << 20;
  MappedLog log(options.log);
  const std::uint64_t size = log.Bytes().size();
  Io::BufferedFileOutputStream out(kBufferBytes);
  const auto fail_to_write = [&] {
    const bool is_long = out.Error() == 0;
    throw Failure(options.out + ": " + (is_long ? "not all fits" : ErrorText(out.Error())));
  };
  if (!out.Open(WidePath(path), Io::OpenMode::kCreate)) fail_to_write();
  Progress progress;
  const auto show = [&](std::uint64_t done) {
    if (progress.IsDue()) progress.Show("recovering, " + Percent(done, size));
    return true;
  };
  const RecoveryResult result = RecoverLog(log.Bytes(), &out, report, show);
  progress.Clear();
  if (result == RecoveryResult::kNoMemory) throw Failure("out of memory");
  if (result == RecoveryResult::kNothingFound) {
    throw Failure(options.log + ": no record found, nothing written");
  }
  if (result == RecoveryResult::kWriteFailed || !out.Close()) fail_to_write();
  return result;
}

std::string HeaderText(const RecoveryReport& report) {
  if (report.stream_header_good) return {};
  std::string text = "  the stream header is damaged";
  if (report.keys_derived) text += "; its keys follow from the records";
  if (!report.data_key_known)
    text += "; the key of the payloads is unknown, they may be unreadable";
  return text + "\n";
}

std::string DictionaryText(const RecoveryReport& report) {
  if (report.dictionary_moved) return "  a dictionary of the log was put in front\n";
  return report.dictionary_found ? "" : "  no dictionary found: playback goes by client ids\n";
}

ExitCode Recover(const RecoverOptions& options) {
  OutputFile out(options.out, {SourceSpec{"", "", options.log}});
  const RemoveOnInterrupt remove_part(out.PartPath());
  RecoveryReport report;
  const RecoveryResult result = RecoverTo(out.PartPath(), options, report);
  out.Commit();
  Output output;
  if (options.json) {
    nlohmann::ordered_json json = ReportJson(report);
    json["whole"] = result == RecoveryResult::kWhole;
    output.Text() = json.dump(2) + "\n";
  } else {
    output.Text() = OneLine(options.out) + ": " + Counted(report.records, "record", "records") +
                    ", " + HumanSize(report.record_bytes) + "\n" + HeaderText(report) +
                    DictionaryText(report) + DamageLines(report, "  ");
  }
  output.Flush();
  return result == RecoveryResult::kWhole ? kDone : kLost;
}

}  // namespace

void AddRecover(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<RecoverOptions>();
  CLI::App* const command =
      app.add_subcommand("recover", "Write what is whole in a damaged log to a new one");
  command->add_option("LOG", options->log, "The log to read")->required();
  command->add_option("-o,--output", options->out, "The log to write")->required();
  command->add_flag("--json", options->json, "Tell what was found as a JSON object");
  command->footer(
      "Every record whose own bytes are intact and whose place is certain is written, with its "
      "own\n"
      "time stamp, a dictionary first. Keys that are lost follow from the records. Records that\n"
      "stand out of order, twice or without evidence are left out and listed. LOG stays as it is.\n"
      "Exit code 3: something was lost.");
  command->callback([options, &exit_code] { exit_code = Recover(*options); });
}

}  // namespace kestrav::tool
