#include "kestrav/format/checksum.h"

#include <gtest/gtest.h>

#include <random>

#include "support/streams.h"

namespace kestrav::test {
namespace {

TEST(Checksum, IsZeroForNoBytes) {
  const std::uint8_t byte = 0xAB;
  EXPECT_EQ(ComputeChecksum(&byte, 0), 0);
  EXPECT_EQ(ComputeChecksum(nullptr, 0), 0);
}

TEST(Checksum, IsTheByteItselfForOne) {
  const std::uint8_t byte = 0xAB;
  EXPECT_EQ(ComputeChecksum(&byte, 1), 0xAB);
}

TEST(Checksum, IsTheXorOfAllBytesAtEverySizeAndAlignment) {
  std::mt19937 random(1);
  Bytes bytes(100);
  for (std::uint8_t& byte : bytes) byte = static_cast<std::uint8_t>(random());
  for (std::size_t start = 0; start < 8; ++start) {
    std::uint8_t expected = 0;
    for (std::size_t size = 0; start + size < bytes.size(); ++size) {
      EXPECT_EQ(ComputeChecksum(bytes.data() + start, static_cast<std::uint32_t>(size)), expected)
          << start << '+' << size;
      expected ^= bytes[start + size];
    }
  }
}

TEST(Checksum, ChangesWithEveryBit) {
  Bytes bytes(19, 0x5A);
  const std::uint8_t before = ComputeChecksum(bytes.data(), 19);
  for (std::uint32_t bit = 0; bit < 19 * 8; ++bit) {
    const auto mask = static_cast<std::uint8_t>(1U << bit % 8);
    bytes[bit / 8] ^= mask;
    EXPECT_EQ(ComputeChecksum(bytes.data(), 19), before ^ mask);
    bytes[bit / 8] ^= mask;
  }
}

}  // namespace
}  // namespace kestrav::test
