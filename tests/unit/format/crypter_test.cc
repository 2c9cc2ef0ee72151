#include "kestrav/format/crypter.h"

#include <gtest/gtest.h>

#include <set>
#include <type_traits>

#include "support/manual_clock.h"
#include "support/streams.h"

namespace kestrav::test {
namespace {

std::uint8_t RecordKey(std::uint8_t stream_key, std::uint32_t index) {
  Crypter crypter;
  EXPECT_TRUE(crypter.Initialize(stream_key));
  std::uint8_t key = 0;
  crypter.ChangeKey(key, index);
  return key;
}

void ExpectOff(const Crypter& crypter) {
  EXPECT_EQ(crypter.GetKey(), 0);
  Bytes bytes{1, 2, 3};
  EXPECT_FALSE(crypter.EncryptData(bytes.data(), 7, 3));
  EXPECT_FALSE(crypter.DecryptData(bytes.data(), 7, 3));
  EXPECT_FALSE(crypter.ChangeKeyAndData(bytes.data(), 7, 3));
  EXPECT_EQ(bytes, (Bytes{1, 2, 3}));
}

TEST(Crypter, IsOffWhenNew) { ExpectOff(Crypter()); }

TEST(Crypter, AKeyOfZeroSwitchesItOff) {
  Crypter crypter;
  EXPECT_FALSE(crypter.Initialize(0));
  ExpectOff(crypter);
  EXPECT_TRUE(crypter.Initialize(9));
  EXPECT_EQ(crypter.GetKey(), 9);
  EXPECT_FALSE(crypter.Initialize(0));
  ExpectOff(crypter);
}

struct KeyCase {
  std::uint8_t stream_key;
  std::uint32_t index;
  std::uint8_t record_key;
};

class CrypterKey : public testing::TestWithParam<KeyCase> {};

TEST_P(CrypterKey, IsTheSumModulo256AndNeverZero) {
  EXPECT_EQ(RecordKey(GetParam().stream_key, GetParam().index), GetParam().record_key);
}

INSTANTIATE_TEST_SUITE_P(Sums, CrypterKey,
                         testing::Values(KeyCase{5, 0, 5}, KeyCase{5, 1, 6}, KeyCase{5, 250, 255},
                                         KeyCase{5, 251, 1}, KeyCase{5, 252, 1}, KeyCase{5, 253, 2},
                                         KeyCase{5, 256, 5}, KeyCase{0xFF, 1, 1},
                                         KeyCase{1, 0xFFFFFFFF, 1}, KeyCase{2, 0xFFFFFFFF, 1},
                                         KeyCase{3, 0xFFFFFFFF, 2}, KeyCase{0x80, 0x12345680, 1}));

TEST(Crypter, ScramblesEveryByteWithTheRecordKeyAtEverySize) {
  Crypter crypter;
  ASSERT_TRUE(crypter.Initialize(0xF0));
  for (std::uint32_t size = 0; size < 40; ++size) {
    Bytes bytes(size + 2, 0x11);
    EXPECT_TRUE(crypter.EncryptData(bytes.data() + 1, 3, size));
    Bytes expected(size + 2, 0x11 ^ 0xF3);
    expected.front() = expected.back() = 0x11;
    EXPECT_EQ(bytes, expected) << size;
  }
}

TEST(Crypter, UnscramblesWithTheSameKeyAndIndex) {
  Crypter writer;
  Crypter reader;
  ASSERT_TRUE(writer.Initialize(77));
  ASSERT_TRUE(reader.Initialize(77));
  const Bytes plain{0, 1, 77, 0x4C, 0xFF, 8, 9, 10, 11, 12, 13};
  Bytes bytes = plain;
  EXPECT_TRUE(writer.EncryptData(bytes.data(), 1000, 11));
  EXPECT_NE(bytes, plain);
  EXPECT_TRUE(reader.DecryptData(bytes.data(), 1000, 11));
  EXPECT_EQ(bytes, plain);
}

TEST(Crypter, ModifiesDataWithTheKeyAsGiven) {
  Bytes bytes{0x00, 0x4C, 0xFF};
  Crypter::ModifyData(bytes.data(), 0x4C, 3);
  EXPECT_EQ(bytes, (Bytes{0x4C, 0x00, 0xB3}));
  Crypter::ModifyData(bytes.data(), 0, 3);
  EXPECT_EQ(bytes, (Bytes{0x4C, 0x00, 0xB3}));
}

TEST(Crypter, StillScramblesAfterItsKeyWasReset) {
  Crypter crypter;
  ASSERT_TRUE(crypter.Initialize(5));
  crypter.ResetKey();
  EXPECT_EQ(crypter.GetKey(), 0);
  Bytes bytes{0x10, 0x20};
  EXPECT_TRUE(crypter.ChangeKeyAndData(bytes.data(), 3, 2));
  EXPECT_EQ(bytes, (Bytes{0x13, 0x23}));
  EXPECT_TRUE(crypter.ChangeKeyAndData(bytes.data(), 256, 2));
  EXPECT_EQ(bytes, (Bytes{0x12, 0x22}));
}

TEST(Crypter, DrawsKeysThatAreNeverZeroAndDiffer) {
  const ManualClock clock;
  Crypter crypter;
  std::set<int> keys;
  for (int i = 0; i < 5000; ++i) {
    ASSERT_TRUE(crypter.Initialize());
    keys.insert(crypter.GetKey());
  }
  EXPECT_FALSE(keys.contains(0));
  EXPECT_GT(keys.size(), 200u);
}

// The key of a new scrambler at this time of the clock.
int FirstKeyAt(std::uint32_t now_ms) {
  const ManualClock clock(now_ms);
  Crypter crypter;
  EXPECT_TRUE(crypter.Initialize());
  return crypter.GetKey();
}

TEST(Crypter, DrawsItsFirstKeyByTheClock) {
  std::set<int> keys;
  for (std::uint32_t now_ms = 1000; now_ms < 1050; ++now_ms) {
    keys.insert(FirstKeyAt(now_ms));
    EXPECT_EQ(FirstKeyAt(now_ms), FirstKeyAt(now_ms)) << now_ms;
  }
  EXPECT_GT(keys.size(), 10u);
}

TEST(Crypter, CannotDrawItsFirstKeyWithoutAClock) {
  ManualClock clock;
  clock->FailMs();
  Crypter crypter;
  EXPECT_FALSE(crypter.Initialize());
  ExpectOff(crypter);
  clock->Recover();
  EXPECT_TRUE(crypter.Initialize());
  EXPECT_NE(crypter.GetKey(), 0);
}

TEST(Crypter, DrawsFurtherKeysWithoutAClock) {
  ManualClock clock;
  Crypter crypter;
  ASSERT_TRUE(crypter.Initialize());
  clock->FailMs();
  EXPECT_TRUE(crypter.Initialize());
  EXPECT_NE(crypter.GetKey(), 0);
}

TEST(Crypter, HasAVirtualDestructor) { EXPECT_TRUE(std::has_virtual_destructor_v<Crypter>); }

}  // namespace
}  // namespace kestrav::test
