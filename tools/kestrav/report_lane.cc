#include "report_lane.h"

#include <algorithm>

namespace kestrav::tool {
namespace {

bool IsLonger(const Silence& a, const Silence& b) { return a.length_ms > b.length_ms; }

}  // namespace

void Buckets::Add(std::int64_t at_ms, unsigned shift, std::uint32_t bytes) {
  Widen(shift);
  const auto place = static_cast<std::size_t>(std::max<std::int64_t>(at_ms, 0) >> shift);
  if (place >= buckets_.size()) buckets_.resize(place + 1);
  ++buckets_[place].records;
  buckets_[place].bytes += bytes;
}

void Buckets::Widen(unsigned shift) {
  for (; shift_ < shift; ++shift_) {
    const std::size_t size = buckets_.size();
    for (std::size_t i = 0; i < size; ++i) {
      const Bucket from = buckets_[i];
      if (i % 2 == 0) {
        buckets_[i / 2] = from;
      } else {
        buckets_[i / 2].records += from.records;
        buckets_[i / 2].bytes += from.bytes;
      }
    }
    buckets_.resize((size + 1) / 2);
  }
}

void Lane::Add(const BinaryLogRecordHeader& header, std::int64_t at_ms, unsigned shift) {
  if (statistics.records == 0) {
    first_ms = at_ms;
  } else {
    AddSilence({last_ms, at_ms - last_ms});
  }
  last_ms = at_ms;
  CountRecord(statistics, header);
  buckets.Add(at_ms, shift, header.payload_size);
  if (const auto found = data_ids.find(header.data_id); found != data_ids.end()) {
    ++found->second;
  } else if (data_ids.size() < kMostDataIds) {
    data_ids.emplace(header.data_id, 1);
  }
}

void Lane::End(std::int64_t end_ms) {
  constexpr std::uint64_t kFewRecords = 10;  // tell nothing of how a client usually writes
  if (statistics.records >= kFewRecords) AddSilence({last_ms, end_ms - last_ms});
}

void Lane::AddSilence(const Silence& silence) {
  constexpr std::int64_t kShortestMs = 1000;
  if (silence.length_ms < kShortestMs) return;
  if (silences_.size() == kMostSilences) {
    if (silence.length_ms <= silences_.front().length_ms) return;
    std::pop_heap(silences_.begin(), silences_.end(), IsLonger);
    silences_.pop_back();
  }
  silences_.push_back(silence);
  std::push_heap(silences_.begin(), silences_.end(), IsLonger);
}

std::vector<Silence> Lane::LongSilences() const {
  constexpr double kTimesTheUsual = 10;
  std::vector<Silence> result;
  if (statistics.records < 2) return result;
  double least_ms = kTimesTheUsual * static_cast<double>(last_ms - first_ms) /
                    static_cast<double>(statistics.records - 1);
  // As many as this are the pauses between bursts, which are usual too.
  if (silences_.size() == kMostSilences) {
    least_ms = std::max(least_ms, 2.0 * static_cast<double>(silences_.front().length_ms));
  }
  for (const Silence& silence : silences_) {
    if (static_cast<double>(silence.length_ms) >= least_ms) {
      result.push_back(silence);
    }
  }
  std::sort(result.begin(), result.end(),
            [](const Silence& a, const Silence& b) { return a.from_ms < b.from_ms; });
  return result;
}

}  // namespace kestrav::tool
