#include <algorithm>
#include <cmath>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "commands.h"
#include "kestrav/types/client_id_set.h"
#include "log_writer.h"
#include "output.h"
#include "record_filter.h"
#include "source_log.h"

namespace kestrav::tool {
namespace {

struct TrimOptions {
  std::string log;
  std::string out;
  RecordFilter::Options filter;
  bool keep_state = false;
  bool plain = false;
};

// The last record of each kind, by where it stands: payloads may be large.
class LastRecords {
 public:
  void Note(const SourceLog& source) {
    const BinaryLogRecordHeader& header = source.Header();
    last_[{header.client_id, header.data_id}] = {source.Offset(), header.record_index};
  }

  // Writes them in the order of the log, as of `time_stamp`.
  void WriteTo(LogWriter& out, const std::string& path, std::uint32_t time_stamp) const {
    std::vector<Place> places;
    for (const auto& [kind, place] : last_) places.push_back(place);
    std::sort(places.begin(), places.end());
    LogFile log(path);
    BinaryLogRecordHeader header;
    Memory::MemBlock payload;
    for (const auto& [offset, index] : places) {
      const bool read = log.Decoder().SetOffset(offset) &&
                        log.Decoder().ReadLogRecordHeader(header, index) == kSuccess &&
                        log.Decoder().GetRecordData(payload, header.payload_size, index,
                                                    header.payload_checksum) == kSuccess;
      log.CheckReads();
      if (!read) throw Failure(path + ": changes while it is read");
      header.time_stamp = time_stamp;
      out.Write(header, payload);
    }
  }

 private:
  using Place = std::pair<std::uint32_t, std::uint32_t>;  // offset and index

  std::map<std::pair<std::uint16_t, std::uint16_t>, Place> last_;
};

class Trimmer {
 public:
  explicit Trimmer(const TrimOptions& options)
      : options_(options),
        source_(options.log),
        filter_(options.filter, source_.Log(), source_.Names()),
        out_(options.out, {options.log}, options.plain) {}

  ExitCode Run() {
    if (!options_.keep_state) source_.StartFrom(filter_.FromMs());
    Begin();
    const bool stopped = WriteRecords();
    if (options_.keep_state && !in_window_) WriteState();
    const double end_ms = stopped
                              ? filter_.ToMs()
                              : std::min(static_cast<double>(source_.LengthMs()), filter_.ToMs());
    out_.Finish(std::max(static_cast<std::int64_t>(end_ms), last_ms_) - cut_ms_);
    Output output;
    output.Text() = out_.Summary();
    output.Flush();
    return source_.ReportLoss("trim") ? kLost : kDone;
  }

 private:
  // Whole seconds are cut off the start, so that all records keep their time of day.
  void Begin() {
    LogWriter::Start start(source_.Log().Header());
    LogFront front = source_.Front();
    constexpr double kLongestScnds = 4'294'967;
    const auto scnds = static_cast<std::int32_t>(
        std::clamp(std::floor(filter_.FromMs() / 1000), 0.0, kLongestScnds));
    cut_ms_ = last_ms_ = std::int64_t{1000} * scnds;
    start.Move(scnds);
    if (filter_.FromMs() > 0) front.SetTime(start.clock_ms);
    if (!filter_.Ids().empty()) LimitToClients(front, start);
    start_clock_ = start.clock_ms;
    out_.Begin(start, front);
  }

  void LimitToClients(LogFront& front, LogWriter::Start& start) const {
    std::uint64_t selection = ClientIdSet::Bit(kInfoClientId);
    for (const std::uint16_t id : filter_.Ids()) selection |= ClientIdSet::Bit(id);
    start.selection = BinaryLogStreamHeader::Selection(selection);
    std::map<std::string, std::uint16_t> ids;
    for (const auto& [name, id] : source_.Names().Ids()) {
      if (id == kInfoClientId || filter_.MatchesClient(id)) ids.emplace(name, id);
    }
    if (front.dictionary.Exists()) front.dictionary.payload = DictionaryPayload(ids);
    if (front.extended_selection.Exists()) {
      front.extended_selection.payload = ExtendedSelectionPayload(selection);
    }
  }

  // Whether it ended before the log did: times never go back.
  bool WriteRecords() {
    while (source_.Next()) {
      const auto at_ms = static_cast<double>(std::max<std::int64_t>(source_.AtMs(), 0));
      if (at_ms > filter_.ToMs()) return true;
      if (IsWanted()) Take(at_ms);
    }
    return false;
  }

  // A dictionary of all clients would be wrong where only some are.
  bool IsWanted() const {
    return filter_.MatchesClient(source_.Header().client_id) &&
           (filter_.Ids().empty() || !source_.IsFrontRecord());
  }

  void Take(double at_ms) {
    if (at_ms >= filter_.FromMs()) {
      if (options_.keep_state && !in_window_) WriteState();
      in_window_ = true;
      out_.Write(source_.Header(), source_.Payload());
      last_ms_ = source_.AtMs();
    } else if (options_.keep_state && !in_window_ && !source_.IsFrontRecord()) {
      state_.Note(source_);
    }
  }

  void WriteState() { state_.WriteTo(out_, options_.log, start_clock_); }

  const TrimOptions& options_;
  SourceLog source_;
  const RecordFilter filter_;
  LogWriter out_;
  LastRecords state_;
  bool in_window_ = false;
  std::uint32_t start_clock_ = 0;  // of the output
  std::int64_t cut_ms_ = 0;        // off the start
  std::int64_t last_ms_ = 0;       // of the last record written
};

}  // namespace

void AddTrim(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<TrimOptions>();
  CLI::App* const command = app.add_subcommand("trim", "Write a part of a log to a new one");
  command->add_option("LOG", options->log, "The log to read")->required();
  command->add_option("-o,--output", options->out, "The log to write")->required();
  AddFilterOptions(*command, options->filter, "--to");
  command->add_flag("--keep-state", options->keep_state,
                    "Start with the last record of each kind from before --from");
  command->add_flag("--plain", options->plain, "Do not scramble the records");
  command->footer(
      "The new log starts at the whole second before --from. Its records keep their time stamps "
      "and\n"
      "their time of day; those that --keep-state brings stand at its start. Its dictionary names "
      "the\n"
      "clients that --client names, or all. Damaged records are left out. Exit code 3: something "
      "of\n"
      "what was asked for, or of the state before it, was lost.");
  command->callback([options, &exit_code] { exit_code = Trimmer(*options).Run(); });
}

}  // namespace kestrav::tool
