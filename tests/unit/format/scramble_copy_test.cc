#include "kestrav/format/scramble_copy.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <numeric>
#include <vector>

namespace kestrav::test {
namespace {

// Sizes around every step of the loops, wherever the bytes stand.
TEST(ScrambleCopy, DoesWhatALoopOverTheBytesDoes) {
  constexpr std::uint8_t kGuard = 0xEE;
  for (std::size_t size = 0; size <= 300; ++size) {
    for (const std::size_t offset : {0u, 1u, 7u, 16u}) {
      const auto key = static_cast<std::uint8_t>(size * 7 + 1);
      std::vector<std::uint8_t> data(offset + size + 1, kGuard);
      std::iota(data.begin() + static_cast<std::ptrdiff_t>(offset), data.end() - 1,
                static_cast<std::uint8_t>(size));
      std::vector<std::uint8_t> expected = data;
      std::uint8_t sum = 0;
      for (std::size_t i = offset; i < offset + size; ++i) {
        sum ^= expected[i];
        expected[i] ^= key;
      }
      std::vector<std::uint8_t> copy(data.size(), kGuard);
      EXPECT_EQ(ScrambleCopy(data.data() + offset, copy.data() + offset, size, key), sum);
      EXPECT_EQ(data, expected) << size;
      EXPECT_EQ(copy, expected) << size;
    }
  }
}

}  // namespace
}  // namespace kestrav::test
