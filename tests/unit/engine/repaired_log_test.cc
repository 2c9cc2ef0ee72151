#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "kestrav/format/header_repair.h"
#include "unit/engine/engine_fixture.h"
#include "unit/host/temp_dir.h"

namespace kestrav::test {
namespace {

class RepairedLog : public EngineTest, public testing::WithParamInterface<bool> {};

// Of a recording whose last record comes with the stop, on a full second, from a client with an id
// below 15: there the values of a stop and those of the records are the same.
TEST_P(RepairedLog, HasTheHeaderThatAProperStopWrites) {
  RecordingClient imu(L"IMU", 5);
  ASSERT_TRUE(engine_.EnableEncryption(GetParam()));
  ASSERT_TRUE(engine_.RegisterClient(&imu));
  ASSERT_TRUE(engine_.SelectForLogging(L"IMU"));
  ASSERT_TRUE(engine_.SetLoggingOutputStream(stream_));
  ASSERT_TRUE(engine_.StartLogging());
  clock_->Settle();
  const Bytes started = stream_->Content();
  for (std::uint32_t time = 1500; time <= 4000; time += 500) {
    clock_->Advance(500);
    ASSERT_TRUE(engine_.WriteData(MakeMessage(5, 1, "a sample", time)));
  }
  ASSERT_TRUE(engine_.StopLogging());
  clock_->Settle();
  const Bytes stopped = stream_->Content();
  ASSERT_GE(started.size(), 128u);

  std::string cut(stopped.begin(), stopped.end());
  cut.replace(0, 128, std::string(started.begin(), started.begin() + 128));
  ASSERT_EQ(cut.substr(12, 8), std::string(8, '\0'));
  const TempDir dir;
  WriteFile(dir / "a.klog", cut);
  EXPECT_TRUE(RepairBinaryLogStreamHeader(Wide(dir / "a.klog").c_str()));
  EXPECT_TRUE(FileContent(dir / "a.klog") == std::string(stopped.begin(), stopped.end()));
}

INSTANTIATE_TEST_SUITE_P(Scrambling, RepairedLog, testing::Bool());

}  // namespace
}  // namespace kestrav::test
