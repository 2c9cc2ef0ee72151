#include "reliability/recorder_rig.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <bit>
#include <memory>

#include "support/parsed_log.h"

namespace kestrav::test {
namespace {

constexpr std::uint32_t kBurst = 3;
constexpr std::uint32_t kStepMs = 7'500;
constexpr std::uint32_t kScnds = kMessages / kBurst * kStepMs / 1000;

}  // namespace

RecorderRig::RecorderRig(Time::ManualSource& clock) : clock_(clock) {
  const auto observe = [this](const NotificationInfo& info) { observer_(info); };
  EXPECT_NE(engine.notifier.Connect(observe), 0u);
}

bool RecorderRig::Prepare(bool scrambled) {
  bool done = InTwoTries([&] { return engine.Init(&threads_, engine_name_); });
  for (QuietClient& client : clients_) {
    done = done && InTwoTries([&] { return engine.RegisterClient(&client); });
  }
  for (const String& name : client_names_) {
    done = done && InTwoTries([&] { return engine.SelectForLogging(name); });
  }
  return done && engine.EnableEncryption(scrambled);
}

// A start is refused at once, or it fails on its thread. One that only lacks its timer records.
bool RecorderRig::Start() {
  return InTwoTries([&] {
    static_cast<void>(engine.StartLogging());
    clock_.Settle();
    return engine.GetLoggingStatus() == LoggingRunning;
  });
}

bool RecorderRig::Write(std::uint32_t n) {
  const Payload payload = PayloadOf(n);
  const auto message = LogMessage::Create();
  return message &&
         message->Assign(clients_[n % 2].client_id, static_cast<std::uint16_t>(n),
                         payload.bytes.data(), payload.size, 0) &&
         engine.WriteData(message);
}

Recorded RecorderRig::Begin(const SmartPtr::Ptr<Io::IOutputStream>& stream, bool scrambled) {
  Recorded recorded;
  recorded.prepared = Prepare(scrambled) && engine.SetLoggingOutputStream(stream);
  recorded.ran = recorded.prepared && Start();
  return recorded;
}

void RecorderRig::WriteAll(Recorded& recorded) {
  for (std::uint32_t n = 0; n < kMessages; ++n) {
    if (n % kBurst == 0) clock_.Advance(kStepMs);
    if (Write(n)) recorded.accepted |= 1U << n;
  }
}

Recorded RecorderRig::Record(const SmartPtr::Ptr<Io::IOutputStream>& stream, bool scrambled) {
  Recorded recorded = Begin(stream, scrambled);
  WriteAll(recorded);
  recorded.stopped = engine.StopLogging();
  clock_.Settle();
  return recorded;
}

std::uint32_t MessagesIn(const Bytes& log) {
  const ParsedLog parsed = ParseLog(log);
  EXPECT_EQ(parsed.error, "");
  std::uint32_t found = 0;
  for (const ParsedRecord& record : parsed.records) {
    if (record.client_id == kInfoClientId) continue;
    const std::uint32_t n = record.data_id;
    EXPECT_LT(n, kMessages);
    EXPECT_EQ(found >> n, 0u) << "message " << n << " after a later one, or twice";
    const Payload payload = PayloadOf(n);
    EXPECT_EQ(record.payload,
              std::string(payload.bytes.begin(), payload.bytes.begin() + payload.size));
    found |= 1U << n;
  }
  return found;
}

void ExpectCountersToTell(RecorderRig& rig, const Recorded& recorded, const Bytes& log) {
  const LoggingCounters counters = rig.engine.GetLoggingCounters();
  const std::size_t on_file = log.empty() ? 0 : ParseLog(log).records.size();
  EXPECT_EQ(counters.accepted - counters.Dropped(), on_file);
  if (!recorded.ran) return;
  EXPECT_EQ(counters.written, on_file);
  EXPECT_GE(counters.accepted, static_cast<std::uint64_t>(std::popcount(recorded.accepted)) + 2);
  EXPECT_EQ(counters.dropped_without_log, 0u);
}

Bytes ExpectCompleteRecording(RecorderRig& rig, bool scrambled) {
  rig.TakeNotifications();
  const auto stream = std::make_shared<FixedOutputStream>(1 << 14);
  const Recorded recorded = rig.Record(stream, scrambled);
  EXPECT_TRUE(recorded.ran && recorded.stopped);
  EXPECT_EQ(recorded.accepted, kAllMessages);
  // The timer of a start that failed may still run, and tick at the start of this one too.
  EXPECT_THAT(rig.Ticks(), testing::AnyOf(kScnds, kScnds + 1));
  EXPECT_THAT(rig.TakeNotifications(), testing::ElementsAre(0, 1, 9));
  const Bytes log = stream->Content();
  EXPECT_EQ(MessagesIn(log), kAllMessages);
  ExpectCountersToTell(rig, recorded, log);
  EXPECT_EQ(rig.engine.GetLoggingCounters().Dropped(), 0u);
  EXPECT_EQ(rig.engine.GetLoggingCounters().bytes, log.size());
  const ParsedLog parsed = ParseLog(log);
  EXPECT_EQ(parsed.stream_length, log.size());
  const auto is_dictionary = [](const ParsedRecord& record) {
    return record.client_id == kInfoClientId && record.data_id == kDictionaryDataId;
  };
  EXPECT_EQ(std::count_if(parsed.records.begin(), parsed.records.end(), is_dictionary),
            1 + kScnds / 10);
  return log;
}

}  // namespace kestrav::test
