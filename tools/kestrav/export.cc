#include <algorithm>
#include <array>
#include <cctype>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "damage.h"
#include "exporter.h"
#include "log_file.h"
#include "log_walk.h"
#include "os.h"
#include "output.h"
#include "output_file.h"
#include "progress.h"
#include "record_filter.h"
#include "text.h"

namespace kestrav::tool {
namespace {

struct ExportOptions {
  std::string log;
  std::string format;
  std::string out;
  RecordFilter::Options filter;
  bool per_client = false;
  std::string interface;
};

struct Format {
  std::string_view name;
  ExporterPtr (*make)(const ExportContext&);
  const char* left_out;  // what the records are that it has no form for
  bool is_binary = false;
  bool has_frames = false;
};

constexpr std::array<Format, 6> kFormats = {
    {{"jsonl", MakeJsonlExporter, ""},
     {"csv", MakeCsvExporter, "no place in a table"},
     {"candump", MakeCandumpExporter, "no CAN frames", false, true},
     {"nmea", MakeNmeaExporter, "no NMEA sentences"},
     {"pcapng", MakePcapngExporter, "no classic CAN frames", true, true},
     {"mcap", MakeMcapExporter, "", true}}};

const Format& FindFormat(const std::string& name) {
  return *std::find_if(kFormats.begin(), kFormats.end(),
                       [&](const Format& format) { return format.name == name; });
}

void CheckUsage(const ExportOptions& options, const Format& format) {
  const auto refuse = [](const std::string& text) { throw Failure(text, kWrongUsage); };
  const bool to_output = options.out.empty() || options.out == "-";
  if (options.per_client) {
    if (options.format != "csv") refuse("--per-client is for --to csv");
    if (to_output) refuse("--per-client needs a folder: -o DIR");
  } else if (format.is_binary && options.out.empty()) {
    refuse("--to " + options.format + " is not text: name a file with -o");
  }
  constexpr std::size_t kLongestInterface = 15;  // of the Linux kernel
  const auto is_graph = [](unsigned char c) { return std::isgraph(c) != 0; };
  if (!options.interface.empty() && !format.has_frames) {
    refuse("--interface is for --to candump and --to pcapng");
  }
  if (options.interface.size() > kLongestInterface ||
      !std::all_of(options.interface.begin(), options.interface.end(), is_graph)) {
    refuse("the name of an interface is up to 15 ASCII characters without blanks");
  }
}

// Hands the records that are asked for to the exporter.
class Export {
 public:
  Export(LogFile& log, const RecordFilter& filter, Exporter& exporter, Output& output)
      : log_(log), filter_(filter), exporter_(exporter), output_(output) {}

  void Run(bool show_progress) {
    LogWalk walk(log_.Decoder());
    Progress progress;
    exporter_.Begin(output_.Text());
    for (std::uint64_t index = 0; output_.Continue() && walk.Next() == kSuccess; ++index) {
      damage_.CountRecord(walk);
      Hand(walk, index);
      if (show_progress && index % 1024 == 0 && progress.IsDue()) {
        progress.Show(Counted(index, "record", "records") + ", " +
                      Percent(walk.End(), log_.Size()));
      }
    }
    log_.CheckReads();
    damage_.CountEnd(log_, walk);
    exporter_.Finish(output_.Text());
    reader_is_gone_ = !output_.Flush();
  }

  const Damage& Found() const { return damage_.Found(); }
  bool IsReaderGone() const { return reader_is_gone_; }

 private:
  void Hand(const LogWalk& walk, std::uint64_t index) {
    const BinaryLogRecordHeader& header = walk.Header();
    if (!filter_.MatchesClient(header.client_id)) return;
    const std::string_view payload(reinterpret_cast<const char*>(walk.Payload().Data()),
                                   walk.Payload().Size());
    const RecordView record = {index, header.client_id, header.data_id, header.time_stamp, payload};
    if (filter_.MatchesTime(header.time_stamp)) {
      exporter_.Add(record, output_.Text());
    } else if (filter_.IsBefore(header.time_stamp)) {
      exporter_.Pass(record);
    }
  }

  LogFile& log_;
  const RecordFilter& filter_;
  Exporter& exporter_;
  Output& output_;
  DamageCounter damage_;
  bool reader_is_gone_ = false;
};

void Say(const std::string& log, const std::string& text) {
  std::fprintf(stderr, "kestrav: export: %s\n", OneLine(log + ": " + text).c_str());
}

// The file that is written, and standard output without one.
class Destination {
 public:
  Destination(const std::string& path, const std::string& log) {
    if (path.empty() || path == "-") {
      output_.emplace();
      return;
    }
    file_.emplace(path, std::vector<SourceSpec>{SourceSpec{"", "", log}});
    remove_part_.emplace(file_->PartPath());
    output_.emplace(file_->PartPath(), path);
  }

  Output& Out() { return *output_; }
  void Commit() {
    output_->Close();
    if (file_) file_->Commit();
  }

 private:
  std::optional<OutputFile> file_;
  std::optional<RemoveOnInterrupt> remove_part_;
  std::optional<Output> output_;
};

ExitCode RunExport(const ExportOptions& options) {
  const Format& format = FindFormat(options.format);
  CheckUsage(options, format);
  const ClientNames names = FindNames(options.log);
  LogFile log(options.log);
  const RecordFilter filter(options.filter, log, names);
  const ExportContext context = {log.Header(), names, options.log, options.out, options.interface};
  const ExporterPtr exporter =
      options.per_client ? MakeTableExporter(context) : format.make(context);
  const bool to_file = !options.out.empty() && options.out != "-";
  Destination destination(options.per_client ? "" : options.out, options.log);
  Export run(log, filter, *exporter, destination.Out());
  run.Run(to_file || IsOutputFile());
  if (run.IsReaderGone()) return kDone;
  destination.Commit();
  if (exporter->LeftOut() > 0) {
    Say(options.log,
        Counted(exporter->LeftOut(), "record", "records") + " left out: " + format.left_out);
  }
  if (run.Found().IsNone()) return kDone;
  Say(options.log, DamageText(run.Found()));
  return kLost;
}

constexpr const char* kFooter =
    "jsonl    what cat --format jsonl prints, and the time of day in UTC\n"
    "csv      a record a line: index, time_ms (since the start of the log), time (of day, UTC),\n"
    "         client, client_id, data_id, size, and the payload: as text when it is UTF-8, or in\n"
    "         payload_hex. RFC 4180. Text that a spreadsheet would take for a formula (it begins\n"
    "         with = + - @, a tab or a line end and is no number) stands in payload_hex\n"
    "candump  CAN frames as candump -L writes them; the microseconds are 000\n"
    "nmea     NMEA sentences, each ended with a line feed\n"
    "pcapng   classic CAN frames as a capture, an interface a client\n"
    "mcap     a channel for each client and data id, JSON messages with a schema, and an index\n"
    "\n"
    "--per-client writes DIR/CLIENT.csv: CAN frames with columns of their own; the lines of an\n"
    "imported CSV as they were, which a spreadsheet may compute; the records of any other client.\n"
    "Interfaces are named can0, can1 and so on in the order of their first frames.\n"
    "\n"
    "What was imported comes back byte for byte (nmea, candump, csv with --per-client), but for\n"
    "empty lines, the CR of line ends and a missing last one; of nmea and candump also for lines\n"
    "that were none, and of candump for microseconds, the names of interfaces (see --interface),\n"
    "hex digits in lower case and the 0 of R0. Of several sources only the earliest has its time\n"
    "of day. Lines of CAN FD, and those with a direction, are handed to candump as they were.\n"
    "\n"
    "jsonl, csv and mcap hold the recorder's own records too. What a format has no form for is\n"
    "left out and counted. Exit code 3: the log is damaged, and what is whole was handed on.";

}  // namespace

void AddExport(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<ExportOptions>();
  CLI::App* const command =
      app.add_subcommand("export", "Hand the records of a log to other tools");
  command->add_option("LOG", options->log, "The log to read")->required();
  std::vector<std::string> names;
  for (const Format& format : kFormats) names.emplace_back(format.name);
  command->add_option("--to", options->format, "The format")
      ->required()
      ->check(CLI::IsMember(names))
      ->type_name("FORMAT");
  command->add_option("-o,--output", options->out,
                      "The file to write; without it, or with -, standard output");
  AddFilterOptions(*command, options->filter, "--until");
  command->add_flag("--per-client", options->per_client,
                    "With csv: a table a client, in the folder that -o names");
  command->add_option("--interface", options->interface, "The interface of the CAN frames")
      ->type_name("NAME");
  command->footer(kFooter);
  command->callback([options, &exit_code] { exit_code = RunExport(*options); });
}

}  // namespace kestrav::tool
