#include "rescue_text.h"

#include <algorithm>
#include <cstdint>
#include <vector>

#include "text.h"

namespace kestrav::tool {
namespace {

using Json = nlohmann::ordered_json;

constexpr std::size_t kMostLines = 20;

// What happened at an offset.
struct Finding {
  std::uint32_t offset;
  std::string text;
};

std::string RecordText(std::uint32_t index) { return "record " + HumanCount(index) + ": "; }

std::string BytesText(std::uint32_t bytes) { return Counted(bytes, "byte", "bytes"); }

std::string GapText(const LostRange& lost) {
  std::string text;
  if (lost.records > 0) {
    text = Counted(lost.records, "record", "records") + " missing, from index " +
           HumanCount(lost.index) + " on; ";
  }
  return text + (lost.bytes > 0 ? BytesText(lost.bytes) + " damaged" : "no bytes in their place");
}

std::string LossText(const LostRange& lost) {
  switch (lost.loss) {
    case Loss::kHeader:
      return RecordText(lost.index) + "header damaged, " + BytesText(lost.bytes);
    case Loss::kPayload:
      return RecordText(lost.index) + "payload damaged, " + BytesText(lost.bytes);
    case Loss::kBytes:
      return GapText(lost);
    case Loss::kTrailing:
      return BytesText(lost.bytes) + " behind the last record";
    case Loss::kCut:
      return BytesText(lost.bytes) + " cut off, by the stream header";
  }
  return {};
}

const char* LossName(Loss loss) {
  switch (loss) {
    case Loss::kHeader:
      return "header";
    case Loss::kPayload:
      return "payload";
    case Loss::kBytes:
      return "gap";
    case Loss::kTrailing:
      return "trailing";
    case Loss::kCut:
      return "cut";
  }
  return "";
}

std::string DoubtText(Doubt doubt) {
  switch (doubt) {
    case Doubt::kDuplicate:
      return "its index is there twice";
    case Doubt::kOutOfOrder:
      return "out of order";
    case Doubt::kOverlap:
      return "shares bytes with another record";
    case Doubt::kWeakEvidence:
      return "not confirmed by what stands around it";
  }
  return {};
}

const char* DoubtName(Doubt doubt) {
  switch (doubt) {
    case Doubt::kDuplicate:
      return "duplicate";
    case Doubt::kOutOfOrder:
      return "out of order";
    case Doubt::kOverlap:
      return "overlap";
    case Doubt::kWeakEvidence:
      return "weak evidence";
  }
  return "";
}

std::vector<Finding> Findings(const RecoveryReport& report) {
  std::vector<Finding> findings;
  for (const LostRange& lost : report.lost) findings.push_back({lost.offset, LossText(lost)});
  for (const DoubtfulRecord& record : report.doubtful) {
    findings.push_back(
        {record.offset, RecordText(record.index) + "left out: " + DoubtText(record.doubt)});
  }
  for (const StepBack& step : report.steps_back) {
    findings.push_back({step.offset, RecordText(step.index) + HumanCount(step.ms) +
                                         " ms older than the record before it"});
  }
  std::stable_sort(findings.begin(), findings.end(),
                   [](const Finding& a, const Finding& b) { return a.offset < b.offset; });
  return findings;
}

}  // namespace

std::string DamageLines(const RecoveryReport& report, const std::string& indent) {
  const std::vector<Finding> findings = Findings(report);
  std::string lines;
  const std::size_t shown = std::min(findings.size(), kMostLines);
  for (std::size_t i = 0; i < shown; ++i) {
    lines += indent + "offset " + HumanCount(findings[i].offset) + ": " + findings[i].text + "\n";
  }
  if (shown < findings.size()) {
    lines += indent + "and " + HumanCount(findings.size() - shown) + " more; --json lists all\n";
  }
  return lines;
}

Json ReportJson(const RecoveryReport& report) {
  Json json;
  json["records"] = report.records;
  json["record_bytes"] = report.record_bytes;
  json["stream_header_good"] = report.stream_header_good;
  json["keys_derived"] = report.keys_derived;
  json["data_key_known"] = report.data_key_known;
  json["dictionary_found"] = report.dictionary_found;
  json["dictionary_moved"] = report.dictionary_moved;
  json["lost"] = Json::array();
  for (const LostRange& lost : report.lost) {
    json["lost"].push_back({{"offset", lost.offset},
                            {"bytes", lost.bytes},
                            {"records", lost.records},
                            {"index", lost.index},
                            {"what", LossName(lost.loss)}});
  }
  json["doubtful"] = Json::array();
  for (const DoubtfulRecord& record : report.doubtful) {
    json["doubtful"].push_back({{"offset", record.offset},
                                {"bytes", record.bytes},
                                {"index", record.index},
                                {"why", DoubtName(record.doubt)}});
  }
  json["steps_back"] = Json::array();
  for (const StepBack& step : report.steps_back) {
    json["steps_back"].push_back({{"offset", step.offset}, {"index", step.index}, {"ms", step.ms}});
  }
  return json;
}

}  // namespace kestrav::tool
