#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "commands.h"
#include "header_text.h"
#include "kestrav/format/header_repair.h"
#include "log_file.h"
#include "output.h"
#include "progress.h"
#include "text.h"

namespace kestrav::tool {
namespace {

struct RepairOptions {
  std::vector<std::string> logs;
  bool dry_run = false;
};

// What the records say. Payloads are not looked at.
struct Walked {
  BinaryLogStreamHeader header;     // with what the records say in place of what it said
  bool ends_before_start = false;   // the duration is then 0
  std::uint64_t skipped_bytes = 0;  // damage between records
  std::uint64_t trailing_bytes = 0;
  bool ends_in_damage = false;  // what trails is more than a record that was cut off
};

class HeaderWalk {
 public:
  // `which`: the file among the others, for the person who waits.
  HeaderWalk(LogFile& log, Progress& progress, const std::string& which)
      : log_(log), progress_(progress), which_(which) {}

  // Throws `Failure` when the file cannot be read.
  Walked Walk() {
    Walked walked;
    walked.header = log_.Header();
    walked.header.client_selection = 0;
    std::uint32_t last_time = walked.header.start_clock;
    std::uint32_t end = kStreamHeaderSize;
    BinaryLogRecordHeader record;
    ResultCode result = kSuccess;
    while ((result = log_.Decoder().GetNextLogRecordHeader(record)) == kSuccess) {
      const std::uint32_t next = log_.Decoder().Getoffset();
      walked.skipped_bytes += next - end - kRecordHeaderSize - record.payload_size;
      end = next;
      last_time = record.time_stamp;
      walked.header.client_selection |= SelectionBit(record.client_id);
      ShowProgress(end);
    }
    log_.CheckReads();
    walked.ends_before_start = last_time < walked.header.start_clock;
    walked.header.recording_duration =
        walked.ends_before_start ? 0 : last_time - walked.header.start_clock;
    walked.header.stream_length = end;
    walked.trailing_bytes = log_.Size() - end;
    walked.ends_in_damage = result == kDamaged;
    return walked;
  }

 private:
  // Ids that have no bit of their own share the last one.
  static std::uint16_t SelectionBit(std::uint16_t client_id) {
    return static_cast<std::uint16_t>(client_id < 16 ? 1U << client_id : 0x8000U);
  }

  void ShowProgress(std::uint64_t end) {
    constexpr std::uint64_t kRecordsBetweenLooks = 1024;
    if (++records_ % kRecordsBetweenLooks != 0 || !progress_.IsDue()) return;
    progress_.Show(which_ + HumanSize(end) + ", " + std::to_string(100 * end / log_.Size()) + " %");
  }

  LogFile& log_;
  Progress& progress_;
  const std::string which_;
  std::uint64_t records_ = 0;
};

// Whether the header may be what a proper stop wrote. Such a one knows more than the records: the
// time after the last of them, and the clients that had nothing to record.
bool IsFinished(const BinaryLogStreamHeader& header, const BinaryLogStreamHeader& walked) {
  constexpr std::uint64_t kRoundingMs = 500;
  return header.stream_length == walked.stream_length &&
         header.recording_duration + kRoundingMs >= walked.recording_duration &&
         (header.client_selection & walked.client_selection) == walked.client_selection;
}

void CheckThatItCanBeRepaired(const std::string& path, const Walked& walked) {
  if (walked.ends_before_start) throw Failure(path + ": its time stamps end before its start");
  if (walked.header.start_time == 0) throw Failure(path + ": it has no start time");
}

// "duration unknown -> 0:03.000, ...", without what stays.
std::string ChangeText(const BinaryLogStreamHeader& from, const BinaryLogStreamHeader& to) {
  std::string text;
  const auto say = [&text](const char* what, const std::string& before, const std::string& after) {
    if (before == after) return;
    text += (text.empty() ? "" : ", ") + (what + (" " + before)) + " -> " + after;
  };
  say("duration", DurationText(from), DurationText(to));
  say("stream length", StreamLengthText(from), StreamLengthText(to));
  say("selection", Hex(from.client_selection), Hex(to.client_selection));
  return text;
}

std::string LossText(const Walked& walked) {
  std::string text;
  if (walked.skipped_bytes > 0) {
    text += "; " + Counted(walked.skipped_bytes, "damaged byte", "damaged bytes") + " skipped";
  }
  if (walked.trailing_bytes > 0) {
    text += "; " + Counted(walked.trailing_bytes, "byte", "bytes") + " behind the last record lost";
  }
  return text;
}

[[noreturn]] void FailToWrite(const std::string& path) {
  Io::BufferedFileOutputStream file;
  const bool opened = file.Open(WidePath(path), Io::OpenMode::kInPlace);
  throw Failure(path + ": the header cannot be written" +
                (opened ? "" : ": " + ErrorText(file.Error())));
}

ExitCode RepairOne(const std::string& path, bool dry_run, Progress& progress,
                   const std::string& which, Output& output) {
  LogFile log(path);
  const Walked walked = HeaderWalk(log, progress, which).Walk();
  progress.Clear();
  std::string done = "nothing to repair";
  if (!IsFinished(log.Header(), walked.header)) {
    CheckThatItCanBeRepaired(path, walked);
    if (!dry_run && !RepairBinaryLogStreamHeader(WidePath(path).c_str())) FailToWrite(path);
    done = dry_run ? "would be repaired: " : "repaired: ";
    done += ChangeText(log.Header(), dry_run ? walked.header : LogFile(path).Header());
  }
  output.Text() += OneLine(path) + ": " + done + LossText(walked) + "\n";
  output.Flush();
  return walked.skipped_bytes > 0 || walked.ends_in_damage ? kLost : kDone;
}

// A log that fails holds up none of the others.
ExitCode Repair(const RepairOptions& options) {
  Output output;
  Progress progress;
  bool failed = false;
  bool lost = false;
  for (std::size_t i = 0; i < options.logs.size(); ++i) {
    const std::string which =
        "file " + std::to_string(i + 1) + " of " + std::to_string(options.logs.size()) + ": ";
    try {
      lost |= RepairOne(options.logs[i], options.dry_run, progress, which, output) == kLost;
    } catch (const Failure& failure) {
      progress.Clear();
      std::fprintf(stderr, "kestrav: repair: %s\n", OneLine(failure.what()).c_str());
      failed = true;
    }
  }
  return failed ? kFailed : lost ? kLost : kDone;
}

}  // namespace

void AddRepair(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<RepairOptions>();
  CLI::App* const command =
      app.add_subcommand("repair", "Put right what a log's header says after a power loss");
  command->add_option("LOG", options->logs, "The logs to repair")->required();
  command->add_flag("--dry-run", options->dry_run, "Tell what would be repaired, write nothing");
  command->footer(
      "Duration, stream length and client selection are worked out from the records. Only these\n"
      "fields change, by one write to the file; what stands behind the header is left alone, and "
      "so\n"
      "is a log that was finished properly. The log must not be recorded to meanwhile.\n"
      "Exit code 1: some log could not be repaired; the others are. Exit code 3: something "
      "between\n"
      "or behind the records is damaged; a last record that was cut off does not count.");
  command->callback([options, &exit_code] { exit_code = Repair(*options); });
}

}  // namespace kestrav::tool
