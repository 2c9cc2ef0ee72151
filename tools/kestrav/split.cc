#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include "commands.h"
#include "log_writer.h"
#include "output.h"
#include "source_log.h"
#include "text.h"

namespace kestrav::tool {
namespace {

namespace fs = std::filesystem;

constexpr const char* kSuffix = ".klog";

struct SplitOptions {
  std::string log;
  std::string prefix;       // of the pieces' names; empty: the log's name
  double every_scnds = 0;   // 0: by size
  std::uint64_t bytes = 0;  // 0: by time
  bool force = false;
  bool plain = false;
};

std::string Prefix(const SplitOptions& options) {
  if (!options.prefix.empty()) return options.prefix;
  const fs::path log(options.log);
  return log.extension() == kSuffix ? fs::path(log).replace_extension().string() : options.log;
}

std::string PieceName(const std::string& prefix, std::uint64_t number) {
  const std::string digits = std::to_string(number);
  return prefix + "-" + std::string(digits.size() < 3 ? 3 - digits.size() : 0, '0') + digits +
         kSuffix;
}

// Whether the file could be a piece, of a name that begins with `front`.
bool IsPieceName(const std::string& name, const std::string& front) {
  const std::string suffix = kSuffix;
  if (name.size() < front.size() + 3 + suffix.size()) return false;
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  const auto digits_end = name.end() - static_cast<std::ptrdiff_t>(suffix.size());
  return name.compare(0, front.size(), front) == 0 && name.ends_with(suffix) &&
         std::all_of(name.begin() + static_cast<std::ptrdiff_t>(front.size()), digits_end,
                     is_digit);
}

// How many pieces there will be is not known, so nothing that looks like one may be in the way.
void CheckPlace(const SplitOptions& options, const std::string& prefix) {
  const fs::path path(prefix + "-");
  const fs::path folder = path.has_parent_path() ? path.parent_path() : fs::path(".");
  std::error_code error;
  for (fs::directory_iterator file(folder, error), end; !error && file != end;
       file.increment(error)) {
    const std::string there = file->path().string();
    if (!IsPieceName(file->path().filename().string(), path.filename().string())) continue;
    if (IsSameFile(there, options.log)) {
      throw Failure(there + ": is a source and would be overwritten", kWrongUsage);
    }
    if (!options.force) throw Failure(there + ": is there already; --force overwrites it");
  }
  if (error) throw Failure(folder.string() + ": " + error.message());
}

class Splitter {
 public:
  explicit Splitter(const SplitOptions& options)
      : options_(options),
        every_ms_(std::round(options.every_scnds * 1e6) / 1000),
        prefix_(Prefix(options)),
        source_(options.log) {
    CheckPlace(options, prefix_);
  }

  ExitCode Run() {
    while (source_.Next()) Take();
    if (!piece_) Open(1, 0);  // of a log without records
    Close(IsByTime() ? std::min(source_.LengthMs(), SliceEndMs()) : source_.LengthMs());
    const std::uint64_t empty = number_ - pieces_;
    output_.Text() += Counted(pieces_, "piece", "pieces");
    if (empty > 0) {
      output_.Text() +=
          "; " + Counted(empty, "number is", "numbers are") + " left out, where no record is";
    }
    output_.Text() += "\n";
    output_.Flush();
    return source_.ReportLoss("split") ? kLost : kDone;
  }

 private:
  bool IsByTime() const { return options_.bytes == 0; }
  std::int64_t SliceEndMs() const {
    return static_cast<std::int64_t>(every_ms_ * static_cast<double>(number_));
  }

  void Take() {
    const std::int64_t at_ms = std::max<std::int64_t>(source_.AtMs(), 0);
    if (IsByTime()) {
      TakeByTime(at_ms);
    } else {
      TakeBySize(at_ms);
    }
    has_records_ = true;
    last_ms_ = at_ms;
    piece_->Write(source_.Header(), source_.Payload());
  }

  // A record that goes back in time stays with those before it.
  void TakeByTime(std::int64_t at_ms) {
    const double slice = std::floor(static_cast<double>(at_ms) / every_ms_);
    const auto number = static_cast<std::uint64_t>(slice) + 1;
    if (piece_ && number <= number_) return;
    if (piece_) Close(SliceEndMs());
    Open(number, slice * every_ms_);
  }

  void TakeBySize(std::int64_t at_ms) {
    const std::uint64_t size = std::uint64_t{kRecordHeaderSize} + source_.Header().payload_size;
    if (piece_ && (!has_records_ || piece_->Bytes() + size <= options_.bytes)) return;
    if (piece_) Close(last_ms_);
    Open(number_ + 1, pieces_ > 0 ? static_cast<double>(at_ms) : 0);
  }

  // Whole seconds lie in front of a piece, so that its records keep their time of day.
  void Open(std::uint64_t number, double from_ms) {
    number_ = number;
    piece_.emplace(PieceName(prefix_, number), std::vector<std::string>{options_.log},
                   options_.plain);
    LogWriter::Start start(source_.Log().Header());
    LogFront front = source_.Front();
    const auto scnds = static_cast<std::int32_t>(from_ms / 1000);
    start.Move(scnds);
    if (from_ms > 0) front.SetTime(start.clock_ms);
    piece_->Begin(start, front);
    start_ms_ = std::int64_t{1000} * scnds;
    last_ms_ = start_ms_;
    has_records_ = false;
  }

  void Close(std::int64_t end_ms) {
    if (!options_.force && fs::exists(piece_->Path())) {
      throw Failure(piece_->Path() + ": is there already; --force overwrites it");
    }
    piece_->Finish(std::max(end_ms, last_ms_) - start_ms_);
    output_.Text() += piece_->Summary();
    piece_.reset();
    ++pieces_;
  }

  const SplitOptions& options_;
  const double every_ms_;
  const std::string prefix_;
  SourceLog source_;
  Output output_;
  std::optional<LogWriter> piece_;
  bool has_records_ = false;  // the piece has
  std::uint64_t number_ = 0;
  std::uint64_t pieces_ = 0;
  std::int64_t start_ms_ = 0;  // of the piece, in the log
  std::int64_t last_ms_ = 0;
};

}  // namespace

void AddSplit(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<SplitOptions>();
  CLI::App* const command = app.add_subcommand("split", "Cut a log into pieces");
  command->add_option("LOG", options->log, "The log to read")->required();
  auto* const every =
      command->add_option("--every", options->every_scnds, "A piece for each SECONDS of the log")
          ->check(CLI::Range(0.001, 1e9))
          ->option_text("SECONDS");
  auto* const size =
      command->add_option("--size", options->bytes, "A piece for each SIZE, as in 500k or 1g")
          ->transform(CLI::AsSizeValue(false).description(""))
          ->check(CLI::Range(std::uint64_t{1}, std::uint64_t{0xFFFFFFFF}).description(""))
          ->option_text("SIZE");
  every->excludes(size);
  command->add_option("-o,--output", options->prefix, "What the pieces' names begin with")
      ->option_text("PREFIX");
  command->add_flag("--force", options->force, "Overwrite files of these names");
  command->add_flag("--plain", options->plain, "Do not scramble the records");
  command->footer(
      "The pieces are PREFIX-001.klog and so on; PREFIX is the name of LOG unless it is given. "
      "Each "
      "is\n"
      "a whole log with a dictionary, starts at a whole second and keeps its records' time of "
      "day.\n"
      "With --every the number tells the time, and where no record is there is no piece. With "
      "--size\n"
      "a piece is only larger when a single record is. Damaged records are left out. Exit code 3:\n"
      "something was lost.");
  command->callback([options, every, size, &exit_code] {
    if (every->count() + size->count() == 0) {
      throw CLI::ValidationError("one of --every and --size is needed");
    }
    if (std::isnan(options->every_scnds)) {
      throw CLI::ValidationError("--every: a time is a number of seconds");
    }
    exit_code = Splitter(*options).Run();
  });
}

}  // namespace kestrav::tool
