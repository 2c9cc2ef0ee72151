#include "diff_report.h"

#include <algorithm>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "text.h"

namespace kestrav::tool {
namespace {

using Json = nlohmann::ordered_json;
using Kind = DifferenceKind;

void Count(DiffCounts& counts, const Difference& difference) {
  switch (difference.kind) {
    case Kind::kOnlyInA:
      ++counts.only_in_a;
      return;
    case Kind::kOnlyInB:
      ++counts.only_in_b;
      return;
    case Kind::kChanged:
      ++counts.changed;
      return;
    case Kind::kMoved:
      break;
  }
  const std::int64_t move_ms = difference.b.at_ms - difference.a.at_ms;
  ++counts.moved;
  counts.sum_of_moves_ms += move_ms;
  if (std::abs(move_ms) > std::abs(counts.largest_move_ms)) counts.largest_move_ms = move_ms;
}

const char* JsonName(Kind kind) {
  switch (kind) {
    case Kind::kOnlyInA:
      return "only_in_a";
    case Kind::kOnlyInB:
      return "only_in_b";
    case Kind::kChanged:
      return "changed";
    case Kind::kMoved:
      return "moved";
  }
  return "";
}

std::int64_t TimeMs(const Difference& difference) {
  return difference.kind == Kind::kOnlyInB ? difference.b.at_ms : difference.a.at_ms;
}

std::string Label(const RecordKind& kind) {
  return Printable(kind.client) + " " + std::to_string(kind.data_id);
}

std::string Place(const RecordTrace& record) {
  return "record " + HumanCount(record.index) + " at byte " + HumanCount(record.offset);
}

std::string MoveText(double ms) {
  const std::string text = Fixed(ms / 1000, 3);
  return (text[0] == '-' ? "" : "+") + text + " s";
}

std::string Line(const RecordKind& kind, const Difference& difference) {
  std::string text = Seconds(TimeMs(difference));
  text.insert(0, text.size() < 10 ? 10 - text.size() : 0, ' ');
  text += "  " + Label(kind) + "  ";
  const RecordTrace& a = difference.a;
  const RecordTrace& b = difference.b;
  switch (difference.kind) {
    case Kind::kOnlyInA:
      return text + "only in A: " + Place(a) + "\n";
    case Kind::kOnlyInB:
      return text + "only in B: " + Place(b) + "\n";
    case Kind::kChanged:
      return text + "other payload: A " + Place(a) + ", B " + Place(b) + "\n";
    case Kind::kMoved:
      break;
  }
  return text + "other time, " + MoveText(static_cast<double>(b.at_ms - a.at_ms)) + ": A " +
         Place(a) + ", B " + Place(b) + "\n";
}

std::string CountsText(const DiffCounts& counts) {
  std::string text = HumanCount(counts.same) + " the same";
  const auto add = [&text](std::uint64_t count, const char* what) {
    if (count > 0) text += ", " + HumanCount(count) + what;
  };
  add(counts.only_in_a, " only in A");
  add(counts.only_in_b, " only in B");
  add(counts.changed, " with another payload");
  add(counts.moved, " at another time");
  if (counts.moved > 0) {
    text += " (at most " + MoveText(static_cast<double>(counts.largest_move_ms)) + ", on average " +
            MoveText(counts.MeanMoveMs()) + ")";
  }
  return text + "\n";
}

Json CountsJson(const DiffCounts& counts) {
  return {{"same", counts.same},
          {"only_in_a", counts.only_in_a},
          {"only_in_b", counts.only_in_b},
          {"changed", counts.changed},
          {"moved", counts.moved},
          {"largest_move_ms", counts.largest_move_ms},
          {"mean_move_ms", counts.MeanMoveMs()}};
}

Json RecordJson(const RecordTrace& record) {
  return {{"time_ms", record.at_ms}, {"index", record.index}, {"offset", record.offset}};
}

Json KindJson(const RecordKind& kind) {
  Json json;
  json["client"] = kind.is_named ? Json(kind.client) : Json();
  if (!kind.is_named) json["client_id"] = std::stoi(kind.client);
  json["data_id"] = kind.data_id;
  return json;
}

Json DifferenceJson(const RecordKind& kind, const Difference& difference) {
  Json json = KindJson(kind);
  json["what"] = JsonName(difference.kind);
  if (difference.kind != Kind::kOnlyInB) json["a"] = RecordJson(difference.a);
  if (difference.kind != Kind::kOnlyInA) json["b"] = RecordJson(difference.b);
  return json;
}

}  // namespace

void DiffReport::AddSame(RecordKind& kind) {
  ++kind.counts.same;
  ++total_.same;
}

void DiffReport::Add(RecordKind& kind, const Difference& difference) {
  Count(kind.counts, difference);
  Count(total_, difference);
  if (listed_.size() < most_listed_) listed_.emplace_back(&kind, difference);
}

void DiffReport::SortList() {
  const auto is_earlier = [](const auto& a, const auto& b) {
    return TimeMs(a.second) < TimeMs(b.second);
  };
  std::stable_sort(listed_.begin(), listed_.end(), is_earlier);
}

std::string DiffReport::Text(const DiffSide& a, const DiffSide& b,
                             const std::vector<const RecordKind*>& kinds) const {
  std::string text;
  for (const auto& [name, side] : {std::pair{"A ", &a}, std::pair{"B ", &b}}) {
    text += name + OneLine(side->path) + ": " + Counted(side->records, "record", "records") + "\n";
  }
  for (const auto& [kind, difference] : listed_) text += Line(*kind, difference);
  const std::uint64_t unlisted = total_.Differences() - listed_.size();
  if (unlisted > 0) {
    text += Counted(unlisted, "further difference is", "further differences are") +
            " not listed; see --list\n";
  }
  for (const RecordKind* const kind : kinds) {
    if (kind->counts.Differences() > 0) text += Label(*kind) + ": " + CountsText(kind->counts);
  }
  return text + "all: " + CountsText(total_);
}

std::string DiffReport::JsonText(const DiffSide& a, const DiffSide& b,
                                 const std::vector<const RecordKind*>& kinds) const {
  Json json;
  json["a"] = {{"log", a.path}, {"records", a.records}};
  json["b"] = {{"log", b.path}, {"records", b.records}};
  json["all"] = CountsJson(total_);
  json["kinds"] = Json::array();
  for (const RecordKind* const kind : kinds) {
    Json one = KindJson(*kind);
    one.update(CountsJson(kind->counts));
    json["kinds"].push_back(std::move(one));
  }
  json["unlisted"] = total_.Differences() - listed_.size();
  json["differences"] = Json::array();
  for (const auto& [kind, difference] : listed_) {
    json["differences"].push_back(DifferenceJson(*kind, difference));
  }
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace kestrav::tool
