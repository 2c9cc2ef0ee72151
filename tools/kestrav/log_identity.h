#ifndef KESTRAV_TOOLS_LOG_IDENTITY_H_
#define KESTRAV_TOOLS_LOG_IDENTITY_H_

#include <array>
#include <cstdint>
#include <span>

#include "kestrav/format/stream_header.h"
#include "log_file.h"

namespace kestrav::tool {

// By which a log is known again without reading all of it. It changes when the log grows, is
// written to or is another one; a copy that did not keep the time of the file counts as another.
struct LogIdentity {
  std::uint64_t size = 0;
  std::int64_t modified_ns = 0;  // since 1970
  std::array<std::uint8_t, kStreamHeaderSize> header{};
  std::uint64_t samples = 0;  // a sum over both ends and places in between

  friend bool operator==(const LogIdentity&, const LogIdentity&) = default;
};

// Leaves the decoder where it stands. Throws `Failure` when the file cannot be read.
LogIdentity IdentityOf(LogFile& log);

// A sum (FNV-1a, 64 bits) that goes on from `sum`.
inline constexpr std::uint64_t kEmptySum = 0xCBF29CE484222325;
std::uint64_t AddToSum(std::uint64_t sum, std::span<const std::uint8_t> bytes);

}  // namespace kestrav::tool

#endif  // KESTRAV_TOOLS_LOG_IDENTITY_H_
