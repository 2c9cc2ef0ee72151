#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "commands.h"
#include "log_file.h"
#include "log_walk.h"
#include "os.h"
#include "output.h"
#include "output_file.h"
#include "progress.h"
#include "record_filter.h"
#include "report_data.h"
#include "report_page.h"
#include "report_summary.h"
#include "scan.h"
#include "text.h"

namespace kestrav::tool {
namespace {

constexpr std::uint64_t kMostRecords = 1'000'000;

struct ReportOptions {
  std::string log;
  std::string out;
  RecordFilter::Options filter;
  std::uint64_t records = 20'000;
};

// Walks the log once: counts what is asked for and hands the first of it to the page.
void Walk(LogFile& log, const ReportOptions& options, const RecordFilter& filter, ReportData& data,
          ReportPage& page) {
  constexpr std::uint64_t kRecordsBetweenLooks = 1024;
  LogWalk walk(log.Decoder());
  Progress progress;
  while (walk.Next() == kSuccess) {
    const BinaryLogRecordHeader& header = walk.Header();
    const std::int64_t at_ms = data.Look(walk);
    if (filter.Matches(header.client_id, header.time_stamp)) {
      data.Count(walk, at_ms);
      if (page.Records() < options.records) {
        page.AddRecord(header, at_ms, walk.Payload());
      } else {
        data.LeaveOut(at_ms);
      }
    }
    if (data.AllRecords() % kRecordsBetweenLooks == 0 && progress.IsDue()) {
      progress.Show(Counted(data.AllRecords(), "record", "records") + ", " +
                    Percent(walk.End(), log.Size()));
    }
  }
  log.CheckReads();
  data.End(log, walk, options.filter.to_scnds);
}

nlohmann::ordered_json FilterJson(const RecordFilter::Options& filter) {
  nlohmann::ordered_json json = {{"clients", filter.clients}};
  if (filter.from_scnds > 0) json["from_s"] = filter.from_scnds;
  if (std::isfinite(filter.to_scnds)) json["to_s"] = filter.to_scnds;
  return json;
}

ExitCode Report(const ReportOptions& options) {
  const ClientNames names = FindNames(options.log);
  LogFile log(options.log);
  const RecordFilter filter(options.filter, log, names);
  OutputFile out(options.out, {SourceSpec{"", "", options.log}});
  const RemoveOnInterrupt remove_part(out.PartPath());
  ReportPage page(out.PartPath(), options.out);
  ReportData data(log.Header().start_clock);
  Walk(log, options, filter, data, page);
  nlohmann::ordered_json summary = ReportSummary(log, names, data);
  summary["filter"] = FilterJson(options.filter);
  summary["payload_limit"] = ReportPage::kMostPayloadBytes;
  const std::uint64_t size = page.Finish(summary);
  out.Commit();
  Output output;
  output.Text() = OneLine(options.out) + ": " + Counted(data.Records(), "record", "records") +
                  ", " + Counted(page.Records(), "of them", "of them") + " in the table, " +
                  HumanSize(size) + "\n";
  output.Flush();
  const std::string loss = DamageText(data.GetDamage());
  if (loss.empty()) return kDone;
  std::fprintf(stderr, "kestrav: report: %s: %s\n", OneLine(options.log).c_str(), loss.c_str());
  return kLost;
}

}  // namespace

void AddReport(CLI::App& app, ExitCode& exit_code) {
  const auto options = std::make_shared<ReportOptions>();
  CLI::App* const command =
      app.add_subcommand("report", "Write a page that shows a log in a browser");
  command->add_option("LOG", options->log, "The log to read")->required();
  command->add_option("-o,--output", options->out, "The page to write")->required();
  AddFilterOptions(*command, options->filter, "--to");
  command->add_option("--records", options->records, "How many records the table holds (20000)")
      ->check(CLI::Range(std::uint64_t{0}, kMostRecords))
      ->type_name("COUNT");
  command->footer(
      "The page is one file that needs no network: summary, timeline, plots, track, marks, and a\n"
      "table of the first records with up to 256 bytes of each. What it tells over time it tells\n"
      "of all records. Exit code 3: something in the log is lost; the page says what.");
  command->callback([options, &exit_code] { exit_code = Report(*options); });
}

}  // namespace kestrav::tool
