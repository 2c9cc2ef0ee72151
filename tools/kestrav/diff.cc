#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include "commands.h"
#include "diff_report.h"
#include "output.h"
#include "progress.h"
#include "sequence_diff.h"
#include "source_log.h"
#include "text.h"

namespace kestrav::tool {
namespace {

struct DiffOptions {
  std::string a;
  std::string b;
  bool json = false;
  std::size_t most_listed = 100;
};

// One of the two logs, standing at a record that is to be compared.
class Reading {
 public:
  explicit Reading(const std::string& path) : source_(path) { side_.path = path; }

  const SourceLog& Source() const { return source_; }
  const DiffSide& Side() const { return side_; }
  void CountFrom(std::int64_t origin_ms) { origin_ms_ = origin_ms; }

  void Next() {
    do {
      has_record_ = source_.Next();
    } while (has_record_ && source_.IsFrontRecord());
    if (!has_record_) return;
    ++side_.records;
    reached_ms_ = std::max(reached_ms_, AtMs());
  }

  bool HasRecord() const { return has_record_; }
  std::uint16_t ClientId() const { return source_.Header().client_id; }
  std::uint16_t DataId() const { return source_.Header().data_id; }
  // By which the logs are read side by side, also where time goes back.
  std::int64_t ReachedMs() const { return reached_ms_; }

  RecordTrace Trace() const {
    const std::string_view payload(reinterpret_cast<const char*>(source_.Payload().Data()),
                                   source_.Payload().Size());
    return {std::hash<std::string_view>()(payload), AtMs(), source_.Header().record_index,
            source_.Offset()};
  }

 private:
  std::int64_t AtMs() const { return source_.AtMs() + origin_ms_; }

  SourceLog source_;
  DiffSide side_;
  std::int64_t origin_ms_ = 0;
  std::int64_t reached_ms_ = std::numeric_limits<std::int64_t>::min();
  bool has_record_ = false;
};

// How much later B starts on the clock of A, when B is of the same recording: a part of it, or the
// whole that A is a part of. Otherwise 0: each log's times count from its own start.
std::int64_t StartOfB(const BinaryLogStreamHeader& a, const BinaryLogStreamHeader& b) {
  const std::int64_t later_ms = 1000 * (b.start_time - a.start_time);
  const bool same_clock = static_cast<std::uint32_t>(later_ms) == b.start_clock - a.start_clock;
  const BinaryLogStreamHeader& earlier = later_ms < 0 ? b : a;
  const bool within =
      earlier.stream_length == 0 || std::abs(later_ms) <= std::int64_t{earlier.recording_duration};
  return same_clock && within ? later_ms : 0;
}

class Comparison final : private DifferenceSink {
 public:
  explicit Comparison(const DiffOptions& options)
      : readings_{Reading(options.a), Reading(options.b)}, report_(options.most_listed) {
    readings_[1].CountFrom(
        StartOfB(readings_[0].Source().Log().Header(), readings_[1].Source().Log().Header()));
  }

  ExitCode Run(bool json) {
    for (Reading& reading : readings_) reading.Next();
    while (readings_[0].HasRecord() || readings_[1].HasRecord()) {
      TakeFrom(IsNext(0) ? SequenceDiff::kA : SequenceDiff::kB);
    }
    DecideAll();
    progress_.Clear();
    Tell(json);
    bool lost = false;
    for (const Reading& reading : readings_) lost |= reading.Source().ReportLoss("diff");
    if (lost) return kLost;
    return report_.IsSame() ? kDone : kDifferent;
  }

 private:
  // Records that wait for their like in all kinds together.
  static constexpr std::size_t kMostPending = 1'000'000;
  static constexpr std::uint32_t kUnknown = std::numeric_limits<std::uint32_t>::max();

  bool IsNext(std::size_t side) const {
    const Reading& own = readings_[side];
    const Reading& other = readings_[1 - side];
    return own.HasRecord() && (!other.HasRecord() || own.ReachedMs() <= other.ReachedMs());
  }

  void TakeFrom(SequenceDiff::Side side) {
    constexpr std::uint64_t kRecordsBetweenLooks = 1024;
    Reading& reading = readings_[side];
    kind_ = &KindOf(side, reading.ClientId(), reading.DataId());
    const std::size_t before = kind_->diff.Pending();
    kind_->diff.Add(side, reading.Trace(), *this);
    pending_ += kind_->diff.Pending() - before;
    if (pending_ > kMostPending) DecideAll();
    if (reading.Side().records % kRecordsBetweenLooks == 0 && progress_.IsDue()) {
      progress_.Show("comparing, " + Counted(reading.Side().records, "record", "records"));
    }
    reading.Next();
  }

  void DecideAll() {
    for (RecordKind* const kind : AllKinds()) {
      kind_ = kind;
      kind->diff.Flush(*this);
    }
    pending_ = 0;
  }

  // By client and data id.
  std::vector<RecordKind*> AllKinds() {
    std::vector<RecordKind*> kinds;
    for (auto& entry : kinds_) kinds.push_back(&entry.second);
    const auto is_before = [](const RecordKind* a, const RecordKind* b) {
      return std::pair(a->client, a->data_id) < std::pair(b->client, b->data_id);
    };
    std::sort(kinds.begin(), kinds.end(), is_before);
    return kinds;
  }

  RecordKind& KindOf(SequenceDiff::Side side, std::uint16_t id, std::uint16_t data_id) {
    std::uint32_t& client = clients_[side][id];
    if (client == kUnknown) {
      const auto next = static_cast<std::uint32_t>(known_.size());
      client = known_.emplace(ClientOf(side, id), next).first->second;
    }
    const auto [entry, is_new] = kinds_.try_emplace(std::uint64_t{client} << 16 | data_id);
    if (is_new) {
      std::tie(entry->second.is_named, entry->second.client) = ClientOf(side, id);
      entry->second.data_id = data_id;
    }
    return entry->second;
  }

  // Whether it has a name, and name or id. Clients without a name are the same when their ids are.
  using Client = std::pair<bool, std::string>;
  Client ClientOf(SequenceDiff::Side side, std::uint16_t id) const {
    const std::string* const name = readings_[side].Source().Names().Find(id);
    return name != nullptr ? Client(true, *name) : Client(false, std::to_string(id));
  }

  void OnSame() override { report_.AddSame(*kind_); }
  void OnDifference(const Difference& difference) override { report_.Add(*kind_, difference); }

  void Tell(bool json) {
    report_.SortList();
    const std::vector<RecordKind*> all = AllKinds();
    const std::vector<const RecordKind*> kinds(all.begin(), all.end());
    const DiffSide& a = readings_[0].Side();
    const DiffSide& b = readings_[1].Side();
    Output output;
    output.Text() = json ? report_.JsonText(a, b, kinds) : report_.Text(a, b, kinds);
    output.Flush();
  }

  using Clients = std::vector<std::uint32_t>;  // by client id

  Reading readings_[2];
  DiffReport report_;
  std::map<Client, std::uint32_t> known_;
  Clients clients_[2] = {Clients(0x10000, kUnknown), Clients(0x10000, kUnknown)};
  std::unordered_map<std::uint64_t, RecordKind> kinds_;
  RecordKind* kind_ = nullptr;  // of the record at hand
  std::size_t pending_ = 0;
  Progress progress_;
};

}  // namespace

void AddDiff(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<DiffOptions>();
  CLI::App* const command = app.add_subcommand("diff", "Tell what two logs differ in");
  command->add_option("A", options->a, "A log")->required();
  command->add_option("B", options->b, "The log to compare with it")->required();
  command
      ->add_option("--list", options->most_listed,
                   "List so many differences (100), count the others")
      ->option_text("COUNT");
  command->add_flag("--json", options->json, "As a JSON object");
  command->footer(
      "Compares the records of each client name and data id by payload and by time since the start "
      "of\n"
      "the log; of a log and a part of it, by time since the start of A. Keys, client ids, the "
      "place\n"
      "in the log and the recorder's own dictionaries do not count.\n"
      "Exit codes: 0 the logs are the same, 3 they differ or are damaged, 1 failed.");
  command->callback([options, &exit_code] { exit_code = Comparison(*options).Run(options->json); });
}

}  // namespace kestrav::tool
