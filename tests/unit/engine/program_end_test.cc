#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

#include "kestrav/engine/kestrav_impl.h"
#include "support/recording_client.h"
#include "support/streams.h"

namespace kestrav::test {
namespace {

// Ends the program while an engine records that only the end of the program destroys.
[[noreturn]] void EndWhileAStaticEngineRecords() {
  static Thread::ThreadModule threads;
  static RecordingClient gps(L"GPS");
  static KestravImpl engine;
  const auto tell = [](const NotificationInfo& info) {
    if (info.id == NotifyLoggingFinished) std::fputs("finished", stderr);
  };
  const bool started = engine.Init(&threads, L"Eng") && engine.RegisterClient(&gps) &&
                       engine.SelectForLogging(L"GPS") &&
                       engine.SetLoggingOutputStream(std::make_shared<BytesOutputStream>()) &&
                       engine.notifier.Connect(tell) != 0 && engine.StartLogging();
  std::exit(started ? EXIT_SUCCESS : EXIT_FAILURE);
}

// A program of its own, in which nothing has used a timer yet.
TEST(EngineDeathTest, FinishesTheLogWhenItIsStaticAndTheProgramEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(EndWhileAStaticEngineRecords(), testing::ExitedWithCode(EXIT_SUCCESS), "finished");
}

}  // namespace
}  // namespace kestrav::test
