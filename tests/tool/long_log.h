#ifndef KESTRAV_TESTS_TOOL_LONG_LOG_H_
#define KESTRAV_TESTS_TOOL_LONG_LOG_H_

#include <cstdint>
#include <filesystem>
#include <string>

#include "run.h"
#include "support/log_builder.h"

namespace kestrav::test {

inline constexpr std::uint32_t kLongLogStart = 5000;
inline constexpr std::uint32_t kLongLogStepMs = 20;

// Appends `count` records of the clients GPS (21) and CAN (3), one each `kLongLogStepMs`; a
// megabyte holds about 3500.
inline void AppendLong(LogBuilder& log, std::uint32_t count, std::uint32_t start_ms) {
  for (std::uint32_t n = 0; n < count; ++n) {
    const std::string payload = std::to_string(n) + std::string(200 + n % 167, 'x');
    log.Record(n % 5 == 0 ? 21 : 3, static_cast<std::uint16_t>(n % 7),
               start_ms + kLongLogStepMs * n, payload);
  }
}

// A log of several megabytes.
inline LogBuilder ManyRecords(std::uint8_t key, std::uint32_t count = 18000) {
  LogBuilder log(key, key);
  log.StartClock(kLongLogStart).Duration(kLongLogStepMs * count);
  log.Dictionary({{"GPS", 21}, {"CAN", 3}}, kLongLogStart);
  AppendLong(log, count, kLongLogStart);
  return log;
}

inline std::string WriteTo(const Folder& folder, const std::string& name, const LogBuilder& log) {
  const Bytes bytes = log.Build();
  return folder.Write(name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

// Overwrites bytes of a file and keeps its time, so that only a look at those very bytes shows it.
inline void Overwrite(const std::string& path, std::size_t offset, const std::string& bytes) {
  const auto time = std::filesystem::last_write_time(path);
  std::string content = ReadFile(path);
  content.replace(offset, bytes.size(), bytes);
  const std::filesystem::path file(path);
  const Folder folder;
  std::filesystem::copy_file(folder.Write("changed", content), file,
                             std::filesystem::copy_options::overwrite_existing);
  std::filesystem::last_write_time(path, time);
}

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_TOOL_LONG_LOG_H_
