#include <algorithm>
#include <cstdint>
#include <deque>
#include <limits>
#include <memory>
#include <queue>
#include <string>
#include <tuple>
#include <vector>

#include "client_ids.h"
#include "commands.h"
#include "log_writer.h"
#include "output.h"
#include "source_log.h"

namespace kestrav::tool {
namespace {

struct MergeOptions {
  std::vector<std::string> logs;
  std::string out;
  bool plain = false;
};

// A log whose records come with their time of day.
class Input {
 public:
  explicit Input(const std::string& path) : source_(path) {}

  const SourceLog& Source() const { return source_; }
  std::int64_t StartMs() const { return 1000 * source_.Log().Header().start_time; }
  std::int64_t EndMs() const { return StartMs() + source_.LengthMs(); }
  // Of the record where it stands, in milliseconds since 1970.
  std::int64_t WallMs() const { return StartMs() + source_.AtMs(); }

  bool Next() { return source_.Next(); }

 private:
  SourceLog source_;
};

class Merger {
 public:
  explicit Merger(const MergeOptions& options) : out_(options.out, options.logs, options.plain) {
    for (const std::string& path : options.logs) {
      inputs_.emplace_back(path);
      ids_.AddLog(inputs_.back().Source());
    }
  }

  ExitCode Run() {
    for (std::size_t i = 0; i < inputs_.size(); ++i) Queue(i);
    Begin();
    while (!next_.empty()) {
      const std::size_t input = std::get<1>(next_.top());
      next_.pop();
      Write(input);
      Queue(input);
    }
    Finish();
    bool lost = false;
    for (const Input& input : inputs_) lost |= input.Source().ReportLoss("merge");
    return lost ? kLost : kDone;
  }

 private:
  // The record that comes next is the earliest; of those with one time the first input's.
  using Next = std::tuple<std::int64_t, std::size_t>;

  void Queue(std::size_t input) {
    if (inputs_[input].Next()) next_.emplace(inputs_[input].WallMs(), input);
  }

  void Begin() {
    const auto starts_earlier = [](const Input& a, const Input& b) {
      return a.StartMs() < b.StartMs();
    };
    const Input& first = *std::min_element(inputs_.begin(), inputs_.end(), starts_earlier);
    LogWriter::Start start(first.Source().Log().Header());
    start.selection = BinaryLogStreamHeader::Selection(ids_.Selection());
    start_ms_ = first.StartMs();
    start_clock_ = start.clock_ms;
    out_.Begin(start, Front(first));
  }

  // That of the first log in time, for all clients.
  const LogFront& Front(const Input& first) {
    front_ = first.Source().Front();
    if (!ids_.Names().empty()) front_.dictionary.payload = DictionaryPayload(ids_.Names());
    const auto is_extended = [](const Input& input) {
      return input.Source().Front().extended_selection.Exists();
    };
    if (std::any_of(inputs_.begin(), inputs_.end(), is_extended)) {
      front_.extended_selection.payload = ExtendedSelectionPayload(ids_.Selection());
    }
    LimitTime(front_.dictionary, first);
    LimitTime(front_.extended_selection, first);
    return front_;
  }

  // In front of all records, also where the log itself has no such record.
  void LimitTime(FrontRecord& record, const Input& first) const {
    const LogFront& own = first.Source().Front();
    const bool is_own =
        (&record == &front_.dictionary ? own.dictionary : own.extended_selection).Exists();
    if (!is_own) record.time_stamp = start_clock_;
    if (next_.empty()) return;
    const std::int64_t first_ms = std::get<0>(next_.top()) - start_ms_;
    const auto own_ms = static_cast<std::int32_t>(record.time_stamp - start_clock_);
    if (first_ms < own_ms) record.time_stamp = start_clock_ + static_cast<std::uint32_t>(first_ms);
  }

  void Write(std::size_t at) {
    const Input& input = inputs_[at];
    const std::int64_t since_start_ms = input.WallMs() - start_ms_;
    if (since_start_ms > std::numeric_limits<std::uint32_t>::max()) {
      throw Failure(input.Source().Log().Path() +
                    ": is more than 49 days later than the first log, which no log can span");
    }
    BinaryLogRecordHeader header = input.Source().Header();
    header.client_id = ids_.Find(at, header.client_id);
    header.time_stamp = start_clock_ + static_cast<std::uint32_t>(since_start_ms);
    if (input.Source().IsFrontRecord()) {
      // Repeated every now and then, with the same content.
      const bool is_dictionary = header.data_id == kDictionaryDataId;
      const FrontRecord& own = is_dictionary ? front_.dictionary : front_.extended_selection;
      if (own.Exists()) out_.Replace(header, own.payload);
    } else {
      out_.Write(header, input.Source().Payload());
    }
  }

  void Finish() {
    std::int64_t end_ms = start_ms_;
    for (const Input& input : inputs_) end_ms = std::max(end_ms, input.EndMs());
    out_.Finish(end_ms - start_ms_);
    Output output;
    output.Text() = out_.Summary();
    output.Flush();
  }

  LogWriter out_;
  std::deque<Input> inputs_;
  ClientIds ids_;
  std::priority_queue<Next, std::vector<Next>, std::greater<>> next_;
  LogFront front_;
  std::int64_t start_ms_ = 0;  // of the output, since 1970
  std::uint32_t start_clock_ = 0;
};

}  // namespace

void AddMerge(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<MergeOptions>();
  CLI::App* const command = app.add_subcommand("merge", "Join logs into one, by the time of day");
  command->add_option("LOG", options->logs, "The logs to read, at least two")
      ->required()
      ->expected(-2);  // or more
  command->add_option("-o,--output", options->out, "The log to write")->required();
  command->add_flag("--plain", options->plain, "Do not scramble the records");
  command->footer(
      "A record's time of day is its log's start time and the milliseconds since its start clock. "
      "Of\n"
      "records with one time those of the log that is named first come first. Clients of one name "
      "are\n"
      "one client. Clients keep the ids that they have in the first log; where an id is taken, "
      "the\n"
      "lowest free one is used. Damaged records are left out. Exit code 3: something was lost.");
  command->callback([options, &exit_code] { exit_code = Merger(*options).Run(); });
}

}  // namespace kestrav::tool
