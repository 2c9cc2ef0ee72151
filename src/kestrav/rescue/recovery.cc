#include "kestrav/rescue/recovery.h"

#include <algorithm>

#include "kestrav/host/memory/try.h"
#include "kestrav/rescue/chain_walk.h"
#include "kestrav/rescue/key_search.h"
#include "kestrav/rescue/log_view.h"
#include "kestrav/rescue/log_writer.h"
#include "kestrav/rescue/run_choice.h"
#include "kestrav/rescue/run_search.h"

namespace kestrav {
namespace rescue {
namespace {

// One recovery: the keys, the runs, those of them that are the log, and the new log.
class Recovery {
 public:
  Recovery(std::span<const std::uint8_t> bytes, RecoveryReport& report,
           const std::function<bool(std::uint64_t)>& progress)
      : log_(bytes), size_(log_.Size()), report_(report), progress_(progress) {}

  RecoveryResult Run(Io::IOutputStream* out);

 private:
  [[nodiscard]] bool FindKeys();
  [[nodiscard]] RecoveryResult Rewrite(RunSearch& search, Io::IOutputStream* out);
  [[nodiscard]] bool ListDoubtful(const std::vector<DoubtfulRecord>& unconfirmed);
  [[nodiscard]] bool ListRun(const Judged& judged);
  // `end`: of the last record.
  [[nodiscard]] bool ReportEnd(std::uint32_t end);
  bool IsWhole() const;

  // The search and the writing are half of the work each.
  Continue Half(std::uint64_t done) const {
    return [this, done](std::uint64_t at) {
      bool go_on = false;
      return !progress_ || (Memory::Try([&] { go_on = progress_((done + at) / 2); }) && go_on);
    };
  }

  LogView log_;
  const std::uint32_t size_;
  RecoveryReport& report_;
  const std::function<bool(std::uint64_t)>& progress_;
  HeaderReading reading_;
  FoundKeys keys_;
  std::vector<Judged> judged_;
};

bool Recovery::FindKeys() {
  reading_ = ReadStreamHeader(log_);
  if (!KeySearch(log_).Find(reading_, keys_)) return false;
  log_.SetKeys(keys_.header, keys_.data);
  if (reading_.magic) log_.SetStatedEnd(reading_.fields.stream_length);
  report_.stream_header_good = reading_.sound && keys_.agree;
  report_.keys_derived = !keys_.agree;
  report_.data_key_known = keys_.data_known;
  return true;
}

RecoveryResult Recovery::Run(Io::IOutputStream* out) {
  if (!FindKeys()) return RecoveryResult::kNoMemory;
  const Continue search_on = Half(0);
  RunSearch search(log_, search_on);
  const SearchResult found = search.Search();
  if (found == SearchResult::kNoMemory) return RecoveryResult::kNoMemory;
  if (found == SearchResult::kCancelled) return RecoveryResult::kCancelled;
  if (!RunChoice(log_, search.KnownIds()).Choose(search.Runs(), judged_)) {
    return RecoveryResult::kNoMemory;
  }
  return Rewrite(search, out);
}

RecoveryResult Recovery::Rewrite(RunSearch& search, Io::IOutputStream* out) {
  const bool any = std::any_of(judged_.begin(), judged_.end(), [](auto& one) { return one.taken; });
  const bool is_empty_log = report_.stream_header_good && size_ == kStreamHeaderSize;
  const Continue write_on = Half(size_);
  LogWriter writer(log_, reading_, keys_, judged_, report_, write_on);
  if (any || is_empty_log) {
    const RecoveryResult written = writer.Write(out);
    if (written != RecoveryResult::kWhole) return written;
  }
  if (!ReportEnd(std::min(writer.End(), size_))) return RecoveryResult::kNoMemory;
  if (!ListDoubtful(search.Unconfirmed())) return RecoveryResult::kNoMemory;
  if (!write_on(size_)) return RecoveryResult::kCancelled;
  if (!any && !is_empty_log) return RecoveryResult::kNothingFound;
  return IsWhole() ? RecoveryResult::kWhole : RecoveryResult::kDamaged;
}

bool Recovery::ReportEnd(std::uint32_t end) {
  const std::uint32_t stated = reading_.magic ? reading_.fields.stream_length : 0;
  return (end == size_ ||
          Memory::Append(report_.lost, LostRange{end, size_ - end, 0, 0, Loss::kTrailing})) &&
         (stated <= size_ ||
          Memory::Append(report_.lost, LostRange{size_, stated - size_, 0, 0, Loss::kCut}));
}

bool Recovery::IsWhole() const {
  return report_.stream_header_good && report_.lost.empty() && report_.doubtful.empty();
}

bool Recovery::ListDoubtful(const std::vector<DoubtfulRecord>& unconfirmed) {
  auto& all = report_.doubtful;
  std::size_t next = 0;  // both lists are ascending
  for (const DoubtfulRecord& record : unconfirmed) {
    const auto is_behind = [&](const Judged& one) { return one.run.end <= record.offset; };
    while (next < judged_.size() && (!judged_[next].taken || is_behind(judged_[next]))) ++next;
    const bool is_taken = next < judged_.size() && judged_[next].run.begin <= record.offset;
    if (!is_taken && !Memory::Append(all, record)) return false;
  }
  for (const Judged& one : judged_) {
    if (!one.taken && !ListRun(one)) return false;
  }
  std::sort(all.begin(), all.end(), [](auto& a, auto& b) { return a.offset < b.offset; });
  return true;
}

bool Recovery::ListRun(const Judged& judged) {
  ChainWalk walk(log_, judged.run.begin, judged.run.index);
  ChainWalk::Step step;
  while ((step = walk.Next()) != ChainWalk::Step::kEnd && walk.Offset() < judged.run.end &&
         report_.doubtful.size() < kMostDoubtful) {
    if (step == ChainWalk::Step::kRecord &&
        !Memory::Append(report_.doubtful,
                        DoubtfulRecord{walk.Offset(), walk.Bytes(), walk.Index(), judged.doubt})) {
      return false;
    }
  }
  return true;
}

}  // namespace
}  // namespace rescue

RecoveryResult RecoverLog(std::span<const std::uint8_t> log, Io::IOutputStream* out,
                          RecoveryReport& report,
                          const std::function<bool(std::uint64_t)>& progress) noexcept {
  report = RecoveryReport();
  RecoveryResult result = RecoveryResult::kNoMemory;
  const bool ran = Memory::Try([&] { result = rescue::Recovery(log, report, progress).Run(out); });
  return ran ? result : RecoveryResult::kNoMemory;
}

}  // namespace kestrav
