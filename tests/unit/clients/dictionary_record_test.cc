#include "kestrav/clients/dictionary_record.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <ostream>
#include <string>

#include "kestrav/clients/info_client.h"
#include "support/short_memory.h"
#include "unit/clients/message_log.h"

namespace kestrav {
namespace {

using namespace std::string_literals;
using test::Delivery;
using test::MessageLog;
using test::RanShort;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

// The payload of the record that is written, if one is.
std::optional<std::string> Written(const Dictionary& dictionary) {
  const InfoClientImpl info;
  MessageLog log;
  const bool written = info.WriteDictionaryRecord(dictionary, &log);
  EXPECT_EQ(log.messages.size(), written ? 1U : 0U);
  if (!written) return std::nullopt;
  EXPECT_EQ(log.messages[0].client_id, 12);
  EXPECT_EQ(log.messages[0].data_id, 1200);
  return log.messages[0].payload;
}

Memory::MemBlock Block(const std::string& bytes) {
  Memory::MemBlock block;
  EXPECT_TRUE(block.Assign(reinterpret_cast<const std::uint8_t*>(bytes.data()),
                           static_cast<std::uint32_t>(bytes.size())));
  return block;
}

// What is read out of a payload, if it can be read.
std::optional<Dictionary> Read(const std::string& payload) {
  Dictionary dictionary = {{L"left over", std::uint16_t{1}}};
  if (InfoClientUtility::ReadDictionaryData(dictionary, Block(payload))) return dictionary;
  EXPECT_THAT(dictionary, IsEmpty());
  return std::nullopt;
}

TEST(DictionaryRecord, OfGpsWithId21Has11Bytes) {
  EXPECT_EQ(Written({{L"GPS", 21}}), "\x01\0\0\0GPS\00021\0"s);
}

TEST(DictionaryRecord, OfTheInfoClientAloneHas19Bytes) {
  EXPECT_EQ(Written({{L"Info Client", 12}}), "\x01\0\0\0Info Client\00012\0"s);
}

TEST(DictionaryRecord, WritesIdsInDecimalWithoutLeadingZeros) {
  EXPECT_EQ(Written({{L"GPS", 0}}), "\x01\0\0\0GPS\0\x30\0"s);
  EXPECT_EQ(Written({{L"GPS", 63}}), "\x01\0\0\0GPS\0\x36\x33\0"s);
  EXPECT_EQ(Written({{L"GPS", 65535}}), "\x01\0\0\0GPS\00065535\0"s);
}

TEST(DictionaryRecord, HoldsItsEntriesByAscendingStringId) {
  EXPECT_EQ(Written({{L"abc", 3}, {L"ABCD", 2}, {L"ABC", 1}}),
            "\x03\0\0\0ABC\0001\0ABCD\0002\0abc\0003\0"s);
}

TEST(DictionaryRecord, CountsItsEntriesIn32BitsLeastSignificantByteFirst) {
  Dictionary dictionary;
  for (wchar_t c = L'\x1000'; dictionary.size() < 300; ++c) dictionary[String(L"Abc") + c] = 1;
  const std::optional<std::string> payload = Written(dictionary);
  ASSERT_TRUE(payload);
  EXPECT_EQ(payload->substr(0, 4), "\x2C\x01\0\0"s);
}

TEST(DictionaryRecord, OfAnEmptyDictionaryIsNotWritten) { EXPECT_EQ(Written({}), std::nullopt); }

TEST(DictionaryRecord, WithAnEmptyStringIdIsNotWritten) {
  EXPECT_EQ(Written({{L"", 1}}), std::nullopt);
  EXPECT_EQ(Written({{L"", 1}, {L"GPS", 2}}), std::nullopt);
}

TEST(DictionaryRecord, EncodesStringIdsInUtf8) {
  EXPECT_EQ(Written({{L"GP\x00C4", 1}}), "\x01\0\0\0GP\xC3\x84\0001\0"s);
  EXPECT_EQ(Written({{L"GPS\x4E2D\x1F600", 1}}),
            "\x01\0\0\0GPS\xE4\xB8\xAD\xF0\x9F\x98\x80\0001\0"s);
}

TEST(DictionaryRecord, FitsInto57BytesAnEntryWithTheCountAmongThem) {
  const auto size = [](std::size_t length, std::uint16_t id) {
    const std::optional<std::string> payload = Written({{String(length, L'x'), id}});
    return payload ? payload->size() : 0;
  };
  EXPECT_EQ(size(49, 21), 57U);
  EXPECT_EQ(size(50, 21), 0U);
  EXPECT_EQ(size(50, 7), 57U);
  EXPECT_EQ(size(46, 65535), 57U);
  EXPECT_EQ(size(47, 65535), 0U);
  EXPECT_TRUE(Written({{String(50, L'x'), 63}, {L"Info Client", 12}}))
      << "entries lend each other their room";
}

TEST(DictionaryRecord, FailsWhenItsStringIdsNeedMoreThanOneByteACharacter) {
  EXPECT_FALSE(Written({{String(26, L'\x00C4'), 7}})) << "4 + 52 + 3 bytes";
  EXPECT_TRUE(Written({{String(25, L'\x00C4'), 7}})) << "4 + 50 + 3 bytes";
}

TEST(DictionaryRecord, ComesBackAsItWasWritten) {
  const Dictionary dictionary = {
      {L"CAN bus 1", 0}, {L"GPS", 21}, {L"Info Client", 12}, {L"Last one", 63}};
  const std::optional<std::string> payload = Written(dictionary);
  ASSERT_TRUE(payload);
  EXPECT_EQ(Read(*payload), dictionary);
}

TEST(DictionaryRecord, GivesOtherStringIdsBackOneByteACharacter) {
  const std::optional<std::string> payload = Written({{L"GP\x00C4", 1}});
  ASSERT_TRUE(payload);
  EXPECT_EQ(Read(*payload), (Dictionary{{L"GP\x00C3\x0084", 1}}));
}

TEST(DictionaryRecord, WritingFailsWhenMemoryIsShort) {
  const Dictionary dictionary = {{L"Global position", 21}, {L"Info Client", 12}};
  for (std::uint32_t grants = 0;; ++grants) {
    Memory::MemBlock payload;
    bool written = false;
    const bool ran_short = RanShort(
        grants, [&] { written = InfoClientUtility::WriteDictionaryData(dictionary, payload); });
    ASSERT_EQ(written, !ran_short);
    if (!ran_short) break;
  }
}

TEST(DictionaryRecord, ReadingFailsWhenMemoryIsShort) {
  const Memory::MemBlock payload = Block("\0\0\0\0Global position\00021\0Info\00012\0"s);
  for (std::uint32_t grants = 0;; ++grants) {
    Dictionary dictionary;
    bool read = false;
    const bool ran_short = RanShort(
        grants, [&] { read = InfoClientUtility::ReadDictionaryData(dictionary, payload); });
    ASSERT_EQ(read, !ran_short);
    EXPECT_EQ(dictionary.size(), read ? 2U : 0U);
    if (!ran_short) break;
  }
}

TEST(DictionaryReader, RefusesAPayloadWithNothingBehindTheCount) {
  for (std::size_t size = 0; size <= 4; ++size) {
    EXPECT_EQ(Read(std::string(size, '\x01')), std::nullopt) << size;
  }
}

TEST(DictionaryReader, TakesTheEntriesThatAreThereWhateverTheCountSays) {
  const Dictionary two = {{L"CAN", 22}, {L"GPS", 21}};
  for (const std::string& count : {"\x05\0\0\0"s, "\0\0\0\0"s, "\xFF\xFF\xFF\xFF"s}) {
    EXPECT_EQ(Read(count + "GPS\00021\0CAN\00022\0"s), two);
  }
}

TEST(DictionaryReader, IgnoresAStringIdWithoutAnId) {
  const Dictionary gps = {{L"GPS", 21}};
  EXPECT_EQ(Read("\x02\0\0\0GPS\00021\0CAN\0"s), gps);
  EXPECT_EQ(Read("\x02\0\0\0GPS\00021\0CAN"s), gps);
  EXPECT_EQ(Read("\x02\0\0\0GPS\00021\0CAN\00022"s), gps) << "an unterminated id";
  EXPECT_EQ(Read("\x01\0\0\0GPS"s), Dictionary());
}

TEST(DictionaryReader, NeedsNoMemoryForAnUnterminatedField) {
  const std::string endless(1024 * 1024, 'x');
  for (const std::string& entries : {endless, "GPS\0"s + endless}) {
    const Memory::MemBlock payload = Block("\x01\0\0\0"s + entries);
    Dictionary dictionary;
    const test::LargestAllocation largest;
    const bool read = InfoClientUtility::ReadDictionaryData(dictionary, payload);
    EXPECT_LT(largest.Bytes(), 1000U);
    EXPECT_TRUE(read);
    EXPECT_THAT(dictionary, IsEmpty());
  }
}

TEST(DictionaryReader, RefusesAnEmptyStringId) {
  EXPECT_EQ(Read("\x01\0\0\0\0\0"s), std::nullopt);
  EXPECT_EQ(Read("\x01\0\0\0\0"s), std::nullopt);
  EXPECT_EQ(Read("\x02\0\0\0GPS\00021\0\00022\0"s), std::nullopt);
}

TEST(DictionaryReader, KeepsTheFirstIdOfAStringId) {
  EXPECT_EQ(Read("\x02\0\0\0GPS\00021\0GPS\00022\0"s), (Dictionary{{L"GPS", 21}}));
}

TEST(DictionaryReader, TakesAByteAsACharacter) {
  EXPECT_EQ(Read("\x01\0\0\0\x01\x7F\x80\xFF\0007\0"s), (Dictionary{{L"\x01\x7F\x80\xFF", 7}}));
}

struct IdText {
  std::string text;
  std::optional<std::uint16_t> id;
};

void PrintTo(const IdText& row, std::ostream* out) { *out << '"' << row.text << '"'; }

class DictionaryIds : public testing::TestWithParam<IdText> {};

TEST_P(DictionaryIds, AreReadAsUnsignedDecimalNumbersOfWhichTheLow16BitsCount) {
  const std::optional<Dictionary> read = Read("\x01\0\0\0GPS\0"s + GetParam().text + '\0');
  EXPECT_EQ(read.has_value(), GetParam().id.has_value());
  if (read && GetParam().id) {
    EXPECT_THAT(*read, ElementsAre(Pair(L"GPS", *GetParam().id)));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Texts, DictionaryIds,
    testing::Values(
        IdText{"42", 42}, IdText{" 42 ", 42}, IdText{"\t 42\t ", 42}, IdText{"+42", 42},
        IdText{" +42", 42}, IdText{"-1", 65535}, IdText{"0", 0}, IdText{"-0", 0},
        IdText{"00042", 42}, IdText{"65535", 65535}, IdText{"65536", 0}, IdText{"65548", 12},
        IdText{"4294967295", 65535}, IdText{"4294967296", std::nullopt},
        IdText{"-4294967296", std::nullopt}, IdText{"18446744073709551617", std::nullopt},
        IdText{std::string(1000, '9'), std::nullopt}, IdText{std::string(1000, '0') + "7", 7},
        IdText{"", std::nullopt}, IdText{" ", std::nullopt}, IdText{"+", std::nullopt},
        IdText{"-", std::nullopt}, IdText{"4x", std::nullopt}, IdText{"x4", std::nullopt},
        IdText{"4 2", std::nullopt}, IdText{"+-4", std::nullopt}, IdText{"+ 4", std::nullopt},
        IdText{"4+", std::nullopt}, IdText{"0x10", std::nullopt}, IdText{"4.0", std::nullopt},
        IdText{"4\n", std::nullopt}, IdText{"\xB2", std::nullopt}));

}  // namespace
}  // namespace kestrav
