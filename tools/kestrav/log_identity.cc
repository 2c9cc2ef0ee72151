#include "log_identity.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <vector>

#include "exit_codes.h"

namespace kestrav::tool {
namespace {

namespace fs = std::filesystem;

constexpr std::uint32_t kEndBytes = 64 * 1024;
constexpr std::uint32_t kSampleBytes = 4 * 1024;
constexpr std::uint32_t kSamples = 16;

std::int64_t ModifiedNs(const std::string& path) {
  std::error_code error;
  const fs::file_time_type time = fs::last_write_time(path, error);
  if (error) throw Failure(path + ": " + error.message());
  const auto since_1970 = std::chrono::file_clock::to_sys(time).time_since_epoch();
  return std::chrono::duration_cast<std::chrono::nanoseconds>(since_1970).count();
}

std::uint64_t FileSize(const std::string& path) {
  std::error_code error;
  const std::uintmax_t size = fs::file_size(path, error);
  if (error) throw Failure(path + ": " + error.message());
  return size;
}

// Reads through the decoder, so that it is the very file that is read afterwards.
class Samples {
 public:
  explicit Samples(LogFile& log)
      : log_(log),
        before_(log.Decoder().Getoffset()),
        reach_(before_ + log.Decoder().GetRemainingBytes()) {}
  ~Samples() { static_cast<void>(log_.Decoder().SetOffset(before_)); }
  Samples(const Samples&) = delete;
  Samples& operator=(const Samples&) = delete;

  std::span<const std::uint8_t> Read(std::uint32_t at, std::uint32_t size) {
    bytes_.resize(size);
    if (log_.Decoder().SetOffset(at) && log_.Decoder().ReadData(bytes_.data(), size)) return bytes_;
    log_.CheckReads();
    throw Failure(log_.Path() + ": cannot be read");
  }

  // What a 32-bit position reaches of the file.
  std::uint32_t Reach() const { return reach_; }

 private:
  LogFile& log_;
  const std::uint32_t before_;
  const std::uint32_t reach_;
  std::vector<std::uint8_t> bytes_;
};

std::uint64_t SumOfSamples(Samples& samples) {
  const std::uint32_t size = samples.Reach();
  const std::uint32_t end = std::min(kEndBytes, size);
  std::uint64_t sum = AddToSum(kEmptySum, samples.Read(0, end));
  for (std::uint32_t n = 1; n <= kSamples && size > 2 * kEndBytes; ++n) {
    const auto at = static_cast<std::uint32_t>(std::uint64_t{size} * n / (kSamples + 1));
    sum = AddToSum(sum, samples.Read(at, kSampleBytes));
  }
  return AddToSum(sum, samples.Read(size - end, end));
}

}  // namespace

std::uint64_t AddToSum(std::uint64_t sum, std::span<const std::uint8_t> bytes) {
  constexpr std::uint64_t kPrime = 0x100000001B3;
  for (const std::uint8_t byte : bytes) sum = (sum ^ byte) * kPrime;
  return sum;
}

LogIdentity IdentityOf(LogFile& log) {
  LogIdentity identity;
  identity.size = FileSize(log.Path());
  identity.modified_ns = ModifiedNs(log.Path());
  Samples samples(log);
  std::ranges::copy(samples.Read(0, kStreamHeaderSize), identity.header.begin());
  identity.samples = SumOfSamples(samples);
  return identity;
}

}  // namespace kestrav::tool
