#include "report_summary.h"

#include <cmath>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kestrav::tool {
namespace {

using Json = nlohmann::ordered_json;

// One number a bucket; a negative one stands for so many empty buckets.
Json Runs(const Buckets& buckets, std::uint32_t Buckets::Bucket::*member) {
  Json runs = Json::array();
  std::int64_t empty = 0;
  for (const Buckets::Bucket& bucket : buckets.All()) {
    if (bucket.*member == 0) {
      ++empty;
      continue;
    }
    if (empty > 0) runs.push_back(-empty);
    empty = 0;
    runs.push_back(bucket.*member);
  }
  return runs;
}

double Rounded(double value, double parts) { return std::round(value * parts) / parts; }

Json TrackJson(const Track& track) {
  if (track.Points().empty()) return nullptr;
  Json points = Json::array();
  for (const Track::Point& point : track.Points()) {
    const Fix& fix = point.fix;
    points.push_back({point.at_ms, Rounded(fix.latitude, 1e7), Rounded(fix.longitude, 1e7),
                      fix.speed_kmh ? Json(Rounded(*fix.speed_kmh, 1e3)) : Json()});
  }
  return {{"fixes", track.Fixes()}, {"points", std::move(points)}};
}

Json LaneJson(const Lane& lane) {
  Json data_ids = Json::array();
  for (const auto& [id, records] : lane.data_ids) data_ids.push_back({id, records});
  Json silences = Json::array();
  for (const Silence& silence : lane.LongSilences()) {
    silences.push_back({silence.from_ms, silence.length_ms});
  }
  const ClientStatistics& statistics = lane.statistics;
  return {{"records", statistics.records},
          {"bytes", statistics.bytes},
          {"first_ms", lane.first_ms},
          {"last_ms", lane.last_ms},
          {"longest_gap_ms", statistics.longest_gap_ms},
          {"per_second", Rounded(statistics.RecordsPerSecond(), 1e3)},
          {"data_ids", std::move(data_ids)},
          {"silences", std::move(silences)},
          {"record_runs", Runs(lane.buckets, &Buckets::Bucket::records)},
          {"byte_runs", Runs(lane.buckets, &Buckets::Bucket::bytes)},
          {"track", TrackJson(lane.track)}};
}

Json ClientsJson(const ClientNames& names, const ReportData& data) {
  Json clients = Json::array();
  for (const auto& [id, lane] : data.Lanes()) {
    const std::string* const name = names.Find(id);
    Json json = LaneJson(*lane);
    json["id"] = id;
    json["name"] = name != nullptr ? Json(*name) : Json();
    clients.push_back(std::move(json));
  }
  if (data.OtherClients().statistics.records > 0) {
    Json json = LaneJson(data.OtherClients());
    json["id"] = nullptr;
    json["name"] = "other clients";
    clients.push_back(std::move(json));
  }
  return clients;
}

const char* KindText(Mark::Kind kind) {
  switch (kind) {
    case Mark::Kind::kDamage:
      return "damage";
    case Mark::Kind::kMissing:
      return "missing";
    case Mark::Kind::kMisplaced:
      return "misplaced";
    case Mark::Kind::kBack:
      return "back";
    case Mark::Kind::kAhead:
      return "ahead";
    case Mark::Kind::kTail:
      break;
  }
  return "tail";
}

Json MarksJson(const ReportData& data) {
  Json list = Json::array();
  for (const Mark& mark : data.Marks()) {
    list.push_back({KindText(mark.kind), mark.at_ms, mark.amount, mark.index, mark.offset});
  }
  return {{"count", data.MarkCount()},
          {"list", std::move(list)},
          {"runs", Runs(data.AllMarks(), &Buckets::Bucket::records)}};
}

}  // namespace

Json ReportSummary(const LogFile& log, const ClientNames& names, const ReportData& data) {
  const BinaryLogStreamHeader& header = log.Header();
  const std::optional<std::int64_t> left_out = data.FirstLeftOutMs();
  return {{"tool", KESTRAV_VERSION},
          {"log",
           {{"name", std::filesystem::path(log.Path()).filename().string()},
            {"size", log.Size()},
            {"started", header.start_time},
            {"start_clock", header.start_clock},
            {"duration_ms", header.recording_duration},
            {"finished", header.stream_length != 0},
            {"scrambled", header.header_key != 0 || header.data_key != 0}}},
          {"all_records", data.AllRecords()},
          {"records", data.Records()},
          {"end_ms", data.EndMs()},
          {"first_left_out_ms", left_out ? Json(*left_out) : Json()},
          {"bucket_ms", std::int64_t{1} << data.Shift()},
          {"loss", DamageText(data.GetDamage())},
          {"clients", ClientsJson(names, data)},
          {"marks", MarksJson(data)}};
}

}  // namespace kestrav::tool
