#ifndef KESTRAV_BENCH_SUPPORT_NOISE_H_
#define KESTRAV_BENCH_SUPPORT_NOISE_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kestrav::bench {

using Bytes = std::vector<std::uint8_t>;

// Bytes without order, always the same ones.
Bytes RandomBytes(std::size_t size);

// Changes the bytes where they look like a record header to a reader that expects record 0 in a
// stream with this key.
void SpoilHeaders(Bytes& bytes, std::uint8_t header_key);

}  // namespace kestrav::bench

#endif  // KESTRAV_BENCH_SUPPORT_NOISE_H_
