#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "kestrav/engine/kestrav_module.h"
#include "support/messages.h"
#include "support/recording_client.h"
#include "support/streams.h"
#include "support/vtable_slot.h"
#include "unit/engine/fake_factory.h"

namespace kestrav::test {
namespace {

using Calls = std::vector<std::string>;

std::string Written(const String& text) { return Text::ToUtf8(text); }
template <class Value>
std::string Written(const Value& value) {
  std::ostringstream text;
  text << value;
  return text.str();
}

// A number for each name, below 2^31.
std::uint32_t NumberOf(const std::string& name) {
  std::uint32_t number = 0;
  for (const char letter : name) number = number * 31 + static_cast<std::uint8_t>(letter);
  return number & 0x7FFFFFFF;
}

// Notes each operation with its arguments and gives each its own answer.
class NotingEngine final : public KestravImpl {
 public:
  NotingEngine(Calls& calls, bool answer) : calls_(calls), answer_(answer) {}
  ~NotingEngine() override { calls_.emplace_back("~"); }

  bool EnableEncryption(bool enable) override { return Say("EnableEncryption", enable); }
  bool FastForwardPlayback() override { return Say("FastForwardPlayback"); }
  bool GetClientsList(std::vector<String>& clients) const override {
    clients.push_back(L"of GetClientsList");
    return Say("GetClientsList", clients.size());
  }
  std::uint32_t GetPlaybackLogLengthMs() const override { return Count("GetPlaybackLogLengthMs"); }
  std::uint32_t GetPlaybackLogSize() const override { return Count("GetPlaybackLogSize"); }
  bool GetLoggingClientsList(std::map<String, bool>& clients) const override {
    clients[L"of GetLoggingClientsList"] = answer_;
    return Say("GetLoggingClientsList", clients.size());
  }
  std::int32_t GetLoggingStatus() const override {
    Say("GetLoggingStatus");
    return answer_ ? -7 : 2;
  }
  bool GetPlaybackAttributes(unsigned int& lengthMs, unsigned int& size,
                             std::vector<String>& clients) const override {
    const bool answer = Say("GetPlaybackAttributes", lengthMs, size, clients.size());
    lengthMs = 71;
    size = 72;
    clients = {L"of GetPlaybackAttributes"};
    return answer;
  }
  std::uint32_t GetPlaybackRewindTimeScnds() const override {
    return Count("GetPlaybackRewindTimeScnds");
  }
  PlaybackSpeedType GetPlaybackSpeed() const override {
    Say("GetPlaybackSpeed");
    return answer_ ? PlaybackSpeed10x : PlaybackSpeed2x;
  }
  PlaybackStatusType GetPlaybackStatus() const override {
    Say("GetPlaybackStatus");
    return answer_ ? PlaybackFinished : PlaybackRewinding;
  }
  std::uint32_t GetPlaybackTimeScnds() const override { return Count("GetPlaybackTimeScnds"); }
  std::uint32_t GetRecordingTimeScnds() const override { return Count("GetRecordingTimeScnds"); }
  std::uint32_t GetStartPlaybackOffsetScnds() const override {
    return Count("GetStartPlaybackOffsetScnds");
  }
  bool SetPlaybackMode(PlaybackModeType mode) override { return Say("SetPlaybackMode", mode); }
  bool SetPeriodicEventDuration(unsigned int duration) override {
    return Say("SetPeriodicEventDuration", duration);
  }
  bool IsLogging() const override { return Say("IsLogging"); }
  bool IsSelectedForLogging(const unsigned short& clientId) const override {
    return Say("IsSelectedForLogging", clientId);
  }
  bool IsSelectedForPlayback(const unsigned short& clientId) const override {
    return Say("IsSelectedForPlayback", clientId);
  }
  bool IsValidPlaybackOffset(unsigned int offsetScnds) const override {
    return Say("IsValidPlaybackOffset", offsetScnds);
  }
  bool PausePlayback() override { return Say("PausePlayback"); }
  bool PlaybackNextMessage() override { return Say("PlaybackNextMessage"); }
  bool RegisterClient(IClient* client) override { return Say("RegisterClient", client); }
  bool ResetLoggingSelection() override { return Say("ResetLoggingSelection"); }
  bool ResetLoggingSelection(const String& clientId) override {
    return Say("ResetLoggingSelection", clientId);
  }
  bool ResetPlaybackSelection() override { return Say("ResetPlaybackSelection"); }
  bool ResumePlayback() override { return Say("ResumePlayback"); }
  bool RewindPlayback() override { return Say("RewindPlayback"); }
  bool SendControlStringToClient(const String& clientId, const String& control) override {
    return Say("SendControlStringToClient", clientId, control);
  }
  bool SelectForLogging(const String& clientId) override {
    return Say("SelectForLogging", clientId);
  }
  bool SelectForPlayback(const String& clientId) override {
    return Say("SelectForPlayback", clientId);
  }
  bool PlaybackData(const Memory::MemBlock& data) override { return Say("PlaybackData", &data); }
  bool SearchAndGetClientData(Memory::MemBlock& data, const String& clientId,
                              const unsigned short& dataId,
                              const unsigned int& offsetScnds) const override {
    return Say("SearchAndGetClientData", &data, clientId, dataId, offsetScnds);
  }
  bool SetLoggingOutputStream(const SmartPtr::Ptr<Io::IOutputStream>& stream) override {
    return Say("SetLoggingOutputStream", stream.get());
  }
  bool SetPlaybackInputStream(const SmartPtr::Ptr<Io::IInputStream>& stream) override {
    return Say("SetPlaybackInputStream", stream.get());
  }
  void SetPlaybackRewindTimeScnds(unsigned int seconds) override {
    Say("SetPlaybackRewindTimeScnds", seconds);
  }
  bool SetStartPlaybackOffsetScnds(unsigned int offsetScnds) override {
    return Say("SetStartPlaybackOffsetScnds", offsetScnds);
  }
  bool SetStartPlaybackSpeed(PlaybackSpeedType speed) override {
    return Say("SetStartPlaybackSpeed", speed);
  }
  bool StartLogging() override { return Say("StartLogging"); }
  bool StartPlayback() override { return Say("StartPlayback"); }
  bool StopLogging() override { return Say("StopLogging"); }
  void StopPlayback(bool wait) override { Say("StopPlayback", wait); }
  bool UnRegisterClient(IClient* client) override { return Say("UnRegisterClient", client); }
  bool UnRegisterClient(const String& clientId) override {
    return Say("UnRegisterClient", clientId);
  }
  bool WriteData(const SmartPtr::Ptr<ILogMessage>& message) override {
    return Say("WriteData", message.get());
  }

 private:
  template <class... Arguments>
  bool Say(const std::string& name, const Arguments&... arguments) const {
    std::string call = name;
    ((call += " " + Written(arguments)), ...);
    calls_.push_back(call);
    return answer_;
  }
  // A number that no other operation answers.
  std::uint32_t Count(const std::string& name) const {
    Say(name);
    return NumberOf(name) + (answer_ ? 0x80000000 : 0);
  }

  Calls& calls_;
  const bool answer_;
};

// What is handed through the facade and must arrive.
struct Things {
  RecordingClient client{L"GPS"};
  Memory::MemBlock block;
  SmartPtr::Ptr<Io::IOutputStream> output = std::make_shared<BytesOutputStream>();
  SmartPtr::Ptr<Io::IInputStream> input = std::make_shared<BytesInputStream>(Bytes());
  SmartPtr::Ptr<ILogMessage> message = MakeMessage(1, 1, "x");
  unsigned short id = 0xFFFE;
  unsigned short data_id = 0x8001;
  unsigned int number = 0xFFFFFFFF;
};

// One operation: how it is called, what the engine must hear, and what must be answered.
struct Row {
  std::string heard;
  std::function<std::string(IKestrav&)> call;
  std::string answer;
};

template <class Operation, class... Arguments>
std::function<std::string(IKestrav&)> Call(Operation operation, const Arguments&... arguments) {
  return [=](IKestrav& kestrav) { return Written((kestrav.*operation)(arguments...)); };
}

// All operations behind the destructor, in their order.
class Table {
 public:
  Table(Things& things, bool answer) : answer_(answer) {
    using I = IKestrav;
    using Id = const String&;
    const String gps = L"GPS";
    const std::string number = Written(things.number);
    const auto plain = [this](const std::string& name, auto operation) {
      Add(name, Call(operation));
    };
    const auto counter = [this](const std::string& name, auto operation) {
      const std::uint32_t count = NumberOf(name) + (answer_ ? 0x80000000 : 0);
      rows_.push_back({name, Call(operation), Written(count)});
    };
    Add("EnableEncryption " + Written(answer), Call(&I::EnableEncryption, answer));
    plain("FastForwardPlayback", &I::FastForwardPlayback);
    Add("GetClientsList 2", [](I& kestrav) {
      std::vector<String> clients{L"before"};
      const bool result = kestrav.GetClientsList(clients);
      EXPECT_EQ(clients, (std::vector<String>{L"before", L"of GetClientsList"}));
      return Written(result);
    });
    counter("GetPlaybackLogLengthMs", &I::GetPlaybackLogLengthMs);
    counter("GetPlaybackLogSize", &I::GetPlaybackLogSize);
    Add("GetLoggingClientsList 2", [answer](I& kestrav) {
      std::map<String, bool> clients{{L"before", true}};
      const bool result = kestrav.GetLoggingClientsList(clients);
      EXPECT_EQ(clients,
                (std::map<String, bool>{{L"before", true}, {L"of GetLoggingClientsList", answer}}));
      return Written(result);
    });
    Add("GetLoggingStatus", Call(&I::GetLoggingStatus), answer ? "-7" : "2");
    Add("GetPlaybackAttributes 61 62 1", [](I& kestrav) {
      unsigned int length_ms = 61;
      unsigned int size = 62;
      std::vector<String> clients{L"before"};
      const bool result = kestrav.GetPlaybackAttributes(length_ms, size, clients);
      EXPECT_EQ(length_ms, 71u);
      EXPECT_EQ(size, 72u);
      EXPECT_EQ(clients, std::vector<String>{L"of GetPlaybackAttributes"});
      return Written(result);
    });
    counter("GetPlaybackRewindTimeScnds", &I::GetPlaybackRewindTimeScnds);
    Add("GetPlaybackSpeed", Call(&I::GetPlaybackSpeed), answer ? "10" : "2");
    Add("GetPlaybackStatus", Call(&I::GetPlaybackStatus), answer ? "5" : "4");
    counter("GetPlaybackTimeScnds", &I::GetPlaybackTimeScnds);
    counter("GetRecordingTimeScnds", &I::GetRecordingTimeScnds);
    counter("GetStartPlaybackOffsetScnds", &I::GetStartPlaybackOffsetScnds);
    Add("SetPlaybackMode 2", Call(&I::SetPlaybackMode, PlaybackModePassThrough));
    Add("SetPeriodicEventDuration " + number, Call(&I::SetPeriodicEventDuration, things.number));
    plain("IsLogging", &I::IsLogging);
    Add("IsSelectedForLogging 65534", Call(&I::IsSelectedForLogging, things.id));
    Add("IsSelectedForPlayback 65534", Call(&I::IsSelectedForPlayback, things.id));
    Add("IsValidPlaybackOffset " + number, Call(&I::IsValidPlaybackOffset, things.number));
    plain("PausePlayback", &I::PausePlayback);
    plain("PlaybackNextMessage", &I::PlaybackNextMessage);
    IClient* const client = &things.client;
    Add("RegisterClient " + Written(client), Call(&I::RegisterClient, client));
    plain("ResetLoggingSelection", static_cast<bool (I::*)()>(&I::ResetLoggingSelection));
    Add("ResetLoggingSelection GPS",
        Call(static_cast<bool (I::*)(Id)>(&I::ResetLoggingSelection), gps));
    plain("ResetPlaybackSelection", &I::ResetPlaybackSelection);
    plain("ResumePlayback", &I::ResumePlayback);
    plain("RewindPlayback", &I::RewindPlayback);
    Add("SendControlStringToClient GPS on",
        Call(&I::SendControlStringToClient, gps, String(L"on")));
    Add("SelectForLogging GPS", Call(&I::SelectForLogging, gps));
    Add("SelectForPlayback GPS", Call(&I::SelectForPlayback, gps));
    Memory::MemBlock& block = things.block;
    Add("PlaybackData " + Written(&block),
        [&block](I& kestrav) { return Written(kestrav.PlaybackData(block)); });
    Add("SearchAndGetClientData " + Written(&block) + " GPS 32769 " + number, [&](I& kestrav) {
      return Written(
          kestrav.SearchAndGetClientData(things.block, L"GPS", things.data_id, things.number));
    });
    Add("SetLoggingOutputStream " + Written(things.output.get()),
        Call(&I::SetLoggingOutputStream, things.output));
    Add("SetPlaybackInputStream " + Written(things.input.get()),
        Call(&I::SetPlaybackInputStream, things.input));
    Add(
        "SetPlaybackRewindTimeScnds " + number,
        [&](I& kestrav) {
          kestrav.SetPlaybackRewindTimeScnds(things.number);
          return Nothing();
        },
        Nothing());
    Add("SetStartPlaybackOffsetScnds " + number,
        Call(&I::SetStartPlaybackOffsetScnds, things.number));
    Add("SetStartPlaybackSpeed 4", Call(&I::SetStartPlaybackSpeed, PlaybackSpeed4x));
    plain("StartLogging", &I::StartLogging);
    plain("StartPlayback", &I::StartPlayback);
    plain("StopLogging", &I::StopLogging);
    Add(
        "StopPlayback " + Written(answer),
        [answer](I& kestrav) {
          kestrav.StopPlayback(answer);
          return Nothing();
        },
        Nothing());
    Add("UnRegisterClient " + Written(client),
        Call(static_cast<bool (I::*)(IClient*)>(&I::UnRegisterClient), client));
    Add("UnRegisterClient GPS", Call(static_cast<bool (I::*)(Id)>(&I::UnRegisterClient), gps));
    Add("WriteData " + Written(things.message.get()), Call(&I::WriteData, things.message));
  }

  const std::vector<Row>& Rows() const { return rows_; }

 private:
  static std::string Nothing() { return "nothing"; }
  void Add(const std::string& heard, std::function<std::string(IKestrav&)> call) {
    rows_.push_back({heard, std::move(call), Written(answer_)});
  }
  void Add(const std::string& heard, std::function<std::string(IKestrav&)> call,
           const std::string& answer) {
    rows_.push_back({heard, std::move(call), answer});
  }

  const bool answer_;
  std::vector<Row> rows_;
};

class Facade : public testing::TestWithParam<bool> {};

TEST_P(Facade, HandsEveryOperationToTheEngineWithItsArgumentsAndResult) {
  Calls calls;
  Things things;
  const Table table(things, GetParam());
  auto facade = std::make_unique<KestravModuleImpl>();
  {
    FakeFactory factory(std::make_shared<NotingEngine>(calls, GetParam()));
    ASSERT_TRUE(Connect(*facade, factory));
    ASSERT_TRUE(facade->Start());
  }
  ASSERT_EQ(calls, Calls());
  for (const Row& row : table.Rows()) {
    EXPECT_EQ(row.call(*facade), row.answer) << row.heard;
    EXPECT_EQ(calls, Calls{row.heard});
    calls.clear();
  }
  IKestrav* const destroyed = facade.release();
  delete destroyed;
  EXPECT_EQ(calls, Calls{"~"});
}

INSTANTIATE_TEST_SUITE_P(Answers, Facade, testing::Bool());

// The destructor takes two places of the table of virtual operations, and the first operation that
// an engine adds stands behind those of the interface.
TEST(FacadeTable, MissesNoneOfThe46Operations) {
  Things things;
  const Table table(things, true);
  EXPECT_EQ(1 + table.Rows().size(), 46u);
  EXPECT_EQ(VtableSlot(&KestravImpl::Init), 2 + table.Rows().size());
}

}  // namespace
}  // namespace kestrav::test
