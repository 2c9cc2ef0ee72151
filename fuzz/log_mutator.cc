// Changes logs as logs: whole records, single fields, payloads and keys, with the checksums right
// afterwards. Bytes changed at random hardly ever come past the first checksum.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <random>
#include <utility>

#include "fuzz/log_draft.h"

extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);

namespace kestrav::fuzz {
namespace {

class Mutator {
 public:
  explicit Mutator(unsigned seed) : random_(seed) {}

  Bytes Changed(Input log) {
    LogDraft draft(log);
    for (std::size_t changes = 1 + Below(3); changes > 0; --changes) Change(draft);
    Bytes bytes = draft.Joined();
    if (OneIn(4)) Damage(bytes);
    return bytes;
  }

  bool OneIn(std::size_t n) { return Below(n) == 0; }

 private:
  std::size_t Below(std::size_t n) {
    return std::uniform_int_distribution<std::size_t>(0, n - 1)(random_);
  }

  void Change(LogDraft& draft) {
    if (draft.records.empty()) return Insert(draft);
    DraftRecord& record = draft.records[Below(draft.records.size())];
    switch (Below(9)) {
      case 0:
      case 1:
        return ChangePayload(record);
      case 2:
        return ChangeField(record);
      case 3:
        return Lie(record);
      case 4:
        return Insert(draft);
      case 5:
        return Remove(draft);
      case 6:
        return Nest(draft, record);
      case 7:
        return ChangeKeys(draft);
      default:
        return draft.NumberAnew();
    }
  }

  void ChangePayload(DraftRecord& record) {
    const std::size_t size = record.payload.size();
    record.payload.resize(size + 64);
    record.payload.resize(LLVMFuzzerMutate(record.payload.data(), size, record.payload.size()));
    if (record.payload.empty()) record.payload.push_back(0x4C);
    record.Seal();
  }

  // Reserved byte, index, ids or time.
  void ChangeField(DraftRecord& record) {
    constexpr std::pair<std::size_t, std::size_t> kFields[] = {
        {3, 1}, {4, 4}, {8, 2}, {10, 2}, {12, 4}};
    constexpr std::uint32_t kValues[] = {0,  1,  3,   5,    12,     15,     16,         21,
                                         63, 64, 134, 1200, 0xFFFE, 0xFFFF, 0x7FFFFFFF, 0xFFFFFFFF};
    const auto [at, size] = kFields[Below(std::size(kFields))];
    record.Put(at, kValues[Below(std::size(kValues))], size);
    record.Seal();
  }

  // A size or a payload checksum that is not so, under a header that is right.
  void Lie(DraftRecord& record) {
    constexpr std::uint32_t kSizes[] = {0, 1, 19, 0x7FFFFFFF, 0x80000000, 0xFFFFFFEB, 0xFFFFFFFF};
    const auto size = static_cast<std::uint32_t>(record.payload.size());
    switch (Below(3)) {
      case 0:
        record.Put(16, kSizes[Below(std::size(kSizes))], 4);
        break;
      case 1:
        record.Put(16, size + static_cast<std::uint32_t>(Below(80)) - 40, 4);
        break;
      default:
        record.header[2] ^= 1;
        break;
    }
    record.SealHeader();
  }

  // A copy of a record, or a new one.
  void Insert(LogDraft& draft) {
    DraftRecord record;
    if (!draft.records.empty() && !OneIn(4)) {
      record = draft.records[Below(draft.records.size())];
    } else {
      record.Put(8, 3, 2);
      record.payload.assign(1 + Below(40), 0x4C);
      record.Seal();
    }
    const auto at = static_cast<std::ptrdiff_t>(Below(draft.records.size() + 1));
    draft.records.insert(draft.records.begin() + at, std::move(record));
  }

  void Remove(LogDraft& draft) {
    const auto at =
        draft.records.begin() + static_cast<std::ptrdiff_t>(Below(draft.records.size()));
    draft.records.erase(at);
  }

  // Puts what the log holds into one of its payloads.
  void Nest(const LogDraft& draft, DraftRecord& record) {
    const Bytes log = draft.Joined();
    const std::size_t from = std::min(log.size(), OneIn(2) ? 0 : draft.header.size());
    const std::size_t size = std::min<std::size_t>(log.size() - from, 600);
    record.payload.insert(record.payload.end(), log.begin() + static_cast<std::ptrdiff_t>(from),
                          log.begin() + static_cast<std::ptrdiff_t>(from + size));
    record.Seal();
  }

  void ChangeKeys(LogDraft& draft) {
    constexpr std::uint8_t kKeys[] = {0, 1, 0x4C, 0x80, 0xFE, 0xFF};
    std::uint8_t& key = OneIn(2) ? draft.HeaderKey() : draft.DataKey();
    key = kKeys[Below(std::size(kKeys))];
  }

  void Damage(Bytes& bytes) {
    const std::size_t at = Below(bytes.size());
    const std::size_t size = std::min(bytes.size() - at, 1 + Below(200));
    const auto first = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    const auto last = first + static_cast<std::ptrdiff_t>(size);
    switch (Below(5)) {
      case 0:
        bytes[at] ^= static_cast<std::uint8_t>(1U << Below(8));
        break;
      case 1:
        bytes.erase(first, last);
        break;
      case 2:
        bytes.insert(first, size, 0x4C);
        break;
      case 3:
        std::fill(first, last, std::uint8_t{0});
        break;
      default:
        bytes.resize(at);
        break;
    }
  }

  std::minstd_rand random_;
};

}  // namespace
}  // namespace kestrav::fuzz

extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned seed) {
  kestrav::fuzz::Mutator mutator(seed);
  if (mutator.OneIn(4)) return LLVMFuzzerMutate(data, size, max_size);
  const kestrav::fuzz::Bytes changed = mutator.Changed({data, size});
  const std::size_t changed_size = std::min(changed.size(), max_size);
  std::copy_n(changed.begin(), changed_size, data);
  return changed_size;
}
