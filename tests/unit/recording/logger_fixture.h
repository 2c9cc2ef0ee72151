#ifndef KESTRAV_TESTS_UNIT_RECORDING_LOGGER_FIXTURE_H_
#define KESTRAV_TESTS_UNIT_RECORDING_LOGGER_FIXTURE_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "kestrav/recording/binary_logger.h"
#include "support/manual_clock.h"
#include "support/messages.h"
#include "support/notification_log.h"
#include "support/parsed_log.h"
#include "support/recording_client.h"
#include "support/streams.h"
#include "support/thread_modules.h"

namespace kestrav::test {

// Remembers notifications and does something for each while it is sent.
class ScriptedSink final : public INotificationSink {
 public:
  void SendNotification(const NotificationInfo& info) override {
    log.SendNotification(info);
    if (on_notification) on_notification(info);
  }

  NotificationLog log;
  std::function<void(const NotificationInfo&)> on_notification;  // set before a recording starts
};

// A recorder with the clients "Info Client" (12), "GPS" (21) and "CAN" (22), the first two of them
// selected, on a clock that stands at 1000 ms. It starts in a plain stream.
class BinaryLoggerTest : public ::testing::Test {
 protected:
  static constexpr std::uint16_t kGps = 21;
  static constexpr std::uint16_t kCan = 22;
  static constexpr std::uint64_t kSelected = std::uint64_t{1} << 12 | std::uint64_t{1} << kGps;

  BinaryLoggerTest() {
    EXPECT_TRUE(clients_.RegisterClient(&info_client_));
    EXPECT_TRUE(clients_.RegisterClient(&gps_));
    EXPECT_TRUE(clients_.RegisterClient(&can_));
    EXPECT_TRUE(clients_.SelectForLogging(L"Info Client"));
    EXPECT_TRUE(clients_.SelectForLogging(L"GPS"));
    EXPECT_TRUE(logger_.SetBinaryLogStream(stream_));
    logger_.EnableEncryption(false);
  }

  bool StartLogging() {
    return logger_.StartLogging(threads_, &sink_, &clients_, &info_client_, L"Test-Logging");
  }
  bool Write(std::string_view payload, std::uint32_t time_stamp = 0) {
    return logger_.Write(MakeMessage(kGps, 7, payload, time_stamp));
  }
  // Stops, and waits until the log is finished.
  void Finish() {
    EXPECT_TRUE(logger_.StopLogging());
    clock_->Settle();
    EXPECT_EQ(logger_.GetLoggingStatus(), LoggingOff);
  }
  // Gives the recorder a new stream.
  void RenewStream() {
    stream_ = std::make_shared<BytesOutputStream>();
    EXPECT_TRUE(logger_.SetBinaryLogStream(stream_));
  }
  // The log so far; it must be sound.
  ParsedLog Log() const {
    ParsedLog log = ParseLog(stream_->Content());
    EXPECT_EQ(log.error, "");
    return log;
  }
  // The payloads that GPS recorded.
  std::vector<std::string> Recorded() const { return Log().PayloadsOf(kGps); }

  // The two records that the recorder itself writes.
  static ParsedRecord DictionaryAt(std::uint32_t time_ms) {
    return {12, 1200, time_ms, DictionaryPayload({{"GPS", kGps}, {"Info Client", 12}})};
  }
  static ParsedRecord SelectionAt(std::uint32_t time_ms) {
    return {12, 134, time_ms, std::string("\x20\0\0\0\0\0\0\0", 8)};  // id 21 at bit 21 - 16
  }

  ManualClock clock_;
  ThreadsUnderTest threads_;
  ScriptedSink sink_;
  ClientManager clients_;
  InfoClientImpl info_client_;
  RecordingClient gps_{L"GPS"};
  RecordingClient can_{L"CAN"};
  std::shared_ptr<BytesOutputStream> stream_ = std::make_shared<BytesOutputStream>();
  BinaryLogger logger_;
};

}  // namespace kestrav::test

#endif  // KESTRAV_TESTS_UNIT_RECORDING_LOGGER_FIXTURE_H_
