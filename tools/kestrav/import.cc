#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "commands.h"
#include "kestrav/host/time/manual_source.h"
#include "kestrav/host/time/source.h"
#include "log_recorder.h"
#include "os.h"
#include "output_file.h"
#include "progress.h"
#include "text.h"
#include "trace_source.h"

namespace kestrav::tool {
namespace {

struct ImportOptions {
  std::string out;
  bool plain = false;
  double limit_scnds = -1;  // negative: none
  std::string time_column = "millis";
  std::vector<std::string> sources;
};

using Sources = std::vector<std::unique_ptr<TraceSource>>;

// The time of the traces, in use while this exists. A log starts with a whole second, the traces
// within it.
class TraceClock {
 public:
  explicit TraceClock(std::int64_t unix_ms)
      : source_(kStartMs, unix_ms / 1000), first_ms_(static_cast<std::uint64_t>(unix_ms % 1000)) {
    Time::SetSource(&source_);
  }
  ~TraceClock() { Time::SetSource(nullptr); }
  TraceClock(const TraceClock&) = delete;
  TraceClock& operator=(const TraceClock&) = delete;

  // `at_ms` is since the start of the traces.
  void MoveTo(std::uint32_t at_ms) { source_.MoveTo(first_ms_ + at_ms); }
  void Settle() { source_.Settle(); }
  // Since the start of the log.
  std::uint64_t ElapsedMs() { return source_.ElapsedMs(); }

 private:
  static constexpr std::uint32_t kStartMs = 1000;  // 0 would mean no clock

  Time::ManualSource source_;
  const std::uint64_t first_ms_;
};

std::vector<SourceSpec> ParseSources(const ImportOptions& options) {
  std::vector<SourceSpec> specs;
  std::set<std::string> names;
  int standard_inputs = 0;
  for (const std::string& text : options.sources) {
    SourceSpec spec = ParseSourceSpec(text, TraceKinds());
    if (spec.name.empty()) spec.name = DefaultClientName(spec.kind);
    if (!names.insert(spec.name).second) {
      throw Failure("two sources are named '" + spec.name + "'; name them NAME=KIND:FILE",
                    kWrongUsage);
    }
    if (spec.file == "-" && ++standard_inputs > 1) {
      throw Failure("only one source can be standard input", kWrongUsage);
    }
    specs.push_back(std::move(spec));
  }
  return specs;
}

Sources OpenSources(const std::vector<SourceSpec>& specs, const ImportOptions& options) {
  TraceSource::Options trace;
  trace.time_column = options.time_column;
  if (std::isnan(options.limit_scnds)) throw Failure("--limit is no number", kWrongUsage);
  if (options.limit_scnds >= 0) {
    const double limit_ms = std::floor(options.limit_scnds * 1000);
    trace.limit_ms =
        limit_ms < trace.limit_ms ? static_cast<std::uint32_t>(limit_ms) : TraceSource::kLatestMs;
  }
  Sources sources;
  for (const SourceSpec& spec : specs) {
    sources.push_back(std::make_unique<TraceSource>(spec, trace));
  }
  return sources;
}

// When the earliest of the traces was recorded, or now when no trace tells.
std::int64_t StartUnixMs(const Sources& sources) {
  constexpr std::int64_t kEnd = 0x100000000 * 1000;  // a log holds 32 bits of seconds
  std::int64_t earliest = kEnd;
  for (const auto& source : sources) {
    const std::int64_t ms = source->FirstUnixMs().value_or(0);
    if (ms >= 1000) earliest = std::min(earliest, ms);
  }
  if (earliest < kEnd) return earliest;
  std::int64_t now_scnds = 0;
  if (!Time::Source().ReadWallClockScnds(now_scnds)) throw Failure("the clock cannot be read");
  return now_scnds * 1000;
}

// Shows how much of the sources has been read.
class ImportProgress {
 public:
  explicit ImportProgress(const Sources& sources) : sources_(sources) {
    for (const auto& source : sources) {
      std::error_code error;
      const std::uintmax_t size = std::filesystem::file_size(source->Spec().file, error);
      if (error) whole_known_ = false;
      if (!error) whole_ += size;
    }
  }

  void Update(std::uint64_t records) {
    if (!progress_.IsDue()) return;
    std::uint64_t read = 0;
    for (const auto& source : sources_) read += source->BytesRead();
    std::string text = HumanCount(records) + " records, " + HumanSize(read);
    if (whole_known_ && whole_ > 0) text += ", " + std::to_string(100 * read / whole_) + " %";
    progress_.Show(text);
  }

 private:
  const Sources& sources_;
  std::uint64_t whole_ = 0;
  bool whole_known_ = true;
  Progress progress_;
};

// The source with the earliest line; of equals, the one named first. Null: all have ended.
std::size_t EarliestSource(const Sources& sources, const TraceLine*& line) {
  std::size_t earliest = 0;
  line = nullptr;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const TraceLine* const front = sources[i]->Front();
    if (front == nullptr || (line != nullptr && front->at_ms >= line->at_ms)) continue;
    line = front;
    earliest = i;
  }
  return earliest;
}

// Writes all lines in the order of their times. What is on its way to the file stays small.
void Record(const Sources& sources, TraceClock& clock, LogRecorder& recorder) {
  constexpr std::uint64_t kMostRecordsOnTheWay = 8192;
  constexpr std::uint64_t kMostBytesOnTheWay = 1024 * 1024;
  ImportProgress progress(sources);
  std::uint64_t records_settled = 0;
  std::uint64_t bytes_settled = 0;
  for (;;) {
    const TraceLine* line = nullptr;
    const std::size_t i = EarliestSource(sources, line);
    if (line == nullptr) return;
    clock.MoveTo(line->at_ms);
    recorder.Write(i, line->data_id, line->payload);
    sources[i]->Pop();
    if (recorder.Records() - records_settled < kMostRecordsOnTheWay &&
        recorder.PayloadBytes() - bytes_settled < kMostBytesOnTheWay) {
      continue;
    }
    clock.Settle();
    recorder.CheckWrites();
    records_settled = recorder.Records();
    bytes_settled = recorder.PayloadBytes();
    progress.Update(recorder.Records());
  }
}

void Warn(const TraceSource& source, const std::string& text) {
  const std::string& file = source.Spec().file;
  const std::string line = (file == "-" ? "standard input" : file) + ": " + text;
  std::fprintf(stderr, "kestrav: import: %s\n", OneLine(line).c_str());
}

void Report(const ImportOptions& options, const Sources& sources, const LogRecorder& recorder,
            std::uint64_t length_ms) {
  for (const auto& source : sources) {
    if (source->WrongChecksums() > 0) {
      Warn(*source, Counted(source->WrongChecksums(), "sentence has a wrong checksum",
                            "sentences have a wrong checksum") +
                        " (recorded like the others)");
    }
    if (source->TooLate() > 0) {
      Warn(*source, Counted(source->TooLate(), "line has", "lines have") +
                        " a time more than 49 days after the first (recorded at the time before)");
    }
    if (source->Backward() > 0) {
      Warn(*source, Counted(source->Backward(), "line has", "lines have") +
                        " a time before that of the line before (recorded at the time before)");
    }
    if (source->Unreadable() > 0) {
      Warn(*source, Counted(source->Unreadable(), "line is", "lines are") + " no " +
                        source->Spec().kind + " (recorded with data id " +
                        std::to_string(kUnreadableDataId) + "), the first is line " +
                        std::to_string(source->FirstUnreadable()));
    }
  }
  std::printf("%s: %s of %s, %s\n", OneLine(options.out).c_str(),
              Counted(recorder.Records(), "record", "records").c_str(),
              Counted(sources.size(), "source", "sources").c_str(),
              HumanDuration(static_cast<std::int64_t>(length_ms)).c_str());
  for (const auto& source : sources) {
    std::printf("  %s: %s of %s\n", source->Spec().name.c_str(),
                Counted(source->Lines(), "line", "lines").c_str(),
                OneLine(source->Spec().file).c_str());
  }
}

ExitCode Import(const ImportOptions& options) {
  const std::vector<SourceSpec> specs = ParseSources(options);
  OutputFile out(options.out, specs);
  const RemoveOnInterrupt remove_part(out.PartPath());
  const Sources sources = OpenSources(specs, options);
  TraceClock clock(StartUnixMs(sources));
  // The trace's clock runs as fast as it can, and the trace can be imported again.
  constexpr Io::FileOutputSettings kUnsynced = {.sync_interval_ms = 0};
  LogRecorder recorder(out.PartPath(), options.out, options.plain, kUnsynced);
  for (const SourceSpec& spec : specs) recorder.AddClient(spec.name);
  recorder.Start();
  clock.Settle();
  Record(sources, clock, recorder);
  recorder.Finish();
  out.Commit();
  Report(options, sources, recorder, clock.ElapsedMs());
  return kDone;
}

}  // namespace

void AddImport(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<ImportOptions>();
  CLI::App* const command = app.add_subcommand("import", "Turn recorded traces into one log");
  command->add_option("-o,--output", options->out, "The log to write")->required();
  command->add_flag("--plain", options->plain, "Do not scramble the records");
  command->add_option("--limit", options->limit_scnds, "Leave out what comes later than SECONDS")
      ->check(CLI::Range(0.0, 1e9))
      ->type_name("SECONDS");
  command->add_option("--time-column", options->time_column,
                      "The column of a csv that holds the time in milliseconds (default: millis)");
  command->add_option("SOURCE", options->sources, "[NAME=]KIND:FILE; FILE - is standard input")
      ->required();
  command->footer(
      "Each source becomes a client of the log; all start together, and the log's time stamps "
      "have\n"
      "the spacing of the traces in milliseconds. The log starts with the second in which the\n"
      "earliest of them started.\n"
      "Kinds, and the names of their clients unless NAME= is given:\n"
      "  nmea     GPS  sentences of a satellite receiver; time: the last RMC or GGA whose own\n"
      "                checksum is not wrong\n"
      "  candump  CAN  candump -L; 16-byte CAN frames with data id 1 (classic frames, without\n"
      "                the direction that candump -x adds)\n"
      "  csv      IMU  the header line has data id 1, samples have data id 2\n"
      "Data ids of sentences: " +
      NmeaDataIdTable() +
      ".\n"
      "A line that cannot be read as its kind is recorded as it stands with data id 98.");
  command->callback([options, &exit_code] { exit_code = Import(*options); });
}

}  // namespace kestrav::tool
