#include "kestrav/rescue/key_search.h"

#include <algorithm>
#include <numeric>

#include "kestrav/clients/dictionary_record.h"
#include "kestrav/host/io/memory_stream.h"
#include "kestrav/host/memory/try.h"
#include "kestrav/host/time/source.h"

namespace kestrav::rescue {
namespace {

constexpr std::uint32_t kEnoughPairs = 64;

std::uint8_t RecordKey(std::uint8_t stream_key, std::uint32_t index) {
  Crypter crypter;
  crypter.Initialize(stream_key);
  return crypter.RecordKey(index);
}

// Hands the stream keys with which the record `index` has the key `record_key` to `use`.
template <class Use>
void ForEachStreamKey(std::uint8_t record_key, std::uint32_t index, Use use) {
  const auto plain = static_cast<std::uint8_t>(record_key - index);
  const auto replaced = static_cast<std::uint8_t>(-index);  // gives 0, in whose place 1 stands
  if (record_key == 0) {
    use(std::uint8_t{0});
  } else if (plain != 0) {
    use(plain);
  }
  if (record_key == 1 && replaced != 0) use(replaced);
}

std::uint8_t KeyOf(const LogView& log, std::uint32_t at) { return *log.At(at) ^ kRecordMarker; }

template <class Votes>
std::uint8_t Most(const Votes& votes) {
  return static_cast<std::uint8_t>(std::max_element(votes.begin(), votes.end()) - votes.begin());
}

template <class Votes>
std::uint32_t Total(const Votes& votes) {
  return std::accumulate(votes.begin(), votes.end(), std::uint32_t{0});
}

// Whether the records speak for `key`, even if they speak for another one as well, as those of a
// log inside a payload do. A key's neighbours get a vote in 256, where 1 stands in place of 0.
template <class Votes>
bool Supports(const Votes& votes, std::uint8_t key) {
  constexpr std::uint32_t kShare = 8;
  return votes[key] > 0 && votes[key] >= votes[Most(votes)] / kShare;
}

}  // namespace

HeaderReading ReadStreamHeader(const LogView& log) {
  HeaderReading reading;
  if (log.Size() < kStreamHeaderSize) return reading;
  std::array<std::uint8_t, kStreamHeaderSize> bytes;
  std::copy_n(log.At(0), bytes.size(), bytes.begin());
  std::array<std::uint8_t, 4> magic;
  Memory::PutLittleEndian(magic.data(), kStreamMagic);
  int same = 0;
  for (std::size_t i = 0; i < magic.size(); ++i) same += bytes[i] == magic[i] ? 1 : 0;
  std::copy(magic.begin(), magic.end(), bytes.begin());
  Io::MemoryInputStream stream(bytes.data(), kStreamHeaderSize);
  const bool read = reading.fields.ReadIn(stream);
  const auto& reserved = reading.fields.reserved;
  const bool blank = std::all_of(reserved.begin(), reserved.end(), [](auto b) { return b == 0; });
  const bool clocked = reading.fields.clock_rate == Time::kClocksPerSecond;
  reading.magic = read && same == 4;
  reading.sound = reading.magic && blank;
  reading.usable = reading.magic || (blank && clocked) || (same == 3 && (blank || clocked));
  return reading;
}

void KeySearch::VotesByKey::Add(std::uint8_t header_key, std::uint8_t key) {
  if (places_[header_key] == 0) {
    votes_.emplace_back();
    places_[header_key] = static_cast<std::uint16_t>(votes_.size());
  }
  ++votes_[places_[header_key] - 1u][key];
}

const KeySearch::Votes& KeySearch::VotesByKey::Of(std::uint8_t header_key) const {
  const std::uint16_t place = places_[header_key];
  return place == 0 ? kNone : votes_[place - 1u];
}

bool KeySearch::Find(const HeaderReading& reading, FoundKeys& keys) {
  bool asked = false;
  if (!Memory::Try([&] { asked = AskRecords(reading); }) || !asked) return false;
  const bool header_agrees = Decide(Total(start_.header) > 0 ? start_.header : all_.header, 1,
                                    reading.usable, reading.fields.header_key, keys.header);
  // A single payload may be damaged, so a usable stream header is believed against one.
  const std::uint32_t enough = reading.usable ? 2 : 1;
  const Votes& start = start_.data.Of(keys.header);
  const Votes& all = all_.data.Of(keys.header);
  const bool data_agrees = Decide(start[Most(start)] >= enough ? start : all, enough,
                                  reading.usable, reading.fields.data_key, keys.data);
  const Votes& dictionary = all_.dictionary.Of(keys.header);
  keys.data_known = reading.usable || Total(all) + Total(dictionary) > 0;
  if (!reading.usable && Total(all) == 0 && Total(dictionary) > 0) keys.data = Most(dictionary);
  keys.agree = header_agrees && data_agrees;
  return true;
}

// Sets `key` to what the stream header states or, if that is not usable or at least `enough` votes
// say otherwise, to what the votes say. Whether it is what is stated.
bool KeySearch::Decide(const Votes& votes, std::uint32_t enough, bool usable, std::uint8_t stated,
                       std::uint8_t& key) {
  const std::uint8_t most = Most(votes);
  const bool agrees = usable && (votes[most] < enough || Supports(votes, stated));
  key = agrees || votes[most] == 0 ? stated : most;
  return agrees;
}

// From record to record while they follow each other, else from one place that looks like a header
// to the next. The records from where a log begins tell most.
bool KeySearch::AskRecords(const HeaderReading& reading) {
  std::uint32_t at = kStreamHeaderSize;
  BinaryLogRecordHeader first;
  if (log_.ReadHeader(at, first) && first.record_index == 0) {
    ++start_.header[KeyOf(log_, at)];
    while (!IsEnough(reading) && AskPair(at)) {
    }
    start_.data = all_.data;
  } else {
    at = 0;
  }
  if (IsEnough(reading)) return true;
  if (!log_.LoadSums()) return false;
  while ((at = log_.FindHeader(at, log_.Size())) < log_.Size() && !IsEnough(reading)) {
    if (!AskPair(at)) ++at;
  }
  return true;
}

bool KeySearch::IsEnough(const HeaderReading& reading) const {
  if (!reading.usable || pairs_ < kEnoughPairs) return false;
  const Votes& data = all_.data.Of(reading.fields.header_key);
  return Supports(all_.header, reading.fields.header_key) &&
         (Total(data) == 0 || Supports(data, reading.fields.data_key));
}

bool KeySearch::AskPair(std::uint32_t& at) {
  BinaryLogRecordHeader first, second;
  if (!log_.ReadHeader(at, first)) return false;
  const std::uint32_t end = at + kRecordHeaderSize + first.payload_size;
  const bool is_last = end == log_.Size();
  const bool is_even = first.payload_size % 2 == 0;
  const std::uint8_t sum = log_.Sum(at + kRecordHeaderSize, first.payload_size);
  if (is_even && sum != first.payload_checksum) return false;
  if (!is_last &&
      (!log_.ReadHeader(end, second) || second.record_index != first.record_index + 1)) {
    return false;
  }
  bool agrees = false;
  ForEachStreamKey(KeyOf(log_, at), first.record_index, [&](std::uint8_t key) {
    const bool both = is_last || RecordKey(key, second.record_index) == KeyOf(log_, end);
    if (!both) return;
    ++all_.header[key];
    AskPayload(at, first, key);
    AskDictionary(at, first, key);
    agrees = true;
  });
  if (!agrees) return false;
  ++pairs_;
  at = end;
  return true;
}

void KeySearch::AskPayload(std::uint32_t at, const BinaryLogRecordHeader& header,
                           std::uint8_t header_key) {
  if (header.payload_size % 2 == 0) return;
  const std::uint8_t sum = log_.Sum(at + kRecordHeaderSize, header.payload_size);
  ForEachStreamKey(static_cast<std::uint8_t>(sum ^ header.payload_checksum), header.record_index,
                   [&](std::uint8_t key) { all_.data.Add(header_key, key); });
}

// The upper bytes of a dictionary's count are 0, and its last byte is one, too.
void KeySearch::AskDictionary(std::uint32_t at, const BinaryLogRecordHeader& header,
                              std::uint8_t header_key) {
  constexpr std::uint32_t kShortest = 8;
  if (header.client_id != kInfoClientId || header.data_id != kDictionaryDataId ||
      header.payload_size < kShortest) {
    return;
  }
  const std::uint8_t* const payload = log_.At(at + kRecordHeaderSize);
  const std::uint8_t key = payload[3];
  if (payload[2] != key || payload[header.payload_size - 1] != key) return;
  ForEachStreamKey(key, header.record_index,
                   [&](std::uint8_t stream_key) { all_.dictionary.Add(header_key, stream_key); });
}

}  // namespace kestrav::rescue
