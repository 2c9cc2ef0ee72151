#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>

#include "kestrav/format/header_repair.h"
#include "reliability/fault_loop.h"
#include "support/log_builder.h"
#include "unit/host/temp_dir.h"

namespace kestrav::test {
namespace {

constexpr std::size_t kStreamHeader = 128;

// A log that was cut off: its header is as it was at the start, its last record is not whole.
std::string UnfinishedLog() {
  LogBuilder log(0x35, 0x81);
  log.StartClock(1000);
  for (std::uint32_t n = 0; n < 40; ++n) {
    log.Record(21, 1, 1000 + 100 * n, std::string(10 + 37 * n, 'x'));
  }
  log.Cut(log.Size() - 5);
  const Bytes bytes = log.Build();
  return {bytes.begin(), bytes.end()};
}

TEST(RepairShortOfMemory, LeavesTheLogAsItWasOrRepairsIt) {
  const TempDir dir;
  const auto path = dir / "log";
  const String wide = Wide(path);
  const std::string unfinished = UnfinishedLog();
  WriteFile(path, unfinished);
  ASSERT_TRUE(RepairBinaryLogStreamHeader(wide.c_str()));
  const std::string repaired = FileContent(path);
  ASSERT_NE(repaired, unfinished);
  ASSERT_EQ(repaired.substr(kStreamHeader), unfinished.substr(kStreamHeader));

  const std::uint32_t points = FailEachAllocation([&](std::uint32_t at, Extent extent) {
    WriteFile(path, unfinished);
    bool done = false;
    std::uint32_t failed = 0;
    {
      const FailingMemory memory(at, extent);
      done = RepairBinaryLogStreamHeader(wide.c_str());
      failed = memory.Failed();
    }
    EXPECT_EQ(FileContent(path), done ? repaired : unfinished);
    EXPECT_TRUE(done || failed > 0);
    EXPECT_TRUE(RepairBinaryLogStreamHeader(wide.c_str()));
    EXPECT_EQ(FileContent(path), repaired);
    return failed > 0;
  });
  std::printf("[figure] allocation failure, header repair: %u fault points, 0 leaks\n", points);
}

}  // namespace
}  // namespace kestrav::test
