#include <algorithm>
#include <string>
#include <vector>

#include "fuzz/support.h"
#include "kestrav/clients/client_manager.h"
#include "kestrav/host/thread/thread_module.h"
#include "kestrav/playback/pass_through_playback.h"
#include "support/notification_log.h"
#include "support/recording_client.h"

namespace kestrav::fuzz {
namespace {

// Offsets in the stream header and in a record header.
constexpr std::size_t kHeaderKeyAt = 10;
constexpr std::size_t kDataKeyAt = 11;
constexpr std::size_t kReservedAt = 28;
constexpr std::size_t kIndexAt = 4;
constexpr std::size_t kClientAt = 8;
constexpr std::size_t kDataIdAt = 10;
constexpr std::size_t kSizeAt = 16;

Bytes Unscrambled(Input bytes, std::uint8_t key) {
  Bytes plain(bytes.begin(), bytes.end());
  for (std::uint8_t& byte : plain) byte ^= key;
  return plain;
}

// Cuts a log where its records say that they end. The first two reserved bytes of the stream header
// make one piece, of the caller's choice, shorter than it should be.
std::vector<Input> Cut(Input log) {
  std::vector<Input> pieces{log.first(std::min<std::size_t>(log.size(), kStreamHeaderSize))};
  if (pieces[0].size() < kStreamHeaderSize) return pieces;
  Input rest = log.subspan(kStreamHeaderSize);
  std::uint32_t index = 0;
  while (!rest.empty()) {
    std::size_t size = rest.size();
    if (size >= kRecordHeaderSize) {
      const std::uint8_t key = RecordKey(log[kHeaderKeyAt], index);
      const Bytes header = Unscrambled(rest.first(kRecordHeaderSize), key);
      const std::size_t claimed = LittleEndian32(header.data() + kSizeAt);
      size = kRecordHeaderSize + std::min(size - kRecordHeaderSize, claimed);
      index = LittleEndian32(header.data() + kIndexAt) + 1;
    }
    pieces.push_back(rest.first(size));
    rest = rest.subspan(size);
  }
  Input& cut = pieces[log[kReservedAt + 1] % pieces.size()];
  cut = cut.first(cut.size() - log[kReservedAt] % (cut.size() + 1));
  return pieces;
}

// What a whole record says, by a reading that the library has no part in.
class Model {
 public:
  explicit Model(Input header) : header_key_(header[kHeaderKeyAt]), data_key_(header[kDataKeyAt]) {}

  // false: the piece is no whole record.
  bool Take(Input piece, test::Delivery& record) {
    if (piece.size() <= kRecordHeaderSize) return false;
    const Bytes header =
        Unscrambled(piece.first(kRecordHeaderSize), RecordKey(header_key_, expected_));
    const Bytes payload =
        Unscrambled(piece.subspan(kRecordHeaderSize), RecordKey(data_key_, expected_));
    expected_ = LittleEndian32(header.data() + kIndexAt) + 1;
    std::uint8_t header_sum = 0;
    for (std::size_t at = 2; at < kRecordHeaderSize; ++at) header_sum ^= header[at];
    std::uint8_t payload_sum = 0;
    for (const std::uint8_t byte : payload) payload_sum ^= byte;
    record.client_id = static_cast<std::uint16_t>(header[kClientAt] | header[kClientAt + 1] << 8);
    record.data_id = static_cast<std::uint16_t>(header[kDataIdAt] | header[kDataIdAt + 1] << 8);
    record.payload.assign(payload.begin(), payload.end());
    return header[0] == kRecordMarker && header[1] == header_sum && header[2] == payload_sum &&
           LittleEndian32(header.data() + kSizeAt) == payload.size() && record.client_id != kNoId &&
           record.data_id != kNoId;
  }

 private:
  const std::uint8_t header_key_;
  const std::uint8_t data_key_;
  std::uint32_t expected_ = 0;
};

// A playback with two clients of fixed ids and two whose ids come from the dictionary.
class Rig {
 public:
  Rig() {
    for (test::RecordingClient& client : clients_) {
      Require(manager_.RegisterClient(&client), "a client can be registered");
    }
    Require(Start(), "a playback can be started");
  }

  bool Start() { return playback_.StartPlayback(&manager_, &notifications_, owner_, L"Playback"); }

  bool Hand(Input piece) {
    Memory::MemBlock block;
    Require(block.Assign(piece.data(), static_cast<std::uint32_t>(piece.size())),
            "there is memory for a piece");
    return playback_.PlaybackData(block);
  }

  bool IsSelected(std::uint16_t id) const { return manager_.IsDictionaryIdSelectedForPlayback(id); }
  bool IsOff() const { return playback_.IsPlaybackOff(); }

  // What came since the last call.
  std::vector<test::Delivery> Deliveries() {
    std::vector<test::Delivery> fresh;
    for (std::size_t i = 0; i < std::size(clients_); ++i) {
      const std::vector<test::Delivery> all = clients_[i].Deliveries();
      fresh.insert(fresh.end(), all.begin() + static_cast<std::ptrdiff_t>(seen_[i]), all.end());
      seen_[i] = all.size();
    }
    return fresh;
  }

 private:
  test::RecordingClient clients_[4] = {
      test::RecordingClient(L"GPS", 3), test::RecordingClient(L"CAN", 5),
      test::RecordingClient(L"Radio"), test::RecordingClient(L"Camera")};
  std::size_t seen_[4] = {};
  ClientManager manager_;
  test::NotificationLog notifications_;
  Thread::ThreadModule owner_;
  BinaryPlaybackPassThroughImpl playback_;
};

bool IsDictionary(const test::Delivery& record) {
  return record.client_id == kInfoClientId && record.data_id == kDictionaryDataId;
}

}  // namespace

void FuzzPassThrough(Input log) {
  const std::vector<Input> pieces = Cut(log);
  Rig rig;
  if (!rig.Hand(pieces[0])) {
    Require(rig.IsOff(), "a piece that cannot be played stops the playback");
    return;
  }
  Require(pieces[0].size() == kStreamHeaderSize, "a stream header has 128 bytes");
  Model model(pieces[0]);
  for (std::size_t i = 1; i < pieces.size(); ++i) {
    test::Delivery record;
    const bool is_whole = model.Take(pieces[i], record);
    const bool taken = rig.Hand(pieces[i]);
    const std::vector<test::Delivery> deliveries = rig.Deliveries();
    Require(is_whole || !taken, "what is no whole record is refused");
    for (const test::Delivery& delivery : deliveries) {
      Require(is_whole && delivery == record, "what is delivered is what the record says");
    }
    const bool is_for_clients = i > 1 || !IsDictionary(record);
    if (taken && is_for_clients && rig.IsSelected(record.client_id)) {
      Require(!deliveries.empty(), "a record of a selected client is delivered");
    }
    if (taken) continue;
    Require(rig.IsOff() && !rig.Hand(pieces[0]), "a refused piece stops the playback");
    Require(rig.Start() && rig.Hand(pieces[0]), "a stopped playback can be started again");
    return;
  }
}

}  // namespace kestrav::fuzz
