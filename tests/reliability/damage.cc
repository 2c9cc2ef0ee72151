#include "reliability/damage.h"

#include <algorithm>
#include <numeric>

#include "support/log_builder.h"

namespace kestrav::test {
namespace {

constexpr std::size_t kSector = 512;
constexpr std::size_t kLongestRangeBits = 11;

template <class Values>
auto At(Values& values, std::size_t at) {
  return values.begin() + static_cast<std::ptrdiff_t>(at);
}

}  // namespace

DamagedCopy::DamagedCopy(const SampleLog& log, std::uint32_t seed)
    : log_(log), random_(seed), bytes_(log.bytes), origins_(log.bytes.size()) {
  std::iota(origins_.begin(), origins_.end(), 0U);
  for (std::uint32_t damages = 1 + Pick(4); damages > 0; --damages) DamageOnce();
}

std::vector<bool> DamagedCopy::Untouched() const {
  std::vector<bool> untouched;
  std::vector<std::size_t> places(log_.bytes.size(), bytes_.size());
  for (std::size_t at = 0; at < origins_.size(); ++at) {
    if (origins_[at] != kForeign) places[origins_[at]] = at;
  }
  for (const SampleLog::Record& record : log_.records) {
    bool whole = places[record.offset] < bytes_.size();
    for (std::uint32_t i = record.offset + 1; whole && i < record.end; ++i) {
      whole = places[i] == places[i - 1] + 1;
    }
    untouched.push_back(whole);
  }
  return untouched;
}

bool DamagedCopy::PassesForWhole(const Said& said) const {
  for (std::uint32_t i = 0; i < log_.records.size(); ++i) {
    const SampleLog::Record& record = log_.records[i];
    Said true_one = record.said;
    if (true_one.payload.size() != said.payload.size()) continue;
    true_one.payload = said.payload;
    const std::size_t at = Find(record.offset, record.offset + kRecordHeaderBytes);
    if (true_one != said || at == bytes_.size()) continue;
    if (Xor(said.payload) == Xor(record.said.payload) && Holds(at + kRecordHeaderBytes, said, i)) {
      return TouchesNothingUntouched({at, record.end - record.offset});
    }
  }
  return false;
}

std::size_t DamagedCopy::Find(std::uint32_t from, std::uint32_t to) const {
  const auto first = std::find(origins_.begin(), origins_.end(), from);
  auto at = first;
  for (std::uint32_t origin = from; origin < to; ++origin, ++at) {
    if (at == origins_.end() || *at != origin) return bytes_.size();
  }
  return static_cast<std::size_t>(first - origins_.begin());
}

bool DamagedCopy::Holds(std::size_t at, const Said& said, std::uint32_t index) const {
  if (bytes_.size() - at < said.payload.size()) return false;
  const std::uint8_t key = RecordKey(log_.bytes[11], index);
  return std::equal(said.payload.begin(), said.payload.end(), At(bytes_, at),
                    [&](char plain, std::uint8_t byte) {
                      return static_cast<std::uint8_t>(plain) == (byte ^ key);
                    });
}

bool DamagedCopy::TouchesNothingUntouched(Range range) const {
  const std::vector<bool> untouched = Untouched();
  for (std::size_t at = range.at; at < range.at + range.size; ++at) {
    const std::uint32_t origin = origins_[at];
    if (origin != kForeign && origin >= kStreamHeaderBytes && untouched[log_.RecordAt(origin)]) {
      return false;
    }
  }
  return true;
}

std::uint32_t DamagedCopy::Pick(std::size_t below) {
  return static_cast<std::uint32_t>(random_() % below);
}

DamagedCopy::Range DamagedCopy::AnyRange() {
  const std::size_t at = Pick(Pick(10) == 0 ? 200 : bytes_.size());
  const std::size_t size = 1 + Pick(std::size_t{1} << Pick(kLongestRangeBits + 1));
  return {at, std::min(size, bytes_.size() - at)};
}

DamagedCopy::Range DamagedCopy::AnySector() {
  const std::size_t at = Pick(bytes_.size() / kSector) * kSector;
  return {at, kSector};
}

void DamagedCopy::Tell(const char* what, Range range) {
  story_ += std::string(what) + ' ' + std::to_string(range.size) + " at " +
            std::to_string(range.at) + "; ";
}

void DamagedCopy::DamageOnce() {
  switch (Pick(7)) {
    case 0:
      return Overwrite(AnyRange(), true);
    case 1:
      return Overwrite(AnyRange(), false);
    case 2:
      return Delete(AnyRange());
    case 3:
      return Duplicate(AnyRange());
    case 4:
      return InsertForeign(AnyRange());
    case 5:
      return Overwrite(AnySector(), true);
    default:
      return SwapSectors(AnySector(), AnySector());
  }
}

void DamagedCopy::Overwrite(Range range, bool zeros) {
  Tell(zeros ? "zero" : "overwrite", range);
  for (std::size_t at = range.at; at < range.at + range.size; ++at) {
    const auto byte = static_cast<std::uint8_t>(zeros ? 0 : Pick(256));
    if (bytes_[at] != byte) origins_[at] = kForeign;
    bytes_[at] = byte;
  }
}

void DamagedCopy::Delete(Range range) {
  Tell("delete", range);
  bytes_.erase(At(bytes_, range.at), At(bytes_, range.at + range.size));
  origins_.erase(At(origins_, range.at), At(origins_, range.at + range.size));
}

void DamagedCopy::Insert(std::size_t at, const Bytes& bytes) {
  bytes_.insert(At(bytes_, at), bytes.begin(), bytes.end());
  origins_.insert(At(origins_, at), bytes.size(), kForeign);
}

// Right behind itself or somewhere else.
void DamagedCopy::Duplicate(Range range) {
  Tell("duplicate", range);
  const std::size_t to = Pick(2) == 0 ? range.at + range.size : Pick(bytes_.size() + 1);
  Tell("to", {to, range.size});
  const Bytes copy(At(bytes_, range.at), At(bytes_, range.at + range.size));
  Insert(to, copy);
}

void DamagedCopy::InsertForeign(Range range) {
  Tell("insert", range);
  Bytes bytes(range.size);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(Pick(256));
  Insert(range.at, bytes);
}

void DamagedCopy::SwapSectors(Range one, Range other) {
  Tell("swap", one);
  Tell("with", other);
  if (one.at == other.at) return;
  for (const Range& sector : {one, other}) {
    std::fill_n(At(origins_, sector.at), kSector, kForeign);
  }
  std::swap_ranges(At(bytes_, one.at), At(bytes_, one.at + kSector), At(bytes_, other.at));
}

}  // namespace kestrav::test
