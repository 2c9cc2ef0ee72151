#ifndef KESTRAV_FORMAT_XOR_COPY_H_
#define KESTRAV_FORMAT_XOR_COPY_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace kestrav {

// The inner loops of checksum and scrambler, which every recorded and every read byte goes through.
// Sixteen bytes at a time, in vectors that the compiler knows on every machine.
namespace wide {

using Vector = std::uint64_t __attribute__((vector_size(16)));

using Bytes = std::uint8_t __attribute__((vector_size(16)));

inline Vector Load(const std::uint8_t* from) {
  Vector vector;
  std::memcpy(&vector, from, sizeof(vector));
  return vector;
}

inline void Store(std::uint8_t* to, Vector vector) { std::memcpy(to, &vector, sizeof(vector)); }

inline std::uint64_t Repeat(std::uint8_t byte) { return std::uint64_t{byte} * 0x0101010101010101; }

// The XOR of the eight bytes of `word`.
inline std::uint8_t Fold(std::uint64_t word) {
  word ^= word >> 32;
  word ^= word >> 16;
  word ^= word >> 8;
  return static_cast<std::uint8_t>(word);
}

}  // namespace wide

// Hands `size` bytes from `in`, each XORed with `key`, to `put(offset, value)` in pieces of 16, 8
// or 1 bytes and returns the XOR of the bytes as they stand in `in`. `XorEach` is for any size,
// this for small ones.
template <class Put>
[[gnu::always_inline]] inline std::uint8_t XorEachOfFew(const std::uint8_t* in, std::size_t size,
                                                        std::uint8_t key, Put put,
                                                        std::size_t at = 0,
                                                        wide::Vector sum = wide::Vector{0, 0}) {
  const std::uint64_t word_key = wide::Repeat(key);
  for (const std::size_t end = size & ~std::size_t{15}; at < end; at += 16) {
    const wide::Vector bytes = wide::Load(in + at);
    sum ^= bytes;
    put(at, bytes ^ wide::Vector{word_key, word_key});
  }
  std::uint64_t word_sum = sum[0] ^ sum[1];
  if ((size & 8) != 0) {
    std::uint64_t bytes;
    std::memcpy(&bytes, in + at, sizeof(bytes));
    word_sum ^= bytes;
    put(at, bytes ^ word_key);
    at += 8;
  }
  std::uint8_t result = wide::Fold(word_sum);
  for (; at < size; ++at) {
    result ^= in[at];
    put(at, static_cast<std::uint8_t>(in[at] ^ key));
  }
  return result;
}

template <class Put>
[[gnu::always_inline]] inline std::uint8_t XorEach(const std::uint8_t* in, std::size_t size,
                                                   std::uint8_t key, Put put) {
  const std::uint64_t word_key = wide::Repeat(key);
  const wide::Vector vector_key = {word_key, word_key};
  wide::Vector sum = {};
  std::size_t at = 0;
  if (size >= 64) {
    // Four sums, so that one step need not wait for the one before; written out, since the compiler
    // does not unroll loops by itself here.
    wide::Vector sum1 = {}, sum2 = {}, sum3 = {};
    do {
      const wide::Vector bytes0 = wide::Load(in + at);
      const wide::Vector bytes1 = wide::Load(in + at + 16);
      const wide::Vector bytes2 = wide::Load(in + at + 32);
      const wide::Vector bytes3 = wide::Load(in + at + 48);
      sum ^= bytes0;
      sum1 ^= bytes1;
      sum2 ^= bytes2;
      sum3 ^= bytes3;
      put(at, bytes0 ^ vector_key);
      put(at + 16, bytes1 ^ vector_key);
      put(at + 32, bytes2 ^ vector_key);
      put(at + 48, bytes3 ^ vector_key);
      at += 64;
    } while (size - at >= 64);
    sum = (sum ^ sum1) ^ (sum2 ^ sum3);
  }
  return XorEachOfFew(in, size, key, put, at, sum);
}

// Copies `size` bytes, each XORed with `key`, and returns the XOR of the bytes before. The two
// ranges are the same or do not overlap.
inline std::uint8_t XorCopy(std::uint8_t* out, const std::uint8_t* in, std::size_t size,
                            std::uint8_t key) {
  return XorEach(in, size, key, [out](std::size_t at, auto bytes) {
    std::memcpy(out + at, &bytes, sizeof(bytes));
  });
}

// The XOR of all bytes.
inline std::uint8_t XorSum(const std::uint8_t* in, std::size_t size) {
  return XorEach(in, size, 0, [](std::size_t, auto) {});
}

}  // namespace kestrav

#endif  // KESTRAV_FORMAT_XOR_COPY_H_
