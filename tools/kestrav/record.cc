#include <chrono>
#include <cmath>
#include <cstdio>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "commands.h"
#include "line_reader.h"
#include "log_recorder.h"
#include "os.h"
#include "output_file.h"
#include "progress.h"
#include "source_spec.h"
#include "text.h"

namespace kestrav::tool {
namespace {

constexpr std::uint16_t kLineDataId = 1;

struct RecordOptions {
  std::string out;
  bool plain = false;
  double sync_scnds = 1;
  std::uint64_t reserve_bytes = 16 << 20;
  std::string source;
};

SourceSpec ParseLiveSource(const std::string& text) {
  const SourceSpec spec = ParseSourceSpec(text, {"lines"});
  if (spec.name.empty())
    throw Failure(text + ": the source has no name, as in NAME=lines:-", kWrongUsage);
  if (spec.file != "-")
    throw Failure(text + ": only standard input (-) can be recorded", kWrongUsage);
  return spec;
}

class LineRecording {
 public:
  LineRecording(LogRecorder& recorder, std::size_t client) : recorder_(recorder), client_(client) {}

  // Until the end of the input or an interrupt.
  void Run(LiveInput& input) {
    std::vector<char> buffer(64 * 1024);
    for (;;) {
      ShowStatus();
      std::size_t size = 0;
      const LiveInput::Result result =
          input.Read(buffer.data(), buffer.size(), status_.IsEnabled() ? 250 : -1, size);
      if (result == LiveInput::Result::kNothingYet) continue;
      cutter_.Add({buffer.data(), size});
      if (result != LiveInput::Result::kData) cutter_.End();
      WriteLines();
      if (result == LiveInput::Result::kError) {
        read_error_ = input.error;
        return;
      }
      if (result != LiveInput::Result::kData) return;
    }
  }

  int ReadError() const { return read_error_; }

 private:
  void WriteLines() {
    std::string_view line;
    while (cutter_.Next(line)) {
      if (!line.empty()) recorder_.Write(client_, kLineDataId, line);
    }
    if (cutter_.IsTooLong()) throw Failure("standard input: a line is longer than 64 MiB");
  }

  void ShowStatus() {
    if (!status_.IsDue()) return;
    const auto elapsed = std::chrono::steady_clock::now() - start_;
    const auto scnds = std::chrono::duration_cast<std::chrono::seconds>(elapsed).count();
    const std::string time = HumanDuration(1000 * static_cast<std::int64_t>(scnds));
    status_.Show("recording " + time.substr(0, time.size() - 4) + "  " +
                 Counted(recorder_.Records(), "record", "records") + "  " +
                 HumanSize(recorder_.PayloadBytes()) + Dropped() + "  (Ctrl-C ends)");
  }

  // Nothing as long as nothing was.
  std::string Dropped() const {
    const std::uint64_t dropped = recorder_.Counters().Dropped();
    return dropped > 0 ? "  " + std::to_string(dropped) + " DROPPED" : std::string();
  }

  LogRecorder& recorder_;
  const std::size_t client_;
  LineCutter cutter_;
  int read_error_ = 0;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
  Progress status_;
};

void PrintCounters(const LoggingCounters& counters) {
  const auto number = [](std::uint64_t value) { return static_cast<unsigned long long>(value); };
  std::printf(
      "accepted %llu, written %llu, dropped %llu; queue at most %llu; %llu bytes; longest "
      "write %.1f ms\n",
      number(counters.accepted), number(counters.written), number(counters.Dropped()),
      number(counters.highest_queue), number(counters.bytes),
      static_cast<double>(counters.longest_write_us) / 1000);
}

ExitCode Record(const RecordOptions& options) {
  const SourceSpec spec = ParseLiveSource(options.source);
  if (options.out.empty()) throw Failure("the name of the output is empty", kWrongUsage);
  if (IsSameFile(options.out, spec.file)) {
    throw Failure(options.out + ": is the input and would be overwritten", kWrongUsage);
  }
  LiveInput input;
  const Io::FileOutputSettings settings = {
      .sync_interval_ms = static_cast<std::uint32_t>(std::ceil(options.sync_scnds * 1000)),
      .reserve_bytes = options.reserve_bytes};
  LogRecorder recorder(options.out, options.out, options.plain, settings);
  const std::size_t client = recorder.AddClient(spec.name);
  recorder.Start();
  int read_error = 0;
  {
    LineRecording recording(recorder, client);
    recording.Run(input);
    read_error = recording.ReadError();
  }
  try {
    recorder.Finish();
  } catch (const Failure&) {
    PrintCounters(recorder.Counters());
    throw;
  }
  if (read_error != 0) throw Failure("standard input: " + ErrorText(read_error));
  std::printf("%s: %s, %s\n", options.out.c_str(),
              Counted(recorder.Records(), "record", "records").c_str(),
              HumanSize(recorder.PayloadBytes()).c_str());
  PrintCounters(recorder.Counters());
  return kDone;
}

}  // namespace

void AddRecord(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<RecordOptions>();
  CLI::App* const command =
      app.add_subcommand("record", "Record lines of standard input as they come");
  command->add_option("-o,--output", options->out, "The log to write")->required();
  command->add_flag("--plain", options->plain, "Do not scramble the records");
  command
      ->add_option("--sync", options->sync_scnds,
                   "Seconds after which what was written is on the device; 0 leaves it to the "
                   "system")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 86'400.0).description(""))
      ->check([](const std::string& text) {
        return text.find("nan") == text.npos ? "" : "not a number";
      })
      ->capture_default_str();
  command
      ->add_option("--reserve", options->reserve_bytes,
                   "Space to leave free on the disk, as in 500k or 1g")
      ->type_name("SIZE")
      ->transform(CLI::AsSizeValue(false).description(""))
      ->default_str("16m");
  command->add_option("SOURCE", options->source, "NAME=lines:-")->required();
  command->footer(
      "Each line becomes a record of the client NAME with data id 1, stamped with the time at "
      "which\n"
      "it came. The end of the input, Ctrl-C and a request to terminate all finish the log.");
  command->callback([options, &exit_code] { exit_code = Record(*options); });
}

}  // namespace kestrav::tool
