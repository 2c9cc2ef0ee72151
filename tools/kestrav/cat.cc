#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "commands.h"
#include "damage.h"
#include "growing_log.h"
#include "log_file.h"
#include "log_index.h"
#include "output.h"
#include "payload_text.h"
#include "progress.h"
#include "record_filter.h"
#include "record_json.h"
#include "record_source.h"
#include "text.h"

namespace kestrav::tool {
namespace {

struct CatOptions {
  std::string log;
  RecordFilter::Options filter;
  std::string format = "text";
  bool follow = false;
};

class Printer {
 public:
  virtual ~Printer() = default;
  virtual void Print(std::string& out, std::uint64_t index, const LogMessage& message) = 0;
};

class RawPrinter final : public Printer {
 public:
  void Print(std::string& out, std::uint64_t /*index*/, const LogMessage& message) override {
    out.append(Payload(message)).push_back('\n');
  }
};

class JsonLinesPrinter final : public Printer {
 public:
  explicit JsonLinesPrinter(const ClientNames& names) : json_(names) {}

  void Print(std::string& out, std::uint64_t index, const LogMessage& message) override {
    json_.AppendOpen(out, {index, message.GetClientID(), message.GetDataID(), message.time_stamp,
                           Payload(message)});
    out += "}\n";
  }

 private:
  RecordJson json_;
};

class TextPrinter final : public Printer {
 public:
  TextPrinter(const LogFile& log, const ClientNames& names) : log_(log), names_(names) {
    for (const auto& [name, id] : names.Ids()) width_ = std::max(width_, names.Label(id).size());
  }

  void Print(std::string& out, std::uint64_t /*index*/, const LogMessage& message) override {
    const std::string time = Seconds(log_.SinceStart(message.time_stamp));
    const std::string client = names_.Label(message.GetClientID());
    std::array<char, 24> data_id;
    std::snprintf(data_id.data(), data_id.size(), "  %5u  ", unsigned{message.GetDataID()});
    Pad(out, time.size(), 10);
    out += time + "  " + client;
    Pad(out, client.size(), width_);
    out += data_id.data();
    AppendPayloadText(out, message);
    out += '\n';
  }

 private:
  static void Pad(std::string& out, std::size_t used, std::size_t width) {
    if (used < width) out.append(width - used, ' ');
  }

  const LogFile& log_;
  const ClientNames& names_;
  std::size_t width_ = 0;
};

std::unique_ptr<Printer> MakePrinter(const std::string& format, const LogFile& log,
                                     const ClientNames& names) {
  if (format == "raw") return std::make_unique<RawPrinter>();
  if (format == "jsonl") return std::make_unique<JsonLinesPrinter>(names);
  return std::make_unique<TextPrinter>(log, names);
}

void ShowProgress(Progress& progress, LogFile& log, std::uint64_t records) {
  if (records % 1024 != 0 || !progress.IsDue()) return;
  progress.Show(Counted(records, "record", "records") + ", " +
                std::to_string(100 * std::uint64_t{log.Decoder().Getoffset()} / log.Size()) + " %");
}

ExitCode Cat(const CatOptions& options) {
  LogFile log(options.log);
  const bool begins_later = options.filter.from_scnds > 0;
  std::optional<LogIndex> index = begins_later ? OpenIndex(log) : ReadIndex(log);
  const ClientNames names = index ? index->scan.names : FindNames(options.log);
  const RecordFilter filter(options.filter, log, names);
  RecordSource records(log, filter, std::move(index));
  const std::unique_ptr<Printer> printer = MakePrinter(options.format, log, names);
  Output output;
  Progress progress;
  const bool show_progress = IsOutputFile();
  LogMessage message;
  ResultCode result = kSuccess;
  for (;;) {
    result = records.Next(message);
    if (result != kSuccess) break;
    if (filter.Matches(message.GetClientID(), message.time_stamp)) {
      printer->Print(output.Text(), records.Ordinal(), message);
    }
    if (!output.Continue()) return kDone;
    if (show_progress) ShowProgress(progress, log, records.Ordinal());
  }
  output.Flush();
  log.CheckReads();
  return result == kNotEnoughData ? kDone : kLost;
}

// Prints what is there, and what comes, until the log is finished or nobody wants more.
class Follower {
 public:
  explicit Follower(const CatOptions& options) : options_(options) {}

  ExitCode Run() {
    if (GrowingLog::WaitForHeader(options_.log, interrupts_) != State::kGrowing) return kDone;
    GrowingLog log(options_.log, interrupts_);
    State state = FindClients(log);
    if (state == State::kGrowing || state == State::kFinished) {
      const RecordFilter filter(options_.filter, log.File(), names_);
      printer_ = MakePrinter(options_.format, log.File(), names_);
      do {
        state = PrintNew(log, filter);
        if (state == State::kGrowing) state = log.Wait();
      } while (state == State::kGrowing);
    }
    return End(log, state);
  }

 private:
  using State = GrowingLog::State;

  // The log may not have its dictionary yet, and without it no name means anything.
  State FindClients(GrowingLog& log) {
    names_ = FindNames(options_.log);
    State state = State::kGrowing;
    while (names_.IsEmpty() && options_.filter.HasNames() && state == State::kGrowing) {
      state = log.Wait();
      if (state == State::kGrowing) names_ = FindNames(options_.log);
    }
    return state;
  }

  State PrintNew(GrowingLog& log, const RecordFilter& filter) {
    constexpr std::uint64_t kRecordsBetweenLooks = 1024;
    while (log.Next()) {
      damage_.CountRecord(log.Walk());
      const BinaryLogRecordHeader& header = log.Walk().Header();
      const Memory::MemBlock& payload = log.Walk().Payload();
      if (names_.IsEmpty() && ReadNames(header.client_id, header.data_id, payload, names_)) {
        printer_ = MakePrinter(options_.format, log.File(), names_);
      }
      if (filter.Matches(header.client_id, header.time_stamp)) {
        if (!message_.Assign(header.client_id, header.data_id, payload.Data(), payload.Size(),
                             header.time_stamp)) {
          throw Failure("out of memory");
        }
        printer_->Print(output_.Text(), index_, message_);
      }
      ++index_;
      if (!output_.Continue()) return State::kReaderGone;
      if (index_ % kRecordsBetweenLooks == 0 &&
          interrupts_.Wait(0) == Interrupts::Event::kInterrupt) {
        return State::kInterrupted;
      }
    }
    return output_.Flush() ? State::kGrowing : State::kReaderGone;
  }

  ExitCode End(GrowingLog& log, State state) {
    output_.Flush();
    if (state == State::kTruncated) {
      throw Failure(options_.log + ": was truncated while it was read", kLost);
    }
    if (state == State::kReaderGone) return kDone;
    if (state == State::kReplaced) Say("is another file now, or none");
    if (state == State::kFinished) damage_.CountEnd(log.File(), log.Walk());
    if (damage_.Found().IsNone()) return kDone;
    Say(DamageText(damage_.Found()));
    return kLost;
  }

  void Say(const std::string& text) const {
    std::fprintf(stderr, "kestrav: cat: %s\n", OneLine(options_.log + ": " + text).c_str());
  }

  const CatOptions& options_;
  const Interrupts interrupts_;
  ClientNames names_;
  std::unique_ptr<Printer> printer_;
  Output output_;
  DamageCounter damage_;
  LogMessage message_;
  std::uint64_t index_ = 0;
};

}  // namespace

void AddCat(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<CatOptions>();
  CLI::App* const command = app.add_subcommand("cat", "Print the records of a log");
  command->add_option("LOG", options->log, "The log to read")->required();
  AddFilterOptions(*command, options->filter, "--to");
  command->add_option("--format", options->format, "text (the default), jsonl or raw")
      ->check(CLI::IsMember({"text", "jsonl", "raw"}))
      ->type_name("FORMAT");
  command->add_flag("--follow", options->follow, "Go on as the log grows, until it is finished");
  command->footer(
      "text   time in seconds, client, data id and payload, for people\n"
      "jsonl  one object a line: index, client_id, client, data_id, time_ms, size, payload (hex)\n"
      "raw    the payloads, each followed by a line feed\n"
      "Damaged records are left out. Exit code 3: the log ends in damage.\n"
      "--follow waits for the rest of a cut record, and for more until it is interrupted. Exit\n"
      "code 3: what it read was damaged somewhere.");
  command->callback([options, &exit_code] {
    exit_code = options->follow ? Follower(*options).Run() : Cat(*options);
  });
}

}  // namespace kestrav::tool
