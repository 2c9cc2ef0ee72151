#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "kestrav/clients/client_manager.h"
#include "kestrav/clients/dictionary_record.h"
#include "support/recording_client.h"

namespace kestrav {
namespace {

using namespace std::string_literals;
using test::RecordingClient;

std::optional<Dictionary> ReadHostile(const std::string& payload) {
  Memory::MemBlock block;
  EXPECT_TRUE(block.Assign(reinterpret_cast<const std::uint8_t*>(payload.data()),
                           static_cast<std::uint32_t>(payload.size())));
  Dictionary dictionary;
  if (InfoClientUtility::ReadDictionaryData(dictionary, block)) return dictionary;
  EXPECT_TRUE(dictionary.empty());
  return std::nullopt;
}

// A second reading of the format: an id of at most nine plain digits, or none.
std::optional<std::uint16_t> PlainId(const std::string& text) {
  if (text.empty() || text.size() > 9) return std::nullopt;
  if (text.find_first_not_of("0123456789") != std::string::npos) return std::nullopt;
  return static_cast<std::uint16_t>(std::stoul(text));
}

// A second reading of the format: the payload cut at its zero bytes, then taken in pairs.
std::optional<Dictionary> ReadAgain(const std::string& payload) {
  if (payload.size() <= 4) return std::nullopt;
  std::vector<std::string> fields;
  for (std::size_t at = 4, end; (end = payload.find('\0', at)) != std::string::npos; at = end + 1) {
    fields.push_back(payload.substr(at, end - at));
  }
  Dictionary dictionary;
  for (std::size_t i = 0; i < fields.size(); i += 2) {
    if (fields[i].empty()) return std::nullopt;
    if (i + 1 == fields.size()) break;
    const std::optional<std::uint16_t> id = PlainId(fields[i + 1]);
    if (!id) return std::nullopt;
    String name;
    for (const char byte : fields[i]) name += static_cast<wchar_t>(static_cast<std::uint8_t>(byte));
    dictionary.insert({name, *id});
  }
  return dictionary;
}

const std::string kPayload = "\x03\0\0\0CAN bus\00022\0GPS\00021\0Info Client\00012\0"s;

TEST(HostileDictionary, CutAnywhereGivesTheEntriesBeforeTheCut) {
  for (std::size_t size = 0; size <= kPayload.size(); ++size) {
    const std::string cut = kPayload.substr(0, size);
    EXPECT_EQ(ReadHostile(cut), ReadAgain(cut)) << "cut to " << size;
  }
}

TEST(HostileDictionary, WithAByteDamagedReadsAsTheBytesSay) {
  for (std::size_t at = 0; at < kPayload.size(); ++at) {
    for (const char byte : "\0\x01\x30x\xFF"s) {
      std::string damaged = kPayload;
      damaged[at] = byte;
      EXPECT_EQ(ReadHostile(damaged), ReadAgain(damaged)) << "byte " << at;
    }
  }
}

TEST(HostileDictionary, OfRandomBytesReadsAsTheBytesSay) {
  std::mt19937 random(1);
  const std::string alphabet = "\0\0\0AB19"s;
  for (int round = 0; round < 5000; ++round) {
    std::string payload(random() % 40, '\0');
    for (char& byte : payload) byte = alphabet[random() % alphabet.size()];
    EXPECT_EQ(ReadHostile(payload), ReadAgain(payload)) << testing::PrintToString(payload);
  }
}

TEST(HostileDictionary, OfOneByteValueGivesAClearResult) {
  for (std::size_t size = 5; size < 300; ++size) {
    EXPECT_EQ(ReadHostile(std::string(size, '\0')), std::nullopt);
    EXPECT_EQ(ReadHostile(std::string(size, 'L')), Dictionary());
    EXPECT_EQ(ReadHostile(std::string(size, '\xFF')), Dictionary());
  }
}

TEST(HostileDictionary, WithAFieldOfAMegabyteIsRead) {
  constexpr std::size_t kMegabyte = 1 << 20;
  std::string payload(4 + kMegabyte, 'x');
  EXPECT_EQ(ReadHostile(payload), Dictionary());
  payload += "\0007\0"s;
  EXPECT_EQ(ReadHostile(payload), (Dictionary{{String(kMegabyte, L'x'), 7}}));
  std::string long_id = "\0\0\0\0GPS\0"s;
  long_id.resize(kMegabyte, '9');
  long_id += '\0';
  EXPECT_EQ(ReadHostile(long_id), std::nullopt);
}

TEST(HostileDictionary, OffersNoMoreThanTheRegisteredClients) {
  ClientManager registry;
  RecordingClient gps(L"GPS");
  RecordingClient can(L"CAN");
  ASSERT_TRUE(registry.RegisterClient(&gps));
  ASSERT_TRUE(registry.RegisterClient(&can));
  Dictionary dictionary = {{L"GPS", 64}, {L"CAN", 0xFFFF}};
  for (int i = 0; i < 10000; ++i) dictionary[L"Stranger " + std::to_wstring(i)] = 21;
  std::vector<String> offered;
  EXPECT_TRUE(registry.UpdatePlaybackClientList(offered, dictionary, 0xFFFF));
  EXPECT_EQ(offered, (std::vector<String>{L"CAN", L"GPS"}));
  for (const String& name : offered) EXPECT_TRUE(registry.SelectForPlayback(name));
  Receivers receivers;
  ClientIdSet client_ids;
  ClientIdSet dictionary_ids;
  ClientIdSet offset_ids;
  EXPECT_FALSE(
      registry.GetPlaybackSelectionInfo(receivers, client_ids, dictionary_ids, offset_ids));
  EXPECT_TRUE(receivers.empty());
}

}  // namespace
}  // namespace kestrav
