#include "kestrav/format/scramble_copy.h"

#include <cstring>

#include "kestrav/format/xor_copy.h"

namespace kestrav {
namespace {

// What `ScrambleCopy` promises, in vectors of 32 bytes, which the compiler makes two of 16 of where
// the function that it is inlined into may not use wider ones.
[[gnu::always_inline]] inline std::uint8_t Scramble(std::uint8_t* data, std::uint8_t* copy,
                                                    std::size_t size, std::uint8_t key) {
  using Vector = std::uint64_t __attribute__((vector_size(32)));
  const std::uint64_t word_key = wide::Repeat(key);
  const Vector vector_key = {word_key, word_key, word_key, word_key};
  Vector sum0 = {}, sum1 = {};
  std::size_t at = 0;
  for (; size - at >= 2 * sizeof(Vector); at += 2 * sizeof(Vector)) {
    Vector bytes0, bytes1;
    std::memcpy(&bytes0, data + at, sizeof(bytes0));
    std::memcpy(&bytes1, data + at + sizeof(bytes0), sizeof(bytes1));
    sum0 ^= bytes0;
    sum1 ^= bytes1;
    bytes0 ^= vector_key;
    bytes1 ^= vector_key;
    std::memcpy(data + at, &bytes0, sizeof(bytes0));
    std::memcpy(data + at + sizeof(bytes0), &bytes1, sizeof(bytes1));
    std::memcpy(copy + at, &bytes0, sizeof(bytes0));
    std::memcpy(copy + at + sizeof(bytes0), &bytes1, sizeof(bytes1));
  }
  sum0 ^= sum1;
  const std::uint8_t rest = XorEach(data + at, size - at, key, [=](std::size_t offset, auto bytes) {
    std::memcpy(data + at + offset, &bytes, sizeof(bytes));
    std::memcpy(copy + at + offset, &bytes, sizeof(bytes));
  });
  return rest ^ wide::Fold(sum0[0] ^ sum0[1] ^ sum0[2] ^ sum0[3]);
}

#if defined(__x86_64__)
[[gnu::target("avx2")]] std::uint8_t ScrambleAvx2(std::uint8_t* data, std::uint8_t* copy,
                                                  std::size_t size, std::uint8_t key) {
  return Scramble(data, copy, size, key);
}
#endif

}  // namespace

std::uint8_t ScrambleCopy(std::uint8_t* data, std::uint8_t* copy, std::size_t size,
                          std::uint8_t key) {
#if defined(__x86_64__)
  if (__builtin_cpu_supports("avx2")) return ScrambleAvx2(data, copy, size, key);
#endif
  return Scramble(data, copy, size, key);
}

}  // namespace kestrav
